#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "policy/byte_stream.h"

namespace sentrel {

// Writes elements as UTF-16LE text preceded by a byte order mark, without a declaration or any
// white space between elements. A step fails, writing nothing, when its name is not an XML name
// without a colon or its text holds a character XML cannot carry; after a failure, or without an
// output stream, every step fails.
class XmlWriter {
  public:
    explicit XmlWriter(std::shared_ptr<ByteStream> output);

    bool WriteStartElement(std::u16string_view name);
    // A whole element holding the text, escaped so that it reads back unchanged.
    bool WriteElementString(std::u16string_view name, std::u16string_view value);
    // Closes the innermost open element with an end tag, also when it holds nothing.
    bool WriteFullEndElement();
    // Writes all buffered output into the stream.
    bool Flush();

  private:
    bool AppendStartTag(std::u16string_view name);
    void AppendEndTag(std::u16string_view name);
    bool AppendEscaped(std::u16string_view value);
    bool Finish(bool succeeded, std::size_t mark);

    std::shared_ptr<ByteStream> output_;
    bool failed_ = false;
    std::u16string pending_;  // output not yet in the stream
    std::u16string openNames_;
    std::vector<std::size_t> openNameStarts_;
};

}  // namespace sentrel
