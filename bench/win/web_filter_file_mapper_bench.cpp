// Timing figures of the shared policy section under the platform at hand (Wine here): an idle
// check, and writes and reads of a policy document of 100,000 entries. Prints one line per
// figure. With --quick (as ctest runs it) it only makes sure every measured path works.

#include <windows.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "search/web_filter_type.h"
#include "shared/web_filter_file_mapper.h"

namespace sentrel {
namespace {

using Clock = std::chrono::steady_clock;

std::u16string Ascii(const std::string& text) {
    return std::u16string(text.begin(), text.end());
}

void AppendElement(std::u16string& out, const char* name, const std::u16string& value) {
    out += u'<' + Ascii(name) + u'>' + value + u"</" + Ascii(name) + u'>';
}

// A policy document in the shape the manager publishes: a byte order mark, then WebFilters with
// white and black lists whose entries name sites and their URLs.
std::u16string MakeDocument(std::size_t entries, char16_t variant) {
    constexpr std::size_t kLists = 8;
    std::u16string out = u"\uFEFF<WebFilters>";
    AppendElement(out, "WFVersion", u"1");
    AppendElement(out, "WFRefreshMode", u"0");
    const std::size_t perList = entries / kLists;
    std::size_t number = 0;
    for (std::size_t list = 0; list < kLists; ++list) {
        const bool white = list % 2 == 0;
        const std::string prefix = white ? "WL" : "BL";
        out += white ? u"<WhiteList>" : u"<BlackList>";
        char id[40];
        std::snprintf(id, sizeof(id), "{%08X-0000-4000-8000-%012zX}", 0x5E27E100u, list);
        AppendElement(out, (prefix + "Id").c_str(), Ascii(id));
        AppendElement(out, (prefix + "Name").c_str(), Ascii("List " + std::to_string(list)));
        for (const bool exceptions : {false, true}) {
            const std::string container =
                exceptions ? prefix + "Exceptions" : prefix + (white ? "Accepted" : "Denied");
            const std::string entry =
                prefix + (exceptions ? "EEntry" : (white ? "AEntry" : "DEntry"));
            out += u'<' + Ascii(container) + u'>';
            const std::size_t count = exceptions ? perList / 4 : perList - perList / 4;
            for (std::size_t i = 0; i < count; ++i, ++number) {
                const std::string site = "site" + std::to_string(number);
                out += u'<' + Ascii(entry) + u'>';
                AppendElement(out, (entry + "Name").c_str(),
                              Ascii("Site " + std::to_string(number)));
                AppendElement(out, (entry + "Url").c_str(),
                              Ascii("http://www." + site + ".example.com/pages/" +
                                    std::to_string(number % 97) + "/index.html"));
                out += u"</" + Ascii(entry) + u">";
            }
            out += u"</" + Ascii(container) + u">";
        }
        out += white ? u"</WhiteList>" : u"</BlackList>";
    }
    out += u"</WebFilters>";
    out[out.size() - 2] = variant;  // lets two documents of one length differ
    return out;
}

// Runs the body `iterations` times and prints the mean and the fastest run.
void Measure(const char* name, int iterations, const std::function<void()>& body) {
    std::vector<double> micros;
    for (int i = 0; i < iterations; ++i) {
        const auto start = Clock::now();
        body();
        micros.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
    }
    double total = 0;
    for (const double value : micros) {
        total += value;
    }
    std::printf("%-52s %8d runs  mean %12.1f us  fastest %12.1f us\n", name, iterations,
                total / iterations, *std::min_element(micros.begin(), micros.end()));
}

int Run(bool quick) {
    const std::size_t entries = quick ? 2000 : 100000;
    const int idleRuns = quick ? 50 : 20000;
    const int bigRuns = quick ? 2 : 10;
    const std::u16string first = MakeDocument(entries, u's');
    const std::u16string second = MakeDocument(entries, u'S');
    std::printf("document: %zu entries, %zu characters\n", entries, first.size());
    bool ok = true;

    Measure("WriteContent, first write (creates the section)", bigRuns, [&] {
        WebFilterFileMapper mapper;
        ok = mapper.WriteContent(WebFilterBlockPolicy, first) && ok;
    });

    WebFilterFileMapper writer;
    ok = writer.WriteContent(WebFilterBlockPolicy, first) && ok;
    int round = 0;
    Measure("WriteContent, changed document of the same length", bigRuns, [&] {
        ok = writer.WriteContent(WebFilterBlockPolicy, ++round % 2 ? second : first) && ok;
    });
    Measure("WriteContent, unchanged document (compare only)", bigRuns, [&] {
        ok = !writer.WriteContent(WebFilterBlockPolicy, round % 2 ? second : first) && ok;
    });

    const WebFilterFileMapper reader;
    std::uint32_t lastStamp = 0;
    std::uint32_t type = 0;
    std::u16string text;
    Measure("CheckContentChanged, change found (copies the text)", bigRuns, [&] {
        lastStamp = 0;
        ok = reader.CheckContentChanged(lastStamp, type, text) && text.size() == first.size() && ok;
    });
    Measure("CheckContentChanged, idle (stamp unchanged)", idleRuns,
            [&] { ok = !reader.CheckContentChanged(lastStamp, type, text) && ok; });
    if (!ok) {
        std::printf("a measured call did not do what it should\n");
    }
    return ok ? 0 : 1;
}

}  // namespace
}  // namespace sentrel

int main(int argc, char** argv) {
    const bool quick = argc > 1 && std::string(argv[1]) == "--quick";
    return sentrel::Run(quick);
}
