#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "search/cracked_url.h"
#include "search/url_keys.h"

namespace sentrel {
namespace {

struct KeyRow {
    const char16_t* url;
    const char16_t* schemeKey;
    const char16_t* hostKey;
    const char16_t* pathKey;
};

TEST(UrlKeys, Table) {
    const KeyRow rows[] = {
        {u"https://a.b", u"http", u"a.b", u""},
        {u"http://a.b", u"http", u"a.b", u""},
        {u"httpss://a.b", u"httpss", u"a.b", u""},
        {u"HTTPS://a.b", u"HTTPS", u"a.b", u""},
        {u"ftp://a.b", u"ftp", u"a.b", u""},
        {u"://a.b", u"", u"a.b", u""},
        {u"http://www.a.b", u"http", u"a.b", u""},
        {u"http://www.www.a.b", u"http", u"www.a.b", u""},
        {u"http://wwwa.b", u"http", u"wwwa.b", u""},
        {u"http://www.", u"http", u"", u""},
        {u"http://www", u"http", u"www", u""},
        {u"http://WWW.a.b", u"http", u"WWW.a.b", u""},
        {u"http://a.www.b", u"http", u"a.www.b", u""},
        {u"http://h/x/y/", u"http", u"h", u"x/y"},
        {u"http://h/", u"http", u"h", u""},
        {u"http://h//", u"http", u"h", u""},
        {u"http://h///", u"http", u"h", u"/"},
        {u"http://h/x//", u"http", u"h", u"x/"},
        {u"http://h//x", u"http", u"h", u"/x"},
        {u"http://h/x?y/", u"http", u"h", u"x"},
        {u"file://x", u"file", u"", u"x"},
        {u"file:x/", u"file", u"", u"x"},
    };
    for (const KeyRow& row : rows) {
        SCOPED_TRACE(std::u16string_view(row.url).size());
        auto cracked = std::make_unique<CrackedUrl>();
        ASSERT_TRUE(CrackUrl(row.url, *cracked));
        EXPECT_EQ(SchemeKey(*cracked), row.schemeKey);
        EXPECT_EQ(HostKey(*cracked), row.hostKey);
        EXPECT_EQ(PathKey(*cracked), row.pathKey);
    }
}

TEST(UrlKeys, KeysAreViewsIntoTheRecordOrTheConstants) {
    auto cracked = std::make_unique<CrackedUrl>();
    ASSERT_TRUE(CrackUrl(u"https://www.a.b/x/", *cracked));
    EXPECT_EQ(SchemeKey(*cracked).data(), kHttpSchemeKey);
    EXPECT_EQ(HostKey(*cracked).data(), cracked->host.c_str() + 4);
    EXPECT_EQ(PathKey(*cracked).data(), cracked->path.c_str() + 1);

    ASSERT_TRUE(CrackUrl(u"ftp://a.b", *cracked));
    EXPECT_EQ(SchemeKey(*cracked).data(), cracked->scheme.c_str());
    EXPECT_EQ(HostKey(*cracked).data(), cracked->host.c_str());
}

}  // namespace
}  // namespace sentrel
