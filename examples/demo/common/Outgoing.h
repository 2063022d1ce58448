#pragma once

#include <string>

#include "common/Message.h"

namespace Demo {

/// A text in the form in which it goes out, as hexadecimal digits.
struct Outgoing {
    Form form = Form::kGsm;
    std::string hex;
};

/// The GSM default alphabet where it holds every character of `text`, else UCS-2.
Outgoing ToOutgoing(std::string const& text);
/// The text behind an outgoing form; empty if that is malformed.
std::string FromOutgoing(Form form, std::string const& hex);

}  // namespace Demo
