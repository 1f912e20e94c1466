#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "policy/byte_stream.h"

namespace sentrel {

enum class XmlNodeType {
    StartElement,
    EndElement,
    Text,        // character data holding more than white space, references expanded
    WhiteSpace,  // character data of white space only
    CData,
    Comment,
    ProcessingInstruction,
    XmlDeclaration,
};

enum class XmlReadResult {
    Node,        // a node was read
    EndOfInput,  // the document ended well-formed after its root element
    Malformed,   // the input is not well-formed XML at this point; reading is over
};

// A forward-only pull reader over UTF-16LE bytes, whatever a declaration names as encoding. It
// reports each node only once the node has been read completely and found well-formed, so a
// document cut short yields exactly the nodes that lie wholly before the cut. A document type
// declaration counts as malformed, and so does nesting deeper than 256 elements. Attributes are
// checked but not reported, and namespace prefixes are not resolved. The input is read in pieces
// and nesting is tracked without recursion, so neither a document's size nor its depth grows the
// stack.
class XmlReader {
  public:
    explicit XmlReader(std::shared_ptr<ByteStream> input);

    XmlReadResult Read();

    // The current node; names and values stay valid until the next Read.
    XmlNodeType NodeType() const { return nodeType_; }
    // The element's name without its prefix, for element starts and ends.
    std::u16string_view LocalName() const { return localName_; }
    // Character data inside the root element with references expanded and line ends
    // normalized; anything else as it stands (white space around the root, the content of a
    // CDATA section, comment or processing instruction).
    std::u16string_view Value() const { return value_; }
    // For an element start: written as an empty-element tag, so no end follows.
    bool IsEmptyElement() const { return isEmptyElement_; }

  private:
    enum class Scan { Done, Incomplete, Malformed };
    enum class Phase { Initial, DocumentStart, Prolog, Content, Epilog, Ended, Failed };

    bool Has(std::size_t i) const { return i < end_; }
    std::u16string_view Slice(std::size_t from, std::size_t to) const {
        return {text_.data() + from, to - from};
    }
    // Whether the input continues with literal at i; none when the buffer ends first.
    std::optional<bool> Continues(std::size_t i, std::u16string_view literal) const;

    void Refill();
    Scan ParseNode(std::size_t start);
    Scan ParseStartTag(std::size_t start);
    Scan ParseEndTag(std::size_t start);
    Scan ParseMarkupDeclaration(std::size_t start);
    Scan ParseProcessingInstruction(std::size_t start);
    Scan ParseContentText(std::size_t start);
    Scan ParseTopLevelWhiteSpace(std::size_t start);
    // Content up to close, checked character by character, as a node of the given type.
    Scan ParseDelimited(std::size_t contentStart, std::u16string_view close, XmlNodeType type);
    Scan ParseName(std::size_t& i, std::size_t& localStart) const;
    Scan ParseAttributes(std::size_t& i, bool declaration, bool& empty);
    Scan ParseAttributeValue(std::size_t& i) const;
    Scan ParseReference(std::size_t& i, char32_t& value) const;
    Scan CheckChar(std::size_t& i) const;
    void SkipWhiteSpace(std::size_t& i) const;
    bool HasDuplicateAttribute();
    bool IsWellFormedDeclaration() const;
    void SetNode(XmlNodeType type, std::u16string_view localName, std::u16string_view value,
                 std::size_t next);

    void PushOpenName(std::u16string_view name);
    std::u16string_view InnermostOpenName() const;
    void PopOpenName();

    std::shared_ptr<ByteStream> input_;
    bool inputEnded_ = false;
    std::optional<std::uint8_t> pendingByte_;  // the first half of a code unit not yet read whole
    std::vector<char16_t> text_;               // decoded input; [begin_, end_) is not yet consumed
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
    std::size_t next_ = 0;  // where the node just parsed ends

    Phase phase_ = Phase::Initial;
    std::u16string openNames_;  // the qualified names of the open elements, one after the other
    std::vector<std::size_t> openNameStarts_;
    struct Attribute {
        std::u16string_view name;
        std::u16string_view value;  // as written between its quotes
    };
    std::vector<Attribute> attributes_;
    std::u16string expanded_;  // a text's value when it differs from its literal form

    XmlNodeType nodeType_ = XmlNodeType::Text;
    std::u16string_view localName_;
    std::u16string_view value_;
    bool isEmptyElement_ = false;
};

}  // namespace sentrel
