// Builds a small random policy and random URLs from the input and compares the searcher's answer
// with the reference decider's under every filter type. Keys come from a small alphabet, so that
// shared schemes, hosts, host suffixes, ports and path prefixes are frequent.

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "reference_decider.h"
#include "search/web_filter_searcher.h"

namespace {

using namespace sentrel;

class Input {
  public:
    Input(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}

    bool empty() const { return next_ == size_; }
    // A number below bound, 0 once the input is used up.
    std::size_t Below(std::size_t bound) { return next_ < size_ ? data_[next_++] % bound : 0; }

    template <std::size_t N>
    std::u16string_view Pick(const std::array<std::u16string_view, N>& choices) {
        return choices[Below(N)];
    }

    std::u16string Url() {
        static constexpr std::array<std::u16string_view, 8> kSchemes = {
            u"http", u"https", u"HTTP", u"ftp", u"file", u"about", u"a", u""};
        static constexpr std::array<std::u16string_view, 5> kSeparators = {u"://", u"://", u":",
                                                                           u":/", u""};
        static constexpr std::array<std::u16string_view, 9> kLabels = {
            u"a", u"b", u"www", u"c", u"", u"[::1]", u"\u00e9", u"\u4e00", u"u@"};
        static constexpr std::array<std::u16string_view, 6> kPorts = {u"",    u"",      u":0",
                                                                      u":80", u":8080", u":65616"};
        static constexpr std::array<std::u16string_view, 7> kSegments = {
            u"x", u"y", u"", u"\u4e00", u"X", u"?q", u"#f"};
        std::u16string url(Pick(kSchemes));
        url += Pick(kSeparators);
        for (std::size_t labels = Below(4); labels > 0; --labels) {
            url += Pick(kLabels);
            url += labels > 1 ? u"." : u"";
        }
        url += Pick(kPorts);
        for (std::size_t segments = Below(4); segments > 0; --segments) {
            url += u"/";
            url += Pick(kSegments);
        }
        // Now and then a character of the input itself, for URLs nobody would write.
        if (Below(8) == 0) {
            url.insert(Below(url.size() + 1), 1,
                       static_cast<char16_t>(Below(256) | Below(256) << 8));
        }
        return Below(4) == 0 ? u" " + url + u"\t" : url;
    }

  private:
    const std::uint8_t* data_;
    std::size_t size_;
    std::size_t next_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    WebFilterPolicy policy;
    for (std::size_t lists = 1 + input.Below(3); lists > 0; --lists) {
        FilterList list;
        list.type = input.Below(2) == 0 ? FilterListWhite : FilterListBlack;
        for (std::size_t entries = input.Below(8); entries > 0; --entries) {
            list.AddEntry(FilterEntry(u"", input.Url()));
        }
        policy.AddList(list);
    }
    for (const auto type : {WebFilterBlockNone, WebFilterBlockPolicy, WebFilterBlockAll,
                            static_cast<WebFilterType>(3)}) {
        WebFilterSearcher searcher;
        searcher.filterType = type;
        searcher.LoadPolicy(policy);
        const test::ReferenceDecider reference(type, policy);
        Input urls(data, size);
        do {
            const std::u16string url = urls.Url();
            DecisionTrace trace;
            const bool allowed = searcher.IsUrlAllowed(url);
            if (allowed != reference.IsUrlAllowed(url) ||
                searcher.IsUrlAllowed(url, &trace) != allowed) {
                std::abort();
            }
        } while (!urls.empty());
    }
    return 0;
}
