#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "check_urls.h"
#include "command.h"
#include "decision_tally.h"
#include "document_output.h"
#include "loaded_policy.h"
#include "policy/utf16le.h"
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
        {"import", "--format", "bogus", policy},
        {"import", policy, "--format", "domains"},
        {"import", "--white", "--black", "--format", "domains", policy},
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
    const Outcome help = Sentrel({"--help"});
    EXPECT_EQ(help.status, kExitOk);
    EXPECT_NE(help.out.find("\n  version   print the tool's version\n"), std::string::npos);
    for (const char* version : {"--version", "version"}) {
        const Outcome outcome = Sentrel({version});
        EXPECT_EQ(outcome.status, kExitOk);
        EXPECT_EQ(outcome.out, "sentrel " SENTREL_VERSION "\n");
    }
    for (const Command* command : Commands()) {
        const Outcome outcome = Sentrel({std::string(command->name), "--help"});
        EXPECT_EQ(outcome.status, kExitOk);
        EXPECT_NE(outcome.out.find("usage: sentrel " + std::string(command->name)),
                  std::string::npos);
    }
}

TEST_F(CliTest, CrackPrintsOneJsonObjectPerUrl) {
    const Outcome outcome = Sentrel({"crack", " HTTP://User:Pw@Www.A.b:8080/x/\"y\"?q#f ", "a.b/x",
                                     "mailto:me@\xC3\xA9", "http://a/\\\t\n\r\x01x"});
    EXPECT_EQ(outcome.status, kExitOk);
    EXPECT_EQ(outcome.out,
              "{\"scheme\":\"http\",\"schemeId\":2,\"host\":\"www.a.b\",\"userName\":\"user\","
              "\"password\":\"pw\",\"path\":\"/x/\\\"y\\\"\",\"tail\":\"?q#f\",\"port\":8080}\n"
              "{\"error\":\"could not crack\"}\n"
              "{\"scheme\":\"mailto\",\"schemeId\":6,\"host\":\"\xC3\xA9\",\"userName\":\"me\","
              "\"password\":\"\",\"path\":\"\",\"tail\":\"\",\"port\":0}\n"
              "{\"scheme\":\"http\",\"schemeId\":2,\"host\":\"a\",\"userName\":\"\","
              "\"password\":\"\",\"path\":\"/\\\\\\t\\n\\r\\u0001x\",\"tail\":\"\",\"port\":0}\n");
}

// Each row: the arguments after --policy, texts the explanation holds, and fields of its JSON
// form: an object of JSON pointers and the values there.
TEST_F(CliTest, ExplainShowsTheCrackTheRuleAndTheEntryOrWhyNothingMatched) {
    const std::string white = Example("school-whitelist.xml");
    const std::vector<std::tuple<std::vector<std::string>, std::vector<std::string>, std::string>>
        cases = {
            {{white, "HTTP://a.learn.example.org/maths/x?q"},
             {"decision    allow: the white index matches",
              "matched     scheme \"http\", host \"learn.example.org\", port 0 (any port), path "
              "\"maths\"",
              "list        \"Curriculum\" {3F2504E0-4F89-11D3-9A0C-0305E82C3301}",
              "entry       \"Maths exercises\" \"http://learn.example.org/maths/\""},
             R"({"/url":"HTTP://a.learn.example.org/maths/x?q","/crackFailure":null,)"
             R"("/normalised":"http://a.learn.example.org/maths/x?q","/decision":"allow",)"
             R"("/keys":{"scheme":"http","host":"a.learn.example.org","port":0,"path":"maths/x"},)"
             R"("/step":"whiteIndex","/reason":"the white index matches",)"
             R"("/index":{"outcome":"matched","schemeKey":"http","hostKey":"learn.example.org",)"
             R"("port":0,"pathKey":"maths"},"/entries":[{"list":"Curriculum",)"
             R"("listId":"{3F2504E0-4F89-11D3-9A0C-0305E82C3301}","entry":"Maths exercises",)"
             R"("url":"http://learn.example.org/maths/"}]})"},
            {{white, "HTTP://U:P@Portal.School.Example:8443/a/"},
             {"normalised  \"http://u:p@portal.school.example:8443/a/\"",
              "scheme      \"http\" (Http)", "userName    \"u\"", "password    \"p\"",
              "path        \"/a/\"",
              "keys        scheme \"http\", host \"portal.school.example\", port 8443, path \"a\"",
              "port 8443, every path", "entry       \"School portal (intranet port)\""},
             R"({"/cracked/password":"p","/keys/port":8443,"/index/port":8443,)"
             R"("/index/pathKey":null})"},
            {{white, "ftp://learn.example.org/"},
             {"(Ftp)", "deny: the white index does not match: no entry for the scheme key \"ftp\""},
             R"({"/index/outcome":"noSchemeEntry"})"},
            {{white, "http:///x"},
             {"keys        scheme \"http\", no host", "the URL has no host"},
             R"({"/keys":{"scheme":"http","host":null,"port":null,"path":null},)"
             R"("/index/outcome":"noHost","/index/hostKey":null})"},
            {{white, "gopher://other.example/"}, {"(Gopher)", "scheme key \"gopher\""}, "{}"},
            {{white, "http://other.example/"},
             {"port        0 (none named)\n", "no entry for the host key or any shorter suffix"},
             R"({"/index/outcome":"hostWalkExhausted"})"},
            {{white, "http://other.example:0/"}, {"port        0\n"}, "{}"},
            {{white, "http://other.example:65536/"}, {"port        0\n"}, "{}"},
            {{white, "http://other.example:abc/"}, {"port        0\n"}, "{}"},
            {{white, "http://learn.example.org/history"},
             {"none of its paths"},
             R"({"/index":{"outcome":"pathMismatch","schemeKey":"http",)"
             R"("hostKey":"learn.example.org","port":null,"pathKey":null},"/entries":[]})"},
            {{white, "http://portal.school.example:80/"},
             {"neither for the URL's port nor without a port"},
             R"({"/index/outcome":"noPortEntry"})"},
            {{white, "learn.example.org"},
             {"could not crack: it has no scheme", "could not be cracked"},
             R"({"/cracked":null,"/keys":null,"/step":"couldNotCrack","/index":null,)"
             R"-("/crackFailure":"it has no scheme (a URL needs one, as in http://host/path)"})-"},
            {{white, "http://a@b@learn.example.org/"}, {"more than one user name part"}, "{}"},
            {{white, "mailto://x"}, {"a mailto URL cannot go on with //"}, "{}"},
            {{white, "http://" + std::string(257, 'h')},
             {"its host is longer than 256 characters"},
             "{}"},
            {{white, "news:x", "--type=all"},
             {"(News)", "the filter type is all, which denies"},
             R"({"/step":"blockAll"})"},
            {{white, "about:x", "--type=all"},
             {"(Other)", "about and file URLs are always allowed"},
             R"({"/step":"aboutOrFileScheme"})"},
            {{white, "socks://x", "--type=none"},
             {"(Socks)", "the filter type is none"},
             R"({"/decision":"allow","/step":"filterNone","/cracked/schemeId":7})"},
            {{white, "https://x", "--type=none"}, {"(Https)"}, "{}"},
            {{Example("office-blacklist.xml"), "http://games.example/x"},
             {"deny: the black index matches"},
             R"({"/decision":"deny","/step":"blackIndex","/entries/0/list":"Distractions"})"},
        };
    for (const auto& [args, texts, fields] : cases) {
        std::vector<std::string> command = {"explain", "--policy"};
        command.insert(command.end(), args.begin(), args.end());
        const Outcome outcome = Sentrel(command);
        EXPECT_EQ(outcome.status, kExitOk);
        for (const std::string& text : texts) {
            EXPECT_NE(outcome.out.find(text), std::string::npos) << text << "\n" << outcome.out;
        }
        command.push_back("--json");
        const std::string json = Sentrel(command).out;
        ASSERT_EQ(std::count(json.begin(), json.end(), '\n'), 1) << json;
        const nlohmann::json object = nlohmann::json::parse(json);
        const nlohmann::json expected = nlohmann::json::parse(fields);
        for (const auto& [pointer, value] : expected.items()) {
            EXPECT_EQ(object.value(nlohmann::json::json_pointer(pointer), nlohmann::json("absent")),
                      value)
                << pointer << "\n"
                << json;
        }
    }
    // Without URLs, one object per line of standard input.
    const Outcome lines = Sentrel({"explain", "--json", "--policy", white}, "http://a/\r\nnews:x");
    EXPECT_EQ(lines.out.substr(0, 19), R"({"url":"http://a/",)");
    EXPECT_NE(lines.out.find("\n{\"url\":\"news:x\","), std::string::npos) << lines.out;
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
    // A subdomain whose own entries cover its parent's hides nothing.
    for (const std::string& entries :
         {WhiteEntry("http://a.example/"), WhiteEntry("http://a./") + WhiteEntry("http://www./"),
          WhiteEntry("http://a.example/x/y") + WhiteEntry("http://c.a.example:81/z") +
              WhiteEntry("http://c.a.example/x")}) {
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

// A document handed over in pieces of any size, even ones that cut a code unit or a surrogate
// pair, comes out whole once finished, and else leaves no file, not even a temporary one.
TEST_F(CliTest, DocumentOutputWritesTheWholeDocumentOrNoFile) {
    std::u16string document = u"\uFEFF<a>\u00E9\U0001F600?x</a>?";
    std::replace(document.begin(), document.end(), u'?', char16_t{0xD800});  // unpaired
    const std::span<const std::uint8_t> bytes = AsUtf16LeBytes(document);
    for (const auto& [name, piece, utf8, finish] :
         std::vector<std::tuple<std::string, std::size_t, bool, bool>>{
             {"utf8ByteByByte", 1, true, true},
             {"utf16ThreeBytes", 3, false, true},
             {"unfinished", 5, true, false}}) {
        const std::string path = (folder_ / name).string();
        std::ostringstream unused;
        std::string error;
        if (auto output = DocumentOutput::Open(path, utf8, unused, error)) {
            for (std::size_t at = 0; at < bytes.size(); at += piece) {
                output->Write(bytes.subspan(at, std::min(piece, bytes.size() - at)));
            }
            EXPECT_EQ(finish ? output->Finish() : "", "") << name;
        }
        std::ifstream written(path, std::ios::binary);
        EXPECT_EQ(std::string(std::istreambuf_iterator<char>(written), {}),
                  !finish ? ""
                  : utf8  ? Utf16ToUtf8(document.substr(1))
                          : std::string(bytes.begin(), bytes.end()))
            << name;
    }
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder_), {}), 2);
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
    // Tallies of several threads add up, however many the threads made.
    LoadedPolicy loaded;
    ASSERT_EQ(LoadPolicyFile(policy, WebFilterBlockPolicy, loaded), "");
    DecisionTally first(loaded.searcher);
    DecisionTally second(loaded.searcher);
    DecisionTrace trace;
    for (const std::u16string url : {u"http://e.f/", u"c.d"}) {
        loaded.searcher.IsUrlAllowed(url, &trace);
        first.Count(trace);
        second.Count(trace);
    }
    DecisionTally total(loaded.searcher);
    total.Merge(first);
    total.Merge(second);
    std::ostringstream merged;
    total.Print(loaded.policy, merged);
    EXPECT_EQ(merged.str(),
              "allowed\t2\ndenied\t0\nnot crackable\t2\ndecided\t2\thttp://e.f/\twhite list "
              "\"W\" entry \"w4\" \"http://e.f\"\n");
}

// A list file of each format whose one line blocks guard.example, so that no import leaves the
// black index empty, which would allow everything.
const std::map<std::string, std::string> kGuards = {{"hosts", "0.0.0.0 guard.example"},
                                                    {"domains", "guard.example"},
                                                    {"urls", "guard.example/"},
                                                    {"adblock", "||guard.example^"}};

// Each row: list files (format, lines), then URLs with the answer the lines mean: d for deny,
// a for allow. Rows that skip their line expect the URL allowed; the document must lint clean.
struct ImportRow {
    std::string name;
    std::vector<std::pair<std::string, std::string>> files;
    std::vector<std::pair<std::string, char>> urls;
};

void ExpectImportedAnswers(
    const std::vector<ImportRow>& rows,
    const std::function<std::string(const std::string&, const std::string&)>& write) {
    for (const ImportRow& row : rows) {
        std::vector<std::string> args = {"import", "--out", write(row.name + ".xml", "")};
        for (std::size_t i = 0; i < row.files.size(); ++i) {
            const auto& [format, lines] = row.files[i];
            args.insert(args.end(),
                        {"--format", format,
                         write(row.name + std::to_string(i), lines + "\n" + kGuards.at(format))});
        }
        ASSERT_EQ(Sentrel(args).status, kExitOk) << row.name;
        std::vector<std::string> check = {"check", "--policy", args[2], "http://guard.example/"};
        std::string expected = "deny\thttp://guard.example/\n";
        for (const auto& [url, answer] : row.urls) {
            check.push_back(url);
            expected += (answer == 'd' ? "deny\t" : "allow\t") + url + "\n";
        }
        EXPECT_EQ(Sentrel(check).out, expected) << row.name;
        EXPECT_EQ(Sentrel({"lint", "--policy", args[2]}).out, "0 problems found\n") << row.name;
    }
}

TEST_F(CliTest, ImportedLinesMeanWhatTheySay) {
    const auto write = [this](const std::string& name, const std::string& bytes) {
        return WriteFile(name, bytes);
    };
    const std::string tooLong = std::string(257, 'h') + ".example";
    std::string manyUrls = "p.example/x\n";  // texts over several chunks, carried to the end
    for (int i = 0; i < 3000; ++i) {
        manyUrls.append("h").append(std::to_string(i)).append(".example/y\n");
    }
    ExpectImportedAnswers(
        {
            {"hostsNamesCoverSubdomainsHttpsAndCase",
             {{"hosts", "0.0.0.0 Ads.Example.  x.example # 0.0.0.0 c.example"}},
             {{"http://ads.example/p", 'd'},
              {"HTTPS://Sub.Ads.Example:8443/", 'd'},
              {"http://x.example", 'd'},
              {"ftp://ads.example/", 'a'},
              {"http://c.example/", 'a'},
              {"http://xads.example/", 'a'}}},
            {"hostsWwwCoversTheDomain",
             {{"hosts", "1.2.3.4 www.b.example"}},
             {{"http://b.example/", 'd'},
              {"http://www.b.example/", 'd'},
              {"http://1.2.3.4/", 'a'}}},
            {"hostsMachineNamesSkipped",
             {{"hosts", "127.0.0.1 localhost ip6-loopback 0.0.0.0 127.0.1.1 ::1 [::]\n::1\n" +
                            std::string("0.0.0.0 ") + tooLong}},
             {{"http://localhost/", 'a'},
              {"http://0.0.0.0/", 'a'},
              {"http://127.0.1.1/", 'a'},
              {"http://[::1]/", 'a'},
              {"http://[::]/", 'a'}}},
            {"hostsAddressesAndUnderscores",
             {{"hosts", "0.0.0.0 2001:DB8::1 10.0.0.1 a_b.example"}},
             {{"http://[2001:db8::1]/x", 'd'},
              {"http://10.0.0.1/", 'd'},
              {"http://10.0.0.2/", 'a'},
              {"http://a_b.example/", 'd'}}},
            {"domainsPrefixesAndComments",
             {{"domains",
               "*.Social.Example\n.video.example # c\n# news.example\nx.example y.example"}},
             {{"http://social.example/", 'd'},
              {"http://a.social.example/", 'd'},
              {"http://video.example/", 'd'},
              {"http://news.example/", 'a'},
              {"http://x.example/", 'a'}}},
            {"domainsNotHostNames",
             {{"domains", "a@b.example\nc.example/x\nd.example:80\ne\x01.example"}},
             {{"http://b.example/", 'a'},
              {"http://c.example/", 'a'},
              {"http://d.example:80/", 'a'}}},
            {"urlsPathSegmentsAndSchemes",
             {{"urls",
               "News.Example/Sports/\nhttps://shop.example:8080/cart\nftp://f.example/\n"
               "q.example/x?id=1\nme@u.example/x"}},
             {{"http://news.example/sports", 'd'},
              {"https://sub.news.example/sports/x", 'd'},
              {"http://news.example/sportsx", 'a'},
              {"http://news.example/", 'a'},
              {"http://shop.example:8080/cart/1", 'd'},
              {"http://shop.example/cart", 'a'},
              {"ftp://f.example/", 'a'},
              {"http://q.example/x", 'a'},
              {"http://u.example/x", 'a'}}},
            {"adblockExpressibleRules",
             {{"adblock",
               "||ads.example^$important\n||cdn.example/banners^\n||cdn.example/pop\n"
               "||t.example/*"}},
             {{"http://sub.ads.example/x", 'd'},
              {"http://cdn.example/banners/1", 'd'},
              {"http://cdn.example/b", 'a'},
              {"http://cdn.example/pop/up", 'd'},
              {"http://cdn.example/popx", 'a'},
              {"http://t.example/", 'd'}}},
            {"adblockSkippedKinds",
             {{"adblock",
               "[Adblock Plus 2.0]\n! ||a.example^\n@@||guard.example^\n"
               "b.example##.ad\n/c\\.example/\n||d*.example^\n|http://e.example/\n"
               "f.example\n||g.example\n||h.example^$third-party\n||i.example^x\n"
               "||j.example/x|\n||k.example/x/^"}},
             {{"http://a.example/", 'a'},
              {"http://b.example/", 'a'},
              {"http://c.example/", 'a'},
              {"http://dd.example/", 'a'},
              {"http://e.example/", 'a'},
              {"http://f.example/", 'a'},
              {"http://g.example/", 'a'},
              {"http://h.example/", 'a'},
              {"http://i.example/", 'a'},
              {"http://j.example/x|", 'a'},
              {"http://k.example/x/y", 'a'}}},
            {"urlOnABlockedDomainDropped",
             {{"domains", "a.example"},
              {"urls", "a.example/x\nsub.a.example/y\nA.example.\nx.sub.a.example/w"}},
             {{"http://sub.a.example/z", 'd'},
              {"http://a.example/", 'd'},
              {"http://x.sub.a.example/z", 'd'}}},
            {"siblingPathsCarriedToSubdomains",
             {{"urls",
               "a.example/x\nsub.a.example/y\nx.sub.a.example/w\nb.example:81\nc.b.example/v"}},
             {{"http://sub.a.example/x/1", 'd'},
              {"http://x.sub.a.example/x", 'd'},
              {"http://x.sub.a.example/y", 'd'},
              {"http://sub.a.example/z", 'a'},
              {"http://sub.a.example/w", 'a'},
              {"http://c.b.example:81/", 'd'},
              {"http://c.b.example/", 'a'}}},
            {"longListKeepsCarriedTextsToTheEnd",
             {{"urls", manyUrls + "sub.p.example/z"}},
             {{"http://sub.p.example/x", 'd'},
              {"http://h2999.example/y", 'd'},
              {"http://h0.example/", 'a'}}},
        },
        write);
}

TEST_F(CliTest, ImportWritesOneDocumentAndSaysWhatItSkipped) {
    const std::string list = WriteFile(
        "Allowed.txt", "Ads.Example\nads.example.\n" + std::string(257, 'h') + ".example\n");
    const std::string out = (folder_ / "out.xml").string();
    ASSERT_EQ(Sentrel({"import", "--format", "hosts", list, "--out", out}).status, kExitOk);
    // The second run replaces the first one's file.
    const Outcome imported = Sentrel({"import", "--white", "--utf16", "--name", "School",
                                      "--format", "domains", list, list, "--out", out});
    EXPECT_EQ(imported.status, kExitOk);
    EXPECT_EQ(imported.err,
              "sentrel import: 6 lines read, 1 entries written\n"
              "sentrel import: skipped 2: cannot be cracked: its host is longer than 256 "
              "characters\n"
              "sentrel import: 3 entries dropped as duplicates\n");
    const Outcome formatted = Sentrel({"format", "--policy", out});
    {
        std::ifstream written(out, std::ios::binary);
        EXPECT_EQ(std::string(std::istreambuf_iterator<char>(written), {}), formatted.out);
    }
    EXPECT_EQ(formatted.out.substr(0, 2), "\xFF\xFE");
    const std::string utf8 = Sentrel({"format", "--policy", out, "--utf8"}).out;
    EXPECT_EQ(utf8.find("<WLName>School</WLName>"), utf8.rfind("<WLName>"));  // one list
    EXPECT_EQ(Sentrel({"check", "--policy", out, "http://ads.example/", "http://b.example/"}).out,
              "allow\thttp://ads.example/\ndeny\thttp://b.example/\n");

    // An unreadable list leaves no output, not even the one a run before wrote.
    std::filesystem::remove(out);
    const Outcome failed = Sentrel(
        {"import", "--format", "domains", list, (folder_ / "missing.txt").string(), "--out", out});
    EXPECT_EQ(failed.status, kExitUsage);
    EXPECT_EQ(std::count(failed.err.begin(), failed.err.end(), '\n'), 1);
    EXPECT_FALSE(std::filesystem::exists(out));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder_), {}), 1);
}

}  // namespace
}  // namespace sentrel::cli
