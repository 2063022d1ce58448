#include "corvalen/rpc/MemStream.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "tests/support/LogCapture.h"

namespace {

using System::RPC::MemInputStream;
using System::RPC::MemOutputStream;

std::string Content(MemOutputStream& stream) {
    std::uint32_t size = 77;
    auto const* const data = static_cast<char const*>(stream.GetData(&size));
    EXPECT_NE(data, nullptr);
    return data != nullptr ? std::string(data, size) : std::string();
}

void Fill(MemOutputStream& stream, std::uint32_t size) {
    std::vector<char> const bytes(size, 'x');
    stream.Write(bytes.data(), size);
}

// Whether a write moved the buffer is how its capacity shows from outside.
void const* Buffer(MemOutputStream& stream) {
    std::uint32_t size = 0;
    return stream.GetData(&size);
}

TEST(MemOutputStream, LaysValuesOneBehindTheOtherLowByteFirst) {
    MemOutputStream out;
    EXPECT_EQ(Content(out), "");
    out.WriteInt8(-2);
    out.WriteUInt8(0x81);
    out.WriteInt16(-3);
    out.WriteUInt16(0x1234);
    out.WriteInt32(-4);
    out.WriteUInt32(0x89ABCDEF);
    out.WriteInt(5);
    out.WriteBool(true);
    out.WriteBool(false);
    out.WriteStr("abc");
    out.WriteStr("");
    out.WriteStr(nullptr);
    out.Write("raw", 3);
    char const expected[] =
        "\xFE\x81\xFD\xFF\x34\x12\xFC\xFF\xFF\xFF\xEF\xCD\xAB\x89\x05\0\0\0\x01\0abc\0\0\0raw";
    EXPECT_EQ(Content(out), std::string(expected, sizeof(expected) - 1));
    EXPECT_EQ(out.GetOffset(), sizeof(expected) - 1);
}

TEST(MemOutputStream, GrowsWhenLessThanThreeBytesWouldBeLeft) {
    MemOutputStream out(1);
    Fill(out, 1020);
    void const* const first = Buffer(out);
    out.WriteInt8('y');
    EXPECT_EQ(Buffer(out), first);
    out.WriteInt8('z');
    EXPECT_NE(Buffer(out), first);
    EXPECT_EQ(Content(out), std::string(1020, 'x') + "yz");
}

TEST(MemOutputStream, GrowsByWhatIsNeededUpToTheNextKibibyte) {
    struct Probe : MemOutputStream {
        using MemOutputStream::Reallocate;
    };
    Probe out;
    out.Reallocate(1025);
    void const* const grown = Buffer(out);
    Fill(out, 2048 - 3);
    EXPECT_EQ(Buffer(out), grown) << "room for 2048";
    out.WriteInt8('y');
    EXPECT_NE(Buffer(out), grown) << "and no more";
}

TEST(MemOutputStream, GoesBackToItsFirstCapacityOnReset) {
    MemOutputStream out(4100);
    Fill(out, 9000);
    out.Reset();
    EXPECT_EQ(Content(out), "");
    void const* const first = Buffer(out);
    Fill(out, 4097);
    EXPECT_EQ(Buffer(out), first);
    Fill(out, 1);
    EXPECT_NE(Buffer(out), first);
}

TEST(MemOutputStream, KeepsWhatLiesBehindAnEarlierOffset) {
    MemOutputStream out;
    out.Write("0123456789", 10);
    out.SetOffset(2);
    EXPECT_EQ(Content(out), "01");
    out.Write("ab", 2);
    EXPECT_EQ(Content(out), "01ab");
    out.SetOffset(5000);
    std::string const content = Content(out);
    EXPECT_EQ(content, "01ab456789" + std::string(4990, '\0'));
}

TEST(MemOutputStream, FailsForGoodWhenTheBufferCannotGrow) {
    for (bool const byWrite : {true, false}) {
        MemOutputStream out;
        out.WriteInt8('a');
        if (byWrite) {
            out.Write("", std::numeric_limits<std::uint32_t>::max());
        } else {
            out.SetOffset(std::numeric_limits<std::uint32_t>::max());
        }
        out.WriteInt8('b');
        std::uint32_t size = 77;
        EXPECT_EQ(out.GetData(&size), nullptr);
        EXPECT_EQ(size, 0U);
        out.Reset();
        EXPECT_EQ(out.GetData(&size), nullptr) << "a reset does not heal it";
    }
}

TEST(MemOutputStream, HandsEveryValueToTheVirtualWrite) {
    struct Counting : MemOutputStream {
        void Write(void const* /*data*/, std::uint32_t size) override { total += size; }
        std::uint32_t total = 0;
    };
    Counting out;
    out.WriteInt8(1);
    out.WriteUInt16(1);
    out.WriteInt(1);
    out.WriteBool(true);
    out.WriteStr("abc");
    EXPECT_EQ(out.total, 1U + 2 + 4 + 1 + 4);
}

TEST(MemInputStream, ReadsBackWhatWasWritten) {
    MemOutputStream out;
    out.WriteInt16(-1);
    out.WriteUInt16(0xFFFF);
    out.WriteInt8(-5);
    out.WriteUInt8(250);
    out.WriteStr("text");
    out.WriteInt32(std::numeric_limits<int>::min());
    out.WriteUInt32(0xFFFFFFFE);
    out.WriteInt(7);
    out.WriteInt(8);
    std::string const bytes = Content(out);
    MemInputStream in(bytes.data(), static_cast<std::uint32_t>(bytes.size()));
    EXPECT_EQ(in.ReadInt16(), -1);
    EXPECT_EQ(in.ReadUInt16(), 65535);
    EXPECT_EQ(in.ReadInt8(), -5);
    EXPECT_EQ(in.ReadUInt8(), 250);
    EXPECT_STREQ(in.ReadStr(), "text");
    EXPECT_EQ(in.ReadInt32(), std::numeric_limits<int>::min());
    EXPECT_EQ(in.ReadUInt32(), 0xFFFFFFFE);
    MemInputStream view = in;
    EXPECT_EQ(in.ReadInt(), 7);
    EXPECT_EQ(in.ReadUInt(), 8U);
    EXPECT_EQ(in.SizeLeft(), 0);
    EXPECT_EQ(view.ReadInt(), 7) << "a copy has a position of its own";
}

struct ShortRead {
    char const* name;
    std::uint32_t left;
    bool (*givesNothing)(MemInputStream&);
};

constexpr ShortRead kShortReads[] = {
    {"Int32", 3,
     [](MemInputStream& in) {
         return in.ReadInt32() == 0;
     }},
    {"UInt16", 1,
     [](MemInputStream& in) {
         return in.ReadUInt16() == 0;
     }},
    {"Int8", 0,
     [](MemInputStream& in) {
         return in.ReadInt8() == 0;
     }},
    {"Raw", 2,
     [](MemInputStream& in) {
         return in.Read(3) == nullptr;
     }},
    {"RawAtTheEnd", 0,
     [](MemInputStream& in) {
         return in.Read(1) == nullptr;
     }},
    {"RawOfAlmostFourGigabytes", 5,
     [](MemInputStream& in) {
         return in.Read(0xFFFFFFFF) == nullptr;
     }},
    {"StringWithoutEnd", 2,
     [](MemInputStream& in) {
         return *in.ReadStr() == '\0';
     }},
    {"StringAtTheEnd", 0,
     [](MemInputStream& in) {
         return *in.ReadStr() == '\0';
     }},
};

class MemInputStreamShort : public testing::TestWithParam<ShortRead> {};

TEST_P(MemInputStreamShort, GivesNothingAndTakesTheRest) {
    MemInputStream in("aabbccddeeff", 8);
    in.SetOffset(8 - GetParam().left);
    EXPECT_TRUE(GetParam().givesNothing(in));
    EXPECT_EQ(in.SizeLeft(), 0);
    EXPECT_EQ(in.ReadInt8(), 0);
}

INSTANTIATE_TEST_SUITE_P(, MemInputStreamShort, testing::ValuesIn(kShortReads),
                         [](auto const& row) { return row.param.name; });

TEST(MemInputStream, PointsIntoTheData) {
    char const bytes[] = "\0abc";
    MemInputStream in(bytes, sizeof(bytes));
    EXPECT_STREQ(in.ReadStr(), "");
    EXPECT_EQ(in.GetOffset(), 1U);
    EXPECT_EQ(in.Read(0), bytes + 1);
    EXPECT_EQ(in.ReadStr(), bytes + 1);
    EXPECT_EQ(in.Read(0), bytes + sizeof(bytes));
}

TEST(MemInputStream, IsEmptyWithoutData) {
    MemInputStream in(nullptr, 10);
    EXPECT_EQ(in.SizeLeft(), 0);
    EXPECT_EQ(in.ReadInt(), 0);
    in.SetData("ab", 2);
    EXPECT_EQ(in.ReadInt8(), 'a');
    in.SetData(nullptr, 10);
    EXPECT_EQ(in.SizeLeft(), 0);
    EXPECT_STREQ(in.ReadStr(), "");
}

TEST(MemInputStream, ReportsAnOffsetBeyondTheDataAndTakesTheEnd) {
    Support::LogCapture log;
    MemInputStream in("ab", 2);
    in.SetOffset(2);
    EXPECT_TRUE(log.Lines().empty());
    in.SetOffset(3);
    EXPECT_EQ(log.Asserted(0, "offset <= m_Len", "MemStream"), 1U);
    EXPECT_EQ(in.GetOffset(), 2U);
    EXPECT_EQ(in.ReadInt8(), 0);
}

}  // namespace
