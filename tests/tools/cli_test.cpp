#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "check_urls.h"
#include "command.h"
#include "utf8.h"

namespace sentrel::cli {
namespace {

struct Outcome {
    int status;
    std::string out;
    std::string err;
};

Outcome Sentrel(std::vector<std::string> args, const std::string& input = {}) {
    std::istringstream in(input);
    std::ostringstream out;
    std::ostringstream err;
    CommandStreams streams{in, out, err};
    const int status = RunSentrel(args, streams);
    return {status, out.str(), err.str()};
}

std::string Example(const char* name) {
    return std::string(SENTREL_EXAMPLES_DIR) + "/policies/" + name;
}

// A policy file in the test's own temporary folder, removed with the fixture.
class CliTest : public ::testing::Test {
  protected:
    void SetUp() override {
        folder_ = std::filesystem::temp_directory_path() /
                  ("sentrel-cli-" +
                   std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()));
        std::filesystem::create_directories(folder_);
    }
    void TearDown() override { std::filesystem::remove_all(folder_); }

    std::string WriteFile(const std::string& name, const std::string& bytes) {
        const std::filesystem::path path = folder_ / name;
        std::ofstream(path, std::ios::binary) << bytes;
        return path.string();
    }

    std::filesystem::path folder_;
};

std::string WhiteList(const std::string& entries, const std::string& id = "") {
    return "<WhiteList>" + (id.empty() ? "" : "<WLId>" + id + "</WLId>") +
           "<WLName>W</WLName><WLAccepted>" + entries + "</WLAccepted></WhiteList>";
}

std::string WhiteEntry(const std::string& url) {
    return "<WLAEntry><WLAEntryName>n</WLAEntryName><WLAEntryUrl>" + url +
           "</WLAEntryUrl></WLAEntry>";
}

std::string Document(const std::string& lists) {
    return "<WebFilters><WFVersion>1</WFVersion><WFRefreshMode>0</WFRefreshMode>" + lists +
           "</WebFilters>";
}

// A white and a black list of the space-separated URLs; entries are named prefix and their
// position.
std::string Lists(const std::string& white, const std::string& black, const std::string& prefix) {
    std::string lists;
    for (const auto& [urls, kind] : {std::pair{white, std::string("W")}, {black, "B"}}) {
        std::istringstream words(urls);
        std::string entries;
        int at = 0;
        for (std::string url; words >> url;) {
            entries += "<" + kind + "LxEntry><" + kind + "LxEntryName>" + prefix +
                       std::to_string(at++) + "</" + kind + "LxEntryName><" + kind + "LxEntryUrl>" +
                       url + "</" + kind + "LxEntryUrl></" + kind + "LxEntry>";
        }
        const std::string list = kind == "W" ? "WhiteList" : "BlackList";
        const std::string main = kind == "W" ? "WLAccepted" : "BLDenied";
        const std::string letter = kind == "W" ? "A" : "D";
        for (std::size_t x; (x = entries.find("Lx")) != std::string::npos;) {
            entries.replace(x, 2, "L" + letter);
        }
        lists += "<" + list + "><" + kind + "LName>" + kind + "</" + kind + "LName><" + main + ">" +
                 entries + "</" + main + "></" + list + ">";
    }
    return Document(lists);
}

TEST_F(CliTest, CheckDecidesArgumentsAndStandardInputAlike) {
    const std::string policy = Example("school-whitelist.xml");
    const std::vector<std::pair<std::string, std::string>> expected = {
        {"  HTTPS://WWW.Encyclopedia.Example  ", "allow"},
        {"http://learn.example.org/mathsx", "deny"},
        {"https://chat.encyclopedia.example/", "allow"},  // exceptions take no part
        {"encyclopedia.example", "deny"},                 // no scheme: cannot be cracked
    };
    std::vector<std::string> args = {"check", "--policy", policy};
    std::string input;
    std::string lines;
    for (const auto& [url, answer] : expected) {
        args.push_back(url);
        input += url + "\r\n";
        lines += answer + "\t" + url + "\n";
    }
    const Outcome fromArguments = Sentrel(args);
    EXPECT_EQ(fromArguments.status, kExitOk);
    EXPECT_EQ(fromArguments.out, lines);
    EXPECT_EQ(fromArguments.err, "");
    const Outcome fromInput = Sentrel({"check", "--policy", policy}, input);
    EXPECT_EQ(fromInput.status, kExitOk);
    EXPECT_EQ(fromInput.out, lines);
}

// Standard input in many blocks comes back in input order on any number of threads; lines that
// do not decode, a line longer than a block, CR LF ends and a last line without an end change
// nothing.
TEST_F(CliTest, CheckAnswersEveryLineInInputOrderWithAnyNumberOfJobs) {
    const std::pair<std::string, std::string> kinds[] = {
        {"https://www.encyclopedia.example/", "allow"},
        {"http://other.example/", "deny"},
        {"http://dictionary.example/\xFF", "allow"},     // a byte UTF-8 has not
        {"http://dict\xE2\x82ionary.example/", "deny"},  // a sequence cut short
        {"http://learn.example.org/maths/" + std::string(150000, 'a'), "deny"},  // too long
    };
    std::string input;
    std::string expected;
    for (int i = 0; i < 40000; ++i) {
        const auto& [url, answer] = kinds[i == 20000 ? 4 : i % 4];
        input += url + std::to_string(i) + (i % 3 == 0 ? "\r\n" : "\n");
        expected += answer + "\t" + url + std::to_string(i) + "\n";
    }
    input.pop_back();
    for (const char* jobs : {"1", "2", "3", "8"}) {
        const Outcome outcome =
            Sentrel({"check", "--policy", Example("school-whitelist.xml"), "--jobs", jobs}, input);
        EXPECT_EQ(outcome.status, kExitOk) << jobs;
        EXPECT_TRUE(outcome.out == expected) << jobs;  // too long to print
    }
}

// A URL that cannot be decided ends the answers: the ones before it, then one error line.
TEST_F(CliTest, CheckStopsAtAUrlItCannotDecide) {
    const UrlDecision decide = [](std::u16string_view url) -> std::optional<bool> {
        return url == u"x" ? std::nullopt : std::optional<bool>(url.size() % 2 == 0);
    };
    std::string input;
    std::string expected;
    for (int i = 100; i < 30000; ++i) {
        input += std::to_string(i) + "\n";
        expected += (i < 1000 || i >= 10000 ? "deny\t" : "allow\t") + std::to_string(i) + "\n";
    }
    input += "x\n" + input;
    Arguments arguments;
    for (const unsigned jobs : {1u, 3u}) {
        std::istringstream in(input);
        std::ostringstream out;
        std::ostringstream err;
        CommandStreams streams{in, out, err};
        EXPECT_EQ(CheckUrls(arguments, streams, jobs, decide), kExitUsage);
        EXPECT_TRUE(out.str() == expected) << jobs;
        EXPECT_EQ(err.str(), "sentrel check: the component could not decide a URL\n");
    }
    arguments.positionals = {"ab", "x", "abc"};
    std::istringstream in;
    std::ostringstream out;
    std::ostringstream err;
    CommandStreams streams{in, out, err};
    EXPECT_EQ(CheckUrls(arguments, streams, 1, decide), kExitUsage);
    EXPECT_EQ(out.str(), "allow\tab\n");
}

TEST_F(CliTest, Utf16PolicyFileReadsLikeUtf8) {
    std::string text = Document(WhiteList(WhiteEntry("http://\xC3\xA4.example/caf\xC3\xA9")));
    // A comment puts the first "\xC3\xA4" across the line between the UTF-8 file's first two
    // pieces, which are decoded one at a time.
    const std::size_t split = 64 * 1024 - 1;
    text.insert(0, "<!--" + std::string(split - text.find('\xC3') - 7, 'x') + "-->");
    const std::u16string units = u"\uFEFF" + Utf8ToUtf16(text);  // little-endian in memory
    const std::string utf16(reinterpret_cast<const char*>(units.data()), units.size() * 2);
    const std::string url = "http://\xC3\xA4.example/caf\xC3\xA9/x";
    for (const std::string& path : {WriteFile("p8.xml", text), WriteFile("p16.xml", utf16)}) {
        EXPECT_EQ(Sentrel({"check", "--policy", path, url, "http://a.example/"}).out,
                  "allow\t" + url + "\ndeny\thttp://a.example/\n");
    }
    const Outcome odd = Sentrel({"check", "--policy", WriteFile("odd.xml", utf16 + "x"), url});
    EXPECT_EQ(odd.status, kExitUsage);
}

TEST_F(CliTest, WrongArgumentsGiveOneErrorLineAndStatusTwo) {
    const std::string policy = Example("school-whitelist.xml");
    const std::vector<std::vector<std::string>> cases = {
        {"check"},
        {"check", "--policy", policy, "--type", "some"},
        {"check", "--policy", (folder_ / "missing.xml").string()},
        {"check", "--policy", policy, "--bogus"},
        {"check", "--policy", policy, "--jobs", "0"},
        {"check", "--policy", policy, "--jobs", "-1"},
        {"check", "--policy", policy, "--jobs", "two"},
        {"check", "--policy", policy, "--jobs", "2x"},
        {"check", "--policy", policy, "--jobs", "1025"},
        {"check", "--policy", policy, "--jobs", "99999999999999999999"},
        {"explain", "--policy", policy},
        {"explain", "--policy", policy, "http://a", "http://b"},
        {"lint"},
        {"crack"},
        {"format", "--policy", policy, "--out", (folder_ / "no" / "such" / "dir").string()},
        {"diff", policy},
        {"diff", policy, policy, "more"},
        {"diff", policy, (folder_ / "missing.xml").string()},
        {"diff", policy, policy, "--type", "some"},
        {"diff", policy, policy, "--jobs", "0"},
        {"diff", policy, policy, "--urls", (folder_ / "missing.txt").string()},
        {"frobnicate"},
        {},
    };
    for (const auto& args : cases) {
        const Outcome outcome = Sentrel(args);
        EXPECT_EQ(outcome.status, kExitUsage) << (args.empty() ? "" : args[0]);
        if (!args.empty()) {
            EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1) << outcome.err;
        }
    }
}

TEST_F(CliTest, EveryCommandHasHelp) {
    EXPECT_EQ(Sentrel({"--help"}).status, kExitOk);
    for (const Command* command : Commands()) {
        const Outcome outcome = Sentrel({std::string(command->name), "--help"});
        EXPECT_EQ(outcome.status, kExitOk);
        EXPECT_NE(outcome.out.find("usage: sentrel " + std::string(command->name)),
                  std::string::npos);
    }
}

TEST_F(CliTest, CrackPrintsOneJsonObjectPerUrl) {
    const Outcome outcome = Sentrel({"crack", " HTTP://User:Pw@Www.A.b:8080/x/\"y\"?q#f ", "a.b/x",
                                     "mailto:me@h", "http://a/\\\t\n\r\x01x"});
    EXPECT_EQ(outcome.status, kExitOk);
    EXPECT_EQ(outcome.out,
              "{\"scheme\":\"http\",\"schemeId\":2,\"host\":\"www.a.b\",\"userName\":\"user\","
              "\"password\":\"pw\",\"path\":\"/x/\\\"y\\\"\",\"tail\":\"?q#f\",\"port\":8080}\n"
              "{\"error\":\"could not crack\"}\n"
              "{\"scheme\":\"mailto\",\"schemeId\":6,\"host\":\"h\",\"userName\":\"me\","
              "\"password\":\"\",\"path\":\"\",\"tail\":\"\",\"port\":0}\n"
              "{\"scheme\":\"http\",\"schemeId\":2,\"host\":\"a\",\"userName\":\"\","
              "\"password\":\"\",\"path\":\"/\\\\\\t\\n\\r\\u0001x\",\"tail\":\"\",\"port\":0}\n");
}

// Each row: the arguments after the policy, and texts the explanation holds.
TEST_F(CliTest, ExplainShowsTheCrackTheRuleAndTheEntryOrWhyNothingMatched) {
    const std::vector<std::pair<std::vector<std::string>, std::vector<std::string>>> cases = {
        {{"http://a.learn.example.org/maths/x"},
         {"decision    allow: the white index matches",
          "matched     scheme \"http\", host \"learn.example.org\", port 0 (any port), path "
          "\"maths\"",
          "list        \"Curriculum\" {3F2504E0-4F89-11D3-9A0C-0305E82C3301}",
          "entry       \"Maths exercises\" \"http://learn.example.org/maths/\""}},
        {{"HTTP://U:P@Portal.School.Example:8443/a/"},
         {"normalised  \"http://u:p@portal.school.example:8443/a/\"", "scheme      \"http\" (Http)",
          "userName    \"u\"", "password    \"p\"", "path        \"/a/\"",
          "keys        scheme \"http\", host \"portal.school.example\", port 8443, path \"a\"",
          "port 8443, every path", "entry       \"School portal (intranet port)\""}},
        {{"ftp://learn.example.org/"},
         {"(Ftp)",
          "deny: the white index does not match: no entry "
          "for the scheme key \"ftp\""}},
        {{"http:///x"}, {"keys        scheme \"http\", no host", "the URL has no host"}},
        {{"gopher://other.example/"}, {"(Gopher)", "no entry for the scheme key \"gopher\""}},
        {{"http://other.example/"},
         {"port        0 (none named)\n", "no entry for the host key or any shorter suffix"}},
        {{"http://other.example:0/"}, {"port        0\n"}},
        {{"http://other.example:65536/"}, {"port        0\n"}},
        {{"http://other.example:abc/"}, {"port        0\n"}},
        {{"http://learn.example.org/history"}, {"none of its paths"}},
        {{"http://portal.school.example:80/"}, {"neither for the URL's port nor without a port"}},
        {{"learn.example.org"}, {"could not crack: it has no scheme", "could not be cracked"}},
        {{"http://a@b@learn.example.org/"}, {"more than one user name part"}},
        {{"mailto://x"}, {"a mailto URL cannot go on with //"}},
        {{"http://" + std::string(257, 'h')}, {"its host is longer than 256 characters"}},
        {{"news:x", "--type=all"}, {"(News)", "the filter type is all, which denies"}},
        {{"about:x", "--type=all"}, {"(Other)", "about and file URLs are always allowed"}},
        {{"socks://x", "--type=none"}, {"(Socks)", "the filter type is none"}},
        {{"https://x", "--type=none"}, {"(Https)"}},
    };
    for (const auto& [args, texts] : cases) {
        std::vector<std::string> command = {"explain", "--policy", Example("school-whitelist.xml")};
        command.insert(command.end(), args.begin(), args.end());
        const Outcome outcome = Sentrel(command);
        EXPECT_EQ(outcome.status, kExitOk);
        for (const std::string& text : texts) {
            EXPECT_NE(outcome.out.find(text), std::string::npos) << text << "\n" << outcome.out;
        }
    }
}

TEST_F(CliTest, LintFindsWhatWillNotActAsExpected) {
    const std::string id = "{11111111-2222-3333-4444-555555555555}";
    const std::string policy = WriteFile(
        "lint.xml",
        Document(WhiteList(WhiteEntry("a.example"), id) + WhiteList("", id) +
                 "<BlackList><BLName>B</BLName><BLDenied><BLDEntry><BLDEntryUrl>http://b.example"
                 "</BLDEntryUrl></BLDEntry></BLDenied><BLExceptions><BLEEntry><BLEEntryUrl>"
                 "http://b.example/ok</BLEEntryUrl></BLEEntry></BLExceptions></BlackList>"));
    const Outcome outcome = Sentrel({"lint", "--policy", policy});
    EXPECT_EQ(outcome.status, kExitProblems);
    // The second list with the same id replaced the first: only the black list's findings stay.
    EXPECT_NE(outcome.out.find("list id " + id + " stands more than once"), std::string::npos);
    EXPECT_NE(outcome.out.find("exception entries"), std::string::npos);
    EXPECT_EQ(outcome.out.find("cannot be cracked"), std::string::npos);

    const std::string single = WriteFile(
        "single.xml",
        Document(WhiteList(WhiteEntry("http://a.example/x") + WhiteEntry("http://a.example/x/y") +
                           WhiteEntry("HTTP://www.A.example/x") + WhiteEntry("a.example") +
                           WhiteEntry("http:///nohost") + WhiteEntry("http://c.a.example/z") +
                           WhiteEntry("http://a.example/xy")) +  // xy: not under x
                 "<BlackList><BLDenied><BLDEntry><BLDEntryUrl>http://b.example</BLDEntryUrl>"
                 "</BLDEntry></BLDenied></BlackList>"));
    const Outcome findings = Sentrel({"lint", "--policy", single});
    EXPECT_EQ(findings.status, kExitProblems);
    for (const char* expected : {
             "entry \"n\" \"a.example\" of white list \"W\"",
             "it has no scheme",
             "cannot be cracked",
             "\"http:///nohost\" of white list \"W\"",
             "has no host",
             "\"http://a.example/x/y\" of white list",
             "is covered by entry \"n\" \"http://a.example/x\"",
             "\"HTTP://www.A.example/x\" of white list",
             "repeats entry \"n\" \"http://a.example/x\"",
             "host \"c.a.example\" has entries of its own",
             "the white index is not empty, so the 1 entries of black lists are never consulted",
             "6 problems found",
         }) {
        EXPECT_NE(findings.out.find(expected), std::string::npos) << expected << "\n"
                                                                  << findings.out;
    }

    // A host walk that ends at "a." never reaches the key "" of "www.".
    for (const std::string& entries :
         {WhiteEntry("http://a.example/"), WhiteEntry("http://a./") + WhiteEntry("http://www./")}) {
        const Outcome clean =
            Sentrel({"lint", "--policy", WriteFile("clean.xml", Document(WhiteList(entries)))});
        EXPECT_EQ(clean.out, "0 problems found\n") << entries;
        EXPECT_EQ(clean.status, kExitOk);
    }

    const std::string cut =
        WriteFile("cut.xml", Document(WhiteList(WhiteEntry("http://a/"))) + "<trailing/>");
    EXPECT_NE(Sentrel({"lint", "--policy", cut}).out.find("not well-formed"), std::string::npos);
}

TEST_F(CliTest, FormatWritesTheComponentsDocument) {
    const std::string policy = Example("mixed-case-prefixes.xml");
    const Outcome utf16 = Sentrel({"format", "--policy", policy});
    ASSERT_EQ(utf16.status, kExitOk);
    EXPECT_EQ(utf16.out.substr(0, 2), "\xFF\xFE");
    const Outcome utf8 = Sentrel({"format", "--policy", policy, "--utf8"});
    ASSERT_EQ(utf8.status, kExitOk);
    EXPECT_EQ(utf8.out.substr(0, 44), "<WebFilters><WFVersion>2</WFVersion><WFRefre");
    EXPECT_NE(utf8.out.find("<WLAEntryUrl>  HTTP://Catalogue.Library.Example/Search/  "
                            "</WLAEntryUrl>"),
              std::string::npos);
    // The written document reads back to the same document, in either encoding.
    const std::string again = WriteFile("again.xml", utf16.out);
    EXPECT_EQ(Sentrel({"format", "--policy", again, "--utf8"}).out, utf8.out);
    const std::string out = (folder_ / "out.xml").string();
    EXPECT_EQ(Sentrel({"format", "--policy", policy, "--out", out}).status, kExitOk);
    std::ifstream written(out, std::ios::binary);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(written), {}), utf16.out);
}

// Each row: the old and the new policy's white and black URLs, the filter type, what diff
// writes and its status.
TEST_F(CliTest, DiffWritesTheIndexEntriesAndHostsThatChange) {
    struct Row {
        const char* name;
        std::string oldWhite, oldBlack, newWhite, newBlack, type, out;
        int status;
    };
    const Row rows[] = {
        {"added host", "", "http://a.b", "", "http://a.b http://c.d", "policy",
         "added\tblack\thttp://c.d/\nhost\tblack\thttp://c.d\n", 1},
        {"removed path entry", "", "http://a.b/x http://a.b/y/", "", "http://a.b/x", "policy",
         "removed\tblack\thttp://a.b/y\nhost\tblack\thttp://a.b\n", 1},
        {"port entry", "http://a.b", "", "http://a.b http://a.b:8080/z", "", "policy",
         "added\twhite\thttp://a.b:8080/z\nhost\twhite\thttp://a.b\n", 1},
        {"path entry swallowed by every path", "", "http://a.b/", "", "http://a.b http://a.b/x",
         "policy", "added\tblack\thttp://a.b/x\n", 0},
        {"path entry on another port is not swallowed", "", "http://a.b/", "",
         "http://a.b http://a.b:81/x", "policy",
         "added\tblack\thttp://a.b:81/x\nhost\tblack\thttp://a.b\n", 1},
        {"white index becomes non-empty", "", "http://a.b", "http://c.d", "http://a.b", "policy",
         "added\twhite\thttp://c.d/\nevery\tthe white index becomes non-empty: the black index is "
         "switched off and every host can change\n",
         1},
        {"black changes while the white index decides", "http://c.d", "http://a.b", "http://c.d",
         "", "policy", "removed\tblack\thttp://a.b/\n", 0},
        {"indexes become non-empty", "", "", "", "ftp://a.b http:///x", "policy",
         "added\tblack\tftp://a.b/\nadded\tblack\thttp:\nevery\tthe indexes become non-empty: "
         "URLs that cannot be cracked are now denied\nhost\tblack\tftp://a.b\n",
         1},
        {"names and forms only", "", "http://a.b/x/ https://a.b/x", "", "HTTP://www.A.b/x",
         "policy", "", 0},
        {"uncrackable entries", "", "http://a.b", "", "http://a.b a.b c.d", "policy", "", 0},
        {"filter type none", "", "http://a.b", "", "http://c.d", "none",
         "removed\tblack\thttp://a.b/\nadded\tblack\thttp://c.d/\n", 0},
    };
    for (const Row& row : rows) {
        const Outcome outcome = Sentrel(
            {"diff", WriteFile("old.xml", Lists(row.oldWhite, row.oldBlack, "old")),
             WriteFile("new.xml", Lists(row.newWhite, row.newBlack, "new")), "--type", row.type});
        EXPECT_EQ(outcome.out, row.out) << row.name;
        EXPECT_EQ(outcome.status, row.status) << row.name;
    }
}

// Each row: a URL and its flip between two policies, empty when it does not flip.
TEST_F(CliTest, DiffWritesTheUrlsWhoseAnswersFlipWithWhatDecided) {
    const std::string before =
        WriteFile("old.xml", Lists("", "http://a.b http://www.a.b/ http://c.d/x", "o"));
    const std::string after = WriteFile("new.xml", Lists("", "http://c.d/x/ http://e.f:81/", "n"));
    const std::string empty = WriteFile("empty.xml", Lists("", "", "e"));
    const std::vector<std::pair<std::string, std::string>> rows = {
        {"http://a.b/q",
         "deny>allow\thttp://a.b/q\thttp://a.b/ black list \"B\" entry \"o0\" "
         "\"http://a.b\" and 1 more\tno black entry matches\n"},
        {"http://e.f:81/",
         "allow>deny\thttp://e.f:81/\tno black entry matches\thttp://e.f:81/ "
         "black list \"B\" entry \"n1\" \"http://e.f:81/\"\n"},
        {"http://c.d/x/y", ""},
        {"http://e.f/", ""},
        {"c.d", ""},
    };
    std::string input;
    std::string flips;
    for (int i = 0; i < 2000; ++i) {
        const auto& [url, flip] = rows[static_cast<std::size_t>(i) % rows.size()];
        input += url + "\n";
        flips += flip;
    }
    for (const char* jobs : {"1", "3"}) {
        const Outcome outcome = Sentrel({"diff", "--jobs", jobs, before, after, "--urls"}, input);
        EXPECT_TRUE(outcome.out == flips) << jobs;  // too long to print
        EXPECT_EQ(outcome.status, kExitProblems);
    }
    const std::string file = WriteFile("urls.txt", "c.d\nhttp://g.h/x\n");
    EXPECT_EQ(Sentrel({"diff", "--urls", before, before, file}).status, kExitOk);
    const Outcome crack = Sentrel({"diff", "--urls", empty, before, file});
    EXPECT_EQ(crack.out, "allow>deny\tc.d\tno indexed entries\tnot crackable\n");
    EXPECT_EQ(crack.status, kExitProblems);
}

TEST_F(CliTest, CheckSummaryCountsTheAnswersAndTheEntriesThatDecided) {
    const std::string policy = WriteFile(
        "p.xml", Lists("http://a.b/x http://a.b/y https://c.d:81 http://c.d:81 http://e.f",
                       "http://g.h", "w"));
    const std::string urls[] = {
        "http://a.b/x/1",  "http://c.d:81/", "http://a.b/y", "http://e.f",
        "http://c.d:81/z", "http://a.b/",    "c.d",          "http://a.b/y"};
    std::string input;
    for (int i = 0; i < 1000; ++i) {
        for (const std::string& url : urls) {
            input += url + "\n";
        }
    }
    for (const char* jobs : {"1", "3"}) {
        const Outcome outcome =
            Sentrel({"check", "--summary", "--policy", policy, "--jobs", jobs}, input);
        EXPECT_EQ(outcome.status, kExitOk);
        EXPECT_EQ(outcome.err,
                  "allowed\t6000\ndenied\t1000\nnot crackable\t1000\n"
                  "decided\t2000\thttp://c.d:81/\twhite list \"W\" entry \"w2\" "
                  "\"https://c.d:81\" and 1 more\n"
                  "decided\t2000\thttp://a.b/y\twhite list \"W\" entry \"w1\" \"http://a.b/y\"\n"
                  "decided\t1000\thttp://e.f/\twhite list \"W\" entry \"w4\" \"http://e.f\"\n"
                  "decided\t1000\thttp://a.b/x\twhite list \"W\" entry \"w0\" \"http://a.b/x\"\n")
            << jobs;
    }
    const Outcome black = Sentrel({"check", "--summary", "--policy",
                                   WriteFile("b.xml", Lists("", "http://g.h/x", "b")),
                                   "http://g.h/x/y", "http://i.j"});
    EXPECT_EQ(black.err,
              "allowed\t1\ndenied\t1\nnot crackable\t0\ndecided\t1\thttp://g.h/x\tblack list "
              "\"B\" entry \"b0\" \"http://g.h/x\"\n");
}

}  // namespace
}  // namespace sentrel::cli
