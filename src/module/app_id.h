#pragma once

#include <windows.h>

namespace sentrel {

// The module's AppID, {E2905BB3-4719-4440-8FC6-15C3424C9EC8}: only the registration scripts name
// it, through the replacement %APPID%.
inline constexpr GUID kSentrelAppId{
    0xE2905BB3, 0x4719, 0x4440, {0x8F, 0xC6, 0x15, 0xC3, 0x42, 0x4C, 0x9E, 0xC8}};

}  // namespace sentrel
