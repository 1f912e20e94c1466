#include "entry_keys.h"

#include "search/cracked_url.h"
#include "search/url_keys.h"
#include "text/url_text.h"
#include "utf8.h"

namespace sentrel::cli {

namespace {

EntryKeys KeysOf(const CrackedUrl& cracked) {
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

// Visits each main entry of the policy that can be cracked, cracked.
template <class Visit>
void ForEachCrackedEntry(const WebFilterPolicy& policy, Visit&& visit) {
    for (const auto& [id, list] : policy.lists) {
        for (const FilterEntryView& entry : list.mainEntries) {
            const NormalizedUrlText normalised(entry.url);
            CrackedUrl cracked;
            if (CrackUrl(normalised.view(), cracked)) {
                visit(cracked, EntrySource{&list, entry});
            }
        }
    }
}

}  // namespace

std::optional<EntryKeys> KeysOfEntry(const FilterEntryView& entry, CrackFailure* why) {
    const NormalizedUrlText normalised(entry.url);
    CrackedUrl cracked;
    if (!CrackUrl(normalised.view(), cracked, why)) {
        return std::nullopt;
    }
    return KeysOf(cracked);
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

EntryKeys KeysOfMatch(const IndexTrace& trace) {
    EntryKeys keys;
    keys.schemeKey = trace.schemeKey;
    keys.hasHost = true;
    keys.hostKey = trace.hostKey;
    keys.port = trace.port;
    keys.pathKey = trace.everyPath ? std::u16string() : trace.pathKey;
    return keys;
}

void ForEachIndexEntry(const WebFilterPolicy& policy,
                       const std::function<void(IndexEntry&&, const EntrySource&)>& visit) {
    ForEachCrackedEntry(policy, [&visit](const CrackedUrl& cracked, const EntrySource& source) {
        visit({FeedsWhiteIndex(*source.list), KeysOf(cracked)}, source);
    });
}

IndexEntrySources SourcesOfIndexEntries(const WebFilterPolicy& policy,
                                        const std::set<IndexEntry>* wanted) {
    // The host keys of the wanted entries let most entries go without copying their keys.
    std::set<std::u16string, std::less<>> hosts;
    for (const IndexEntry& entry : wanted != nullptr ? *wanted : std::set<IndexEntry>{}) {
        hosts.insert(entry.keys.hostKey);
    }
    IndexEntrySources sources;
    ForEachCrackedEntry(policy, [&](const CrackedUrl& cracked, const EntrySource& source) {
        if (wanted != nullptr && (cracked.host.empty() || !hosts.contains(HostKey(cracked)))) {
            return;
        }
        IndexEntry entry{FeedsWhiteIndex(*source.list), KeysOf(cracked)};
        if (wanted == nullptr || wanted->contains(entry)) {
            sources[std::move(entry)].push_back(source);
        }
    });
    return sources;
}

std::vector<EntrySource> EntriesWithKeys(const WebFilterPolicy& policy, bool white,
                                         const EntryKeys& keys) {
    const IndexEntry wanted{white, keys};
    const std::set<IndexEntry> only{wanted};
    IndexEntrySources sources = SourcesOfIndexEntries(policy, &only);
    return std::move(sources[wanted]);
}

std::string NameSources(std::span<const EntrySource> sources) {
    if (sources.empty()) {
        return {};
    }
    const EntrySource& first = sources.front();
    std::string text = FeedsWhiteIndex(*first.list) ? "white" : "black";
    text.append(" list ").append(Quoted(first.list->name));
    text.append(" entry ").append(Quoted(first.entry.name));
    text.append(" ").append(Quoted(first.entry.url));
    if (sources.size() > 1) {
        text += " and " + std::to_string(sources.size() - 1) + " more";
    }
    return text;
}

std::string KeysAsUrl(const EntryKeys& keys) {
    std::string text = Utf16ToUtf8(keys.schemeKey);
    text += ':';
    if (!keys.hasHost) {
        return text;
    }
    text.append("//").append(Utf16ToUtf8(keys.hostKey));
    if (keys.port != 0) {
        text.append(":").append(std::to_string(keys.port));
    }
    text += '/';
    return text.append(Utf16ToUtf8(keys.pathKey));
}

}  // namespace sentrel::cli
