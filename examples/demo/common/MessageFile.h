#pragma once

#include <string>
#include <vector>

#include "common/Message.h"

namespace Demo {

/// Reads text messages, one in a line: sender, tab, recipient, tab, text, in UTF-8. In the text, \n stands
/// for a line feed, \t for a tab and \\ for a backslash. Messages are numbered from 0. Empty if the file
/// can't be read or a line is malformed.
std::vector<TextMessage> ReadMessageFile(std::string const& path);

}  // namespace Demo
