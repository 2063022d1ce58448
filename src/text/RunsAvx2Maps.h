#pragma once

#include "text/Runs.h"

// The runs of the AVX2 level that the level above it uses as well; see Runs.

namespace System::Text::Avx2 {

void CopyAscii(Cursor& c);
void CopyAsciiNoNul(Cursor& c);
void CopyGsmPlain(Cursor& c);
void Latin1ToUnits(Cursor& c);
void UnitsToLatin1(Cursor& c);
void UnitsToHex(Cursor& c);
void HexToUnits(Cursor& c);
bool IsHex(std::uint8_t const* in, std::uint8_t const* end);

}  // namespace System::Text::Avx2
