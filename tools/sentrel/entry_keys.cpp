#include "entry_keys.h"

#include "search/cracked_url.h"
#include "search/url_keys.h"
#include "search/url_text.h"

namespace sentrel::cli {

std::optional<EntryKeys> KeysOfEntry(const FilterEntry& entry) {
    CrackedUrl cracked;
    if (!CrackUrl(NormalizeUrlText(entry.url), cracked)) {
        return std::nullopt;
    }
    EntryKeys keys;
    keys.schemeKey = SchemeKey(cracked);
    keys.hasHost = !cracked.host.empty();
    if (keys.hasHost) {
        keys.hostKey = HostKey(cracked);
        keys.port = cracked.port;
        keys.pathKey = PathKey(cracked);
    }
    return keys;
}

std::vector<EntrySource> EntriesWithKeys(const WebFilterPolicy& policy, bool white,
                                         const EntryKeys& keys) {
    std::vector<EntrySource> sources;
    for (const auto& [id, list] : policy.lists) {
        if (FeedsWhiteIndex(list) != white) {
            continue;
        }
        for (const FilterEntry& entry : list.mainEntries) {
            const std::optional<EntryKeys> entryKeys = KeysOfEntry(entry);
            if (entryKeys && entryKeys->schemeKey == keys.schemeKey &&
                entryKeys->hasHost == keys.hasHost && entryKeys->hostKey == keys.hostKey &&
                entryKeys->port == keys.port && entryKeys->pathKey == keys.pathKey) {
                sources.push_back({&list, &entry});
            }
        }
    }
    return sources;
}

}  // namespace sentrel::cli
