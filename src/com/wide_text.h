#pragma once

// Windows keeps wide text in 16-bit wchar_t, the same representation as the core's char16_t:
// these views convert between the two without copying.

#include <string>
#include <string_view>

static_assert(sizeof(wchar_t) == sizeof(char16_t), "wide text must be UTF-16");

namespace sentrel {

inline const wchar_t* AsWide(const char16_t* text) {
    return reinterpret_cast<const wchar_t*>(text);
}
inline wchar_t* AsWide(char16_t* text) {
    return reinterpret_cast<wchar_t*>(text);
}
inline const wchar_t* AsWide(const std::u16string& text) {
    return AsWide(text.c_str());
}
inline const char16_t* AsU16(const wchar_t* text) {
    return reinterpret_cast<const char16_t*>(text);
}

// A null pointer gives the empty text; otherwise the characters up to the first zero.
inline std::u16string_view U16View(const wchar_t* text) {
    return text ? std::u16string_view(AsU16(text)) : std::u16string_view();
}

}  // namespace sentrel
