// Holds the runs of each level against the rule, which takes one character at a time: result, length and
// every byte of the output have to agree, and nothing behind the output may change.

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "tests/support/LogCapture.h"
#include "tests/text/Converters.h"

namespace {

using namespace System::Text;
using namespace System::Text::Testing;

struct Text {
    char const* name;
    char const* pattern;  // UTF-8
};

constexpr Text kTexts[] = {
    {"Ascii", "The quick brown fox, 12 lazy dogs: jump! "},
    {"Western", "Grüße aus Köln: à bientôt, mañana, ¿qué tal? "},
    {"WesternMarks", "“Œuvre” – 5€ … žluť "},
    {"Greek", "Καλημέρα κόσμε ΔΦΓΛΩΠΨΣΘΞ "},
    {"GreekNoSpace", "ΔΦΓΛΩΠΨΣΘΞαβγδεζηθικλμν"},
    {"Cjk", "短信中心将文本转换为十六进制数字并回复客户端"},
    {"CjkMixed", "短信 SMS は160文字 é Ж 까지。"},
    {"GsmSigns", "[x]{y}|~^\\€@$_Ç`"},
    {"Widths", "aé中b€ñ"},
};

// Every level that this processor has, the rule first; back to the best at the end.
class Levels {
public:
    Levels() = default;
    ~Levels() { SetRunLevel(BestRunLevel()); }
    Levels(Levels const&) = delete;
    Levels& operator=(Levels const&) = delete;

    template <typename Convert>
    static void Compare(Convert&& convert, std::string const& what) {
        SetRunLevel(RunLevel::kRule);
        auto const expected = convert();
        for (RunLevel const level :
             {RunLevel::kPortable, RunLevel::kSse2, RunLevel::kAvx2, RunLevel::kAvx512}) {
            if (SetRunLevel(level)) {
                ASSERT_TRUE(convert() == expected) << what << ", level " << static_cast<int>(level);
            }
        }
    }
};

// The bytes at the very end of a block of their own, so that AddressSanitizer sees a read behind them;
// `shift` moves their alignment.
class Placed {
public:
    Placed(std::string const& bytes, std::size_t shift) : m_Block(shift + bytes.size()), m_Shift(shift) {
        std::copy(bytes.begin(), bytes.end(), m_Block.begin() + static_cast<std::ptrdiff_t>(shift));
    }
    [[nodiscard]] std::string_view Bytes() const {
        return {m_Block.data() + m_Shift, m_Block.size() - m_Shift};
    }

private:
    std::vector<char> m_Block;
    std::size_t m_Shift;
};

enum class Direction { kFromUtf8, kToUtf8 };

void CompareAt(Utf8Converter const& converter, Direction direction, std::string const& bytes, unsigned room,
               std::size_t shift) {
    Placed const placed(bytes, shift);
    Levels::Compare(
        [&] {
            return direction == Direction::kFromUtf8 ? FromUtf8(converter, placed.Bytes(), room)
                                                     : ToUtf8(converter, placed.Bytes(), room);
        },
        std::to_string(bytes.size()) + " bytes, room " + std::to_string(room) + ", shift " +
            std::to_string(shift));
}

std::string Repeat(std::string const& pattern, std::size_t length) {
    std::string text;
    while (text.size() < length) {
        text += pattern;
    }
    return text.substr(0, length);
}

constexpr unsigned kRoom = 700;

// `text` in every length and in some that take several chunks of units, then some lengths in every room and
// with every kind of bad byte at every place.
void CompareAll(Utf8Converter const& converter, Direction direction, std::string const& text) {
    for (std::size_t length = 0; length <= 150; ++length) {
        ASSERT_NO_FATAL_FAILURE(
            CompareAt(converter, direction, Repeat(text, length), kRoom, length * 7 % 32));
    }
    for (unsigned const length : {1021U, 1536U, 3100U}) {
        ASSERT_NO_FATAL_FAILURE(CompareAt(converter, direction, Repeat(text, length), 4 * length, 0));
        ASSERT_NO_FATAL_FAILURE(CompareAt(converter, direction, Repeat(text, length), length / 2, 1));
    }
    for (std::size_t const length : {std::size_t{7}, std::size_t{34}, std::size_t{67}, std::size_t{132}}) {
        std::string const whole = Repeat(text, length);
        auto const full =
            static_cast<unsigned>(direction == Direction::kFromUtf8 ? FromUtf8(converter, whole).text.size()
                                                                    : ToUtf8(converter, whole).text.size());
        for (unsigned room = 0; room <= full + 1; ++room) {
            ASSERT_NO_FATAL_FAILURE(CompareAt(converter, direction, whole, room, room % 32));
        }
        for (std::size_t at = 0; at < length; ++at) {
            for (char const bad : {'\xFF', '\x80', '\xC3', '\xE2', '\0'}) {
                std::string spoiled = whole;
                spoiled[at] = bad;
                ASSERT_NO_FATAL_FAILURE(CompareAt(converter, direction, spoiled, kRoom, at % 32));
                ASSERT_NO_FATAL_FAILURE(CompareAt(converter, direction, spoiled, full / 2, at % 32));
            }
        }
    }
}

void CompareRandomBytes(Utf8Converter const& converter) {
    std::mt19937 random(4711);  // NOLINT: the same bytes in every run
    constexpr unsigned char kBytes[] = {'a',  'Z',  '0',  0,    0x1B, 0x65, 0x41, 0x80, 0x9F, 0xA0,
                                        0xBF, 0xC2, 0xC3, 0xCE, 0xDF, 0xE2, 0xEF, 0xF0, 0xFF, 0x0D};
    for (int round = 0; round < 2000; ++round) {
        std::string bytes(random() % 120, '\0');
        for (char& byte : bytes) {
            byte = static_cast<char>(kBytes[random() % (round % 2 == 0 ? std::size(kBytes) : 7)]);
        }
        auto const room = static_cast<unsigned>(random() % 300);
        ASSERT_NO_FATAL_FAILURE(CompareAt(converter, Direction::kFromUtf8, bytes, room, room % 32));
        ASSERT_NO_FATAL_FAILURE(CompareAt(converter, Direction::kToUtf8, bytes, room, room % 32));
    }
}

template <typename Converter>
class FastAgainstRule : public testing::Test {};

using Converters = testing::Types<UcsConv, UcsHexConv, GsmConv, Latin1Conv>;
TYPED_TEST_SUITE(FastAgainstRule, Converters);

TYPED_TEST(FastAgainstRule, AgreesFromUtf8) {
    Started<TypeParam> const converter;
    Levels const restore;
    for (Text const& text : kTexts) {
        SCOPED_TRACE(text.name);
        ASSERT_NO_FATAL_FAILURE(CompareAll(*converter, Direction::kFromUtf8, text.pattern));
    }
}

TYPED_TEST(FastAgainstRule, AgreesToUtf8) {
    Started<TypeParam> const converter;
    Levels const restore;
    for (Text const& text : kTexts) {
        SCOPED_TRACE(text.name);
        std::string const external = FromUtf8(*converter, text.pattern).text;
        if (!external.empty()) {
            ASSERT_NO_FATAL_FAILURE(CompareAll(*converter, Direction::kToUtf8, external));
        }
    }
}

TYPED_TEST(FastAgainstRule, AgreesOnRandomBytesAndWithAMissingChar) {
    Started<TypeParam> const converter;
    Levels const restore;
    for (char const missing : {'\0', '?', '\x9B', '\xFF'}) {
        converter->SetMissingChar(missing);
        ASSERT_NO_FATAL_FAILURE(CompareRandomBytes(*converter));
    }
}

}  // namespace
