#include <filesystem>
#include <map>
#include <ostream>
#include <vector>

#include "command.h"
#include "imported_entries.h"
#include "list_lines.h"
#include "policy/hresult_error.h"
#include "policy/utf16le.h"
#include "policy/web_filter_xml_processor.h"
#include "policy_file.h"
#include "utf8.h"

namespace sentrel::cli {

namespace {

// How many code units of a list are read at a time.
constexpr std::size_t kPieceUnits = 32 * 1024;

struct Summary {
    std::size_t lines = 0;
    std::map<std::pair<SkipReason, CrackFailure>, std::size_t> skipped;
};

class ListReader {
  public:
    ListReader(ImportedEntries& entries, Summary& summary) : entries_(entries), summary_(summary) {}

    // Reads the list file line by line into the entries of the list; an error text when the
    // file cannot be read.
    std::string Read(const std::string& path, ListFormat format, std::uint32_t list) {
        std::string error;
        // A list file is text in either encoding that a policy file may have.
        const std::shared_ptr<PolicyDocument> file = PolicyDocument::Open(path, error);
        if (!file) {
            return error;
        }
        std::u16string text;
        std::u16string piece(kPieceUnits, u'\0');
        for (;;) {
            const std::span<std::uint8_t> room = AsWritableUtf16LeBytes(piece.data(), piece.size());
            const std::size_t got = file->Read(room);
            text.append(piece, 0, got / sizeof(char16_t));
            std::size_t start = 0;
            for (std::size_t end; (end = text.find(u'\n', start)) != text.npos; start = end + 1) {
                ReadLine(format, std::u16string_view(text).substr(start, end - start), list);
            }
            text.erase(0, start);
            if (got < room.size()) {
                break;
            }
        }
        if (!text.empty()) {
            ReadLine(format, text, list);
        }
        return file->Failed() ? "cannot read " + path : std::string();
    }

  private:
    void ReadLine(ListFormat format, std::u16string_view line, std::uint32_t list) {
        ++summary_.lines;
        ReadListLine(format, line, result_);
        for (const ListEntry& entry : result_.entries) {
            entries_.Add(list, entry);
        }
        for (const auto& reason : result_.skipped) {
            ++summary_.skipped[reason];
        }
    }

    ImportedEntries& entries_;
    Summary& summary_;
    LineResult result_;
};

int RunImport(const Arguments& arguments, CommandStreams& streams) {
    if (arguments.Has("--white") && arguments.Has("--black")) {
        return Fail(streams, "import", "--white and --black exclude each other");
    }
    std::vector<std::pair<std::string, ListFormat>> files;
    std::optional<ListFormat> format;
    for (const auto& [option, value] : arguments.sequence) {
        if (option == "--format") {
            format = ParseListFormat(value);
            if (!format) {
                return Fail(streams, "import",
                            "unknown format '" + value + "' (hosts, domains, urls or adblock)");
            }
        } else if (option.empty()) {
            if (!format) {
                return Fail(streams, "import", "--format must come before the files it applies to");
            }
            files.emplace_back(value, *format);
        }
    }
    if (files.empty()) {
        return Fail(streams, "import", "give --format and at least one list file");
    }

    const std::optional<std::string> name = arguments.Value("--name");
    std::vector<FilterList> lists;
    ImportedEntries entries;
    Summary summary;
    ListReader reader(entries, summary);
    for (const auto& [path, fileFormat] : files) {
        if (lists.empty() || !name) {
            lists.emplace_back(
                name ? Utf8ToUtf16(*name)
                     : std::filesystem::path(Utf8ToUtf16(path)).filename().u16string());
            lists.back().type = arguments.Has("--white") ? FilterListWhite : FilterListBlack;
        }
        const std::uint32_t list = static_cast<std::uint32_t>(lists.size() - 1);
        if (const std::string error = reader.Read(path, fileFormat, list); !error.empty()) {
            return Fail(streams, "import", error);
        }
    }

    std::size_t written = 0;
    const ImportedEntries::Counts counts = entries.Write(
        [&](std::uint32_t list, std::u16string_view entryName, std::u16string_view url) {
            lists[list].AddEntry({entryName, url, NewGuid()});
            ++written;
        });
    WebFilterPolicy policy;
    for (FilterList& list : lists) {
        policy.AddList(std::move(list));
    }
    lists.clear();
    std::u16string document;
    try {
        document = WebFilterXmlProcessor::SerializePolicy(policy);
    } catch (const HResultError&) {
        return Fail(streams, "import", "the document could not be written");
    }
    policy = {};
    const std::string bytes = DocumentBytes(document, !arguments.Has("--utf16"));
    document = {};
    if (const std::string error =
            WriteBytes(arguments.Value("--out").value_or("-"), bytes, streams.out);
        !error.empty()) {
        return Fail(streams, "import", error);
    }

    streams.err << "sentrel import: " << summary.lines << " lines read, " << written
                << " entries written\n";
    for (const auto& [reason, count] : summary.skipped) {
        streams.err << "sentrel import: skipped " << count << ": "
                    << DescribeSkip(reason.first, reason.second) << "\n";
    }
    for (const auto& [count, what] : {
             std::pair(counts.duplicates, "entries dropped as duplicates"),
             std::pair(counts.covered, "entries dropped as covered by broader ones"),
             std::pair(counts.copied, "entries of parent domains copied to subdomains"),
         }) {
        if (count != 0) {
            streams.err << "sentrel import: " << count << " " << what << "\n";
        }
    }
    return kExitOk;
}

}  // namespace

extern const Command kImportCommand{
    "import",
    "turn block and allow lists into a policy document",
    "usage: sentrel import [--white|--black] [--name NAME] [--out FILE] [--utf16]\n"
    "                      --format FORMAT FILE... [--format FORMAT FILE...]\n\n"
    "Reads lists in the formats that filters commonly use and writes them as one WebFilters\n"
    "document: one list per file, named after the file, black unless --white. --format applies\n"
    "to the files after it and may be given again. A summary goes to standard error: lines\n"
    "read, entries written, and lines (or names) skipped by reason.\n\n"
    "formats:\n"
    "  hosts     ADDRESS NAME [NAME...]; # starts a comment. Every NAME is an entry, except\n"
    "            localhost-style names and the machine's own addresses (0.0.0.0, 127.x, ::1).\n"
    "  domains   one domain per line (a leading '*.' or '.' changes nothing); # comments.\n"
    "  urls      host[:port]/path per line, without a scheme or with http:// or https://;\n"
    "            other schemes, and lines with a query or fragment, are skipped.\n"
    "  adblock   ||domain^, ||domain/, ||domain/path and ||domain/path^, with the options\n"
    "            $important and $all only. Skipped: comments (!), headers ([...]), exceptions\n"
    "            (@@), cosmetic rules (##, #@#, #?#), regular expressions (/.../), wildcards\n"
    "            (*, but for a trailing one after ^ or /), anchors other than ||, rules\n"
    "            without ||, ||domain with nothing after it, and every other option\n"
    "            (third-party, domain=, resource types, match-case, badfilter, ...).\n\n"
    "what an entry matches:\n"
    "  Each entry is written as http://HOST[:PORT][/PATH], which the index files under the\n"
    "  scheme key http: it matches http and https URLs, and no URL of any other scheme (ftp,\n"
    "  ws, ...). Host names are lowered and lose one trailing dot; IPv4 addresses stand as\n"
    "  they are, IPv6 addresses go in brackets. The decision matches a host and every\n"
    "  subdomain of it, so a hosts line or a URL line covers the subdomains of its name too,\n"
    "  and a leading 'www.' is dropped on both sides: www.a.b covers a.b and its subdomains.\n"
    "  Without a port an entry matches every port; with one, only URLs that name that port.\n"
    "  A path matches whole segments: ||a.b/x and a.b/x match /x, /x/ and /x/y (with any\n"
    "  query), but not /xy, which the adblock rule also matches.\n"
    "  Names that do not crack as a host name, or that break its limits (256 characters for\n"
    "  a host, 2048 for a path), are skipped and counted.\n\n"
    "  An entry that a broader one already covers is written once; a subdomain with entries of\n"
    "  its own also carries those of its nearest listed parent (the longest listed host\n"
    "  decides alone), so every URL gets the answer that all the lines together mean.\n\n"
    "options:\n"
    "  --format FORMAT hosts, domains, urls or adblock: the format of the files after it\n"
    "  --white         write white lists (allow only what they match)\n"
    "  --black         write black lists (the default)\n"
    "  --name NAME     put every file into one list of this name\n"
    "  --out FILE      where to write (default: standard output); a failed run leaves no file\n"
    "  --utf16         write UTF-16LE with byte order mark, as the component does (default:\n"
    "                  UTF-8 without byte order mark)\n",
    {{"--format", "--name", "--out"}, {"--white", "--black", "--utf16"}, {"--format"}},
    &RunImport,
};

}  // namespace sentrel::cli
