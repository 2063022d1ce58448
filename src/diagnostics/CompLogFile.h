#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "platform/AppendFile.h"

namespace System::Diagnostics {

// What tells the files of the two component logs apart.
struct CompLogFormat {
    char16_t const* extension;
    char16_t const* olderSuffix;  // of the older generation's name, in the place of the extension
    std::int64_t limit;           // bytes above which the file is rotated
    char const* timeFormat;
    // Writes the line that begins a file, of the local time `time`, with snprintf.
    int (*formatFirstLine)(char* buffer, std::size_t size, char const* time);
};

// Makes the block of a component log's path, from malloc, with room for the extension, and sets `size` to its
// bytes; takes over `name` as far as it fits.
char16_t* NewPath(char16_t const* name, unsigned length, unsigned& size);
// Puts `extension` behind the path in a block of `size` bytes, as far as it fits.
void AddExtension(char16_t* path, unsigned size, char16_t const* extension);

// The file of a component log: its first line, its time column, its rotation. The log's lock guards it.
class CompLogFile {
public:
    // Opens the file and writes its first line; null if it can't be opened.
    static std::unique_ptr<CompLogFile> Open(char16_t const* path, CompLogFormat const& format);

    // The local time of a line in the format's form, good until the next call.
    std::string_view TimeText(long time) { return m_LineTime.Text(m_Format.timeFormat, time); }

    // Appends a line, and rotates the file if it is above the limit then. False when there is no file any
    // more.
    bool Write(std::span<std::string_view const> pieces);

private:
    static constexpr std::size_t kTimeTextSize = 128;
    static constexpr std::size_t kFirstLineSize = 256;

    // The text of the last second that was asked for: most lines have the second of the line before.
    class KeptTime {
    public:
        std::string_view Text(char const* format, long time);

    private:
        long m_Time = 0;
        std::size_t m_Length = 0;
        std::array<char, kTimeTextSize> m_Text;
    };

    explicit CompLogFile(CompLogFormat const& format) : m_Format(format) {}
    std::string_view FirstLineOfNow();

    CompLogFormat const& m_Format;
    Platform::AppendFile m_File;
    KeptTime m_LineTime;
    std::array<char, kFirstLineSize> m_FirstLine;
};

}  // namespace System::Diagnostics
