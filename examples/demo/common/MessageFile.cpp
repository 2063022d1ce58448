#include "common/MessageFile.h"

#include <fstream>

namespace Demo {

namespace {

std::string Unescaped(std::string const& escaped) {
    std::string text;
    for (std::size_t i = 0; i < escaped.size(); ++i) {
        if (escaped[i] != '\\' || i + 1 == escaped.size()) {
            text += escaped[i];
            continue;
        }
        char const code = escaped[++i];
        text += code == 'n' ? '\n' : code == 't' ? '\t' : code;
    }
    return text;
}

}  // namespace

std::vector<TextMessage> ReadMessageFile(std::string const& path) {
    std::vector<TextMessage> messages;
    std::ifstream file(path, std::ios::binary);
    for (std::string line; std::getline(file, line);) {
        std::size_t const first = line.find('\t');
        std::size_t const second = line.find('\t', first + 1);
        if (first == std::string::npos || second == std::string::npos) {
            return {};
        }
        messages.push_back({static_cast<std::uint32_t>(messages.size()), line.substr(0, first),
                            line.substr(first + 1, second - first - 1), Unescaped(line.substr(second + 1))});
    }
    return messages;
}

}  // namespace Demo
