#include "entry_keys.h"

#include "search/cracked_url.h"
#include "search/url_keys.h"
#include "text/url_text.h"

namespace sentrel::cli {

std::optional<EntryKeys> KeysOfEntry(const FilterEntryView& entry, CrackFailure* why) {
    const std::u16string normalised = NormalizeUrlText(entry.url);
    CrackedUrl cracked;
    if (!CrackUrl(normalised, cracked, why)) {
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

std::string_view DescribeCrackFailure(CrackFailure why) {
    switch (why) {
        case CrackFailure::NoScheme:
            return "it has no scheme (a URL needs one, as in http://host/path)";
        case CrackFailure::SchemeTooLong:
            return "its scheme is longer than 32 characters";
        case CrackFailure::MailtoWithSlashes:
            return "a mailto URL cannot go on with //";
        case CrackFailure::HostTooLong:
            return "its host is longer than 256 characters";
        case CrackFailure::UserInfoTooLong:
            return "its user name or password is longer than 128 characters";
        case CrackFailure::PasswordWithoutUser:
            return "it has a password but no user name";
        case CrackFailure::AfterTextTooLong:
            return "the text after a ':' of its host is longer than 128 characters";
        case CrackFailure::SecondUserInfo:
            return "it has more than one user name part (a second '@')";
        case CrackFailure::PathTooLong:
            return "its path is longer than 2048 characters";
        case CrackFailure::TailTooLong:
            return "its query or fragment is longer than 2048 characters";
        case CrackFailure::SegmentTooLong:
            return "a part of it is longer than 2089 characters";
        case CrackFailure::None:
            break;
    }
    return "it cannot be cracked";
}

std::vector<EntrySource> EntriesWithKeys(const WebFilterPolicy& policy, bool white,
                                         const EntryKeys& keys) {
    std::vector<EntrySource> sources;
    for (const auto& [id, list] : policy.lists) {
        if (FeedsWhiteIndex(list) != white) {
            continue;
        }
        for (const FilterEntryView& entry : list.mainEntries) {
            const std::optional<EntryKeys> entryKeys = KeysOfEntry(entry);
            if (entryKeys && entryKeys->schemeKey == keys.schemeKey &&
                entryKeys->hasHost == keys.hasHost && entryKeys->hostKey == keys.hostKey &&
                entryKeys->port == keys.port && entryKeys->pathKey == keys.pathKey) {
                sources.push_back({&list, entry});
            }
        }
    }
    return sources;
}

}  // namespace sentrel::cli
