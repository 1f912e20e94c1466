#include "search/web_filter_searcher.h"

#include <optional>
#include <string>

#include "module/log/logger.h"
#include "search/match_rules.h"
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
    whiteIndex_.Clear();
    blackIndex_.Clear();
    const auto target = [this](const FilterList& list) -> SchemeToInfoMapType& {
        return list.type == FilterListWhite ? whiteIndex_ : blackIndex_;
    };
    try {
        // Each index is made room for all of its entries and their keys at once.
        struct Size {
            std::size_t entries = 0;
            std::size_t chars = 0;
        };
        Size white;
        Size black;
        for (const auto& [id, list] : policy.lists) {
            Size& size = &target(list) == &whiteIndex_ ? white : black;
            size.entries += list.mainEntries.size();
            for (const auto& entry : list.mainEntries) {
                size.chars += entry.url.size();
            }
        }
        whiteIndex_.Reserve(white.entries, white.chars);
        blackIndex_.Reserve(black.entries, black.chars);
        for (const auto& [id, list] : policy.lists) {
            SchemeToInfoMapType& index = target(list);
            for (const auto& entry : list.mainEntries) {
                InsertUrl(NormalizedUrlText(std::u16string_view(entry.url)).view(), index);
            }
        }
        whiteIndex_.Seal();
        blackIndex_.Seal();
    } catch (...) {
        // No half-built index stays in force.
        whiteIndex_.Clear();
        blackIndex_.Clear();
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
    InsertIntoHostMap(cracked, index, index.FindOrAddScheme(SchemeKey(cracked)));
}

void WebFilterSearcher::InsertIntoHostMap(const CrackedUrl& cracked, SchemeToInfoMapType& index,
                                          SchemeToInfoMapType::RecordId scheme) {
    if (cracked.host.empty()) {
        return;
    }
    InsertIntoPortMap(cracked, index, scheme);
}

void WebFilterSearcher::InsertIntoPortMap(const CrackedUrl& cracked, SchemeToInfoMapType& index,
                                          SchemeToInfoMapType::RecordId scheme) {
    // The hosts and their sets are made when the index is sealed: a set without a path covers
    // every path.
    index.AddPath(scheme, HostKey(cracked), cracked.port, PathKey(cracked));
}

bool WebFilterSearcher::IsUrlAllowed(std::u16string_view url, DecisionTrace* trace) const {
    if (trace != nullptr) {
        // Field by field, so that a trace used again keeps the memory of its keys.
        trace->index.outcome = IndexOutcome::NoSchemeEntry;
        trace->index.schemeKey.clear();
        trace->index.hostKey.clear();
        trace->index.port = 0;
        trace->index.everyPath = false;
        trace->index.pathKey.clear();
        trace->index.entry = 0;
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
    if (!CrackUrl(normalized, cracked)) {
        TheLogger.Log(LogLevelError, u"WebFilterSearcher::IsUrlAllowed - Could not crack url: %s",
                      url);
        return answer(DecisionStep::CouldNotCrack, false);
    }
    const std::u16string_view scheme = cracked.scheme;
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
    if (trace != nullptr && trace->keys) {
        trace->schemeKey.assign(schemeKey);
    }
    const std::optional<HostToInfoMapTypeStruct> hosts = index.Find(schemeKey);
    if (!hosts) {
        return Miss(trace, IndexOutcome::NoSchemeEntry);
    }
    if (cracked.host.empty()) {
        return Miss(trace, IndexOutcome::NoHost);
    }
    // The host key, then each shorter suffix of the walk, until one is listed; the first one
    // listed decides alone.
    const std::u16string_view hostKey = HostKey(cracked);
    const HostSuffixHashes hashes(hostKey);
    std::optional<PortToPathsMapTypeStruct> ports;
    std::u16string_view candidate;
    if (!WalkHostCandidates(hostKey, [&](std::size_t start) {
            candidate = hostKey.substr(start);
            ports = hosts->Find(candidate, hosts->HashOf(hashes.Of(start)));
            return ports.has_value();
        })) {
        return Miss(trace, IndexOutcome::HostWalkExhausted);
    }
    if (trace != nullptr && trace->keys) {
        trace->hostKey.assign(candidate);
    }
    return IsUrlInPortMap(cracked, *ports, trace);
}

bool WebFilterSearcher::IsUrlInPortMap(const CrackedUrl& cracked,
                                       const PortToPathsMapTypeStruct& ports, IndexTrace* trace) {
    const std::u16string_view pathKey = PathKey(cracked);
    bool listed = false;
    std::uint16_t matched = 0;
    const bool found = WalkPortCandidates(cracked.port, [&](std::uint16_t port) {
        const std::optional<StringSetTypeStruct> paths = ports.Find(port);
        listed = listed || paths.has_value();
        matched = port;
        return paths && IsPathInSet(pathKey, *paths, trace);
    });
    if (!found) {
        return Miss(trace, listed ? IndexOutcome::PathMismatch : IndexOutcome::NoPortEntry);
    }
    if (trace != nullptr) {
        trace->outcome = IndexOutcome::Matched;
        trace->port = matched;
        trace->entry = ports.EntryNumber(matched, trace->pathKey);
    }
    return true;
}

bool WebFilterSearcher::IsPathInSet(std::u16string_view pathKey, const StringSetTypeStruct& paths,
                                    IndexTrace* trace) {
    std::u16string_view listedKey;  // stays empty when the set lists every path
    if (!paths.empty() &&
        !WalkPathCandidates(pathKey, [&paths, &listedKey](std::u16string_view candidate) {
            listedKey = candidate;
            return paths.contains(candidate);
        })) {
        return false;
    }
    if (trace != nullptr) {
        trace->everyPath = paths.empty();
        trace->pathKey.assign(listedKey);
    }
    return true;
}

}  // namespace sentrel
