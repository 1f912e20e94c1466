#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "shared/section_view.h"
#include "shared/web_filter_file_mapper.h"

namespace sentrel::test {

// What the section "WebFilterMMF" holds, read without a mapper; nothing when there is none.
struct SectionContent {
    std::uint32_t stamp = 0;
    std::uint16_t type = 0;
    std::u16string text;  // up to the terminator or the end of the view
    bool operator==(const SectionContent&) const = default;
};
inline std::optional<SectionContent> ProbeSection() {
    const UniqueHandle section(
        OpenFileMappingW(FILE_MAP_READ, FALSE, WebFilterFileMapper::kSectionName));
    const SectionView view(section.Get(), FILE_MAP_READ);
    return view ? std::optional(
                      SectionContent{view.Stamp(), view.FilterType(), std::u16string(view.Text())})
                : std::nullopt;
}

}  // namespace sentrel::test
