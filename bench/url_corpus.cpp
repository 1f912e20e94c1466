#include "url_corpus.h"

#include <array>
#include <random>
#include <string_view>

namespace sentrel::bench {

namespace {

class Generator {
  public:
    explicit Generator(std::uint64_t seed) : random_(seed) {}

    std::size_t Below(std::size_t bound) {
        return std::uniform_int_distribution<std::size_t>(0, bound - 1)(random_);
    }
    bool Chance(std::size_t percent) { return Below(100) < percent; }

    std::u16string Word(std::size_t minLength, std::size_t maxLength) {
        static constexpr std::u16string_view kLetters = u"abcdefghijklmnopqrstuvwxyz0123456789-";
        std::u16string word;
        const std::size_t length = minLength + Below(maxLength - minLength + 1);
        for (std::size_t i = 0; i < length; ++i) {
            // Letters mostly; digits and hyphens now and then, never first.
            word.push_back(kLetters[i == 0 || !Chance(10) ? Below(26) : 26 + Below(11)]);
        }
        // A first label "www" would be dropped from an entry's host key and leave a bare
        // top-level domain that lists every host under it.
        if (word == u"www") {
            word.push_back(u'x');
        }
        return word;
    }

    // labels in all, the last one a top-level domain.
    std::u16string Host(std::size_t labels) {
        static constexpr std::array<std::u16string_view, 10> kTopLevel = {
            u"com", u"net", u"org", u"de", u"io", u"uk", u"fr", u"info", u"edu", u"nl"};
        std::u16string host;
        for (std::size_t i = 1; i < labels; ++i) {
            host += Word(3, 12);
            host += u'.';
        }
        host += kTopLevel[Below(kTopLevel.size())];
        return host;
    }

    std::u16string Path(std::size_t segments) {
        std::u16string path;
        for (std::size_t i = 0; i < segments; ++i) {
            path += u'/';
            path += Word(2, 14);
        }
        return path;
    }

    std::u16string Query() { return Chance(40) ? u"?" + Word(2, 8) + u"=" + Word(4, 30) : u""; }

  private:
    std::mt19937_64 random_;
};

struct GeneratedEntry {
    std::u16string scheme;
    std::u16string host;
    std::u16string port;  // with its ':' or empty
    std::u16string path;
};

}  // namespace

UrlCorpus MakeUrlCorpus(FilterListType listType, std::size_t entryCount, std::size_t urlCount,
                        std::uint64_t seed) {
    static constexpr std::array<std::u16string_view, 4> kPorts = {u":8080", u":8443", u":81",
                                                                  u":3128"};
    Generator generate(seed);
    UrlCorpus corpus;
    std::vector<GeneratedEntry> entries;
    entries.reserve(entryCount);
    FilterList list(u"generated");
    list.type = listType;
    for (std::size_t i = 0; i < entryCount; ++i) {
        GeneratedEntry entry;
        const std::size_t kind = generate.Below(100);
        entry.scheme = kind < 50 ? u"http" : kind < 95 ? u"https" : u"ftp";
        entry.host = generate.Host(2 + generate.Below(4));
        if (generate.Chance(10)) {
            entry.port = kPorts[generate.Below(kPorts.size())];
        }
        if (generate.Below(3) == 0) {
            entry.path = generate.Path(1 + generate.Below(3));
        }
        // Written as people write list entries: "www." often, capitals and slashes sometimes.
        std::u16string url = entry.scheme + u"://" + (generate.Chance(30) ? u"www." : u"") +
                             entry.host + entry.port + entry.path +
                             (generate.Chance(20) ? u"/" : u"");
        if (generate.Chance(5)) {
            url[0] = static_cast<char16_t>(url[0] - (u'a' - u'A'));  // the scheme's first capital
        }
        corpus.entryUrls.push_back(url);
        list.AddEntry(FilterEntry(u"entry", url));
        entries.push_back(std::move(entry));
    }
    corpus.policy.AddList(list);

    for (std::size_t i = 0; i < urlCount; ++i) {
        const GeneratedEntry& entry = entries[generate.Below(entries.size())];
        std::u16string host = entry.host;
        for (std::size_t extra = generate.Below(3); extra > 0; --extra) {
            host = generate.Word(3, 10) + u"." + host;
        }
        const std::u16string scheme = entry.scheme == u"ftp" ? u"ftp"
                                      : generate.Chance(50)  ? u"https"
                                                             : u"http";
        corpus.hits.push_back(scheme + u"://" + host + entry.port + entry.path +
                              generate.Path(generate.Below(6)) + generate.Query());
        corpus.misses.push_back(u"https://" + generate.Host(3 + generate.Below(4)) +
                                generate.Path(2 + generate.Below(6)) + generate.Query());
    }
    return corpus;
}

}  // namespace sentrel::bench
