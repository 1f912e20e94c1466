#include "search/web_filter_searcher.h"

#include <array>
#include <string>

#include "module/log/logger.h"
#include "search/url_keys.h"
#include "text/url_text.h"

namespace sentrel {

namespace {

bool Miss(IndexTrace* trace, IndexOutcome outcome) {
    if (trace != nullptr) {
        trace->outcome = outcome;
    }
    return false;
}

}  // namespace

void WebFilterSearcher::LoadPolicy(const WebFilterPolicy& policy) {
    whiteIndex_.clear();
    blackIndex_.clear();
    arena_.Release();
    try {
        for (const auto& [id, list] : policy.lists) {
            SchemeToInfoMapType& target = list.type == FilterListWhite ? whiteIndex_ : blackIndex_;
            for (const auto& entry : list.mainEntries) {
                InsertUrl(NormalizedUrlText(entry.url).view(), target);
            }
        }
    } catch (...) {
        // No half-built index stays in force.
        whiteIndex_.clear();
        blackIndex_.clear();
        throw;
    }
}

void WebFilterSearcher::InsertUrl(std::u16string_view url, SchemeToInfoMapType& index) {
    CrackedUrl cracked;
    if (!CrackUrl(url, cracked)) {
        TheLogger.Log(LogLevelError, u"WebFilterSearcher::InsertUrl - Could not crack url: %s",
                      url);
        return;
    }
    // The scheme entry is made even when the host is empty: it makes the index non-empty.
    const std::u16string_view schemeKey = SchemeKey(cracked);
    auto scheme = index.find(schemeKey);
    if (scheme == index.end()) {
        scheme = index.emplace(schemeKey, MakeIndexLevel<HostToInfoMapTypeStruct>(index)).first;
    }
    InsertIntoHostMap(cracked, *scheme->second);
}

void WebFilterSearcher::InsertIntoHostMap(const CrackedUrl& cracked,
                                          HostToInfoMapTypeStruct& hosts) {
    if (cracked.host.empty()) {
        return;
    }
    InsertIntoPortMap(cracked, hosts.FindOrAdd(HostKey(cracked)));
}

void WebFilterSearcher::InsertIntoPortMap(const CrackedUrl& cracked,
                                          PortToPathsMapTypeStruct& ports) {
    const std::u16string_view pathKey = PathKey(cracked);
    const auto port = ports.ports.find(cracked.port);
    if (port == ports.ports.end()) {
        auto paths = MakeIndexLevel<StringSetTypeStruct>(ports.ports);
        if (!pathKey.empty()) {
            paths->paths.emplace(pathKey);
        }
        ports.ports.emplace(cracked.port, std::move(paths));
        return;
    }
    // An empty set already covers every path; an entry without a path makes it so.
    auto& paths = port->second->paths;
    if (paths.empty()) {
        return;
    }
    if (pathKey.empty()) {
        paths.clear();
        return;
    }
    const auto at = paths.lower_bound(pathKey);
    if (at == paths.end() || *at != pathKey) {
        paths.emplace_hint(at, pathKey);
    }
}

bool WebFilterSearcher::IsUrlAllowed(std::u16string_view url, DecisionTrace* trace) const {
    if (trace != nullptr) {
        *trace = DecisionTrace{};
    }
    const auto answer = [trace](DecisionStep step, bool allowed) {
        if (trace != nullptr) {
            trace->step = step;
            trace->allowed = allowed;
        }
        return allowed;
    };
    if (filterType == WebFilterBlockNone) {
        return answer(DecisionStep::FilterNone, true);
    }
    if (filterType == WebFilterBlockPolicy && whiteIndex_.empty() && blackIndex_.empty()) {
        return answer(DecisionStep::NoIndexedEntries, true);
    }
    const NormalizedUrlText normalized(url);
    CrackedUrl cracked;
    if (!CrackUrl(normalized.view(), cracked)) {
        TheLogger.Log(LogLevelError, u"WebFilterSearcher::IsUrlAllowed - Could not crack url: %s",
                      url);
        return answer(DecisionStep::CouldNotCrack, false);
    }
    const std::u16string_view scheme = cracked.scheme.view();
    if (scheme == u"about" || scheme == u"file") {
        return answer(DecisionStep::AboutOrFileScheme, true);
    }
    if (filterType == WebFilterBlockAll) {
        return answer(DecisionStep::BlockAll, false);
    }
    // A policy, or a filter type outside the three: a non-empty white index alone decides.
    IndexTrace* const indexTrace = trace != nullptr ? &trace->index : nullptr;
    if (!whiteIndex_.empty()) {
        return answer(DecisionStep::WhiteIndex, IsUrlInIndex(cracked, whiteIndex_, indexTrace));
    }
    if (!blackIndex_.empty()) {
        return answer(DecisionStep::BlackIndex, !IsUrlInIndex(cracked, blackIndex_, indexTrace));
    }
    return answer(DecisionStep::NoIndexedEntries, true);
}

bool WebFilterSearcher::IsUrlInIndex(const CrackedUrl& cracked, const SchemeToInfoMapType& index,
                                     IndexTrace* trace) {
    const std::u16string_view schemeKey = SchemeKey(cracked);
    if (trace != nullptr) {
        trace->schemeKey.assign(schemeKey);
    }
    const auto scheme = index.find(schemeKey);
    if (scheme == index.end()) {
        return Miss(trace, IndexOutcome::NoSchemeEntry);
    }
    if (cracked.host.empty()) {
        return Miss(trace, IndexOutcome::NoHost);
    }
    // The host key, then each shorter suffix that starts after a '.', until one is listed; the
    // first one listed decides alone. Each candidate starts at least two characters after the
    // one before, so a host key within its limit has at most this many.
    const std::u16string_view hostKey = HostKey(cracked);
    constexpr std::size_t kMaxCandidates = decltype(cracked.host)::kLimit / 2 + 1;
    std::array<std::size_t, kMaxCandidates> starts;
    std::size_t count = 0;
    for (std::size_t start = 0; start != hostKey.npos && count < starts.size();
         start = NextHostCandidate(hostKey, start)) {
        starts[count++] = start;
    }
    // Their hashes in one pass from the right.
    std::array<std::uint64_t, kMaxCandidates> hashes;
    HostKeyHash hash;
    for (std::size_t i = hostKey.size(), next = count; next > 0;) {
        while (i > starts[next - 1]) {
            hash.Prepend(hostKey[--i]);
        }
        hashes[--next] = hash.Value();
    }
    const HostToInfoMapTypeStruct& hosts = *scheme->second;
    for (std::size_t k = 0; k < count; ++k) {
        const std::u16string_view candidate = hostKey.substr(starts[k]);
        if (const PortToPathsMapTypeStruct* const ports = hosts.Find(candidate, hashes[k])) {
            if (trace != nullptr) {
                trace->hostKey.assign(candidate);
            }
            return IsUrlInPortMap(cracked, *ports, trace);
        }
    }
    return Miss(trace, IndexOutcome::HostWalkExhausted);
}

bool WebFilterSearcher::IsUrlInPortMap(const CrackedUrl& cracked,
                                       const PortToPathsMapTypeStruct& ports, IndexTrace* trace) {
    const std::u16string_view pathKey = PathKey(cracked);
    const auto listed = [&ports](std::uint16_t port) -> const StringSetTypeStruct* {
        const auto it = ports.ports.find(port);
        return it == ports.ports.end() ? nullptr : it->second.get();
    };
    const auto matched = [trace](std::uint16_t port) {
        if (trace != nullptr) {
            trace->outcome = IndexOutcome::Matched;
            trace->port = port;
        }
        return true;
    };
    // The URL's own port first; entries that named no port act for every port.
    const StringSetTypeStruct* const own = listed(cracked.port);
    if (own != nullptr && IsPathInSet(pathKey, *own, trace)) {
        return matched(cracked.port);
    }
    const StringSetTypeStruct* const any = cracked.port != 0 ? listed(0) : nullptr;
    if (any != nullptr && IsPathInSet(pathKey, *any, trace)) {
        return matched(0);
    }
    return Miss(trace, own != nullptr || any != nullptr ? IndexOutcome::PathMismatch
                                                        : IndexOutcome::NoPortEntry);
}

bool WebFilterSearcher::IsPathInSet(std::u16string_view pathKey, const StringSetTypeStruct& paths,
                                    IndexTrace* trace) {
    const auto matched = [trace](std::u16string_view listedKey) {
        if (trace != nullptr) {
            trace->everyPath = listedKey.empty();
            trace->pathKey.assign(listedKey);
        }
        return true;
    };
    if (paths.paths.empty()) {
        return matched({});
    }
    // The path key, then each prefix that ends before a '/'.
    std::u16string_view candidate = pathKey;
    for (;;) {
        if (paths.paths.contains(candidate)) {
            return matched(candidate);
        }
        const std::size_t slash = candidate.rfind(u'/');
        if (slash == candidate.npos) {
            return false;
        }
        candidate = candidate.substr(0, slash);
    }
}

}  // namespace sentrel
