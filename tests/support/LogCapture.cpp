#include "tests/support/LogCapture.h"

#include <algorithm>

namespace Support {

using System::Diagnostics::FLog;

LogCapture::LogCapture() {
    FLog::Init();
    FLog::RegisterProc(Keep, this);
}

LogCapture::~LogCapture() {
    FLog::UnregisterProc(Keep, this);
    FLog::Terminate();
}

unsigned LogCapture::Count(std::string const& part) const {
    return static_cast<unsigned>(std::count_if(m_Lines.begin(), m_Lines.end(), [&](Line const& line) {
        return line.text.find(part) != std::string::npos;
    }));
}

unsigned LogCapture::Asserted(unsigned severity, std::string const& expression,
                              std::string const& source) const {
    std::string const start = expression + " (" + source + ":";
    return static_cast<unsigned>(std::count_if(m_Lines.begin(), m_Lines.end(), [&](Line const& line) {
        return line.severity == severity && line.text.starts_with(start);
    }));
}

void LogCapture::Keep(void* user, unsigned severity, std::uint64_t component, char const* name,
                      unsigned threadId, long time, char const* context, char const* text) {
    static_cast<LogCapture*>(user)->m_Lines.push_back(
        {severity, component, name, threadId, time, context, text});
}

}  // namespace Support
