#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "policy/guid.h"

namespace sentrel {

enum FilterListType : std::int32_t {
    FilterListWhite = 0,
    FilterListBlack = 1,
};

struct FilterEntry {
    std::u16string name;
    std::u16string url;  // as written in the policy: no trimming or case folding here
    Guid id;

    // Every construction draws a fresh random id.
    explicit FilterEntry(std::u16string entryName = {}, std::u16string entryUrl = {});

    void Clear();
};

// The entries of one list side, in insertion order, with entry ids unique in the sequence.
// Adding an entry whose id is already present overwrites that entry in place; an index of the
// ids keeps that check from scanning the whole sequence, so large lists load in linear time.
class FilterEntrySequence {
  public:
    using const_iterator = std::vector<FilterEntry>::const_iterator;

    void Add(const FilterEntry& entry);
    void Clear();

    std::size_t size() const { return entries_.size(); }
    bool empty() const { return entries_.empty(); }
    const FilterEntry& operator[](std::size_t index) const { return entries_[index]; }
    const_iterator begin() const { return entries_.begin(); }
    const_iterator end() const { return entries_.end(); }

  private:
    std::vector<FilterEntry> entries_;
    std::unordered_map<Guid, std::size_t, GuidHash> positions_;
};

struct FilterList {
    FilterListType type = FilterListWhite;
    std::u16string name;
    Guid id;
    FilterEntrySequence mainEntries;
    FilterEntrySequence exceptionEntries;

    // A white list with the given name and a fresh random id.
    explicit FilterList(std::u16string listName = {});

    void AddEntry(const FilterEntry& entry) { mainEntries.Add(entry); }
    void AddException(const FilterEntry& entry) { exceptionEntries.Add(entry); }
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
    // The same, taking the list over rather than copying it.
    void AddList(FilterList&& list);
};

}  // namespace sentrel
