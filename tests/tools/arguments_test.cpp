#include <gtest/gtest.h>

#include <vector>

#include "arguments.h"

namespace sentrel::cli {
namespace {

const ArgumentRules kRules{{"--policy", "--type", "--format"}, {"--help", "--utf8"}, {"--format"}};

ParseResult Parse(std::vector<std::string> args) {
    return ParseArguments(args, kRules);
}

TEST(Arguments, TakesValuesInBothFormsFlagsAndPositionalsWithOrWithoutADash) {
    const ParseResult result =
        Parse({"--policy", "-p", "http://a", "-", "-x", "--type=all", "--utf8", "--", "--help"});
    ASSERT_EQ(result.error, "");
    EXPECT_EQ(result.arguments.Value("--policy"), "-p");
    EXPECT_EQ(result.arguments.Value("--type"), "all");
    EXPECT_TRUE(result.arguments.Has("--utf8"));
    EXPECT_FALSE(result.arguments.Has("--help"));  // after "--" it is a positional
    EXPECT_EQ(result.arguments.positionals,
              (std::vector<std::string>{"http://a", "-", "-x", "--help"}));
    EXPECT_EQ(result.arguments.Value("--out"), std::nullopt);
}

TEST(Arguments, KeepsRepeatableOptionsInOrderAmongPositionals) {
    const ParseResult result = Parse({"--format", "hosts", "a", "--format=urls", "b", "c"});
    ASSERT_EQ(result.error, "");
    EXPECT_EQ(result.arguments.Value("--format"), "urls");
    EXPECT_EQ(result.arguments.sequence,
              (std::vector<std::pair<std::string, std::string>>{
                  {"--format", "hosts"}, {"", "a"}, {"--format", "urls"}, {"", "b"}, {"", "c"}}));
}

TEST(Arguments, RejectsWhatTheCommandDoesNotTake) {
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{"--bogus"}, "unknown option --bogus"},
        {{"a", "--bogus=1", "--", "b"}, "unknown option --bogus"},
        {{"-x", "--policy"}, "option --policy needs a value"},
        {{"--policy=", "p.xml"}, "option --policy needs a value"},
        {{"--policy", "a", "--policy", "b"}, "option --policy given twice"},
        {{"--help=yes"}, "option --help takes no value"},
        {{"--utf8=true"}, "option --utf8 takes no value"},
        {{"--utf8=", "a"}, "option --utf8 takes no value"},
    };
    for (const auto& [args, error] : cases) {
        EXPECT_EQ(Parse(args).error, error);
    }
}

}  // namespace
}  // namespace sentrel::cli
