#include <algorithm>
#include <map>
#include <ostream>
#include <set>
#include <vector>

#include "command.h"
#include "entry_keys.h"
#include "loaded_policy.h"
#include "policy/byte_stream.h"
#include "policy/guid.h"
#include "policy/xml_reader.h"
#include "policy_file.h"
#include "search/match_rules.h"
#include "text/ascii_case.h"
#include "utf8.h"

namespace sentrel::cli {

namespace {

std::string Describe(const FilterList& list) {
    return std::string(FeedsWhiteIndex(list) ? "white" : "black") + " list " + Quoted(list.name) +
           " " + Utf16ToUtf8(GuidToText(list.id));
}

std::string Describe(const FilterEntryView& entry) {
    return "entry " + Quoted(entry.name) + " " + Quoted(entry.url);
}

class Findings {
  public:
    explicit Findings(std::ostream& out) : out_(out) {}
    void Report(const std::string& text) {
        out_ << "problem: " << text << "\n";
        ++count_;
    }
    int count() const { return count_; }

  private:
    std::ostream& out_;
    int count_ = 0;
};

// What reading the document itself shows: whether it is well-formed to its end, and list ids
// that stand more than once (the model keeps only the last list of an id).
void LintDocument(std::shared_ptr<ByteStream> document, Findings& findings) {
    XmlReader reader(std::move(document));
    enum class Family { None, White, Black } family = Family::None;
    bool idFollows = false;
    Guid id;
    std::map<Guid, int> lists;
    std::size_t nodes = 0;
    XmlReadResult result;
    while ((result = reader.Read()) == XmlReadResult::Node) {
        ++nodes;
        const std::u16string_view name = reader.LocalName();
        switch (reader.NodeType()) {
            case XmlNodeType::StartElement:
                idFollows = (family == Family::White && EqualsIgnoringAsciiCase(name, u"WLId")) ||
                            (family == Family::Black && EqualsIgnoringAsciiCase(name, u"BLId"));
                if (EqualsIgnoringAsciiCase(name, u"WhiteList")) {
                    family = Family::White;
                    id = Guid{};
                } else if (EqualsIgnoringAsciiCase(name, u"BlackList")) {
                    family = Family::Black;
                    id = Guid{};
                }
                break;
            case XmlNodeType::Text:
                if (idFollows) {
                    id = GuidFromText(reader.Value());
                    idFollows = false;
                }
                break;
            case XmlNodeType::EndElement:
                if ((EqualsIgnoringAsciiCase(name, u"WhiteList") ||
                     EqualsIgnoringAsciiCase(name, u"BlackList")) &&
                    !id.IsZero() && ++lists[id] == 2) {
                    findings.Report("list id " + Utf16ToUtf8(GuidToText(id)) +
                                    " stands more than once: only the last such list is kept");
                }
                break;
            default:
                break;
        }
    }
    if (result == XmlReadResult::Malformed) {
        findings.Report("the document is not well-formed after its first " + std::to_string(nodes) +
                        " nodes: what follows, and the list being read there, are dropped");
    }
}

struct KeyedEntry {
    const FilterList* list;
    FilterEntryView entry;
    EntryKeys keys;
};

// Whether an entry with these port and path keys answers every URL that the other one answers.
bool Covers(const EntryKeys& broad, const EntryKeys& narrow) {
    return WalkCoveringKeys(narrow.port, narrow.pathKey,
                            [&broad](std::uint16_t port, std::u16string_view path) {
                                return port == broad.port && path == broad.pathKey;
                            });
}

// Host keys under the same scheme key: entries that another entry makes redundant, and hosts
// whose own entries hide those of a parent domain.
void LintIndexSide(const std::vector<KeyedEntry>& entries, Findings& findings) {
    std::map<std::pair<std::u16string, std::u16string>, std::vector<const KeyedEntry*>> byHost;
    for (const KeyedEntry& keyed : entries) {
        byHost[{keyed.keys.schemeKey, keyed.keys.hostKey}].push_back(&keyed);
    }
    for (const auto& hostGroup : byHost) {
        // Named members, not a structured binding: the host walk's lambda captures the key.
        const auto& key = hostGroup.first;
        const auto& group = hostGroup.second;
        for (std::size_t i = 0; i < group.size(); ++i) {
            for (std::size_t j = 0; j < group.size(); ++j) {
                const EntryKeys& broad = group[j]->keys;
                const EntryKeys& narrow = group[i]->keys;
                const bool same = broad.port == narrow.port && broad.pathKey == narrow.pathKey;
                // Of two entries with the same keys the later one is reported.
                if (i == j || (same && j > i) || !Covers(broad, narrow)) {
                    continue;
                }
                findings.Report(Describe(group[i]->entry) + " of " + Describe(*group[i]->list) +
                                (same ? " repeats " : " is covered by ") +
                                Describe(group[j]->entry) + " of " + Describe(*group[j]->list));
                break;
            }
        }
        // The host walk stops at the first listed suffix, so a listed subdomain hides the
        // entries of its nearest listed parent for URLs on that subdomain, unless entries of
        // its own answer the same URLs.
        const std::u16string_view host = key.second;
        WalkHostCandidates(host, [&](std::size_t start) {
            const std::u16string_view parent = host.substr(start);
            const auto parentGroup = byHost.find({key.first, std::u16string(parent)});
            if (start == 0 || parentGroup == byHost.end()) {
                return false;
            }
            const bool hidden =
                std::any_of(parentGroup->second.begin(), parentGroup->second.end(),
                            [&group](const KeyedEntry* hiddenEntry) {
                                return std::none_of(group.begin(), group.end(),
                                                    [hiddenEntry](const KeyedEntry* own) {
                                                        return Covers(own->keys, hiddenEntry->keys);
                                                    });
                            });
            if (!hidden) {
                return true;
            }
            findings.Report("host " + Quoted(key.second) + " has entries of its own, so the " +
                            "entries of " + Quoted(parent) + " do not apply to URLs on " +
                            Quoted(key.second));
            return true;
        });
    }
}

int RunLint(const Arguments& arguments, CommandStreams& streams) {
    LoadedPolicy loaded;
    if (const std::string error = LoadPolicy(arguments, loaded); !error.empty()) {
        return Fail(streams, "lint", error);
    }
    // The document is read once more, from the file, rather than held for this.
    std::string error;
    std::shared_ptr<PolicyDocument> document =
        PolicyDocument::Open(*arguments.Value("--policy"), error);
    if (!document) {
        return Fail(streams, "lint", error);
    }
    Findings findings(streams.out);
    LintDocument(std::move(document), findings);

    std::vector<KeyedEntry> white;
    std::vector<KeyedEntry> black;
    for (const auto& [id, list] : loaded.policy.lists) {
        for (const FilterEntryView& entry : list.mainEntries) {
            CrackFailure why = CrackFailure::None;
            const std::optional<EntryKeys> keys = KeysOfEntry(entry, &why);
            if (!keys) {
                findings.Report(Describe(entry) + " of " + Describe(list) +
                                " cannot be cracked and takes no part in decisions: " +
                                std::string(DescribeCrackFailure(why)));
                continue;
            }
            if (!keys->hasHost) {
                findings.Report(Describe(entry) + " of " + Describe(list) +
                                " has no host: it makes the " +
                                (FeedsWhiteIndex(list) ? "white" : "black") +
                                " index non-empty but matches nothing");
                continue;
            }
            (FeedsWhiteIndex(list) ? white : black).push_back({&list, entry, *keys});
        }
        if (!list.exceptionEntries.empty()) {
            findings.Report(Describe(list) + " has " +
                            std::to_string(list.exceptionEntries.size()) +
                            " exception entries, which take no part in decisions");
        }
    }
    if (!loaded.searcher.WhiteIndex().empty() && !black.empty()) {
        findings.Report("the white index is not empty, so the " + std::to_string(black.size()) +
                        " entries of black lists are never consulted");
    }
    LintIndexSide(white, findings);
    LintIndexSide(black, findings);

    streams.out << findings.count() << (findings.count() == 1 ? " problem" : " problems")
                << " found\n";
    return findings.count() == 0 ? kExitOk : kExitProblems;
}

}  // namespace

extern const Command kLintCommand{
    "lint",
    "find what in a policy will not act as its author expects",
    "usage: sentrel lint --policy FILE\n\n"
    "Reports entries that cannot be cracked, entries without a host, exception entries (which\n"
    "take no part in decisions), white lists that switch the black lists off, list ids that\n"
    "stand twice, entries covered by broader ones, subdomains whose entries hide a parent's,\n"
    "and documents that stop being well-formed. Exit status 1 when it finds anything.\n\n"
    "options:\n"
    "  --policy FILE   the WebFilters document (UTF-16LE with byte order mark FF FE, else UTF-8)\n",
    {{"--policy"}, {}},
    &RunLint,
};

}  // namespace sentrel::cli
