#include "corvalen/platform/Bstr.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>

namespace {

TEST(Bstr, CarriesItsBytesBeforeItsUnits) {
    BSTR const text = SysAllocString(u"\u20ACuro");
    ASSERT_NE(text, nullptr);
    std::uint32_t bytes = 0;
    std::memcpy(&bytes, reinterpret_cast<char*>(text) - 4, sizeof bytes);
    EXPECT_EQ(bytes, 8U);
    EXPECT_EQ(SysStringLen(text), 4U);
    EXPECT_EQ(std::u16string(text), u"\u20ACuro");
    SysFreeString(text);
}

TEST(Bstr, CountsWhatItWasGivenAndNotWhatStandsBeforeAZero) {
    BSTR const text = SysAllocStringLen(u"a\0b", 3);
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(SysStringLen(text), 3U);
    EXPECT_EQ(std::u16string(text, 4), std::u16string(u"a\0b\0", 4));
    SysFreeString(text);
}

TEST(Bstr, LeavesRoomThatTheCallerFills) {
    BSTR const text = SysAllocStringLen(nullptr, 2);
    ASSERT_NE(text, nullptr);
    text[0] = text[1] = u'x';
    EXPECT_EQ(std::u16string(text), u"xx");
    SysFreeString(text);
}

TEST(Bstr, TakesNullForNothing) {
    EXPECT_EQ(SysAllocString(nullptr), nullptr);
    EXPECT_EQ(SysStringLen(nullptr), 0U);
    SysFreeString(nullptr);
}

TEST(Bstr, RefusesMoreThanItsCountCanHold) {
    EXPECT_EQ(SysAllocStringLen(nullptr, 0x80000000U), nullptr);
}

}  // namespace
