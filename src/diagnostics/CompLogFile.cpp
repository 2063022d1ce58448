#include "diagnostics/CompLogFile.h"

#include <algorithm>
#include <cstdlib>
#include <new>

#include "corvalen/text/TextUtils.h"
#include "platform/Clock.h"
#include "platform/LocalTime.h"

namespace System::Diagnostics {

namespace {

using Units = std::char_traits<char16_t>;

constexpr unsigned kRoomForExtension = 16;
constexpr std::size_t kOlderPathCapacity = 1023;

std::string OlderPath(std::u16string path, char16_t const* suffix) {
    path.resize(std::min(path.size(), kOlderPathCapacity));
    path.resize(std::min(path.rfind(u'.'), path.size()));
    std::string older;
    Text::CTextUtils::ConvertWCHARtoUTF8((path + suffix).c_str(), older);
    return older;
}

}  // namespace

char16_t* NewPath(char16_t const* name, unsigned length, unsigned& size) {
    std::size_t const capacity = std::size_t{length} + kRoomForExtension;
    auto* const path = static_cast<char16_t*>(std::malloc(capacity * sizeof(char16_t)));
    if (path == nullptr) {
        throw std::bad_alloc();
    }
    std::size_t used = 0;
    while (used < capacity - 1 && name[used] != 0) {
        ++used;
    }
    Units::copy(path, name, used);
    path[used] = 0;
    size = static_cast<unsigned>(capacity * sizeof(char16_t));
    return path;
}

void AddExtension(char16_t* path, unsigned size, char16_t const* extension) {
    std::size_t const used = Units::length(path);
    std::size_t const room = size / sizeof(char16_t) - 1 - used;
    std::size_t const added = std::min(Units::length(extension), room);
    Units::copy(path + used, extension, added);
    path[used + added] = 0;
}

std::string_view CompLogFile::KeptTime::Text(char const* format, long time) {
    if (m_Length == 0 || time != m_Time) {
        m_Length = Platform::FormatLocalTime(m_Text.data(), m_Text.size(), format, time);
        m_Time = time;
    }
    return {m_Text.data(), m_Length};
}

std::unique_ptr<CompLogFile> CompLogFile::Open(char16_t const* path, CompLogFormat const& format) {
    std::unique_ptr<CompLogFile> file(new CompLogFile(format));
    std::string name;
    Text::CTextUtils::ConvertWCHARtoUTF8(path, name);
    if (!file->m_File.Open(name, OlderPath(path, format.olderSuffix))) {
        return nullptr;
    }
    std::string_view const firstLine = file->FirstLineOfNow();
    file->m_File.Append(std::span(&firstLine, 1));
    return file;
}

std::string_view CompLogFile::FirstLineOfNow() {
    char time[kTimeTextSize];
    Platform::FormatLocalTime(time, sizeof time, m_Format.timeFormat, Platform::Clock::WallSeconds());
    int const length = m_Format.formatFirstLine(m_FirstLine.data(), m_FirstLine.size(), time);
    return {m_FirstLine.data(), static_cast<std::size_t>(std::max(length, 0))};
}

bool CompLogFile::Write(std::span<std::string_view const> pieces) {
    m_File.Follow();
    if (m_File.IsEmpty()) {
        // The disk was full when the file was made, or someone has taken the file away.
        std::string_view const firstLine = FirstLineOfNow();
        m_File.Append(std::span(&firstLine, 1));
    }
    m_File.Append(pieces);
    if (m_File.Position() > m_Format.limit) {
        m_File.Rotate(FirstLineOfNow());
    }
    return m_File.IsOpen();
}

}  // namespace System::Diagnostics
