// What SetFilterContent publishes to the shared section, seen from outside the object: directly in
// the section, and through a second object's refresh.

#include <windows.h>

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "log_capture.h"
#include "manager_fixture.h"
#include "module/log/logger.h"
#include "shared/wide_text.h"

namespace sentrel::test {
namespace {

constexpr ::WebFilterType kOutsideTypes = static_cast<::WebFilterType>(3);
constexpr char16_t kWriteFailed[] =
    u"CWebFilterManager::SetFilterContent - Could not write content to file mapper";

using PublishTest = ManagerTest;

// The section's type and text; nothing when there is no section.
std::optional<std::pair<std::uint16_t, std::u16string>> Published() {
    const std::optional<SectionContent> section = ProbeSection();
    if (!section) {
        return std::nullopt;
    }
    return std::make_pair(section->type, section->text);
}

std::uint32_t PublishedStamp() {
    const std::optional<SectionContent> section = ProbeSection();
    return section ? section->stamp : 0;
}

template <class Text>
std::optional<std::pair<std::uint16_t, std::u16string>> Expected(::WebFilterType type,
                                                                 const Text& text) {
    return std::make_pair(static_cast<std::uint16_t>(type), std::u16string(text));
}

TEST_F(PublishTest, TheClientsTextIsPublishedUnaltered) {
    const std::u16string document =
        u"  " + ListDocument(6, ListKind::White, {u"http://a.example/"}) + u"\n";
    ASSERT_EQ(SetContent(Manager(), WebFilterBlockPolicy, document), S_OK);
    EXPECT_EQ(Published(), Expected(WebFilterBlockPolicy, document));
    EXPECT_EQ(PublishedStamp(), 1u);
}

TEST_F(PublishTest, AnEmptyOrNullTextPublishesTheMinimalDocument) {
    ASSERT_EQ(SetContent(Manager(), WebFilterBlockPolicy, ListDocument(3, ListKind::Black, {})),
              S_OK);
    ASSERT_EQ(SetContent(Manager(), WebFilterBlockPolicy, nullptr), S_OK);
    EXPECT_EQ(Published(), Expected(WebFilterBlockPolicy, EmptyDocument(0)));
    ASSERT_EQ(SetContent(Manager(), WebFilterBlockAll, u""), S_OK);
    EXPECT_EQ(Published(), Expected(WebFilterBlockAll, EmptyDocument(0)));
    EXPECT_EQ(PublishedStamp(), 3u);
}

TEST_F(PublishTest, ListsSetWithBlockAllArePublishedThoughNotReadHere) {
    const std::u16string document = ListDocument(5, ListKind::Black, {u"http://a.example/"});
    ASSERT_EQ(SetContent(Manager(), WebFilterBlockAll, document), S_OK);
    EXPECT_EQ(Published(), Expected(WebFilterBlockAll, document));
    EXPECT_EQ(ContentOf(Manager()), SucceededContent(WebFilterBlockAll, 0, EmptyDocument(0)));
}

TEST_F(PublishTest, MalformedTextIsPublishedAsItCame) {
    const std::u16string broken = u"<WebFilters><WFVersion>1</WFVersion><Oops></WebFilters>";
    ASSERT_EQ(SetContent(Manager(), WebFilterBlockPolicy, broken), S_OK);
    EXPECT_EQ(Published(), Expected(WebFilterBlockPolicy, broken));
}

TEST_F(PublishTest, OnlyTheTextBeforeAZeroCharacterIsPublished) {
    const std::u16string document = ListDocument(0, ListKind::Black, {u"http://a.example/"});
    const std::u16string withZero = document + u'\0' + u"<tail/>";
    const BSTR text =
        SysAllocStringLen(AsWide(withZero.c_str()), static_cast<UINT>(withZero.size()));
    EXPECT_EQ(Manager().SetFilterContent(WebFilterBlockPolicy, text), S_OK);
    SysFreeString(text);
    EXPECT_EQ(Published(), Expected(WebFilterBlockPolicy, document));
}

TEST_F(PublishTest, BlockNoneCarriesTheLastPublishedRefreshMode) {
    ASSERT_EQ(SetContent(Manager(), WebFilterBlockPolicy,
                         ListDocument(3, ListKind::Black, {u"http://a.example/"})),
              S_OK);
    ASSERT_EQ(SetContent(Manager(), WebFilterBlockNone, u""), S_OK);
    EXPECT_EQ(Published(), Expected(WebFilterBlockNone, EmptyDocument(3)));
    // The policy in force here is the default one, until a refresh loads the publication back.
    EXPECT_EQ(ContentOf(Manager()), SucceededContent(WebFilterBlockNone, 0, EmptyDocument(0)));
    ASSERT_EQ(Manager().EnableUpdate(1), S_OK);
    EXPECT_EQ(ContentOf(Manager()).refreshMode, 3);
}

TEST_F(PublishTest, BlockAllResetsThePublishedRefreshModeAndARefreshLeavesItAlone) {
    ASSERT_EQ(SetContent(Manager(), WebFilterBlockPolicy,
                         ListDocument(3, ListKind::Black, {u"http://a.example/"})),
              S_OK);
    ASSERT_EQ(SetContent(Manager(), WebFilterBlockAll, ListDocument(5, ListKind::Black, {})), S_OK);
    ASSERT_EQ(Manager().EnableUpdate(1), S_OK);  // loads refresh mode 5
    ASSERT_EQ(SetContent(Manager(), WebFilterBlockNone, u""), S_OK);
    EXPECT_EQ(Published(), Expected(WebFilterBlockNone, EmptyDocument(0)));
}

TEST_F(PublishTest, ATypeOutsideTheEnumerationIsNeverPublishedButResetsTheRefreshMode) {
    const std::u16string document = ListDocument(3, ListKind::Black, {u"http://a.example/"});
    ASSERT_EQ(SetContent(Manager(), WebFilterBlockPolicy, document), S_OK);
    const LogCapture log;
    EXPECT_EQ(SetContent(Manager(), kOutsideTypes, ListDocument(9, ListKind::White, {})), E_FAIL);
    EXPECT_EQ(log.Count(LogLevelError, kWriteFailed), 1u);
    EXPECT_EQ(Published(), Expected(WebFilterBlockPolicy, document));
    EXPECT_EQ(PublishedStamp(), 1u);
    ASSERT_EQ(SetContent(Manager(), WebFilterBlockNone, u""), S_OK);
    EXPECT_EQ(Published(), Expected(WebFilterBlockNone, EmptyDocument(0)));
}

TEST_F(PublishTest, BlockNoneOnAnObjectThatNeverPublishedPublishesNothing) {
    const LogCapture log;
    EXPECT_EQ(SetContent(Manager(), WebFilterBlockNone, u""), E_FAIL);
    EXPECT_EQ(log.Count(LogLevelError, kWriteFailed), 1u);
    EXPECT_FALSE(ProbeSection().has_value());
    EXPECT_EQ(Allowed(Manager(), u"http://h/"), 1);
}

TEST_F(PublishTest, TheSameTextTwiceIsNotPublishedAgain) {
    const std::u16string document = ListDocument(0, ListKind::Black, {u"http://a.example/"});
    ASSERT_EQ(SetContent(Manager(), WebFilterBlockPolicy, document), S_OK);
    const FilterContent before = ContentOf(Manager());
    EXPECT_EQ(SetContent(Manager(), WebFilterBlockPolicy, document), E_FAIL);
    EXPECT_EQ(PublishedStamp(), 1u);
    EXPECT_EQ(ContentOf(Manager()), before);
    EXPECT_EQ(Allowed(Manager(), u"http://a.example/"), 0);
}

TEST_F(PublishTest, OnlyTheObjectThatCreatedTheSectionPublishes) {
    const std::u16string first = ListDocument(0, ListKind::Black, {u"http://a.example/"});
    ASSERT_EQ(SetContent(Manager(), WebFilterBlockPolicy, first), S_OK);

    const ComPtr<IWebFilterManager> other = CreateManager();
    ASSERT_TRUE(other);
    const LogCapture log;
    EXPECT_EQ(SetContent(*other.Get(), WebFilterBlockPolicy,
                         ListDocument(0, ListKind::Black, {u"http://b.example/"})),
              E_FAIL);
    EXPECT_EQ(log.Count(LogLevelError, kWriteFailed), 1u);
    // Refused, whatever the type and the length of the text.
    EXPECT_EQ(SetContent(*other.Get(), WebFilterBlockAll, u""), E_FAIL);
    EXPECT_EQ(Published(), Expected(WebFilterBlockPolicy, first));
    EXPECT_EQ(PublishedStamp(), 1u);
    // The refused filter is in force where it was set.
    EXPECT_EQ(Allowed(*other.Get(), u"http://a.example/"), 0);

    // The other object still reads what the creator publishes.
    const std::u16string second = ListDocument(0, ListKind::Black, {u"http://c.example/"});
    ASSERT_EQ(SetContent(Manager(), WebFilterBlockPolicy, second), S_OK);
    ASSERT_EQ(other->EnableUpdate(1), S_OK);
    EXPECT_EQ(ContentOf(*other.Get()), SucceededContent(WebFilterBlockPolicy, 0, second));
    EXPECT_EQ(Allowed(*other.Get(), u"http://c.example/"), 0);
    EXPECT_EQ(Allowed(*other.Get(), u"http://a.example/"), 1);
}

TEST_F(PublishTest, ARefreshReadsThePublishedListsUnderEveryType) {
    const std::u16string document = ListDocument(5, ListKind::Black, {u"http://a.example/"});
    ASSERT_EQ(SetContent(Manager(), WebFilterBlockAll, document), S_OK);
    const ComPtr<IWebFilterManager> reader = CreateManager();
    ASSERT_TRUE(reader);
    ASSERT_EQ(reader->EnableUpdate(1), S_OK);
    EXPECT_EQ(ContentOf(*reader.Get()), SucceededContent(WebFilterBlockAll, 5, document));
    // Still decided under BlockAll.
    EXPECT_EQ(Allowed(*reader.Get(), u"http://other.example/"), 0);
    EXPECT_EQ(Allowed(*reader.Get(), u"about:blank"), 1);
}

}  // namespace
}  // namespace sentrel::test
