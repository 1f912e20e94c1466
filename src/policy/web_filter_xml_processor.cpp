#include "policy/web_filter_xml_processor.h"

#include <array>
#include <charconv>
#include <cstring>
#include <new>
#include <utility>

#include "policy/hresult_error.h"
#include "policy/web_filter_storage_data_stream.h"
#include "text/ascii_case.h"
#include "text/url_text.h"

namespace sentrel {

enum class PolicyRole : std::uint8_t {
    Version,
    RefreshMode,
    List,
    Id,
    Name,
    MainEntry,
    ExceptionEntry,
    EntryName,
    EntryUrl
};

// An element whose start the reader recognizes, and what it stands for.
struct PolicyElement {
    std::u16string_view name;
    PolicyRole role = PolicyRole::Version;
    FilterListType family = FilterListWhite;  // for the elements of a list
};

namespace {

struct EntryElementNames {
    std::u16string_view container;
    std::u16string_view entry;
    std::u16string_view name;
    std::u16string_view url;
};

// White and black lists share one structure under two sets of names.
struct ListElementNames {
    FilterListType type;
    std::u16string_view list;
    std::u16string_view id;
    std::u16string_view name;
    EntryElementNames main;
    EntryElementNames exceptions;
};

constexpr std::u16string_view kRootName = u"WebFilters";
constexpr std::u16string_view kVersionName = u"WFVersion";
constexpr std::u16string_view kRefreshModeName = u"WFRefreshMode";

constexpr ListElementNames kWhiteListNames{
    FilterListWhite,
    u"WhiteList",
    u"WLId",
    u"WLName",
    {u"WLAccepted", u"WLAEntry", u"WLAEntryName", u"WLAEntryUrl"},
    {u"WLExceptions", u"WLEEntry", u"WLEEntryName", u"WLEEntryUrl"},
};
constexpr ListElementNames kBlackListNames{
    FilterListBlack,
    u"BlackList",
    u"BLId",
    u"BLName",
    {u"BLDenied", u"BLDEntry", u"BLDEntryName", u"BLDEntryUrl"},
    {u"BLExceptions", u"BLEEntry", u"BLEEntryName", u"BLEEntryUrl"},
};

const ListElementNames* NamesOf(FilterListType type) {
    switch (type) {
        case FilterListWhite:
            return &kWhiteListNames;
        case FilterListBlack:
            return &kBlackListNames;
    }
    return nullptr;
}

// The root and the entry containers are not among them: reading does not follow the nesting.
constexpr std::array<PolicyElement, 20> kPolicyElements = [] {
    std::array<PolicyElement, 20> elements{};
    std::size_t count = 0;
    elements[count++] = {kVersionName, PolicyRole::Version, FilterListWhite};
    elements[count++] = {kRefreshModeName, PolicyRole::RefreshMode, FilterListWhite};
    for (const ListElementNames& names : {kWhiteListNames, kBlackListNames}) {
        elements[count++] = {names.list, PolicyRole::List, names.type};
        elements[count++] = {names.id, PolicyRole::Id, names.type};
        elements[count++] = {names.name, PolicyRole::Name, names.type};
        elements[count++] = {names.main.entry, PolicyRole::MainEntry, names.type};
        elements[count++] = {names.main.name, PolicyRole::EntryName, names.type};
        elements[count++] = {names.main.url, PolicyRole::EntryUrl, names.type};
        elements[count++] = {names.exceptions.entry, PolicyRole::ExceptionEntry, names.type};
        elements[count++] = {names.exceptions.name, PolicyRole::EntryName, names.type};
        elements[count++] = {names.exceptions.url, PolicyRole::EntryUrl, names.type};
    }
    return elements;
}();

constexpr std::size_t kShortestName = 4;
constexpr std::size_t kLongestName = 13;
constexpr std::size_t kNameSlots = 64;
constexpr std::uint8_t kNoElement = 0xFF;

// The length and the first and third letters tell the names apart; the factors are chosen so
// that no two of them share a slot, which building the table checks. Setting bit 5 lowers an
// ASCII letter (and changes other characters, which the comparison then refuses).
constexpr std::size_t NameSlot(std::u16string_view name) {
    return (name.size() + (name[0] | 0x20u) + 12u * (name[2] | 0x20u)) % kNameSlots;
}

constexpr std::array<std::uint8_t, kNameSlots> kElementOfSlot = [] {
    std::array<std::uint8_t, kNameSlots> slots{};
    slots.fill(kNoElement);
    for (std::size_t i = 0; i < kPolicyElements.size(); ++i) {
        const std::u16string_view name = kPolicyElements[i].name;
        if (name.size() < kShortestName || name.size() > kLongestName ||
            slots[NameSlot(name)] != kNoElement) {
            throw "two element names share a slot";
        }
        slots[NameSlot(name)] = static_cast<std::uint8_t>(i);
    }
    return slots;
}();

std::uint64_t EightBytesAt(const char16_t* units, std::size_t byte) {
    std::uint64_t value = 0;
    std::memcpy(&value, reinterpret_cast<const char*>(units) + byte, sizeof(value));
    return value;
}

// Names of the same length, at least four units, compared eight bytes at a time (the last eight
// may overlap the ones before).
bool SameUnits(std::u16string_view a, std::u16string_view b) {
    const std::size_t bytes = a.size() * sizeof(char16_t);
    for (std::size_t byte = 0; byte + 8 < bytes; byte += 8) {
        if (EightBytesAt(a.data(), byte) != EightBytesAt(b.data(), byte)) {
            return false;
        }
    }
    return EightBytesAt(a.data(), bytes - 8) == EightBytesAt(b.data(), bytes - 8);
}

// Every element start and end goes through here: one slot, then one comparison, which is
// folded only for a name not written as the writer writes it.
const PolicyElement* Recognize(std::u16string_view name) {
    if (name.size() < kShortestName || name.size() > kLongestName) {
        return nullptr;
    }
    const std::uint8_t index = kElementOfSlot[NameSlot(name)];
    if (index == kNoElement) {
        return nullptr;
    }
    const std::u16string_view known = kPolicyElements[index].name;
    const bool same = known.size() == name.size() &&
                      (SameUnits(name, known) || EqualsIgnoringAsciiCase(name, known));
    return same ? &kPolicyElements[index] : nullptr;
}

// As _wtoi reads it, with the resulting 32 bits kept unsigned: -1 reads as 4294967295.
std::uint32_t NumberOfText(std::u16string_view text) {
    return static_cast<std::uint32_t>(UrlTextToInt32(text));
}

void Require(bool succeeded) {
    if (!succeeded) {
        throw HResultError(kHResultFail);
    }
}

void WriteEntries(WebFilterXmlProcessor& processor, const FilterEntrySequence& entries,
                  const EntryElementNames& names) {
    Require(processor.StartElement(names.container));
    for (const FilterEntryView& entry : entries) {
        Require(processor.StartElement(names.entry));
        Require(processor.WriteTextElement(names.name, entry.name));
        Require(processor.WriteTextElement(names.url, entry.url));
        Require(processor.EndElement());
    }
    Require(processor.EndElement());
}

// Writes the policy's document through the processor's writer; false at a list whose type is
// neither white nor black.
bool WriteDocument(WebFilterXmlProcessor& processor, const WebFilterPolicy& policy) {
    try {
        Require(processor.StartElement(kRootName));
        Require(processor.WriteNumberElement(kVersionName, policy.version));
        Require(processor.WriteNumberElement(kRefreshModeName, policy.refreshMode));
        for (const auto& [id, list] : policy.lists) {
            const ListElementNames* names = NamesOf(list.type);
            if (names == nullptr) {
                return false;
            }
            Require(processor.StartElement(names->list));
            Require(processor.WriteTextElement(names->id, GuidToText(list.id)));
            Require(processor.WriteTextElement(names->name, list.name));
            WriteEntries(processor, list.mainEntries, names->main);
            WriteEntries(processor, list.exceptionEntries, names->exceptions);
            Require(processor.EndElement());
        }
        Require(processor.EndElement());
        Require(processor.Flush());
    } catch (const std::bad_alloc&) {
        throw HResultError(kHResultOutOfMemory);
    }
    return true;
}

}  // namespace

std::u16string WebFilterXmlProcessor::SerializePolicy(const WebFilterPolicy& policy) {
    WebFilterXmlProcessor processor;
    // Without a writer the first step fails.
    processor.OpenWriter({});
    if (!WriteDocument(processor, policy)) {
        return {};
    }
    return processor.GetText();
}

bool WebFilterXmlProcessor::WritePolicy(const WebFilterPolicy& policy,
                                        std::shared_ptr<ByteStream> output) {
    WebFilterXmlProcessor processor(nullptr, std::move(output));
    processor.StartWriter();
    return WriteDocument(processor, policy);
}

bool WebFilterXmlProcessor::DeserializePolicy(WebFilterPolicy& policy, const std::u16string& text) {
    WebFilterXmlProcessor processor(&policy);
    if (!processor.Storage().WriteText(text)) {
        return false;
    }
    // How far the document could be read is not reported: what was read stays in the policy.
    processor.OpenReader({});
    processor.ReadDocument({});
    return true;
}

WebFilterXmlProcessor::WebFilterXmlProcessor(WebFilterPolicy* policy)
    : policy_(policy), storage_(std::make_unique<CWebFilterStorageDataStream>()) {}

WebFilterXmlProcessor::WebFilterXmlProcessor(WebFilterPolicy* policy,
                                             std::shared_ptr<ByteStream> input)
    : policy_(policy), storage_(std::make_unique<CWebFilterStorageDataStream>(std::move(input))) {}

WebFilterXmlProcessor::~WebFilterXmlProcessor() {
    Close();
}

bool WebFilterXmlProcessor::OpenReader(const std::u16string& path) {
    reader_.reset();
    if (!path.empty() && !storage_->OpenRead(path)) {
        return false;
    }
    if (!storage_->GetStream()) {
        return false;
    }
    reader_ = std::make_unique<XmlReader>(storage_->GetStream());
    return true;
}

bool WebFilterXmlProcessor::OpenWriter(const std::u16string& path) {
    writer_.reset();
    storage_->OpenWrite(path);
    return StartWriter();
}

bool WebFilterXmlProcessor::StartWriter() {
    if (!storage_->GetStream()) {
        return false;
    }
    writer_ = std::make_unique<XmlWriter>(storage_->GetStream());
    return true;
}

bool WebFilterXmlProcessor::ReadDocument(std::u16string_view name) {
    if (!reader_ || !storage_->GetStream() || policy_ == nullptr) {
        return false;
    }
    currentElement_ = Recognize(name);
    try {
        while (reader_->Read() == XmlReadResult::Node) {
            switch (reader_->NodeType()) {
                case XmlNodeType::StartElement:
                    OnStartElement(reader_->LocalName());
                    break;
                case XmlNodeType::Text:
                    OnText(reader_->Value());
                    break;
                case XmlNodeType::EndElement:
                    OnEndElement(reader_->LocalName());
                    break;
                default:
                    // White space, CDATA, comments, processing instructions, the declaration.
                    break;
            }
        }
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

void WebFilterXmlProcessor::OnStartElement(std::u16string_view name) {
    const PolicyElement* element = Recognize(name);
    if (element == nullptr) {
        return;
    }
    currentElement_ = element;
    if (element->role == PolicyRole::List) {
        currentList_.type = element->family;
    }
}

void WebFilterXmlProcessor::OnText(std::u16string_view text) {
    if (currentElement_ == nullptr) {
        return;
    }
    switch (currentElement_->role) {
        case PolicyRole::Version:
            policy_->version = NumberOfText(text);
            break;
        case PolicyRole::RefreshMode:
            policy_->refreshMode = NumberOfText(text);
            break;
        case PolicyRole::List:
            break;
        case PolicyRole::MainEntry:
        case PolicyRole::ExceptionEntry:
            return;  // not taken: the entry's own elements follow
        case PolicyRole::Id:
        case PolicyRole::Name:
        case PolicyRole::EntryName:
        case PolicyRole::EntryUrl:
            // Text for an element of the other list family is dropped, but still counts as taken.
            if (currentElement_->family == currentList_.type) {
                TakeListText(currentElement_->role, text);
            }
            break;
    }
    currentElement_ = nullptr;
}

void WebFilterXmlProcessor::TakeListText(PolicyRole role, std::u16string_view text) {
    if (role == PolicyRole::Id) {
        currentList_.id = GuidFromText(text);
        return;
    }
    std::u16string& field = role == PolicyRole::Name        ? currentList_.name
                            : role == PolicyRole::EntryName ? currentEntry_.name
                                                            : currentEntry_.url;
    field = text;
}

void WebFilterXmlProcessor::OnEndElement(std::u16string_view name) {
    const PolicyElement* element = Recognize(name);
    if (element == nullptr) {
        return;
    }
    switch (element->role) {
        case PolicyRole::List:
            policy_->AddList(std::move(currentList_));  // Clear makes it whole again
            currentList_.Clear();
            break;
        case PolicyRole::MainEntry:
        case PolicyRole::ExceptionEntry:
            if (element->family != currentList_.type) {
                return;
            }
            // A document names no entry ids: each entry gets the fresh one it was made with.
            (element->role == PolicyRole::MainEntry ? currentList_.mainEntries
                                                    : currentList_.exceptionEntries)
                .AddWithFreshId(currentEntry_);
            currentEntry_.Clear();
            currentEntry_.id = NewGuid();
            break;
        default:
            break;
    }
}

bool WebFilterXmlProcessor::StartElement(std::u16string_view name) {
    return writer_ && writer_->WriteStartElement(name);
}

bool WebFilterXmlProcessor::EndElement() {
    return writer_ && writer_->WriteFullEndElement();
}

bool WebFilterXmlProcessor::WriteTextElement(std::u16string_view name, std::u16string_view value) {
    return writer_ && writer_->WriteElementString(name, value);
}

bool WebFilterXmlProcessor::WriteNumberElement(std::u16string_view name, std::uint32_t number) {
    char digits[10];
    const std::to_chars_result written =
        std::to_chars(std::begin(digits), std::end(digits), number);
    const std::u16string text(std::begin(digits), written.ptr);
    return WriteTextElement(name, text);
}

bool WebFilterXmlProcessor::Flush() {
    return writer_ && writer_->Flush();
}

std::u16string WebFilterXmlProcessor::GetText() {
    return storage_->ReadText();
}

void WebFilterXmlProcessor::Close() {
    reader_.reset();
    writer_.reset();
}

}  // namespace sentrel
