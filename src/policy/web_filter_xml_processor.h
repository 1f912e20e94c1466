#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "policy/web_filter_policy.h"
#include "policy/web_filter_storage_data.h"
#include "policy/xml_reader.h"
#include "policy/xml_writer.h"

namespace sentrel {

struct PolicyElement;
enum class PolicyRole : std::uint8_t;

// Turns a policy into its WebFilters document and back. One processor serves one document in
// one direction, over its own in-memory storage (or a file, when a path is given).
class WebFilterXmlProcessor {
  public:
    // The document of the policy, beginning with a byte order mark. Throws HResultError carrying
    // E_FAIL when the writer refuses a step (for example a character XML cannot carry in a name
    // or url), or E_OUTOFMEMORY when memory runs out while writing. A list whose type is neither
    // white nor black gives the empty text.
    static std::u16string SerializePolicy(const WebFilterPolicy& policy);
    // The same document written to output piece by piece as UTF-16LE bytes, so that it is never
    // held whole. Throws as SerializePolicy does; false, with the lists before it written, at a
    // list whose type is neither white nor black.
    static bool WritePolicy(const WebFilterPolicy& policy, std::shared_ptr<ByteStream> output);

    // Adds the document's lists to policy and takes its version and refresh mode. Reading stops
    // quietly where the text stops being well-formed XML, keeping every list closed before that
    // point. False only when the text cannot be staged for reading.
    static bool DeserializePolicy(WebFilterPolicy& policy, const std::u16string& text);

    // The policy that reading fills; none for writing.
    explicit WebFilterXmlProcessor(WebFilterPolicy* policy = nullptr);
    // Over a stream of UTF-16LE bytes that the caller opened, which the storage holds instead of
    // a text staged in memory: a large document is read into policy, or written, in pieces.
    WebFilterXmlProcessor(WebFilterPolicy* policy, std::shared_ptr<ByteStream> input);
    ~WebFilterXmlProcessor();
    WebFilterXmlProcessor(const WebFilterXmlProcessor&) = delete;
    WebFilterXmlProcessor& operator=(const WebFilterXmlProcessor&) = delete;

    IWebFilterStorageData& Storage() { return *storage_; }

    // Reading from the storage's stream, or from the file at a non-empty path.
    bool OpenReader(const std::u16string& path);
    // Writing to a new in-memory stream, or to the file at a non-empty path.
    bool OpenWriter(const std::u16string& path);
    // Reads nodes into the policy until the input ends or stops being well-formed; name is the
    // element taken to be current at the start. False only without a reader, stream or policy, or
    // when memory runs out.
    bool ReadDocument(std::u16string_view name);

    bool StartElement(std::u16string_view name);
    bool EndElement();
    bool WriteTextElement(std::u16string_view name, std::u16string_view value);
    bool WriteNumberElement(std::u16string_view name, std::uint32_t number);
    bool Flush();
    // The whole stream content as text.
    std::u16string GetText();
    void Close();

  private:
    // Writing to the stream the storage holds.
    bool StartWriter();
    void OnStartElement(std::u16string_view name);
    void OnText(std::u16string_view text);
    // Stores the text of a list's id, its name or its current entry's name or url.
    void TakeListText(PolicyRole role, std::u16string_view text);
    void OnEndElement(std::u16string_view name);

    WebFilterPolicy* policy_;
    std::unique_ptr<IWebFilterStorageData> storage_;
    std::unique_ptr<XmlReader> reader_;
    std::unique_ptr<XmlWriter> writer_;
    // The last recognized element whose text has not been taken, or none.
    const PolicyElement* currentElement_ = nullptr;
    FilterList currentList_;
    FilterEntry currentEntry_;
};

}  // namespace sentrel
