#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "policy/web_filter_policy.h"

namespace sentrel {
namespace {

// A sequence beside the literal rule: scan for the id, overwrite in place or append.
struct Both {
    FilterEntrySequence sequence;
    std::vector<FilterEntry> literal;

    void Add(const FilterEntryView& entry) {
        const FilterEntry copy(entry);  // the entry may lie in the sequence itself
        sequence.Add(entry);
        const auto held = std::find_if(literal.begin(), literal.end(),
                                       [&copy](const FilterEntry& e) { return e.id == copy.id; });
        held == literal.end() ? literal.push_back(copy) : void(*held = copy);
    }
    void AddFresh(const FilterEntry& entry) {
        sequence.AddWithFreshId(entry);
        literal.push_back(entry);
    }
    void Add(std::size_t nameLength, char16_t fill) {
        Add(FilterEntry(std::u16string(nameLength, fill), u"http://" + std::u16string(1, fill)));
    }
};

void ExpectSame(const FilterEntrySequence& sequence, const std::vector<FilterEntry>& literal,
                const char* what) {
    const auto same = [](const FilterEntryView& a, const FilterEntry& b) {
        return a.name == b.name && a.url == b.url && a.id == b.id;
    };
    EXPECT_TRUE(std::equal(sequence.begin(), sequence.end(), literal.begin(), literal.end(), same))
        << what;
    const std::size_t middle = literal.size() / 2;
    EXPECT_TRUE(literal.empty() || same(sequence[middle], literal[middle])) << what;
}

TEST(FilterEntrySequence, HoldsWhatTheLiteralRuleHolds) {
    const struct {
        const char* what;
        std::function<void(Both&)> steps;
    } cases[] = {
        {"many entries, and each of them replaced by id, longer, shorter and longer again",
         [](Both& both) {
             for (std::size_t i = 0; i < 3000; ++i) {
                 both.Add(i % 7, static_cast<char16_t>(u'a' + i % 26));
             }
             for (const std::size_t length : {40u, 1u, 90u}) {
                 for (std::size_t i = 0; i < both.literal.size(); i += 3) {
                     FilterEntry entry = both.literal[i];
                     entry.name.assign(length, u'R');
                     both.Add(entry);
                 }
             }
         }},
        {"texts longer than a chunk, and runs of texts over several chunks",
         [](Both& both) {
             // The url of each is 8 units long: the second fills the first chunk exactly.
             for (const std::size_t length :
                  {std::size_t{100}, TextArena::kChunkUnits - 108, std::size_t{30},
                   TextArena::kChunkUnits * 2 + 5, std::size_t{0}, TextArena::kChunkUnits}) {
                 both.Add(length, u'x');
                 both.Add(FilterEntryView{{}, {}, NewGuid()});
                 for (std::size_t i = 0; i < 70; ++i) {
                     both.Add(1000, static_cast<char16_t>(u'A' + i % 26));
                 }
             }
         }},
        {"entries made of the sequence's own texts, new and replacing",
         [](Both& both) {
             for (std::size_t i = 0; i < 40; ++i) {
                 both.Add(i * 50, static_cast<char16_t>(u'a' + i % 26));
             }
             for (std::size_t i = 0; i < 200; ++i) {
                 const FilterEntryView from = both.sequence[(i * 7) % both.sequence.size()];
                 const Guid id = i % 2 == 0 ? NewGuid() : both.sequence[i % 13].id;
                 both.Add(FilterEntryView{from.url, from.name, id});
             }
         }},
        {"entries with fresh ids between entries added by id, then every other one replaced",
         [](Both& both) {
             for (std::size_t i = 0; i < 300; ++i) {
                 i % 3 == 0 ? both.Add(3, u'a') : both.AddFresh(FilterEntry(u"f", u"http://f"));
             }
             for (std::size_t i = 0; i < both.literal.size(); i += 2) {
                 FilterEntry entry = both.literal[i];
                 entry.name = u"R";
                 both.Add(entry);
             }
         }},
        {"a copy, and a list taken over by a policy that grows after",
         [](Both& both) {
             for (std::size_t i = 0; i < 500; ++i) {
                 both.Add(20, u'c');
             }
             const FilterEntrySequence copy = both.sequence;
             const std::vector<FilterEntry> copied = both.literal;
             both.Add(FilterEntryView{u"changed", u"", both.literal[3].id});
             WebFilterPolicy policy;
             FilterList list;
             list.mainEntries = both.sequence;
             const Guid key = list.id;
             policy.AddList(std::move(list));
             both.sequence = std::move(policy.lists.at(key).mainEntries);
             both.Add(FilterEntryView{u"again", u"", both.literal[499].id});
             both.Add(5, u'n');
             ExpectSame(copy, copied, "the copy");
         }},
    };
    for (const auto& c : cases) {
        Both both;
        c.steps(both);
        ExpectSame(both.sequence, both.literal, c.what);
    }
}

}  // namespace
}  // namespace sentrel
