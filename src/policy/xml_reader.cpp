#include "policy/xml_reader.h"

#include <algorithm>
#include <array>
#include <utility>

#include "policy/utf16le.h"
#include "policy/xml_characters.h"
#include "text/ascii_case.h"

namespace sentrel {
namespace {

// The buffer's first size; a node longer than half of it doubles it.
constexpr std::size_t kChunkUnits = 32 * 1024;

// Elements may nest this deep, as with the platform reader's default settings; deeper documents
// count as malformed.
constexpr std::size_t kMaxDepth = 256;

// How the reader's inner loops see each ASCII character.
enum AsciiClass : std::uint8_t {
    kNameStart = 1,  // may start a name or the part after its colon
    kNameChar = 2,   // may continue one
    kPlainText = 4,  // text takes it as it stands, and it ends white space
    kBlankText = 8,  // white space that text takes as it stands
};

constexpr std::array<std::uint8_t, 0x80> kAsciiClasses = [] {
    std::array<std::uint8_t, 0x80> classes{};
    for (char16_t ch = 0; ch < 0x80; ++ch) {
        // The colon is left to the name parser, which allows one.
        const bool colon = ch == u':';
        const bool markup = ch == u'&' || ch == u'<' || ch == u'>';
        classes[ch] =
            static_cast<std::uint8_t>((IsAsciiXmlNameStartChar(ch) && !colon ? kNameStart : 0) |
                                      (IsAsciiXmlNameChar(ch) && !colon ? kNameChar : 0) |
                                      (ch > u' ' && !markup ? kPlainText : 0) |
                                      (IsXmlWhiteSpace(ch) && ch != u'\r' ? kBlankText : 0));
    }
    return classes;
}();

// Beyond ASCII, everything up to the surrogates is plain text.
std::uint8_t ClassOf(char16_t ch) {
    if (ch < 0x80) {
        return kAsciiClasses[ch];
    }
    return ch < 0xD800 ? kPlainText : 0;
}

int DigitValue(char16_t ch, bool hex) {
    if (ch >= u'0' && ch <= u'9') {
        return ch - u'0';
    }
    if (hex && ch >= u'a' && ch <= u'f') {
        return ch - u'a' + 10;
    }
    if (hex && ch >= u'A' && ch <= u'F') {
        return ch - u'A' + 10;
    }
    return -1;
}

void AppendCodePoint(std::u16string& text, char32_t codePoint) {
    if (codePoint < 0x10000) {
        text.push_back(static_cast<char16_t>(codePoint));
        return;
    }
    const char32_t offset = codePoint - 0x10000;
    text.push_back(static_cast<char16_t>(0xD800 + (offset >> 10)));
    text.push_back(static_cast<char16_t>(0xDC00 + (offset & 0x3FF)));
}

bool IsDigit(char16_t ch) {
    return DigitValue(ch, false) >= 0;
}

bool IsAsciiLetter(char16_t ch) {
    return (ch >= u'a' && ch <= u'z') || (ch >= u'A' && ch <= u'Z');
}

// The forms of the declaration's values. An encoding name only has to be one: the input is read
// as UTF-16LE whatever it names.
bool IsVersionNumber(std::u16string_view value) {
    return value.size() > 2 && value.starts_with(u"1.") &&
           std::all_of(value.begin() + 2, value.end(), IsDigit);
}

bool IsEncodingName(std::u16string_view value) {
    return !value.empty() && IsAsciiLetter(value.front()) &&
           std::all_of(value.begin() + 1, value.end(), [](char16_t ch) {
               return IsAsciiLetter(ch) || IsDigit(ch) || ch == u'.' || ch == u'_' || ch == u'-';
           });
}

bool IsStandaloneValue(std::u16string_view value) {
    return value == u"yes" || value == u"no";
}

// The declaration's pseudo-attributes in the only order they may stand in.
struct PseudoAttribute {
    std::u16string_view name;
    bool (*isValid)(std::u16string_view value);
};
constexpr PseudoAttribute kDeclarationAttributes[] = {
    {u"version", IsVersionNumber},
    {u"encoding", IsEncodingName},
    {u"standalone", IsStandaloneValue},
};

char32_t PredefinedEntity(std::u16string_view name) {
    static constexpr std::pair<std::u16string_view, char32_t> kEntities[] = {
        {u"lt", U'<'}, {u"gt", U'>'}, {u"amp", U'&'}, {u"apos", U'\''}, {u"quot", U'"'},
    };
    for (const auto& [entity, value] : kEntities) {
        if (entity == name) {
            return value;
        }
    }
    return 0;
}

}  // namespace

XmlReader::XmlReader(std::shared_ptr<ByteStream> input)
    : input_(std::move(input)), inputEnded_(input_ == nullptr) {}

XmlReadResult XmlReader::Read() {
    if (phase_ == Phase::Ended) {
        return XmlReadResult::EndOfInput;
    }
    if (phase_ == Phase::Failed) {
        return XmlReadResult::Malformed;
    }
    for (;;) {
        if (begin_ == end_ && !inputEnded_) {
            Refill();
            continue;
        }
        if (phase_ == Phase::Initial) {
            if (begin_ < end_ && text_[begin_] == u'\uFEFF') {
                ++begin_;
            }
            phase_ = Phase::DocumentStart;
            continue;
        }
        if (begin_ == end_) {
            // A stray byte after the last whole code unit is input that is not UTF-16 text.
            const bool complete = phase_ == Phase::Epilog && !pendingByte_;
            phase_ = complete ? Phase::Ended : Phase::Failed;
            return complete ? XmlReadResult::EndOfInput : XmlReadResult::Malformed;
        }
        const Scan scan = ParseNode(begin_);
        if (scan == Scan::Done) {
            begin_ = next_;
            if (phase_ == Phase::DocumentStart) {
                phase_ = Phase::Prolog;
            }
            return XmlReadResult::Node;
        }
        if (scan == Scan::Malformed || inputEnded_) {
            phase_ = Phase::Failed;
            return XmlReadResult::Malformed;
        }
        // The node goes on past the buffer: it is parsed again from its start once more is read.
        Refill();
    }
}

void XmlReader::Refill() {
    if (begin_ > 0) {
        std::copy(text_.begin() + static_cast<std::ptrdiff_t>(begin_),
                  text_.begin() + static_cast<std::ptrdiff_t>(end_), text_.begin());
        end_ -= begin_;
        begin_ = 0;
    }
    // Doubling the buffer whenever a node fills more than half of it keeps the work of parsing
    // long nodes again linear in their length.
    if (text_.empty()) {
        // A small document needs no more than its own size (and a unit to see its end by).
        const std::uint64_t units = input_->Size().value_or(kChunkUnits * 2) / 2 + 1;
        text_.resize(static_cast<std::size_t>(std::min<std::uint64_t>(units, kChunkUnits)));
    } else if (end_ > text_.size() / 2) {
        text_.resize(text_.size() * 2);
    }
    // The bytes go straight into the free part of the buffer: UTF-16LE is char16_t's own form.
    const std::span<std::uint8_t> room =
        AsWritableUtf16LeBytes(text_.data() + end_, text_.size() - end_);
    std::size_t have = 0;
    if (pendingByte_) {
        room[0] = *pendingByte_;
        pendingByte_.reset();
        have = 1;
    }
    const std::size_t got = input_->Read(room.subspan(have));
    inputEnded_ = got < room.size() - have;
    have += got;
    end_ += have / 2;
    if (have % 2 != 0) {
        pendingByte_ = room[have - 1];
    }
}

std::optional<bool> XmlReader::Continues(std::size_t i, std::u16string_view literal) const {
    for (std::size_t k = 0; k < literal.size(); ++k) {
        if (!Has(i + k)) {
            return std::nullopt;
        }
        if (text_[i + k] != literal[k]) {
            return false;
        }
    }
    return true;
}

XmlReader::Scan XmlReader::ParseNode(std::size_t start) {
    if (text_[start] != u'<') {
        return phase_ == Phase::Content ? ParseContentText(start) : ParseTopLevelWhiteSpace(start);
    }
    if (!Has(start + 1)) {
        return Scan::Incomplete;
    }
    switch (text_[start + 1]) {
        case u'/':
            return ParseEndTag(start);
        case u'?':
            return ParseProcessingInstruction(start);
        case u'!':
            return ParseMarkupDeclaration(start);
        default:
            return ParseStartTag(start);
    }
}

XmlReader::Scan XmlReader::ParseStartTag(std::size_t start) {
    if (phase_ == Phase::Epilog) {
        return Scan::Malformed;  // a second root element
    }
    std::size_t i = start + 1;
    std::size_t localStart = 0;
    Scan scan = ParseName(i, localStart);
    if (scan != Scan::Done) {
        return scan;
    }
    const std::size_t nameEnd = i;
    bool empty = false;
    scan = ParseAttributes(i, false, empty);
    if (scan != Scan::Done) {
        return scan;
    }
    if (HasDuplicateAttribute() || openNameStarts_.size() >= kMaxDepth) {
        return Scan::Malformed;
    }
    if (!empty) {
        PushOpenName(Slice(start + 1, nameEnd));
    }
    phase_ = openNameStarts_.empty() ? Phase::Epilog : Phase::Content;
    SetNode(XmlNodeType::StartElement, Slice(localStart, nameEnd), {}, i);
    isEmptyElement_ = empty;
    return Scan::Done;
}

XmlReader::Scan XmlReader::ParseEndTag(std::size_t start) {
    std::size_t i = start + 2;
    std::size_t localStart = 0;
    const Scan scan = ParseName(i, localStart);
    if (scan != Scan::Done) {
        return scan;
    }
    const std::size_t nameEnd = i;
    SkipWhiteSpace(i);
    if (!Has(i)) {
        return Scan::Incomplete;
    }
    if (text_[i] != u'>' || openNameStarts_.empty() ||
        InnermostOpenName() != Slice(start + 2, nameEnd)) {
        return Scan::Malformed;
    }
    PopOpenName();
    if (openNameStarts_.empty()) {
        phase_ = Phase::Epilog;
    }
    SetNode(XmlNodeType::EndElement, Slice(localStart, nameEnd), {}, i + 1);
    return Scan::Done;
}

XmlReader::Scan XmlReader::ParseMarkupDeclaration(std::size_t start) {
    const std::optional<bool> comment = Continues(start, u"<!--");
    if (!comment) {
        return Scan::Incomplete;
    }
    if (*comment) {
        return ParseDelimited(start + 4, u"--", XmlNodeType::Comment);
    }
    const std::optional<bool> cdata = Continues(start, u"<![CDATA[");
    if (!cdata) {
        return Scan::Incomplete;
    }
    if (*cdata && phase_ == Phase::Content) {
        return ParseDelimited(start + 9, u"]]>", XmlNodeType::CData);
    }
    // Document type declarations, and CDATA outside the root element.
    return Scan::Malformed;
}

XmlReader::Scan XmlReader::ParseProcessingInstruction(std::size_t start) {
    std::size_t i = start + 2;
    std::size_t localStart = 0;
    Scan scan = ParseName(i, localStart);
    if (scan != Scan::Done) {
        return scan;
    }
    const std::u16string_view target = Slice(start + 2, i);
    if (EqualsIgnoringAsciiCase(target, u"xml")) {
        // The target is reserved for the declaration, which only the very start may hold.
        if (phase_ != Phase::DocumentStart || target != u"xml") {
            return Scan::Malformed;
        }
        bool unused = false;
        scan = ParseAttributes(i, true, unused);
        if (scan != Scan::Done) {
            return scan;
        }
        if (!IsWellFormedDeclaration()) {
            return Scan::Malformed;
        }
        SetNode(XmlNodeType::XmlDeclaration, {}, {}, i);
        return Scan::Done;
    }
    if (!IsXmlWhiteSpace(text_[i])) {
        const std::optional<bool> closes = Continues(i, u"?>");
        if (!closes) {
            return Scan::Incomplete;
        }
        if (!*closes) {
            return Scan::Malformed;
        }
    }
    return ParseDelimited(i, u"?>", XmlNodeType::ProcessingInstruction);
}

XmlReader::Scan XmlReader::ParseDelimited(std::size_t contentStart, std::u16string_view close,
                                          XmlNodeType type) {
    std::size_t i = contentStart;
    for (;;) {
        if (!Has(i)) {
            return Scan::Incomplete;
        }
        if (text_[i] == close.front()) {
            const std::optional<bool> closes = Continues(i, close);
            if (!closes) {
                return Scan::Incomplete;
            }
            if (*closes) {
                break;
            }
        }
        const Scan scan = CheckChar(i);
        if (scan != Scan::Done) {
            return scan;
        }
    }
    std::size_t after = i + close.size();
    if (type == XmlNodeType::Comment) {
        // Two hyphens may stand in a comment only as the start of its end.
        if (!Has(after)) {
            return Scan::Incomplete;
        }
        if (text_[after] != u'>') {
            return Scan::Malformed;
        }
        ++after;
    }
    SetNode(type, {}, Slice(contentStart, i), after);
    return Scan::Done;
}

XmlReader::Scan XmlReader::ParseContentText(std::size_t start) {
    expanded_.clear();
    bool expanding = false;
    bool white = true;
    std::size_t copied = start;  // with expanding, the literal characters before here are copied
    std::size_t i = start;
    for (;;) {
        if (!Has(i)) {
            return Scan::Incomplete;
        }
        const char16_t ch = text_[i];
        const std::uint8_t type = ClassOf(ch);
        if (type & kPlainText) {
            white = false;
            ++i;
            continue;
        }
        if (type & kBlankText) {
            ++i;
            continue;
        }
        if (ch == u'<') {
            break;
        }
        if (ch == u'&' || ch == u'\r') {
            expanded_.append(text_.data() + copied, i - copied);
            expanding = true;
            if (ch == u'&') {
                char32_t value = 0;
                const Scan scan = ParseReference(i, value);
                if (scan != Scan::Done) {
                    return scan;
                }
                AppendCodePoint(expanded_, value);
                white = false;
            } else {
                // A line end, CR LF or a lone CR, reads as one LF.
                if (!Has(i + 1)) {
                    return Scan::Incomplete;
                }
                expanded_.push_back(u'\n');
                i += text_[i + 1] == u'\n' ? 2u : 1u;
            }
            copied = i;
            continue;
        }
        if (ch == u'>' && i >= start + 2 && text_[i - 1] == u']' && text_[i - 2] == u']') {
            return Scan::Malformed;  // the end of a CDATA section outside one
        }
        white = false;
        const Scan scan = CheckChar(i);
        if (scan != Scan::Done) {
            return scan;
        }
    }
    std::u16string_view value = Slice(start, i);
    if (expanding) {
        expanded_.append(text_.data() + copied, i - copied);
        value = expanded_;
    }
    SetNode(white ? XmlNodeType::WhiteSpace : XmlNodeType::Text, {}, value, i);
    return Scan::Done;
}

XmlReader::Scan XmlReader::ParseTopLevelWhiteSpace(std::size_t start) {
    std::size_t i = start;
    SkipWhiteSpace(i);
    if (!Has(i)) {
        if (!inputEnded_) {
            return Scan::Incomplete;
        }
    } else if (text_[i] != u'<') {
        return Scan::Malformed;  // character data outside the root element
    }
    SetNode(XmlNodeType::WhiteSpace, {}, Slice(start, i), i);
    return Scan::Done;
}

XmlReader::Scan XmlReader::ParseName(std::size_t& i, std::size_t& localStart) const {
    localStart = i;
    bool partStart = true;  // at the start of the name or right after its colon
    bool colon = false;
    for (;;) {
        if (!Has(i)) {
            return Scan::Incomplete;
        }
        const char16_t ch = text_[i];
        if (ch < 0x80 && ch != u':') {
            if ((kAsciiClasses[ch] & (partStart ? kNameStart : kNameChar)) == 0) {
                // Neither the name nor the part after its colon may be empty.
                return partStart ? Scan::Malformed : Scan::Done;
            }
            ++i;
            partStart = false;
            continue;
        }
        if (ch == u':') {
            if (partStart || colon) {
                return Scan::Malformed;
            }
            colon = true;
            partStart = true;
            localStart = ++i;
            continue;
        }
        const DecodedCharacter decoded = DecodeUtf16(Slice(i, end_));
        if (decoded.units == 0) {
            return Scan::Incomplete;
        }
        if (!(partStart ? IsXmlNameStartChar(decoded.codePoint)
                        : IsXmlNameChar(decoded.codePoint))) {
            return partStart ? Scan::Malformed : Scan::Done;
        }
        i += decoded.units;
        partStart = false;
    }
}

XmlReader::Scan XmlReader::ParseAttributes(std::size_t& i, bool declaration, bool& empty) {
    attributes_.clear();
    for (;;) {
        const std::size_t afterPrevious = i;
        SkipWhiteSpace(i);
        if (!Has(i)) {
            return Scan::Incomplete;
        }
        const char16_t ch = text_[i];
        if (!declaration && ch == u'>') {
            ++i;
            empty = false;
            return Scan::Done;
        }
        if (ch == (declaration ? u'?' : u'/')) {
            if (!Has(i + 1)) {
                return Scan::Incomplete;
            }
            if (text_[i + 1] != u'>') {
                return Scan::Malformed;
            }
            i += 2;
            empty = true;
            return Scan::Done;
        }
        if (i == afterPrevious) {
            return Scan::Malformed;  // attributes stand apart by white space
        }
        const std::size_t nameStart = i;
        std::size_t localStart = 0;
        Scan scan = ParseName(i, localStart);
        if (scan != Scan::Done) {
            return scan;
        }
        const std::u16string_view name = Slice(nameStart, i);
        SkipWhiteSpace(i);
        if (!Has(i)) {
            return Scan::Incomplete;
        }
        if (text_[i] != u'=') {
            return Scan::Malformed;
        }
        ++i;
        SkipWhiteSpace(i);
        const std::size_t valueStart = i;
        scan = ParseAttributeValue(i);
        if (scan != Scan::Done) {
            return scan;
        }
        attributes_.push_back({name, Slice(valueStart + 1, i - 1)});
    }
}

XmlReader::Scan XmlReader::ParseAttributeValue(std::size_t& i) const {
    if (!Has(i)) {
        return Scan::Incomplete;
    }
    const char16_t quote = text_[i];
    if (quote != u'"' && quote != u'\'') {
        return Scan::Malformed;
    }
    ++i;
    for (;;) {
        if (!Has(i)) {
            return Scan::Incomplete;
        }
        const char16_t ch = text_[i];
        if (ch == quote) {
            ++i;
            return Scan::Done;
        }
        if (ch == u'<') {
            return Scan::Malformed;
        }
        char32_t unused = 0;
        const Scan scan = ch == u'&' ? ParseReference(i, unused) : CheckChar(i);
        if (scan != Scan::Done) {
            return scan;
        }
    }
}

XmlReader::Scan XmlReader::ParseReference(std::size_t& i, char32_t& value) const {
    std::size_t j = i + 1;
    if (!Has(j)) {
        return Scan::Incomplete;
    }
    if (text_[j] == u'#') {
        ++j;
        if (!Has(j)) {
            return Scan::Incomplete;
        }
        const bool hex = text_[j] == u'x';
        j += hex ? 1 : 0;
        const std::size_t digitsStart = j;
        char32_t codePoint = 0;
        for (;; ++j) {
            if (!Has(j)) {
                return Scan::Incomplete;
            }
            if (text_[j] == u';') {
                break;
            }
            const int digit = DigitValue(text_[j], hex);
            // Past U+10FFFF no further digit can make a character of it.
            if (digit < 0 || codePoint > 0x10FFFF) {
                return Scan::Malformed;
            }
            codePoint = codePoint * (hex ? 16u : 10u) + static_cast<char32_t>(digit);
        }
        if (j == digitsStart || !IsXmlChar(codePoint)) {
            return Scan::Malformed;
        }
        value = codePoint;
        i = j + 1;
        return Scan::Done;
    }
    std::size_t localStart = 0;
    const Scan scan = ParseName(j, localStart);
    if (scan != Scan::Done) {
        return scan;
    }
    const char32_t entity = PredefinedEntity(Slice(i + 1, j));
    if (text_[j] != u';' || entity == 0) {
        return Scan::Malformed;  // only the predefined entities exist without a document type
    }
    value = entity;
    i = j + 1;
    return Scan::Done;
}

XmlReader::Scan XmlReader::CheckChar(std::size_t& i) const {
    const char16_t ch = text_[i];
    if ((ch >= 0x20 && ch < 0xD800) || IsXmlWhiteSpace(ch)) {
        ++i;
        return Scan::Done;
    }
    const DecodedCharacter decoded = DecodeUtf16(Slice(i, end_));
    if (decoded.units == 0) {
        return Scan::Incomplete;
    }
    if (!IsXmlChar(decoded.codePoint)) {
        return Scan::Malformed;
    }
    i += decoded.units;
    return Scan::Done;
}

void XmlReader::SkipWhiteSpace(std::size_t& i) const {
    while (Has(i) && IsXmlWhiteSpace(text_[i])) {
        ++i;
    }
}

bool XmlReader::HasDuplicateAttribute() {
    if (attributes_.size() < 2) {
        return false;  // the common case, without the sort's call
    }
    std::sort(attributes_.begin(), attributes_.end(),
              [](const Attribute& a, const Attribute& b) { return a.name < b.name; });
    return std::adjacent_find(attributes_.begin(), attributes_.end(),
                              [](const Attribute& a, const Attribute& b) {
                                  return a.name == b.name;
                              }) != attributes_.end();
}

// Version first, then optionally encoding, then optionally standalone, each with a value of its
// own form, and nothing else.
bool XmlReader::IsWellFormedDeclaration() const {
    std::size_t next = 0;
    for (const auto& [name, isValid] : kDeclarationAttributes) {
        if (next < attributes_.size() && attributes_[next].name == name) {
            if (!isValid(attributes_[next].value)) {
                return false;
            }
            ++next;
        } else if (next == 0) {
            return false;  // the version may not be left out
        }
    }
    return next == attributes_.size();
}

void XmlReader::SetNode(XmlNodeType type, std::u16string_view localName, std::u16string_view value,
                        std::size_t next) {
    nodeType_ = type;
    localName_ = localName;
    value_ = value;
    isEmptyElement_ = false;
    next_ = next;
}

void XmlReader::PushOpenName(std::u16string_view name) {
    openNameStarts_.push_back(openNames_.size());
    openNames_.append(name);
}

std::u16string_view XmlReader::InnermostOpenName() const {
    return std::u16string_view(openNames_).substr(openNameStarts_.back());
}

void XmlReader::PopOpenName() {
    openNames_.resize(openNameStarts_.back());
    openNameStarts_.pop_back();
}

}  // namespace sentrel
