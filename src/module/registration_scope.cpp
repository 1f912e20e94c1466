#include "module/registration_scope.h"

#include <iterator>

namespace sentrel {

RegistrationScope ScopeOfInstallCommandLine(const wchar_t* commandLine) noexcept {
    if (commandLine == nullptr) {
        return RegistrationScope::Machine;
    }
    // Five characters with the terminator: "users" or "user x" are not the word alone. Only A to
    // Z are folded, so no other character can pass for one of the word's letters.
    constexpr wchar_t kWord[] = L"user";
    for (std::size_t i = 0; i < std::size(kWord); ++i) {
        const wchar_t c = commandLine[i];
        const wchar_t folded = c >= L'A' && c <= L'Z' ? static_cast<wchar_t>(c - L'A' + L'a') : c;
        if (folded != kWord[i]) {
            return RegistrationScope::Machine;
        }
    }
    return RegistrationScope::User;
}

}  // namespace sentrel
