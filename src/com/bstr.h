#pragma once

#include <windows.h>

#include <oleauto.h>

#include <string_view>
#include <utility>

namespace sentrel {

// Owns one BSTR and frees it with SysFreeString on every way out.
class Bstr {
  public:
    Bstr() noexcept = default;
    Bstr(Bstr&& other) noexcept : text_(std::exchange(other.text_, nullptr)) {}
    Bstr& operator=(Bstr&& other) noexcept {
        Bstr old(std::move(*this));
        text_ = std::exchange(other.text_, nullptr);
        return *this;
    }
    ~Bstr() { SysFreeString(text_); }

    // A newly allocated BSTR of exactly the text's length, zeros inside the text included; null
    // when memory runs out.
    static Bstr Copy(std::u16string_view text) noexcept;
    // Takes over a BSTR that the caller owns.
    static Bstr Adopt(BSTR text) noexcept {
        Bstr adopted;
        adopted.text_ = text;
        return adopted;
    }

    BSTR Get() const noexcept { return text_; }
    explicit operator bool() const noexcept { return text_ != nullptr; }
    // The whole text by the BSTR's stated length; empty for a null BSTR.
    std::u16string_view View() const noexcept;

    // Gives the BSTR up, for a caller that will free it.
    BSTR Detach() noexcept { return std::exchange(text_, nullptr); }
    // For an out-parameter that receives a BSTR: the current one is freed first.
    BSTR* Put() noexcept {
        *this = Bstr();
        return &text_;
    }

  private:
    BSTR text_ = nullptr;
};

}  // namespace sentrel
