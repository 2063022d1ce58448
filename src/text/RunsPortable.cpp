#include "text/RunsPortable.h"

namespace System::Text {

constinit Runs const kPortableRuns = {
    .utf8ToUnits = Portable::Utf8ToUnits,
    .unitsToUtf8 = Portable::UnitsToUtf8,
    .utf8ToLatin1 = Portable::CopyAscii,
    .latin1ToUtf8 = Portable::CopyAsciiNoNul,
    .unitsToHex = Portable::UnitsToHex,
    .hexToUnits = Portable::HexToUnits,
    .copyAscii = Portable::CopyAscii,
    .copyGsmPlain = Portable::CopyGsmPlain,
    .latin1ToUnits = Portable::Latin1ToUnits,
    .unitsToLatin1 = Portable::UnitsToLatin1,
    .unitsToGsm = nullptr,
    .isHex = Portable::IsHex,
};

}  // namespace System::Text
