#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "com/unique_resource.h"

namespace sentrel {

// A view of the shared policy section. Layout: stamp (u32), filter type (u16), two unused bytes,
// then UTF-16 text ending with a zero character. The section's size is not stored in it, so the
// view learns the size of what was really mapped and keeps every access inside it, whoever
// created the section and whatever its text holds.
class SectionView {
  public:
    static constexpr std::uint32_t kHeaderBytes = 8;

    SectionView() = default;
    // Maps the whole section; an empty view when mapping fails (the error stays the thread's last
    // error).
    SectionView(HANDLE section, DWORD access);

    explicit operator bool() const { return static_cast<bool>(view_); }

    // Characters the text field has room for, terminator included.
    std::size_t TextSlots() const { return (bytes_ - kHeaderBytes) / sizeof(char16_t); }

    std::uint32_t Stamp() const;
    std::uint16_t FilterType() const;
    // The text up to its terminator, or up to the end of the view when it has none.
    std::u16string_view Text() const;
    // Whether Text() equals the given text, which holds no zero character; one pass, no scan for
    // the terminator first.
    bool TextEquals(std::u16string_view text) const;

    // Writers only: the view must have been mapped for writing.
    void SetStamp(std::uint32_t stamp);
    void SetFilterType(std::uint16_t type);
    char16_t* TextField();

  private:
    std::byte* Base() const { return static_cast<std::byte*>(view_.Get()); }

    UniqueView view_;
    std::size_t bytes_ = 0;
};

}  // namespace sentrel
