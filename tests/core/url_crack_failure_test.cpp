#include <gtest/gtest.h>

#include <string>

#include "search/cracked_url.h"

namespace sentrel {
namespace {

std::u16string Repeat(char16_t ch, std::size_t count) {
    return std::u16string(count, ch);
}

TEST(CrackFailure, NamesTheRuleThatFailed) {
    const std::pair<std::u16string, CrackFailure> cases[] = {
        {u"a.b/x", CrackFailure::NoScheme},
        {u"www.a.b", CrackFailure::NoScheme},
        {u"", CrackFailure::NoScheme},
        {Repeat(u's', 33) + u"://h/", CrackFailure::SchemeTooLong},
        {u"mailto://x", CrackFailure::MailtoWithSlashes},
        {u"http://" + Repeat(u'h', 257) + u"/", CrackFailure::HostTooLong},
        {u"http://" + Repeat(u'h', 257) + u":80/", CrackFailure::HostTooLong},
        {u"http://" + Repeat(u'u', 129) + u"@h/", CrackFailure::UserInfoTooLong},
        {u"http://u:" + Repeat(u'p', 128) + u"@h/", CrackFailure::None},
        {u"http://u:" + Repeat(u'p', 129) + u"@h/", CrackFailure::AfterTextTooLong},
        {u"http://:pw@h/", CrackFailure::PasswordWithoutUser},
        {u"http://a@b@h/", CrackFailure::SecondUserInfo},
        {u"http://a:1@b:2@h/", CrackFailure::SecondUserInfo},
        {u"http://h/" + Repeat(u'p', 2048), CrackFailure::PathTooLong},
        {u"http://h/x?" + Repeat(u't', 2048), CrackFailure::TailTooLong},
        {u"http://" + Repeat(u'h', 2090), CrackFailure::SegmentTooLong},
    };
    for (const auto& [text, expected] : cases) {
        CrackedUrl cracked;
        CrackFailure why = CrackFailure::None;
        EXPECT_EQ(CrackUrl(text, cracked, &why), expected == CrackFailure::None) << text.size();
        EXPECT_EQ(why, expected) << text.size();
    }
}

}  // namespace
}  // namespace sentrel
