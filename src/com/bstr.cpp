#include "com/bstr.h"

#include <limits>

#include "com/wide_text.h"

namespace sentrel {

Bstr Bstr::Copy(std::u16string_view text) noexcept {
    if (text.size() > std::numeric_limits<UINT>::max()) {
        return Bstr();
    }
    return Adopt(SysAllocStringLen(AsWide(text.data()), static_cast<UINT>(text.size())));
}

std::u16string_view Bstr::View() const noexcept {
    return text_ == nullptr ? std::u16string_view()
                            : std::u16string_view(AsU16(text_), SysStringLen(text_));
}

}  // namespace sentrel
