#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "policy/chunked_vector.h"
#include "policy/guid.h"
#include "policy/text_arena.h"

namespace sentrel {

enum FilterListType : std::int32_t {
    FilterListWhite = 0,
    FilterListBlack = 1,
};

// An entry as a sequence holds it: its texts stay valid until the sequence changes.
struct FilterEntryView {
    std::u16string_view name;
    std::u16string_view url;
    Guid id;
};

struct FilterEntry {
    std::u16string name;
    std::u16string url;  // as written in the policy: no trimming or case folding here
    Guid id;

    // Every construction draws a fresh random id.
    explicit FilterEntry(std::u16string entryName = {}, std::u16string entryUrl = {});
    // A copy of a held entry, id included.
    explicit FilterEntry(const FilterEntryView& entry);

    operator FilterEntryView() const { return {name, url, id}; }
    void Clear();
};

// The entries of one list side, in insertion order, with entry ids unique in the sequence.
// Adding an entry whose id is already present overwrites that entry in place.
//
// Every manager object holds a policy, so entries are packed: a record per entry, and the
// entries' texts side by side in an arena. An open-addressing table of positions finds an entry
// by id, so that large lists load in linear time without a heap node per entry; it is made when
// entries are added and let go by ShrinkToFit, since a list held in a policy is read far more
// often than it grows. Growing copies neither records nor texts.
//
// The table keeps a byte of each id's hash apart from the positions: a probe for a new id, the
// common case while reading, reads only those bytes, which stay in the cache when the positions
// and records no longer do.
class FilterEntrySequence {
    struct Record {
        Guid id;
        std::uint32_t text;  // where the name starts in text_; the url follows it
        std::uint32_t nameLength;
        std::uint32_t urlLength;
    };

  public:
    class const_iterator {
      public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = FilterEntryView;
        using difference_type = std::ptrdiff_t;
        using pointer = void;
        using reference = FilterEntryView;

        const_iterator() = default;
        FilterEntryView operator*() const { return (*sequence_)[index_]; }
        const_iterator& operator++() {
            ++index_;
            return *this;
        }
        const_iterator operator++(int) {
            const const_iterator before = *this;
            ++index_;
            return before;
        }
        friend bool operator==(const const_iterator& a, const const_iterator& b) {
            return a.index_ == b.index_;
        }

      private:
        friend class FilterEntrySequence;
        const_iterator(const FilterEntrySequence* sequence, std::size_t index)
            : sequence_(sequence), index_(index) {}
        const FilterEntrySequence* sequence_ = nullptr;
        std::size_t index_ = 0;
    };

    void Add(const FilterEntryView& entry);
    // Adds an entry whose id NewGuid has just made, which no entry can hold: without a look-up,
    // which on a large list misses the cache once per entry.
    void AddWithFreshId(const FilterEntryView& entry);
    void Clear();
    // Gives back the room that growing and replacing left unused, and the id table.
    void ShrinkToFit();

    std::size_t size() const { return records_.size(); }
    bool empty() const { return records_.empty(); }
    FilterEntryView operator[](std::size_t index) const { return ViewOf(records_[index]); }
    const_iterator begin() const { return {this, 0}; }
    const_iterator end() const { return {this, records_.size()}; }

  private:
    FilterEntryView ViewOf(const Record& record) const {
        const char16_t* name = text_.At(record.text);
        return {{name, record.nameLength}, {name + record.nameLength, record.urlLength}, record.id};
    }
    // Puts the entry after the others, its texts in the arena.
    void Append(const FilterEntryView& entry);
    // The table's slot of the entry with the id, or the empty slot where it belongs.
    std::size_t SlotOf(const Guid& id, std::uint64_t hash) const;
    // Grows the table, or makes it again after ShrinkToFit, so that one more entry fits.
    void MakeRoomForOneMore();
    // Moves the texts into a new arena without those of replaced entries.
    void DropUnusedText();

    ChunkedVector<Record> records_;
    TextArena text_;
    // Units of text_ that replaced entries left behind.
    std::size_t unusedText_ = 0;
    // Per slot: zero when empty, else a byte of the id's hash with its top bit set; and the
    // entry's position.
    std::vector<std::uint8_t> tags_;
    std::vector<std::uint32_t> positions_;
};

struct FilterList {
    FilterListType type = FilterListWhite;
    std::u16string name;
    Guid id;
    FilterEntrySequence mainEntries;
    FilterEntrySequence exceptionEntries;

    // A white list with the given name and a fresh random id.
    explicit FilterList(std::u16string listName = {});

    void AddEntry(const FilterEntryView& entry) { mainEntries.Add(entry); }
    void AddException(const FilterEntryView& entry) { exceptionEntries.Add(entry); }
    // Empties name, id and both sequences; the type stays.
    void Clear();
};

// Lists keyed by id, ordered by the ids' in-memory bytes.
using FilterListMap = std::map<Guid, FilterList>;

struct WebFilterPolicy {
    FilterListMap lists;
    std::uint32_t version = 1;
    std::uint32_t refreshMode = 0;

    std::uint32_t GetRefreshMode() const { return refreshMode; }
    void SetRefreshMode(std::uint32_t value) { refreshMode = value; }

    // Stores a copy of the list under its id, replacing a list with the same id wholly; a list
    // without an id (all-zero) is stored under a fresh one, which becomes its id.
    void AddList(const FilterList& list);
    // The same, taking the list over rather than copying it; its sequences give back the room
    // they kept for growing.
    void AddList(FilterList&& list);
};

}  // namespace sentrel
