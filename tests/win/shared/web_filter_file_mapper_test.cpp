#include <gtest/gtest.h>

#include <windows.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "com/unique_resource.h"
#include "log_capture.h"
#include "module/log/logger.h"
#include "search/web_filter_type.h"
#include "section_probe.h"
#include "shared/web_filter_file_mapper.h"

namespace sentrel {
namespace {

using test::CheckFrom;
using test::CheckResult;
using test::LogCapture;
using test::LoggedMessage;
using test::ProbeSection;

// A check that found nothing leaves all three outputs as they were.
void ExpectUnchanged(const CheckResult& check, std::uint32_t lastStamp) {
    EXPECT_FALSE(check.changed);
    EXPECT_EQ(check.lastStamp, lastStamp);
    EXPECT_EQ(check.type, test::kUntouchedType);
    EXPECT_EQ(check.text, test::kUntouchedText);
}

const std::u16string kEntering = u"WebFilterFileMapper::WriteContent - Entering scope";
const std::u16string kExiting = u"WebFilterFileMapper::WriteContent - Exiting scope";
const std::u16string kNoNeed = u"WebFilterFileMapper::WriteContent - No need to apply filter";
const std::u16string kOpenFailed2 = u"WebFilterFileMapper::OpenAndMap - OpenFileMappingW failed: 2";
const std::u16string kOpenFailed5 = u"WebFilterFileMapper::OpenAndMap - OpenFileMappingW failed: 5";
const std::u16string kCopyFailed = u"WebFilterFileMapper::WriteString - _tcscpy_s failed: 34";

// Whether a section reported as `actual` bytes is one created with `requested` bytes: Wine
// reports a pagefile-backed section's size rounded up to whole pages, Windows as requested.
::testing::AssertionResult IsSectionOf(std::uint64_t actual, std::uint64_t requested) {
    SYSTEM_INFO system{};
    GetSystemInfo(&system);
    const std::uint64_t page = system.dwPageSize;
    if (actual == requested || actual == (requested + page - 1) / page * page) {
        return ::testing::AssertionSuccess();
    }
    return ::testing::AssertionFailure() << actual << " bytes for " << requested << " requested";
}

// Every test starts and ends without the section: it lives only while a mapper holds it.
class FileMapperTest : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_FALSE(ProbeSection().has_value()) << "a section is left over"; }
    void TearDown() override { EXPECT_FALSE(ProbeSection().has_value()); }

    LogCapture log_;
};

struct FirstWrite {
    std::uint32_t type;
    std::size_t length;
    std::uint64_t sectionBytes;
    std::uint32_t capacity;
};

class FirstWriteTest : public FileMapperTest, public ::testing::WithParamInterface<FirstWrite> {};

TEST_P(FirstWriteTest, CreatesTheSectionAtItsSize) {
    const FirstWrite& row = GetParam();
    WebFilterFileMapper mapper;
    EXPECT_EQ(mapper.Capacity(), 12u);
    const std::u16string text(row.length, u'p');
    ASSERT_TRUE(mapper.WriteContent(row.type, text));
    EXPECT_EQ(mapper.Capacity(), row.capacity);
    EXPECT_EQ(mapper.WriteCount(), 1u);
    const auto content = ProbeSection();
    ASSERT_TRUE(content.has_value());
    EXPECT_TRUE(IsSectionOf(content->bytes, row.sectionBytes));
    EXPECT_EQ(content->stamp, 1u);
    EXPECT_EQ(content->type, row.type);
    EXPECT_EQ(content->text, text);
}

INSTANTIATE_TEST_SUITE_P(Sizes, FirstWriteTest,
                         ::testing::Values(FirstWrite{WebFilterBlockAll, 0, 32, 12},
                                           FirstWrite{WebFilterBlockPolicy, 1, 32, 12},
                                           FirstWrite{WebFilterBlockPolicy, 11, 32, 12},
                                           FirstWrite{WebFilterBlockPolicy, 12, 34, 13},
                                           FirstWrite{WebFilterBlockPolicy, 500, 1010, 501}));

TEST_F(FileMapperTest, GrowsOnlyWhenTheTextNoLongerFits) {
    WebFilterFileMapper mapper;
    const WebFilterFileMapper reader;

    struct Step {
        std::size_t length;
        char16_t fill;
        std::uint64_t sectionBytes;
        std::uint32_t capacity;
    };
    const Step steps[] = {
        {5, u'a', 32, 12},         // created small
        {100, u'b', 210, 101},     // grows to exactly the text
        {50, u'c', 210, 101},      // a shorter text stays in the larger section
        {100, u'd', 210, 101},     // exactly the capacity with its terminator
        {101, u'e', 212, 102},     // one more grows again
        {3000, u'f', 6010, 3001},  // beyond a page
        {0, u'g', 6010, 3001},
    };
    std::uint32_t stamp = 0;
    std::uint32_t lastStamp = 0;
    for (const Step& step : steps) {
        const std::u16string expected(step.length, step.fill);
        ASSERT_TRUE(mapper.WriteContent(WebFilterBlockAll, expected)) << step.length;
        ++stamp;
        EXPECT_EQ(mapper.Capacity(), step.capacity);
        const auto content = ProbeSection();
        ASSERT_TRUE(content.has_value());
        EXPECT_TRUE(IsSectionOf(content->bytes, step.sectionBytes)) << step.length;
        const CheckResult check = CheckFrom(reader, lastStamp);
        ASSERT_TRUE(check.changed);
        EXPECT_EQ(check.lastStamp, stamp);
        EXPECT_EQ(check.type, static_cast<std::uint32_t>(WebFilterBlockAll));
        EXPECT_EQ(check.text, expected);
        lastStamp = check.lastStamp;
    }
}

struct Publication {
    std::uint32_t type;
    std::u16string text;
};

struct DecisionRow {
    const char* name;
    std::vector<Publication> before;  // each of these writes
    Publication request;
    bool written;
    std::optional<Publication> stored;  // nothing: no section exists afterwards
};

class WriteDecisionTest : public FileMapperTest,
                          public ::testing::WithParamInterface<DecisionRow> {};

TEST_P(WriteDecisionTest, WritesOnlyWhenTheRuleSaysSo) {
    const DecisionRow& row = GetParam();
    WebFilterFileMapper mapper;
    for (const Publication& publication : row.before) {
        ASSERT_TRUE(mapper.WriteContent(publication.type, publication.text));
    }
    log_.Clear();

    EXPECT_EQ(mapper.WriteContent(row.request.type, row.request.text), row.written);

    std::vector<LoggedMessage> expectedLog{{LogLevelError, kEntering}};
    if (!row.written) {
        expectedLog.push_back({LogLevelTrace, kNoNeed});
    }
    expectedLog.push_back({LogLevelTrace, kExiting});
    EXPECT_EQ(log_.Messages(), expectedLog);

    const auto expectedStamp =
        static_cast<std::uint32_t>(row.before.size() + (row.written ? 1 : 0));
    EXPECT_EQ(mapper.WriteCount(), expectedStamp);
    const auto content = ProbeSection();
    ASSERT_EQ(content.has_value(), row.stored.has_value());
    if (content) {
        EXPECT_EQ(content->stamp, expectedStamp);
        EXPECT_EQ(content->type, row.stored->type);
        EXPECT_EQ(content->text, row.stored->text);
    }
}

std::string RowName(const ::testing::TestParamInfo<DecisionRow>& info) {
    return info.param.name;
}

using std::string_literals::operator""s;

INSTANTIATE_TEST_SUITE_P(
    Rows, WriteDecisionTest,
    ::testing::Values(
        DecisionRow{"NoneWithoutView", {}, {0, u""}, false, std::nullopt},
        DecisionRow{"NoneWithTextWithoutView", {}, {0, u"abc"}, false, std::nullopt},
        DecisionRow{"NoneOverAll", {{2, u""}}, {0, u""}, true, Publication{0, u""}},
        DecisionRow{"NoneOverPolicyText", {{1, u"abc"}}, {0, u""}, true, Publication{0, u""}},
        DecisionRow{
            "NoneOverEmptyNone", {{1, u"abc"}, {0, u""}}, {0, u""}, false, Publication{0, u""}},
        DecisionRow{"NoneWritesItsText", {{2, u""}}, {0, u"xyz"}, true, Publication{0, u"xyz"}},
        DecisionRow{"PolicyEmptyWithoutView", {}, {1, u""}, false, std::nullopt},
        DecisionRow{"PolicyWithoutView", {}, {1, u"abc"}, true, Publication{1, u"abc"}},
        DecisionRow{"PolicySameText", {{1, u"abc"}}, {1, u"abc"}, false, Publication{1, u"abc"}},
        DecisionRow{"PolicyOtherText", {{1, u"abc"}}, {1, u"abd"}, true, Publication{1, u"abd"}},
        DecisionRow{"PolicyShorterText", {{1, u"abc"}}, {1, u"ab"}, true, Publication{1, u"ab"}},
        DecisionRow{"PolicyEmptyOverText", {{1, u"abc"}}, {1, u""}, true, Publication{1, u""}},
        DecisionRow{
            "PolicyAfterAllSameText", {{2, u"abc"}}, {1, u"abc"}, false, Publication{2, u"abc"}},
        DecisionRow{
            "PolicyTextEndsAtZero", {{1, u"ab"}}, {1, u"ab\0cd"s}, false, Publication{1, u"ab"}},
        DecisionRow{"AllWithoutView", {}, {2, u""}, true, Publication{2, u""}},
        DecisionRow{"AllSameTextAgain", {{2, u"abc"}}, {2, u"abc"}, true, Publication{2, u"abc"}},
        DecisionRow{"OtherTypeWithoutView", {}, {3, u"abc"}, false, std::nullopt},
        DecisionRow{"OtherTypeWithView", {{1, u"abc"}}, {3, u"abd"}, false, Publication{1, u"abc"}},
        DecisionRow{"LargestTypeWithView",
                    {{1, u"abc"}},
                    {0xFFFFFFFF, u"abd"},
                    false,
                    Publication{1, u"abc"}}),
    RowName);

TEST_F(FileMapperTest, StampTellsWhetherAReaderHasSeenAWrite) {
    WebFilterFileMapper writer;
    const WebFilterFileMapper reader;
    ASSERT_TRUE(writer.WriteContent(WebFilterBlockPolicy, u"one"));
    ASSERT_TRUE(writer.WriteContent(WebFilterBlockAll, u"two"));

    ExpectUnchanged(CheckFrom(reader, 2), 2);
    for (const std::uint32_t other : {0u, 1u, 3u, 0xFFFFFFFFu}) {
        const CheckResult check = CheckFrom(reader, other);
        ASSERT_TRUE(check.changed) << other;
        EXPECT_EQ(check.lastStamp, 2u);
        EXPECT_EQ(check.type, static_cast<std::uint32_t>(WebFilterBlockAll));
        EXPECT_EQ(check.text, u"two");
    }
}

TEST_F(FileMapperTest, SectionNeverWrittenReadsAsUnchanged) {
    WebFilterFileMapper mapper;
    ASSERT_TRUE(mapper.OpenAndMap(true, 0));
    const auto content = ProbeSection();
    ASSERT_TRUE(content.has_value());
    EXPECT_TRUE(IsSectionOf(content->bytes, 32));
    EXPECT_EQ(mapper.Capacity(), 12u);
    EXPECT_EQ(content->stamp, 0u);

    ExpectUnchanged(CheckFrom(mapper, 0), 0);
}

TEST_F(FileMapperTest, CheckWithoutSectionFailsWithNotFound) {
    const WebFilterFileMapper mapper;
    ExpectUnchanged(CheckFrom(mapper, 5), 5);
    EXPECT_EQ(log_.Messages(), (std::vector<LoggedMessage>{{LogLevelError, kOpenFailed2}}));
    EXPECT_FALSE(ProbeSection().has_value());  // a check never creates the section
}

TEST_F(FileMapperTest, SecondMapperIsRefusedButReadsTheFirstOnesPublications) {
    auto first = std::make_unique<WebFilterFileMapper>();
    WebFilterFileMapper second;
    ASSERT_TRUE(first->WriteContent(WebFilterBlockPolicy, u"first's"));

    for (const std::size_t length : {std::size_t{3}, std::size_t{5000}}) {
        log_.Clear();
        EXPECT_FALSE(second.WriteContent(WebFilterBlockAll, std::u16string(length, u's')));
        EXPECT_EQ(log_.Count(LogLevelError, kOpenFailed5), 1u) << length;
    }
    EXPECT_EQ(CheckFrom(second, 0).text, u"first's");
    ASSERT_TRUE(first->WriteContent(WebFilterBlockPolicy, std::u16string(300, u'g')));
    const CheckResult check = CheckFrom(second, 1);
    EXPECT_EQ(check.lastStamp, 2u);
    EXPECT_EQ(check.text, std::u16string(300, u'g'));

    // With its only holder gone the section goes, and the next writer creates its own.
    first.reset();
    EXPECT_FALSE(ProbeSection().has_value());
    EXPECT_TRUE(second.WriteContent(WebFilterBlockPolicy, u"second's"));
    EXPECT_EQ(ProbeSection()->text, u"second's");
}

TEST_F(FileMapperTest, ReadOnlyMappingIsNeverWrittenThrough) {
    {
        WebFilterFileMapper creator;
        ASSERT_TRUE(creator.WriteContent(WebFilterBlockPolicy, u"creator's"));
        WebFilterFileMapper other;
        ASSERT_TRUE(other.OpenAndMap(false, 0));
        EXPECT_FALSE(other.WriteContent(WebFilterBlockAll, u"other's"));
        EXPECT_EQ(ProbeSection()->text, u"creator's");
    }
    log_.Clear();
    WebFilterFileMapper lonely;
    EXPECT_FALSE(lonely.OpenAndMap(false, 0));
    EXPECT_EQ(log_.Count(LogLevelError, kOpenFailed2), 1u);
}

// A section that some other program created with the platform's default security, so that any
// mapper may open it for writing although it did not create it.
class ForeignSection {
  public:
    explicit ForeignSection(std::uint32_t bytes)
        : section_(CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, bytes,
                                      L"WebFilterMMF")),
          view_(MapViewOfFile(section_.Get(), FILE_MAP_ALL_ACCESS, 0, 0, 0)) {}

    unsigned char* Bytes() { return static_cast<unsigned char*>(view_.Get()); }
    explicit operator bool() const { return static_cast<bool>(view_); }

  private:
    UniqueHandle section_;
    UniqueView view_;
};

TEST_F(FileMapperTest, TextWithoutTerminatorEndsAtTheViewsEnd) {
    SYSTEM_INFO system{};
    GetSystemInfo(&system);
    const std::uint32_t page = system.dwPageSize;
    {
        ForeignSection foreign(page);
        ASSERT_TRUE(foreign);
        const std::uint32_t stamp = 7;
        std::memcpy(foreign.Bytes(), &stamp, sizeof(stamp));
        foreign.Bytes()[4] = 1;
        for (std::uint32_t at = 8; at < page; at += 2) {
            foreign.Bytes()[at] = 'q';
            foreign.Bytes()[at + 1] = 0;
        }
        const CheckResult check = CheckFrom(WebFilterFileMapper(), 0);
        ASSERT_TRUE(check.changed);
        EXPECT_EQ(check.lastStamp, 7u);
        EXPECT_EQ(check.type, 1u);
        EXPECT_EQ(check.text, std::u16string((page - 8) / 2, u'q'));
    }
}

TEST_F(FileMapperTest, TextBeyondTheCapacityOfAnOpenedSectionIsNotCopied) {
    {
        ForeignSection foreign(40);
        ASSERT_TRUE(foreign);
        WebFilterFileMapper mapper;
        ASSERT_TRUE(mapper.WriteContent(WebFilterBlockPolicy, u"eleven char"));
        EXPECT_EQ(mapper.Capacity(), 12u);  // opening never changes the capacity
        log_.Clear();

        EXPECT_FALSE(mapper.WriteContent(WebFilterBlockAll, std::u16string(100, u'L')));
        EXPECT_EQ(log_.Count(LogLevelError, kCopyFailed), 1u);
        const auto content = ProbeSection();
        ASSERT_TRUE(content.has_value());
        EXPECT_EQ(content->stamp, 1u);  // the old stamp: nobody takes the empty text as new
        EXPECT_EQ(content->type, static_cast<std::uint16_t>(WebFilterBlockAll));
        EXPECT_EQ(content->text, u"");
        EXPECT_EQ(mapper.WriteCount(), 1u);
    }
}

TEST_F(FileMapperTest, SuccessfulWriteLogsEnteringAndExiting) {
    WebFilterFileMapper mapper;
    ASSERT_TRUE(mapper.WriteContent(WebFilterBlockAll, u"x"));
    EXPECT_EQ(log_.Messages(),
              (std::vector<LoggedMessage>{{LogLevelError, kEntering}, {LogLevelTrace, kExiting}}));
}

}  // namespace
}  // namespace sentrel
