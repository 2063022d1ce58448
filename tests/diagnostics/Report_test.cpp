#include "diagnostics/Report.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "tests/support/LogCapture.h"

namespace {

using namespace System::Diagnostics;

TEST(Report, WritesTheLibrarysLinesAtTheirSeverities) {
    Support::LogCapture lines;
    LogError("a %i", 1);
    LogWarning("b %s", "x");
    LogInfo("c");
    ASSERT_EQ(lines.Lines().size(), 3u);
    char const* const texts[] = {"a 1", "b x", "c"};
    for (unsigned severity = 0; severity < 3; ++severity) {
        auto const& line = lines.Lines()[severity];
        EXPECT_EQ(line.severity, severity);
        EXPECT_EQ(line.component, 1u);
        EXPECT_EQ(line.name, "ERR");
        EXPECT_EQ(line.context, "-");
        EXPECT_EQ(line.text, texts[severity]);
    }
}

TEST(Report, CutsATextAfter1023Characters) {
    Support::LogCapture lines;
    for (std::size_t length : {1023u, 1024u}) {
        LogError("%s", std::string(length, 'x').c_str());
    }
    ASSERT_EQ(lines.Lines().size(), 2u);
    EXPECT_EQ(lines.Lines()[0].text, std::string(1023, 'x'));
    EXPECT_EQ(lines.Lines()[1].text, std::string(1023, 'x'));
}

TEST(Report, KeepsErrno) {
    Support::LogCapture lines;
    FLog::RegisterProc([](void*, unsigned, std::uint64_t, char const*, unsigned, long, char const*,
                          char const*) { errno = EIO; },
                       nullptr);
    errno = EPERM;
    LogError("changes nothing");
    EXPECT_EQ(errno, EPERM);
}

TEST(Report, TellsASeriousAssertionFromAMinorOneBySeverity) {
    Support::LogCapture lines;
    CDebug::Assert(true, "a == b", "Turnstile", 12);
    CDebug::Assert(false, "a == b", "Turnstile", -1);
    FLog::SetSeverityLevel(1, 0);
    CDebug::Assert(false, "filtered", "Turnstile", 1);
    ASSERT_EQ(lines.Lines().size(), 2u);
    EXPECT_EQ(lines.Lines()[0].severity, 0u);
    EXPECT_EQ(lines.Lines()[0].text, "a == b (Turnstile:12)");
    EXPECT_EQ(lines.Lines()[1].severity, 1u);
    EXPECT_EQ(lines.Lines()[1].text, "a == b (Turnstile:-1)");
}

TEST(Report, VerifiesByTellingWhetherAnInvariantHolds) {
    Support::LogCapture lines;
    EXPECT_TRUE(Verify(true, Gravity::kSerious, "holds", "Turnstile"));
    EXPECT_FALSE(Verify(false, Gravity::kMinor, "broken", "Turnstile"));
    EXPECT_EQ(lines.Asserted(1, "broken", "Turnstile"), 1u);
    EXPECT_EQ(lines.Lines().size(), 1u);
}

}  // namespace
