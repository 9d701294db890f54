// The order of a view's rows: one sort rule per column, chosen by the column's key and
// type, applied in the same way to the sorted rows and to the changed rows.
//
// Each rule reads a key from every row once, into a list of key and row, and sorts that
// list: the compare allocates nothing and reads no cell, but for the second key of two
// texts that tie. The order is the one the rule gives on the rows themselves, since the
// sort sees the same answers.
#include <algorithm>
#include <climits>
#include <cstdlib>
#include <functional>
#include <utility>
#include <vector>

#include "frame/KVTException.h"
#include "views/RMCell.h"
#include "views/RMView.h"

namespace {

enum class ESortRule {
  None,         // the rows stay as they are
  DigitValue,   // the digits of the text, as a signed number
  Unsigned,     // the cell's DWORD
  Signed,       // the cell's int
  IntAsDouble,  // the cell's int widened to double; a double cell gives 0
  Text,         // the text without regard to case, then the second key
  Time,         // the cell's race time
  Transponder,  // numbers when both texts start with one, else the texts
};

ESortRule RuleOf(const CColumn& column) {
  if (column.Key == "lgHeader_No" || column.Key == "lgHeader_ShortNr" || column.Key == "lgHeader_Points") {
    return ESortRule::DigitValue;
  }
  switch (column.Type) {
    case kColumnDWord:
    case kColumnDate:
    case kColumnDateTime:
      return ESortRule::Unsigned;
    case kColumnInteger:
      return ESortRule::Signed;
    case kColumnDouble:
      return ESortRule::IntAsDouble;
    case kColumnString:
      return ESortRule::Text;
    case kColumnKVTTime:
      return ESortRule::Time;
    case kColumnTransponder:
      return ESortRule::Transponder;
    default:
      // A gap column keeps its order on purpose; a type without a cell class has none.
      return ESortRule::None;
  }
}

unsigned char LowerByte(unsigned char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<unsigned char>(c + ('a' - 'A')) : c;
}

// Compares two texts byte by byte with the letters A to Z taken as lower case.
int CompareNoCase(const char* a, const char* b) {
  for (;; ++a, ++b) {
    if (*a == *b) {
      if (*a == '\0') return 0;
      continue;
    }
    const int left = LowerByte(static_cast<unsigned char>(*a));
    const int right = LowerByte(static_cast<unsigned char>(*b));
    if (left != right || left == 0) return left - right;
  }
}

// The characters '0' to '9' of the text joined and read as a decimal number; signs and
// points are dropped, so "1:23.4" gives 1234 and a text without digits 0. A run of
// digits beyond the range of an int gives the largest int.
int DigitValue(const char* text) {
  long long value = 0;
  for (; *text != '\0'; ++text) {
    if (*text < '0' || *text > '9') continue;
    if (value <= INT_MAX) value = value * 10 + (*text - '0');
  }
  return value > INT_MAX ? INT_MAX : static_cast<int>(value);
}

const char* TextOf(const CRMViewRow* row, int index) { return row->TextAt(static_cast<DWORD>(index)); }

template <class T>
int CompareValues(T a, T b) {
  return (b < a) - (a < b);
}

// How a rule's compare behaves on the keys at hand.
enum class EOrder {
  Strict,     // a strict weak order: the standard sort may be used
  MaybeNone,  // perhaps no order at all: only a heap sort stays within the list
};

// What each rule reads from a row, and how two such keys compare.
struct DigitKey {
  int Value;
  static DigitKey Of(const CRMViewRow* row, int index) { return {DigitValue(TextOf(row, index))}; }
  static int Compare(const DigitKey& a, const DigitKey& b) { return CompareValues(a.Value, b.Value); }
};

struct UnsignedKey {
  DWORD Value;
  static UnsignedKey Of(const CRMViewRow* row, int index) {
    const CRMCell* cell = row->CellGetAt(static_cast<DWORD>(index));
    return {cell != nullptr ? static_cast<DWORD>(*cell) : 0u};
  }
  static int Compare(const UnsignedKey& a, const UnsignedKey& b) { return CompareValues(a.Value, b.Value); }
};

struct SignedKey {
  int Value;
  static SignedKey Of(const CRMViewRow* row, int index) {
    const CRMCell* cell = row->CellGetAt(static_cast<DWORD>(index));
    return {cell != nullptr ? static_cast<int>(*cell) : 0};
  }
  static int Compare(const SignedKey& a, const SignedKey& b) { return CompareValues(a.Value, b.Value); }
};

struct DoubleKey {
  double Value;
  static DoubleKey Of(const CRMViewRow* row, int index) {
    const CRMCell* cell = row->CellGetAt(static_cast<DWORD>(index));
    return {static_cast<double>(cell != nullptr ? static_cast<int>(*cell) : 0)};
  }
  static int Compare(const DoubleKey& a, const DoubleKey& b) { return CompareValues(a.Value, b.Value); }
};

struct TimeKey {
  KVTTIME Value;
  static TimeKey Of(const CRMViewRow* row, int index) {
    const CRMCell* cell = row->CellGetAt(static_cast<DWORD>(index));
    return {cell != nullptr ? static_cast<KVTTIME>(*cell) : KVTTIME{0}};
  }
  static int Compare(const TimeKey& a, const TimeKey& b) { return CompareValues(a.Value, b.Value); }
};

// The text, and where the second key is read when two texts tie.
struct TextKey {
  const char* Text;
  const CRMViewRow* Row;
  int SecondIndex;  // -1: no second key
  static int Compare(const TextKey& a, const TextKey& b) {
    const int first = CompareNoCase(a.Text, b.Text);
    if (first != 0 || a.SecondIndex < 0) return first;
    return CompareValues(DigitValue(TextOf(a.Row, a.SecondIndex)), DigitValue(TextOf(b.Row, b.SecondIndex)));
  }
};

struct TransponderKey {
  long Number;
  const char* Text;
  static TransponderKey Of(const CRMViewRow* row, int index) {
    const char* text = TextOf(row, index);
    return {std::atol(text), text};
  }
  static int Compare(const TransponderKey& a, const TransponderKey& b) {
    if (a.Number != 0 && b.Number != 0) return CompareValues(a.Number, b.Number);
    return CompareNoCase(a.Text, b.Text);
  }
};

template <class Key>
using Entries = std::vector<std::pair<Key, CRMViewRow*>>;

// All rules but the transponder rule compare in a strict weak order.
template <class Key>
EOrder OrderOf(const Entries<Key>&) {
  return EOrder::Strict;
}

// Numbers among themselves and texts among themselves are in order; numbers against
// texts need not be ("9" < " 10" as numbers, " 10" < "!" and "!" < "9" as texts).
EOrder OrderOf(const Entries<TransponderKey>& entries) {
  const bool numbers = !entries.empty() && entries.front().first.Number != 0;
  for (const auto& entry : entries) {
    if ((entry.first.Number != 0) != numbers) return EOrder::MaybeNone;
  }
  return EOrder::Strict;
}

// Whether a whole list is sorted with a heap sort rather than the standard sort.
template <class Key>
constexpr bool kHeapSorted = false;
template <>
constexpr bool kHeapSorted<TransponderKey> = true;

// Lists up to this size are always sorted whole.
constexpr std::size_t kShortList = 32;

// Sorts the entries and writes their rows back in the new order. Ascending: the lower
// value first, and of two equal values the row at the lower address. Descending: the
// greater value first, and of two equal values neither, which leaves them where the
// sort puts them.
//
// Between two messages only the changed rows move, so a long list whose keys are in a
// strict order is sorted by merging: the changed rows and any row out of order are
// taken out, sorted, and put back into the rows that stay in order. Where every row has
// a place of its own, which is always so in ascending order (ties go by address) and in
// descending order when no two values are equal, that is the one order there is, and
// any sort gives it. A descending list with equal values, or one that is far from
// sorted, is sorted whole: by the standard sort, or by a heap sort for the rule that
// may be no order at all.
template <class Key>
void SortEntries(std::vector<CRMViewRow*>& rows, Entries<Key>& entries, BOOL ascending, EOrder order,
                 const std::vector<CRMViewRow*>& changedRows) {
  using Entry = std::pair<Key, CRMViewRow*>;
  auto first = [ascending](const Entry& a, const Entry& b) {
    const int compared = Key::Compare(a.first, b.first);
    if (ascending) return compared < 0 || (compared == 0 && std::less<const CRMViewRow*>()(a.second, b.second));
    return compared > 0;
  };
  auto writeBack = [&rows](const Entries<Key>& sorted) {
    for (std::size_t i = 0; i < sorted.size(); ++i) rows[i] = sorted[i].second;
  };
  if (order == EOrder::Strict && entries.size() > kShortList) {
    auto changed = [&changedRows](const CRMViewRow* row) {
      return std::find(changedRows.begin(), changedRows.end(), row) != changedRows.end();
    };
    const bool fewChanged = changedRows.size() <= kShortList;
    Entries<Key> kept;
    Entries<Key> moved;
    kept.reserve(entries.size());
    for (const Entry& entry : entries) {
      if ((fewChanged && changed(entry.second)) || (!kept.empty() && first(entry, kept.back()))) {
        moved.push_back(entry);
      } else {
        kept.push_back(entry);
      }
    }
    if (moved.size() <= entries.size() / 8) {
      std::sort(moved.begin(), moved.end(), first);
      // Each moved row goes behind the kept rows that do not go after it, found by a
      // binary search, so that the kept rows are not all compared once more.
      Entries<Key> merged;
      merged.reserve(entries.size());
      auto from = kept.begin();
      for (const Entry& entry : moved) {
        auto to = std::upper_bound(from, kept.end(), entry, first);
        merged.insert(merged.end(), from, to);
        merged.push_back(entry);
        from = to;
      }
      merged.insert(merged.end(), from, kept.end());
      bool distinct = true;
      if (!ascending) {
        for (std::size_t i = 1; i < merged.size() && distinct; ++i) {
          distinct = Key::Compare(merged[i - 1].first, merged[i].first) != 0;
        }
      }
      if (distinct) {
        writeBack(merged);
        return;
      }
    }
  }
  if constexpr (kHeapSorted<Key>) {
    // A heap sort stays within the list whatever the compare answers.
    std::make_heap(entries.begin(), entries.end(), first);
    std::sort_heap(entries.begin(), entries.end(), first);
  } else {
    std::sort(entries.begin(), entries.end(), first);
  }
  writeBack(entries);
}

template <class Key>
void SortByKey(std::vector<CRMViewRow*>& rows, int index, BOOL ascending, const std::vector<CRMViewRow*>& changedRows) {
  Entries<Key> entries;
  entries.reserve(rows.size());
  for (CRMViewRow* row : rows) entries.emplace_back(Key::Of(row, index), row);
  SortEntries(rows, entries, ascending, OrderOf(entries), changedRows);
}

void SortByText(std::vector<CRMViewRow*>& rows, int index, int secondIndex, BOOL ascending,
                const std::vector<CRMViewRow*>& changedRows) {
  Entries<TextKey> entries;
  entries.reserve(rows.size());
  for (CRMViewRow* row : rows) entries.emplace_back(TextKey{TextOf(row, index), row, secondIndex}, row);
  SortEntries(rows, entries, ascending, EOrder::Strict, changedRows);
}

struct SortPlan {
  ESortRule Rule = ESortRule::None;
  int Index = -1;
  int SecondIndex = -1;
  BOOL Ascending = TRUE;
};

// The changed rows are the rows that may have moved since the last sort.
void SortRows(std::vector<CRMViewRow*>& rows, const SortPlan& plan, const std::vector<CRMViewRow*>& changedRows) {
  if (rows.size() < 2) return;
  switch (plan.Rule) {
    case ESortRule::None:
      return;
    case ESortRule::DigitValue:
      return SortByKey<DigitKey>(rows, plan.Index, plan.Ascending, changedRows);
    case ESortRule::Unsigned:
      return SortByKey<UnsignedKey>(rows, plan.Index, plan.Ascending, changedRows);
    case ESortRule::Signed:
      return SortByKey<SignedKey>(rows, plan.Index, plan.Ascending, changedRows);
    case ESortRule::IntAsDouble:
      return SortByKey<DoubleKey>(rows, plan.Index, plan.Ascending, changedRows);
    case ESortRule::Text:
      return SortByText(rows, plan.Index, plan.SecondIndex, plan.Ascending, changedRows);
    case ESortRule::Time:
      return SortByKey<TimeKey>(rows, plan.Index, plan.Ascending, changedRows);
    case ESortRule::Transponder:
      // Numbers against texts is no consistent order, which the standard sort may
      // answer by stepping past the ends of the list: this rule sorts with a heap sort.
      return SortByKey<TransponderKey>(rows, plan.Index, plan.Ascending, changedRows);
  }
}

}  // namespace

void CRMView::Sort() {
  Guarded("CRMView::Sort()", [&] {
    if (SortColumnIndex == -1) return;
    const CColumn* column = ColumnGetAt(static_cast<DWORD>(SortColumnIndex));
    if (column == nullptr) return;  // the columns went with a Clear
    SortPlan plan;
    plan.Rule = RuleOf(*column);
    if (plan.Rule == ESortRule::None) return;
    plan.Index = SortColumnIndex;
    plan.Ascending = Ascending;
    if (plan.Rule == ESortRule::Text) {
      // Looked up at every sort, so that it is found even when the structure came after
      // the sort column was set.
      const bool results = Name == "lgView_Results" || Name == "lgView_MergeResults";
      plan.SecondIndex = ColumnFind(results ? "lgHeader_Pos" : "lgHeader_No");
    }
    SortRows(SortedRows, plan, ChangedRows);
    SortRows(ChangedRows, plan, ChangedRows);
  });
}
