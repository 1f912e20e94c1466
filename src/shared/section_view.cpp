#include "shared/section_view.h"

#include <cstring>
#include <string>

namespace sentrel {

SectionView::SectionView(HANDLE section, DWORD access)
    : view_(MapViewOfFile(section, access, 0, 0, 0)) {
    if (!view_) {
        return;
    }
    // A view spans whole pages of one mapping, so the region that starts at its base is the view.
    MEMORY_BASIC_INFORMATION region{};
    if (VirtualQuery(view_.Get(), &region, sizeof(region)) == 0 ||
        region.RegionSize < kHeaderBytes) {
        const DWORD error = GetLastError();
        view_.Reset();
        SetLastError(error == ERROR_SUCCESS ? ERROR_INVALID_DATA : error);
        return;
    }
    bytes_ = region.RegionSize;
}

std::uint32_t SectionView::Stamp() const {
    std::uint32_t stamp;
    std::memcpy(&stamp, Base(), sizeof(stamp));
    return stamp;
}

std::uint16_t SectionView::FilterType() const {
    std::uint16_t type;
    std::memcpy(&type, Base() + 4, sizeof(type));
    return type;
}

std::u16string_view SectionView::Text() const {
    const auto* text = reinterpret_cast<const char16_t*>(Base() + kHeaderBytes);
    const std::size_t slots = TextSlots();
    const char16_t* end = std::char_traits<char16_t>::find(text, slots, u'\0');
    return std::u16string_view(text, end ? static_cast<std::size_t>(end - text) : slots);
}

bool SectionView::TextEquals(std::u16string_view text) const {
    const auto* stored = reinterpret_cast<const char16_t*>(Base() + kHeaderBytes);
    const std::size_t slots = TextSlots();
    if (text.size() > slots) {
        return false;
    }
    // Equal up to the new text's end, and the stored text ends there too (at its terminator or
    // at the end of the view).
    return std::memcmp(stored, text.data(), text.size() * sizeof(char16_t)) == 0 &&
           (text.size() == slots || stored[text.size()] == u'\0');
}

void SectionView::SetStamp(std::uint32_t stamp) {
    std::memcpy(Base(), &stamp, sizeof(stamp));
}

void SectionView::SetFilterType(std::uint16_t type) {
    std::memcpy(Base() + 4, &type, sizeof(type));
}

char16_t* SectionView::TextField() {
    return reinterpret_cast<char16_t*>(Base() + kHeaderBytes);
}

}  // namespace sentrel
