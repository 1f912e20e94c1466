#pragma once

// The decision rules read literally, over the loaded entries in plain ordered containers and with
// no index: what the searcher must answer, for differential checks.

#include <map>
#include <set>
#include <string>

#include "policy/web_filter_policy.h"
#include "search/url_keys.h"
#include "search/web_filter_type.h"
#include "text/url_text.h"

namespace sentrel::test {

class ReferenceDecider {
  public:
    ReferenceDecider(WebFilterType type, const WebFilterPolicy& policy) : type_(type) {
        for (const auto& [id, list] : policy.lists) {
            for (const FilterEntryView entry : list.mainEntries) {
                const std::u16string url = NormalizeUrlText(entry.url);
                CrackedUrl c;
                if (CrackUrl(url, c)) {
                    auto& hosts = (list.type == FilterListWhite ? white_ : black_)[S(SchemeKey(c))];
                    if (!c.host.empty()) {
                        // An empty path key lists every path.
                        hosts[S(HostKey(c))][c.port].insert(S(PathKey(c)));
                    }
                }
            }
        }
    }

    bool IsUrlAllowed(std::u16string_view url) const {
        if (type_ == WebFilterBlockNone ||
            (type_ == WebFilterBlockPolicy && white_.empty() && black_.empty())) {
            return true;
        }
        const std::u16string text = NormalizeUrlText(url);
        CrackedUrl c;
        if (!CrackUrl(text, c) || c.scheme == u"about" || c.scheme == u"file") {
            return !c.scheme.empty();  // a failed crack leaves the scheme empty
        }
        if (type_ == WebFilterBlockAll) {
            return false;
        }
        return !white_.empty() ? Matches(white_, c) : !Matches(black_, c);
    }

  private:
    using Ports = std::map<std::uint16_t, std::set<std::u16string>>;
    using Index = std::map<std::u16string, std::map<std::u16string, Ports>>;

    static std::u16string S(std::u16string_view view) { return std::u16string(view); }

    // The host key and its suffixes after the first character and a '.', until one is listed.
    static bool Matches(const Index& index, const CrackedUrl& c) {
        const auto scheme = index.find(S(SchemeKey(c)));
        for (std::u16string host = S(HostKey(c)); scheme != index.end() && !c.host.empty();) {
            if (const auto ports = scheme->second.find(host); ports != scheme->second.end()) {
                return Listed(ports->second, c.port, S(PathKey(c))) ||
                       (c.port != 0 && Listed(ports->second, 0, S(PathKey(c))));
            }
            const std::size_t dot = host.find(u'.', 1);
            if (dot == host.npos || dot + 1 == host.size()) {
                break;
            }
            host.erase(0, dot + 1);
        }
        return false;
    }

    // The path key, then each prefix before a '/', from the longest.
    static bool Listed(const Ports& ports, std::uint16_t port, std::u16string path) {
        const auto paths = ports.find(port);
        if (paths == ports.end()) {
            return false;
        }
        while (!paths->second.contains(u"") && !paths->second.contains(path)) {
            const std::size_t slash = path.rfind(u'/');
            if (slash == path.npos) {
                return false;
            }
            path.resize(slash);
        }
        return true;
    }

    WebFilterType type_;
    Index white_;
    Index black_;
};

}  // namespace sentrel::test
