#include "module/registry_script.h"

#include <utility>

namespace sentrel {

namespace {

bool IsSpace(wchar_t c) {
    return c == L' ' || c == L'\t' || c == L'\r' || c == L'\n';
}

bool IsDelimiter(wchar_t c) {
    return IsSpace(c) || c == L'{' || c == L'}' || c == L'=' || c == L'\'';
}

// Keywords are ASCII words, matched ignoring case.
bool IsKeyword(std::wstring_view word, std::wstring_view keyword) {
    if (word.size() != keyword.size()) {
        return false;
    }
    for (std::size_t i = 0; i < word.size(); ++i) {
        const wchar_t c = word[i];
        const wchar_t folded = c >= L'A' && c <= L'Z' ? static_cast<wchar_t>(c - L'A' + L'a') : c;
        if (folded != keyword[i]) {
            return false;
        }
    }
    return true;
}

struct Token {
    enum class Kind { End, Open, Close, Equals, Word, Quoted, Invalid };
    Kind kind = Kind::End;
    std::wstring text;  // a word's or a quoted text's characters, quotes resolved
};

class Lexer {
  public:
    explicit Lexer(std::wstring_view text) : text_(text) {
        // A script saved with a byte order mark keeps it after decoding.
        if (!text_.empty() && text_.front() == L'\xFEFF') {
            text_.remove_prefix(1);
        }
    }

    Token Next() {
        while (position_ < text_.size() && IsSpace(text_[position_])) {
            ++position_;
        }
        if (position_ == text_.size()) {
            return {};
        }
        const wchar_t c = text_[position_];
        if (c == L'{' || c == L'}' || c == L'=') {
            ++position_;
            return {c == L'{' ? Token::Kind::Open
                              : (c == L'}' ? Token::Kind::Close : Token::Kind::Equals),
                    {}};
        }
        if (c == L'\'') {
            return Quoted();
        }
        const std::size_t start = position_;
        while (position_ < text_.size() && !IsDelimiter(text_[position_])) {
            ++position_;
        }
        return {Token::Kind::Word, std::wstring(text_.substr(start, position_ - start))};
    }

  private:
    Token Quoted() {
        Token token{Token::Kind::Quoted, {}};
        ++position_;
        while (position_ < text_.size()) {
            const wchar_t c = text_[position_++];
            if (c != L'\'') {
                token.text.push_back(c);
            } else if (position_ < text_.size() && text_[position_] == L'\'') {
                token.text.push_back(L'\'');
                ++position_;
            } else {
                return token;
            }
        }
        return {Token::Kind::Invalid, {}};
    }

    std::wstring_view text_;
    std::size_t position_ = 0;
};

class Parser {
  public:
    Parser(std::wstring_view text, const RegistryReplacements& replacements)
        : lexer_(text), replacements_(replacements) {
        Advance();
    }

    std::optional<RegistryScript> Script() {
        RegistryScript script;
        while (token_.kind != Token::Kind::End) {
            if (token_.kind != Token::Kind::Word ||
                !(IsKeyword(token_.text, L"hkcr") ||
                  IsKeyword(token_.text, L"hkey_classes_root"))) {
                return std::nullopt;
            }
            Advance();
            if (!Accept(Token::Kind::Open) || !Block(script.classesKeys, nullptr, 1)) {
                return std::nullopt;
            }
        }
        return script;
    }

  private:
    void Advance() { token_ = lexer_.Next(); }

    bool Accept(Token::Kind kind) {
        if (token_.kind != kind) {
            return false;
        }
        Advance();
        return true;
    }

    // The replacements made in a word or a quoted text.
    std::optional<std::wstring> Expand(std::wstring_view raw) const {
        std::wstring expanded;
        for (std::size_t i = 0; i < raw.size();) {
            if (raw[i] != L'%') {
                expanded.push_back(raw[i++]);
                continue;
            }
            const std::size_t end = raw.find(L'%', i + 1);
            if (end == std::wstring_view::npos) {
                return std::nullopt;
            }
            const std::wstring_view name = raw.substr(i + 1, end - i - 1);
            if (name.empty()) {
                expanded.push_back(L'%');
            } else if (const auto found = replacements_.find(name); found != replacements_.end()) {
                expanded += found->second;
            } else {
                return std::nullopt;
            }
            i = end + 1;
        }
        return expanded;
    }

    // A key or value name: one registry key name, so neither empty nor holding a backslash; a
    // keyword names nothing unless it is quoted.
    std::optional<std::wstring> Name() {
        const bool bareKeyword =
            token_.kind == Token::Kind::Word &&
            (IsKeyword(token_.text, L"val") || IsKeyword(token_.text, L"noremove") ||
             IsKeyword(token_.text, L"forceremove"));
        if ((token_.kind != Token::Kind::Word && token_.kind != Token::Kind::Quoted) ||
            bareKeyword) {
            return std::nullopt;
        }
        std::optional<std::wstring> name = Expand(token_.text);
        Advance();
        if (!name || name->empty() || name->find(L'\\') != std::wstring::npos) {
            return std::nullopt;
        }
        return name;
    }

    // "= s 'text'": the only value type that class registration needs is a string.
    std::optional<std::wstring> StringData() {
        if (!Accept(Token::Kind::Equals) || token_.kind != Token::Kind::Word ||
            !IsKeyword(token_.text, L"s")) {
            return std::nullopt;
        }
        Advance();
        if (token_.kind != Token::Kind::Quoted) {
            return std::nullopt;
        }
        std::optional<std::wstring> data = Expand(token_.text);
        Advance();
        return data;
    }

    // The items of a block up to its closing brace: subkeys into keys, and values into owner's
    // values (a value directly under the root has no owner and is rejected).
    bool Block(std::vector<RegistryScriptKey>& keys, RegistryScriptKey* owner, std::size_t depth) {
        while (!Accept(Token::Kind::Close)) {
            if (token_.kind == Token::Kind::Word && IsKeyword(token_.text, L"val")) {
                Advance();
                std::optional<std::wstring> name = Name();
                std::optional<std::wstring> data = name ? StringData() : std::nullopt;
                if (owner == nullptr || !data) {
                    return false;
                }
                owner->values.push_back({std::move(*name), std::move(*data)});
            } else if (!Key(keys, depth)) {
                return false;
            }
        }
        return true;
    }

    bool Key(std::vector<RegistryScriptKey>& keys, std::size_t depth) {
        if (depth > kRegistryScriptMaxDepth) {
            return false;
        }
        RegistryScriptKey key;
        if (token_.kind == Token::Kind::Word && IsKeyword(token_.text, L"noremove")) {
            key.removal = RegistryScriptKey::Removal::NoRemove;
            Advance();
        } else if (token_.kind == Token::Kind::Word && IsKeyword(token_.text, L"forceremove")) {
            key.removal = RegistryScriptKey::Removal::ForceRemove;
            Advance();
        }
        std::optional<std::wstring> name = Name();
        if (!name) {
            return false;
        }
        key.name = std::move(*name);
        if (token_.kind == Token::Kind::Equals) {
            key.defaultValue = StringData();
            if (!key.defaultValue) {
                return false;
            }
        }
        if (Accept(Token::Kind::Open) && !Block(key.subkeys, &key, depth + 1)) {
            return false;
        }
        keys.push_back(std::move(key));
        return true;
    }

    Lexer lexer_;
    const RegistryReplacements& replacements_;
    Token token_;
};

}  // namespace

std::optional<RegistryScript> ParseRegistryScript(std::wstring_view text,
                                                  const RegistryReplacements& replacements) {
    return Parser(text, replacements).Script();
}

}  // namespace sentrel
