#include "corvalen/text/NativeConv.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <memory>
#include <new>

#include "platform/CodePage.h"
#include "text/Frame.h"
#include "text/Singleton.h"

namespace System::Text {

namespace {

using Platform::CodePage;

constexpr char kSource[] = "NativeConv";

void CopyAscii(Cursor& c) {
    if (Runs const* const runs = CurrentRuns()) {
        runs->copyAscii(c);
    }
}

// UTF-8 into a chunk of units, until either is used up. Malformed bytes are skipped and counted.
void FillUnits(Cursor& c, unsigned& malformed) {
    Runs const* const runs = CurrentRuns();
    while (c.in != c.inEnd && c.Room() >= 2) {
        if (runs != nullptr) {
            runs->utf8ToUnits(c);
            if (c.in == c.inEnd || c.Room() < 2) {
                return;
            }
        }
        Utf8Char const character = ReadUtf8Char(c.in, c.inEnd);
        if (character.length == 0) {
            ++malformed;
            ++c.in;
            continue;
        }
        StoreUnit(c.out, character.value);
        c.in += character.length;
        c.out += 2;
    }
}

// Converts a whole text. Its malformed bytes are counted to the end, also when the output is full before.
CodePage::Stop EncodeText(CodePage const& codePage, Cursor& c, unsigned& malformed) {
    if (codePage.BeginsAsAscii()) {
        CopyAscii(c);
    }
    codePage.Begin();
    UnitChunk chunk;
    auto* filled = chunk.data();
    auto stop = CodePage::Stop::kEnd;
    do {
        Cursor fill{c.in, c.inEnd, filled, chunk.data() + chunk.size()};
        FillUnits(fill, malformed);
        c.in = fill.in;
        filled = chunk.data();
        if (stop != CodePage::Stop::kEnd) {
            continue;
        }
        std::uint8_t const* units = chunk.data();
        stop = codePage.Encode(units, fill.out, c.in == c.inEnd, c.out, c.outEnd);
        if (stop == CodePage::Stop::kEnd) {
            auto const left = static_cast<std::size_t>(fill.out - units);
            std::memmove(chunk.data(), units, left);
            filled = chunk.data() + left;
            if (left == 0 && codePage.IsAsciiAnywhere()) {
                CopyAscii(c);
            }
        }
    } while (c.in != c.inEnd);
    return stop;
}

// Writes units as UTF-8. A character of several bytes leaves a byte free behind it; one of a single byte may
// take the last. False when it stops before the end of the units.
bool WriteUnits(std::uint8_t const* units, std::uint8_t const* unitsEnd, Cursor& c) {
    if (c.out == c.outEnd) {
        return units == unitsEnd;
    }
    Cursor write{units, unitsEnd, c.out, c.outEnd - 1};
    if (Runs const* const runs = CurrentRuns()) {
        runs->unitsToUtf8(write);
    }
    while (write.in != write.inEnd) {
        std::uint16_t const unit = LoadUnit(write.in);
        std::size_t const count =
            WriteUtf8Char(unit, write.out, Utf8Length(unit) == 1 ? c.outEnd : write.outEnd);
        if (count == 0) {
            break;
        }
        write.in += 2;
        write.out += count;
        if (write.out == c.outEnd) {
            break;
        }
    }
    c.out = write.out;
    return write.in == write.inEnd;
}

// Converts until the text is used up or `c` has no more room; false if nothing could be converted at all.
bool DecodeText(CodePage const& codePage, Cursor& c) {
    auto const* const begin = c.in;
    if (codePage.BeginsAsAscii()) {
        CopyAscii(c);
    }
    if (c.in == c.inEnd) {
        return true;
    }
    bool anything = c.in != begin;
    codePage.Begin();
    UnitChunk chunk;
    CodePage::Stop stop;
    do {
        std::uint8_t* filled = chunk.data();
        stop = codePage.Decode(c.in, c.inEnd, filled, chunk.data() + chunk.size());
        anything = anything || filled != chunk.data();
        if (!WriteUnits(chunk.data(), filled, c)) {
            break;
        }
        if (codePage.IsAsciiAnywhere()) {
            CopyAscii(c);
        }
    } while (stop == CodePage::Stop::kFull);
    return anything && stop != CodePage::Stop::kFailed;
}

}  // namespace

NativeConv* NativeConv::s_Instance = nullptr;
int NativeConv::s_InitCount = 0;

NativeConv::NativeConv() : m_CodePage(new CodePage(Platform::UserCodeSet())) {}
NativeConv::~NativeConv() {
    delete m_CodePage;
}

void NativeConv::Init() {
    StartSingleton(s_Instance, s_InitCount, []() -> NativeConv* {
        try {
            return new NativeConv;
        } catch (std::bad_alloc const&) {
            return nullptr;
        }
    });
}

void NativeConv::Terminate() {
    StopSingleton(s_Instance, s_InitCount, kSource, [](Utf8Converter* converter) { delete converter; });
}

NativeConv* NativeConv::Instance() {
    return GetSingleton(s_Instance, s_InitCount, kSource);
}

bool NativeConv::IsValid(void const* /*src*/, unsigned int /*srcLen*/) const {
    return true;
}

unsigned int NativeConv::FromUtf8BufferSize(char const* /*src*/, unsigned int srcLen) const {
    return 2 * srcLen;
}

unsigned int NativeConv::ToUtf8BufferSize(void const* /*src*/, unsigned int srcLen) const {
    return 3 * srcLen;
}

int NativeConv::ToUtf8(void const* src, unsigned int srcLen, char* dst, unsigned int dstLen,
                       unsigned int* outLen) const {
    *outLen = 0;
    if (srcLen == 0) {
        return 0;
    }
    if (dstLen > INT_MAX) {
        return E2BIG;
    }
    Cursor c = MakeCursor(src, srcLen, dst, dstLen);
    if (!DecodeText(*m_CodePage, c)) {
        return EINVAL;
    }
    *outLen = dstLen - static_cast<unsigned>(c.Room());
    return *outLen != 0 ? 0 : E2BIG;
}

int NativeConv::FromUtf8(char const* src, unsigned int srcLen, void* dst, unsigned int dstLen,
                         unsigned int* outLen) const {
    *outLen = 0;
    if (srcLen == 0) {
        return 0;
    }
    if (srcLen > INT_MAX) {
        return EINVAL;
    }
    Cursor c = MakeCursor(src, srcLen, dst, dstLen);
    unsigned malformed = 0;
    auto const stop = EncodeText(*m_CodePage, c, malformed);
    // Only now: a procedure of the log may itself convert on this thread.
    for (; malformed != 0; --malformed) {
        Diagnostics::LogWarning("Bad Utf8 string discovered");
    }
    if (stop != CodePage::Stop::kEnd) {
        return stop == CodePage::Stop::kFull ? E2BIG : EINVAL;
    }
    *outLen = dstLen - static_cast<unsigned>(c.Room());
    return *outLen != 0 ? 0 : EINVAL;
}

}  // namespace System::Text
