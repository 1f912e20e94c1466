#pragma once

#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

#include "policy/byte_stream.h"
#include "policy/utf16le.h"
#include "policy/web_filter_policy.h"
#include "policy/xml_reader.h"

namespace sentrel::testing {

// A file in the temporary directory, removed when the test ends (declare it before whatever
// holds the file open).
class TemporaryFile {
  public:
    explicit TemporaryFile(std::u16string name)
        : path_(std::filesystem::temp_directory_path() / std::filesystem::path(name)) {
        std::filesystem::remove(path_);
    }
    ~TemporaryFile() {
        std::error_code ignored;
        std::filesystem::remove(path_, ignored);
    }
    std::u16string Path() const { return path_.u16string(); }
    bool Exists() const { return std::filesystem::exists(path_); }

  private:
    std::filesystem::path path_;
};

// A memory stream holding the text as UTF-16LE, positioned at its start.
inline std::shared_ptr<ByteStream> StreamOf(std::u16string_view text) {
    auto stream = CreateMemoryStream();
    stream->Write(AsUtf16LeBytes(text));
    stream->SeekToStart();
    return stream;
}

// Printable ASCII as it is, everything else as \uXXXX, so that failures read well.
inline std::string Readable(std::u16string_view text) {
    std::string result;
    for (const char16_t ch : text) {
        if (ch >= 0x20 && ch < 0x7F) {
            result.push_back(static_cast<char>(ch));
        } else {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\u%04X", static_cast<unsigned>(ch));
            result += escaped;
        }
    }
    return result;
}

// The nodes a reader reports, one word each: <a> and <a/> for element starts, </a> for ends,
// T[value] for text, W for white space, C[value] for CDATA, ! for comments, ? for processing
// instructions, D for the declaration; then $ for a well-formed end or X for malformed input.
inline std::string Trace(XmlReader& reader) {
    std::string trace;
    for (;;) {
        const XmlReadResult result = reader.Read();
        if (result != XmlReadResult::Node) {
            return trace + (result == XmlReadResult::EndOfInput ? "$" : "X");
        }
        const std::string name = Readable(reader.LocalName());
        const std::string value = Readable(reader.Value());
        switch (reader.NodeType()) {
            case XmlNodeType::StartElement:
                trace += "<" + name + (reader.IsEmptyElement() ? "/> " : "> ");
                break;
            case XmlNodeType::EndElement:
                trace += "</" + name + "> ";
                break;
            case XmlNodeType::Text:
                trace += "T[" + value + "] ";
                break;
            case XmlNodeType::WhiteSpace:
                trace += "W ";
                break;
            case XmlNodeType::CData:
                trace += "C[" + value + "] ";
                break;
            case XmlNodeType::Comment:
                trace += "! ";
                break;
            case XmlNodeType::ProcessingInstruction:
                trace += "? ";
                break;
            case XmlNodeType::XmlDeclaration:
                trace += "D ";
                break;
        }
    }
}

inline std::string Trace(std::u16string_view document) {
    XmlReader reader(StreamOf(document));
    return Trace(reader);
}

// Everything a document carries of a policy, in one line: version, refresh mode, then each list
// in key order with its type, id, name and entries (entry ids are not part of a document).
inline std::string DescribePolicy(const WebFilterPolicy& policy) {
    std::string text =
        "v" + std::to_string(policy.version) + " r" + std::to_string(policy.refreshMode);
    const auto describeEntries = [&text](const FilterEntrySequence& entries) {
        text += "[";
        for (const FilterEntry& entry : entries) {
            text += " " + Readable(entry.name) + "=" + Readable(entry.url);
        }
        text += " ]";
    };
    for (const auto& [key, list] : policy.lists) {
        text += list.type == FilterListWhite   ? " | W "
                : list.type == FilterListBlack ? " | B "
                                               : " | ? ";
        text += Readable(GuidToText(key)) + (list.id == key ? " " : " (id differs) ");
        text += Readable(list.name) + " ";
        describeEntries(list.mainEntries);
        describeEntries(list.exceptionEntries);
    }
    return text;
}

}  // namespace sentrel::testing
