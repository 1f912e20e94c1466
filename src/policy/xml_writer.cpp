#include "policy/xml_writer.h"

#include <utility>

#include "policy/utf16le.h"
#include "policy/xml_characters.h"

namespace sentrel {
namespace {

// Output goes to the stream in pieces of about this many code units.
constexpr std::size_t kFlushUnits = 64 * 1024;

}  // namespace

XmlWriter::XmlWriter(std::shared_ptr<ByteStream> output)
    : output_(std::move(output)), failed_(output_ == nullptr), pending_(1, u'\uFEFF') {}

bool XmlWriter::WriteStartElement(std::u16string_view name) {
    const std::size_t mark = pending_.size();
    if (!AppendStartTag(name)) {
        return Finish(false, mark);
    }
    openNameStarts_.push_back(openNames_.size());
    openNames_.append(name);
    return Finish(true, mark);
}

bool XmlWriter::WriteElementString(std::u16string_view name, std::u16string_view value) {
    const std::size_t mark = pending_.size();
    if (!AppendStartTag(name) || !AppendEscaped(value)) {
        return Finish(false, mark);
    }
    AppendEndTag(name);
    return Finish(true, mark);
}

bool XmlWriter::WriteFullEndElement() {
    const std::size_t mark = pending_.size();
    if (failed_ || openNameStarts_.empty()) {
        return Finish(false, mark);
    }
    AppendEndTag(std::u16string_view(openNames_).substr(openNameStarts_.back()));
    openNames_.resize(openNameStarts_.back());
    openNameStarts_.pop_back();
    return Finish(true, mark);
}

bool XmlWriter::Flush() {
    if (failed_ || !output_->Write(AsUtf16LeBytes(pending_))) {
        return Finish(false, pending_.size());
    }
    pending_.clear();
    return true;
}

bool XmlWriter::AppendStartTag(std::u16string_view name) {
    if (failed_ || !IsXmlNcName(name)) {
        return false;
    }
    pending_.push_back(u'<');
    pending_.append(name);
    pending_.push_back(u'>');
    return true;
}

void XmlWriter::AppendEndTag(std::u16string_view name) {
    pending_.append(u"</");
    pending_.append(name);
    pending_.push_back(u'>');
}

bool XmlWriter::AppendEscaped(std::u16string_view value) {
    std::size_t copied = 0;  // characters before here are in the output
    std::size_t i = 0;
    // Text of white space alone would read back as mere white space between tags; a character
    // reference for its first character keeps it text.
    if (!value.empty() && value.find_first_not_of(u" \t\n") == std::u16string_view::npos) {
        pending_.append(value.front() == u' '    ? u"&#x20;"
                        : value.front() == u'\t' ? u"&#x9;"
                                                 : u"&#xA;");
        copied = i = 1;
    }
    while (i < value.size()) {
        const char16_t ch = value[i];
        // Most characters stand as they are; only these need a second look.
        if (ch >= u' ' && ch < 0xD800 && ch != u'&' && ch != u'<' && ch != u'>') {
            ++i;
            continue;
        }
        std::u16string_view replacement;
        switch (ch) {
            case u'&':
                replacement = u"&amp;";
                break;
            case u'<':
                replacement = u"&lt;";
                break;
            case u'>':
                // Escaped everywhere, so that the text can never hold the end of a CDATA section.
                replacement = u"&gt;";
                break;
            case u'\r':
                // A literal CR would read back as a line end, LF.
                replacement = u"&#xD;";
                break;
            default: {
                const DecodedCharacter decoded = DecodeUtf16(value.substr(i));
                if (decoded.units == 0 || !IsXmlChar(decoded.codePoint)) {
                    return false;
                }
                i += decoded.units;
                continue;
            }
        }
        pending_.append(value.substr(copied, i - copied));
        pending_.append(replacement);
        copied = ++i;
    }
    pending_.append(value.substr(copied));
    return true;
}

bool XmlWriter::Finish(bool succeeded, std::size_t mark) {
    if (!succeeded) {
        // A failed step leaves nothing of itself behind, and the writer stays failed.
        pending_.resize(mark);
        failed_ = true;
        return false;
    }
    return pending_.size() < kFlushUnits || Flush();
}

}  // namespace sentrel
