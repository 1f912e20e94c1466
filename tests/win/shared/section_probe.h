#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "shared/web_filter_file_mapper.h"

namespace sentrel::test {

// What the section "WebFilterMMF" holds, read directly (not through the mapper).
struct SectionContent {
    std::uint64_t bytes = 0;  // the section's size as created
    std::uint32_t stamp = 0;
    std::uint16_t type = 0;
    std::u16string text;  // up to the terminator or the section's end
};

// Nothing when no section exists.
std::optional<SectionContent> ProbeSection();

// What CheckContentChanged hands back from a given last stamp. Type and text start as
// kUntouchedType and kUntouchedText, so that a check that finds nothing shows them unchanged.
struct CheckResult {
    bool changed;
    std::uint32_t lastStamp;
    std::uint32_t type;
    std::u16string text;
};
inline constexpr std::uint32_t kUntouchedType = 0xC0FFEE;
inline constexpr char16_t kUntouchedText[] = u"untouched";

CheckResult CheckFrom(const WebFilterFileMapper& mapper, std::uint32_t lastStamp);

}  // namespace sentrel::test
