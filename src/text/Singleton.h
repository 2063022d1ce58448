#pragma once

#include "diagnostics/Report.h"

// How each converter starts, stops and shows its one object. `make` gives a new object, or null without
// memory.

namespace System::Text {

inline bool VerifyStarted(int initCount, char const* source) {
    return Diagnostics::Verify(initCount > 0, Diagnostics::Gravity::kSerious, "s_InitCount > 0", source);
}

template <typename Converter, typename Make>
void StartSingleton(Converter*& instance, int& initCount, Make&& make) {
    if (initCount == 0) {
        instance = make();
    }
    ++initCount;
}

template <typename Converter, typename End>
void StopSingleton(Converter*& instance, int& initCount, char const* source, End&& end) {
    VerifyStarted(initCount, source);
    --initCount;
    if (initCount == 0) {
        end(instance);
        instance = nullptr;
    }
}

template <typename Converter>
Converter* GetSingleton(Converter* instance, int initCount, char const* source) {
    VerifyStarted(initCount, source);
    return instance;
}

}  // namespace System::Text
