#include "corvalen/diagnostics/Trace.h"

#include <cstdint>

#include "platform/DebugOutput.h"

namespace System::Diagnostics {

CTraceListener::~CTraceListener() = default;

void CTraceListener::Fail(std::string, std::string) {}
void CTraceListener::Fail(std::string) {}

void CTraceListener::Write(std::string text, std::string category) {
    Write(" " + category + ": " + text);
}

void CTraceListener::Write(std::string) {
    if (get_NeedIndent()) {
        WriteIndent();
    }
}

void CTraceListener::WriteLine(std::string text, std::string category) {
    WriteLine(" " + category + ": " + text);
}

void CTraceListener::WriteLine(std::string text) {
    Write(text + "\n");
    put_NeedIndent(true);
}

bool CTraceListener::get_NeedIndent() {
    return m_NeedIndent;
}

void CTraceListener::put_NeedIndent(bool isNeeded) {
    m_NeedIndent = isNeeded;
}

void CTraceListener::WriteIndent() {
    std::int64_t const blanks = std::int64_t{m_IndentSize} * m_IndentLevel;
    // First, so that the Write below does not start the indentation again.
    m_NeedIndent = false;
    Write(std::string(blanks > 0 ? static_cast<std::size_t>(blanks) : 0, ' '));
}

void CDefaultTraceListener::Close() {}
void CDefaultTraceListener::Flush() {}

void CDefaultTraceListener::Write(std::string text) {
    Platform::DebugOutput(text.data(), text.size());
}

CTraceListenerCollection::CTraceListenerCollection() : m_DefaultListener(new CDefaultTraceListener) {
    m_Items.push_back(m_DefaultListener);
}

CTraceListenerCollection::~CTraceListenerCollection() = default;

void CTraceListenerCollection::Add(CTraceListener* listener) {
    m_Items.push_back(listener);
}

void CTraceListenerCollection::Clear() {
    while (!m_Items.empty()) {
        delete m_Items.front();
        m_Items.erase(m_Items.begin());
    }
    m_Items.shrink_to_fit();
    m_DefaultListener = nullptr;
}

CTraceListenerCollection::Iterator CTraceListenerCollection::Begin() {
    return m_Items.begin();
}

CTraceListenerCollection::Iterator CTraceListenerCollection::End() {
    return m_Items.end();
}

CTraceListener* CTraceListenerCollection::Next(Iterator& position) {
    return position == m_Items.end() ? nullptr : *position++;
}

CTraceListener* CTraceListenerCollection::Current(Iterator position) {
    return position == m_Items.end() ? nullptr : *position;
}

constinit CTraceListenerCollection* CTrace::m_Listeners = nullptr;
constinit bool CTrace::m_bAutoFlush = false;
constinit int CTrace::m_nIndendLevel = 0;
constinit int CTrace::m_nIndendSize = 5;

void CTrace::Init() {
    m_Listeners = new CTraceListenerCollection;
}

void CTrace::Terminate() {
    if (m_Listeners != nullptr) {
        m_Listeners->Clear();
        delete std::exchange(m_Listeners, nullptr);
    }
}

bool CTrace::get_AutoFlush() {
    return m_bAutoFlush;
}

void CTrace::put_AutoFlush(bool isOn) {
    m_bAutoFlush = isOn;
}

int CTrace::get_IndentLevel() {
    return m_nIndendLevel;
}

void CTrace::put_IndentLevel(int level) {
    m_nIndendLevel = level;
}

int CTrace::get_IndentSize() {
    return m_nIndendSize;
}

void CTrace::put_IndentSize(int size) {
    m_nIndendSize = size;
}

CTraceListenerCollection*& CTrace::GetListeners() {
    return m_Listeners;
}

void CTrace::Assert(bool) {}
void CTrace::Assert(bool, std::string) {}
void CTrace::Assert(bool, std::string, std::string) {}
void CTrace::Fail(std::string) {}
void CTrace::Fail(std::string, std::string) {}
void CTrace::Write(std::string) {}
void CTrace::Write(std::string, std::string) {}
void CTrace::WriteLine(std::string) {}
void CTrace::WriteLine(std::string, std::string) {}
void CTrace::WriteIf(bool, std::string) {}
void CTrace::WriteIf(bool, std::string, std::string) {}
void CTrace::WriteLineIf(bool, std::string) {}
void CTrace::WriteLineIf(bool, std::string, std::string) {}
void CTrace::Indent() {}
void CTrace::Unindent() {}
void CTrace::Flush() {}
void CTrace::Close() {}

}  // namespace System::Diagnostics
