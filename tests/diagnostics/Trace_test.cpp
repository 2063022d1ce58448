#include "corvalen/diagnostics/Trace.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "corvalen/platform/DebugOutput.h"

namespace {

using namespace System::Diagnostics;
using Texts = std::vector<std::string>;

// Writes its texts, indentation included, where the test sees them; tells of its end.
class Recorder : public CTraceListener {
public:
    explicit Recorder(Texts& texts, bool isIndented = true) : m_Texts(texts), m_IsIndented(isIndented) {}
    ~Recorder() override { m_Texts.push_back("gone"); }
    using CTraceListener::Write;
    void Close() override {}
    void Flush() override {}
    void Write(std::string text) override {
        if (m_IsIndented) {
            CTraceListener::Write(text);
        }
        m_Texts.push_back(text);
    }

private:
    Texts& m_Texts;
    bool m_IsIndented;
};

TEST(TraceListener, IndentsOnceForEachLine) {
    Texts texts;
    Recorder listener(texts);
    listener.put_IndentLevel(2);
    listener.Write("a");
    listener.Write("b");
    listener.WriteLine("c");
    listener.Write("d");
    EXPECT_EQ(texts, (Texts{"        ", "a", "b", "c\n", "        ", "d"}));
}

TEST(TraceListener, WritesAnEmptyIndentationForAProductOf0OrLess) {
    struct Case {
        int level, size;
    };
    for (auto const [level, size] : {Case{0, 4}, Case{-1, 4}, Case{3, 0}, Case{1 << 30, -(1 << 30)}}) {
        Texts texts;
        Recorder listener(texts);
        listener.put_IndentLevel(level);
        listener.put_IndentSize(size);
        listener.Write("a");
        EXPECT_EQ(texts, (Texts{"", "a"})) << level << " times " << size;
        EXPECT_EQ(listener.get_IndentLevel(), level);
        EXPECT_EQ(listener.get_IndentSize(), size);
    }
}

TEST(TraceListener, PutsACategoryInFrontOfTheText) {
    Texts texts;
    Recorder listener(texts, false);
    CTraceListener& base = listener;
    base.Write("x", "y");
    base.WriteLine("x", "y");
    base.Fail("x");
    base.Fail("x", "y");
    EXPECT_EQ(texts, (Texts{" y: x", " y: x\n"}));
}

TEST(TraceListener, StartsWithoutANameAndWithFourBlanksForALevel) {
    Texts texts;
    Recorder listener(texts);
    EXPECT_EQ(listener.put_Name(), "");
    listener.put_Name("n");
    EXPECT_EQ(listener.put_Name(), "n");
    EXPECT_EQ(listener.get_IndentLevel(), 0);
    EXPECT_EQ(listener.get_IndentSize(), 4);
}

Texts s_Debugger;

TEST(DefaultTraceListener, HandsEachTextToTheDebuggerAsItIs) {
    s_Debugger.clear();
    System::Platform::ReplaceDebugSink(
        [](char const* text, std::size_t length) { s_Debugger.emplace_back(text, length); });
    CDefaultTraceListener listener;
    listener.put_IndentLevel(1);
    listener.Write("x", "y");
    listener.CTraceListener::WriteLine("z");
    listener.Fail("not written");
    System::Platform::ReplaceDebugSink(nullptr);
    EXPECT_EQ(s_Debugger, (Texts{" y: x", "z\n"}));
}

TEST(TraceListenerCollection, IsWalkedInTheOrderOfAddition) {
    Texts texts;
    CTraceListenerCollection listeners;
    auto* const added = new Recorder(texts);
    listeners.Add(added);
    auto position = listeners.Begin();
    EXPECT_NE(dynamic_cast<CDefaultTraceListener*>(listeners.Current(position)), nullptr);
    EXPECT_NE(dynamic_cast<CDefaultTraceListener*>(listeners.Next(position)), nullptr);
    EXPECT_EQ(listeners.Next(position), added);
    EXPECT_EQ(listeners.Next(position), nullptr);
    EXPECT_EQ(listeners.Current(position), nullptr);
    EXPECT_EQ(position, listeners.End());
    listeners.Clear();
}

TEST(TraceListenerCollection, DestroysDerivedListenersInClearAndCanBeFilledAgain) {
    Texts texts;
    CTraceListenerCollection listeners;
    listeners.Add(new Recorder(texts));
    listeners.Add(nullptr);
    listeners.Add(new Recorder(texts));
    listeners.Clear();
    EXPECT_EQ(texts, (Texts{"gone", "gone"}));
    EXPECT_EQ(listeners.Begin(), listeners.End());
    listeners.Clear();
    listeners.Add(new Recorder(texts));
    EXPECT_NE(listeners.Current(listeners.Begin()), nullptr);
    listeners.Clear();
}

TEST(Trace, HasListenersOnlyBetweenInitAndTerminate) {
    EXPECT_EQ(CTrace::GetListeners(), nullptr);
    CTrace::Init();
    Texts texts;
    ASSERT_NE(CTrace::GetListeners(), nullptr);
    CTrace::GetListeners()->Add(new Recorder(texts));
    CTrace::Write("reaches nobody");
    CTrace::WriteLineIf(true, "reaches nobody", "y");
    CTrace::Fail("reaches nobody");
    CTrace::Assert(false, "reaches nobody");
    EXPECT_EQ(texts, Texts{});
    CTrace::Terminate();
    EXPECT_EQ(texts, Texts{"gone"});
    EXPECT_EQ(CTrace::GetListeners(), nullptr);
    CTrace::Terminate();
}

TEST(Trace, KeepsItsSettingsAsTheyAreSet) {
    EXPECT_FALSE(CTrace::get_AutoFlush());
    EXPECT_EQ(CTrace::get_IndentLevel(), 0);
    EXPECT_EQ(CTrace::get_IndentSize(), 5);
    CTrace::put_IndentLevel(3);
    CTrace::Indent();
    CTrace::Indent();
    CTrace::Unindent();
    EXPECT_EQ(CTrace::get_IndentLevel(), 3);
    CTrace::put_IndentLevel(0);
}

}  // namespace
