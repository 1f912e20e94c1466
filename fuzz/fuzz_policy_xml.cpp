// Reads arbitrary bytes as a UTF-16LE policy document, writes what was read, reads that again and
// checks that nothing changed on the way: the reader accepts only text the writer can carry.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "policy/web_filter_xml_processor.h"

namespace {

using sentrel::FilterEntrySequence;
using sentrel::FilterList;
using sentrel::WebFilterPolicy;
using sentrel::WebFilterXmlProcessor;

bool SameEntries(const FilterEntrySequence& a, const FilterEntrySequence& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const auto& x, const auto& y) {
        return x.name == y.name && x.url == y.url;
    });
}

// Everything a document carries of the lists (entry ids are not written).
bool SameLists(const WebFilterPolicy& a, const WebFilterPolicy& b) {
    return std::equal(a.lists.begin(), a.lists.end(), b.lists.begin(), b.lists.end(),
                      [](const auto& x, const auto& y) {
                          const FilterList& listX = x.second;
                          const FilterList& listY = y.second;
                          return x.first == y.first && listX.id == listY.id &&
                                 listX.type == listY.type && listX.name == listY.name &&
                                 SameEntries(listX.mainEntries, listY.mainEntries) &&
                                 SameEntries(listX.exceptionEntries, listY.exceptionEntries);
                      });
}

// Numbers read back as the runtime converts them: beyond the signed range they saturate.
std::uint32_t ReadBack(std::uint32_t number) {
    return std::min<std::uint32_t>(number, 0x7FFFFFFF);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::u16string text(size / 2, u'\0');
    std::memcpy(text.data(), data, text.size() * sizeof(char16_t));
    WebFilterPolicy first;
    if (!WebFilterXmlProcessor::DeserializePolicy(first, text)) {
        std::abort();
    }
    // A failure to write what was read escapes as an exception and ends the run.
    const std::u16string document = WebFilterXmlProcessor::SerializePolicy(first);
    WebFilterPolicy second;
    WebFilterXmlProcessor::DeserializePolicy(second, document);
    if (second.version != ReadBack(first.version) ||
        second.refreshMode != ReadBack(first.refreshMode) || !SameLists(first, second)) {
        std::abort();
    }
    if (second.version == first.version && second.refreshMode == first.refreshMode &&
        WebFilterXmlProcessor::SerializePolicy(second) != document) {
        std::abort();
    }
    return 0;
}
