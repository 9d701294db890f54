// A view of 500 rows under a seeded stream of add, modify and remove messages, with group
// rows and the filter on and off, checked after every message against a plain model of
// the view's rules written here: the sorted rows, the row map and what each observer was
// told must agree.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "testing/ViewTestSupport.h"
#include "views/RMView.h"

namespace {

// Columns of the view, by index.
constexpr int kLaps = 0;
constexpr int kName = 1;
constexpr int kNumber = 2;
constexpr int kPosition = 3;
constexpr int kClass = 4;

std::vector<CColumn> PropertyColumns() {
  return {MakeColumn(kColumnInteger, "lgHeader_Laps"), MakeColumn(kColumnString, "lgHeader_Name"),
          MakeColumn(kColumnString, "lgHeader_No"), MakeColumn(kColumnDWord, "lgHeader_Pos"),
          MakeColumn(kColumnString, "lgHeader_Class")};
}

// Texts that tie without regard to case, and classes that the filter values meet in
// whole, in part and not at all.
const std::vector<std::string> kNames = {"anna", "Anna", "ANNA", "bob", "Bob", "carl", "dora", "Dora x", "anna b"};
const std::vector<std::string> kClasses = {"Open", "open", "Open Class", "Junior", "Senior", ""};
const std::vector<std::string> kFilterColumns = {"lgHeader_Class", "lgHeader_Missing", "lgHeader_Name"};
const std::vector<std::string> kFilterValues = {"Open", "zzz", "anna"};

struct ModelRow {
  DWORD Group = 0;
  int Laps = 0;
  std::string Name;
  std::string FoldedName;
  std::string Number;
  int NumberDigits = 0;
  DWORD Position = 0;
  std::string Class;
};

struct Config {
  const char* SortKey;  // empty: no sort column
  BOOL Ascending;
  BOOL Grouped;
  BOOL Filtered;  // a private view with the filter on
  EFilterMode Mode;
  BOOL Contains;
  unsigned Seed;
};

std::string Upper(const std::string& text) {
  std::string upper = text;
  for (char& c : upper) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  return upper;
}

int Digits(const std::string& text) {
  std::string digits;
  for (char c : text) {
    if (c >= '0' && c <= '9') digits += c;
  }
  return digits.empty() ? 0 : std::stoi(digits);
}

// The text with the letters A to Z in lower case.
std::string Folded(const std::string& text) {
  std::string folded = text;
  for (char& c : folded) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return folded;
}

// Row IDs as the logging observer writes them: group rows as "g".
std::string Join(const std::vector<DWORD>& ids) {
  std::string text;
  for (DWORD id : ids) {
    if (!text.empty()) text += ",";
    text += id == kNoRowID ? std::string("g") : std::to_string(id);
  }
  return text;
}

// The view's rules, applied to row IDs. Row addresses, which break ties, are read from
// the view's row map; everything else is the model's own. Group rows are kNoRowID.
class CViewModel {
 public:
  CViewModel(const Config& config, const CRMView& view) : Cfg(config), View(view) {
    const std::string key = config.SortKey;
    By = key.empty()              ? ESortBy::Nothing
         : key == "lgHeader_Laps" ? ESortBy::Laps
         : key == "lgHeader_Pos"  ? ESortBy::Position
                                  : ESortBy::Name;
  }

  // One message of `type` with the given groups and rows; gives the lines the two
  // observers "a" and "b" must have written.
  std::vector<std::string> Apply(int type, const std::set<DWORD>& groups, const std::vector<ViewRowValues>& message) {
    std::vector<std::string> lines;
    Tell(lines, ":before:" + std::to_string(type));
    GroupNames = groups;
    std::vector<DWORD> changed;
    if (type == kNotifyAllRows || type == kNotifyRowsAdded) {
      for (const ViewRowValues& row : message) {
        Rows[row.RowID] = FromValues(row);
        Order.push_back(row.RowID);
        changed.push_back(row.RowID);
      }
    } else if (type == kNotifyRowsChanged) {
      for (const ViewRowValues& row : message) {
        if (Rows.count(row.RowID) == 0) continue;
        Rows[row.RowID] = FromValues(row);
        changed.push_back(row.RowID);
      }
    } else {
      for (const ViewRowValues& row : message) {
        if (Rows.count(row.RowID) == 0) continue;
        Rows.erase(row.RowID);
        auto shown = std::find(Order.begin(), Order.end(), row.RowID);
        if (shown != Order.end()) Order.erase(shown);
        Removed.push_back(row.RowID);
      }
    }
    if (type != kNotifyRowsRemoved) {
      SortIDs(Order);
      SortIDs(changed);
      Filter(changed);
    }
    UpdateGroups(changed);

    const std::string sorted = Join(Sorted);
    auto data = [&](int dataType, const std::vector<DWORD>& changedNow) {
      Tell(lines, ":data:" + std::to_string(dataType) + ":changed=" + Join(changedNow) + ":removed=" + Join(Removed) +
                      ":sorted=" + sorted);
    };
    if (type == kNotifyAllRows || type == kNotifyRowsAdded) {
      data(type, changed);
    } else {
      if (!changed.empty()) data(kNotifyRowsChanged, changed);
      if (!Removed.empty()) {
        data(kNotifyRowsRemoved, {});
        Removed.clear();
      }
    }
    return lines;
  }

  std::map<DWORD, ModelRow> Rows;
  std::vector<DWORD> Sorted;
  std::vector<DWORD> Removed;
  std::size_t GroupRows = 0;

 private:
  enum class ESortBy { Nothing, Laps, Position, Name };

  static void Tell(std::vector<std::string>& lines, const std::string& line) {
    lines.push_back("a" + line);
    lines.push_back("b" + line);
  }

  static ModelRow FromValues(const ViewRowValues& row) {
    ModelRow model;
    model.Group = row.GroupID;
    model.Laps = row.Cells[kLaps].Integer;
    model.Name = row.Cells[kName].Text;
    model.FoldedName = Folded(model.Name);
    model.Number = row.Cells[kNumber].Text;
    model.NumberDigits = Digits(model.Number);
    model.Position = row.Cells[kPosition].Dword;
    model.Class = row.Cells[kClass].Text;
    return model;
  }

  const CRMViewRow* Address(DWORD id) const { return View.GetRowMap().at(id); }

  // The sort key compare of the configured column: below zero when a goes first by value.
  int CompareValues(const ModelRow& left, const ModelRow& right) const {
    switch (By) {
      case ESortBy::Laps:
        return (left.Laps > right.Laps) - (left.Laps < right.Laps);
      case ESortBy::Position:
        return (left.Position > right.Position) - (left.Position < right.Position);
      default:
        break;
    }
    const int text = left.FoldedName.compare(right.FoldedName);
    if (text != 0) return text;
    return (left.NumberDigits > right.NumberDigits) - (left.NumberDigits < right.NumberDigits);
  }

  void SortIDs(std::vector<DWORD>& ids) const {
    if (By == ESortBy::Nothing) return;
    struct Entry {
      DWORD ID;
      const ModelRow* Row;
      const CRMViewRow* Address;
    };
    std::vector<Entry> entries;
    for (DWORD id : ids) entries.push_back({id, &Rows.at(id), Address(id)});
    // The configurations give a strict order: ascending with ties by address, or
    // descending on a column whose values are all different.
    std::sort(entries.begin(), entries.end(), [&](const Entry& a, const Entry& b) {
      const int order = CompareValues(*a.Row, *b.Row);
      if (!Cfg.Ascending) return order > 0;
      if (order != 0) return order < 0;
      return std::less<const CRMViewRow*>()(a.Address, b.Address);
    });
    for (std::size_t i = 0; i < ids.size(); ++i) ids[i] = entries[i].ID;
  }

  bool Hidden(const ModelRow& row) const {
    const std::vector<std::pair<std::string, std::string>> pairs = {{row.Class, kFilterValues[0]},
                                                                    {row.Name, kFilterValues[2]}};
    auto equal = [](const auto& p) { return p.first == p.second; };
    auto found = [](const auto& p) { return Upper(p.first).find(Upper(p.second)) != std::string::npos; };
    switch (Cfg.Mode) {
      case EFilterMode::ShowOnlyMatchingAll:
        return !std::all_of(pairs.begin(), pairs.end(), equal);
      case EFilterMode::ShowIfAnyMatches:
        return Cfg.Contains ? std::none_of(pairs.begin(), pairs.end(), found)
                            : std::none_of(pairs.begin(), pairs.end(), equal);
      case EFilterMode::ShowIfAnyDiffers:
        return Cfg.Contains ? std::all_of(pairs.begin(), pairs.end(), found)
                            : std::all_of(pairs.begin(), pairs.end(), equal);
      case EFilterMode::HideIfAnyMatches:
        return std::any_of(pairs.begin(), pairs.end(), equal);
    }
    return false;
  }

  void Filter(const std::vector<DWORD>& changed) {
    if (!Cfg.Filtered) return;
    for (DWORD id : changed) {
      const bool hidden = Hidden(Rows.at(id));
      auto shown = std::find(Order.begin(), Order.end(), id);
      if (!hidden && shown == Order.end()) Order.push_back(id);
      if (hidden && shown != Order.end()) Order.erase(shown);
    }
  }

  void UpdateGroups(std::vector<DWORD>& changed) {
    Sorted.clear();
    if (!Cfg.Grouped || GroupNames.empty()) {
      Sorted = Order;
      return;
    }
    const std::size_t wanted = 2 * GroupNames.size();
    while (GroupRows > wanted) {
      --GroupRows;
      Removed.push_back(kNoRowID);
    }
    GroupRows = wanted;
    changed.insert(changed.end(), GroupRows, kNoRowID);
    std::size_t used = 0;
    bool first = true;
    DWORD last = 0;
    for (DWORD id : Order) {
      const DWORD group = Rows.at(id).Group;
      if (first || group != last) {
        first = false;
        last = group;
        for (int i = 0; i < 2 && GroupNames.count(group) != 0 && used < GroupRows; ++i, ++used) {
          Sorted.push_back(kNoRowID);
        }
      }
      Sorted.push_back(id);
    }
  }

  const Config& Cfg;
  const CRMView& View;
  ESortBy By = ESortBy::Nothing;
  std::vector<DWORD> Order;
  std::set<DWORD> GroupNames;
};

// Makes the messages: rows with random values, groups named at random.
class CMessageMaker {
 public:
  explicit CMessageMaker(unsigned seed) : Random(seed) {}

  std::size_t Below(std::size_t n) { return std::uniform_int_distribution<std::size_t>(0, n - 1)(Random); }

  ViewRowValues Row(DWORD id) {
    ViewRowValues row;
    row.RowID = id;
    row.GroupID = static_cast<DWORD>(1 + Below(7));  // group 7 is never named
    row.Cells.resize(5);
    row.Cells[kLaps].Integer = static_cast<int>(Below(16));
    row.Cells[kName].Text = kNames[Below(kNames.size())];
    row.Cells[kNumber].Text = (Below(2) == 0 ? "#" : "") + std::to_string(Below(30));
    row.Cells[kPosition].Dword = ++PositionCounter;  // every position written is new
    row.Cells[kClass].Text = kClasses[Below(kClasses.size())];
    return row;
  }

  std::set<DWORD> Groups() {
    std::set<DWORD> groups;
    if (Below(5) == 0) return groups;
    for (DWORD id = 1; id <= 6; ++id) {
      if (Below(3) != 0) groups.insert(id);
    }
    return groups;
  }

  std::mt19937 Random;
  DWORD PositionCounter = 0;
};

ViewRowBlock MakeBlock(const std::set<DWORD>& groups, const std::vector<ViewRowValues>& rows) {
  ViewRowBlock block;
  for (DWORD id : groups) block.Groups[id] = "Group " + std::to_string(id);
  block.Rows = rows;
  return block;
}

void CheckRow(const CRMViewRow& row, const ModelRow& model, DWORD id) {
  EXPECT_EQ(row.RowID, id);
  EXPECT_EQ(row.GroupID, model.Group) << id;
  EXPECT_EQ(std::string(row.TextAt(kLaps)), std::to_string(model.Laps)) << id;
  EXPECT_EQ(std::string(row.TextAt(kName)), model.Name) << id;
  EXPECT_EQ(std::string(row.TextAt(kNumber)), model.Number) << id;
  EXPECT_EQ(std::string(row.TextAt(kPosition)), std::to_string(model.Position)) << id;
  EXPECT_EQ(std::string(row.TextAt(kClass)), model.Class) << id;
}

void RunConfig(const Config& config, int messages) {
  SCOPED_TRACE(std::string("sort '") + config.SortKey + "' ascending " + std::to_string(config.Ascending) +
               " grouped " + std::to_string(config.Grouped) + " filtered " + std::to_string(config.Filtered) +
               " mode " + std::to_string(static_cast<int>(config.Mode)) + " contains " +
               std::to_string(config.Contains) + " seed " + std::to_string(config.Seed));
  CViewHarness harness("lgView_Test", config.Filtered, config.Grouped);
  CRMView& view = *harness.View;
  std::vector<std::string> log;
  CLoggingViewObserver a(&log, "a");
  CLoggingViewObserver b(&log, "b");
  if (config.SortKey[0] != '\0') view.SetSortColumn(config.SortKey, config.Ascending);
  if (config.Filtered) view.SetFilter(TRUE, config.Contains, config.Mode, kFilterColumns, kFilterValues);
  a.Attach(&view);
  b.Attach(&view);
  harness.Structure(PropertyColumns());
  log.clear();

  CViewModel model(config, view);
  CMessageMaker maker(config.Seed);
  DWORD nextID = 1;
  std::vector<DWORD> gone;

  auto check = [&](int step, const std::vector<std::string>& expected, bool everyRow) {
    SCOPED_TRACE("message " + std::to_string(step));
    ASSERT_EQ(log, expected);
    ASSERT_EQ(RowIDsOf(view.GetSortedRows()), model.Sorted);
    ASSERT_EQ(view.GetRowMap().size(), model.Rows.size());
    auto row = view.GetRowMap().begin();
    for (const auto& [id, values] : model.Rows) {
      ASSERT_EQ(row->first, id);
      if (everyRow) CheckRow(*row->second, values, id);
      ++row;
    }
    ASSERT_EQ(RowIDsOf(view.GetRemovedRows()), model.Removed);
    ASSERT_TRUE(view.GetChangedRows().empty());
    ASSERT_EQ(view.GetGroupRows().size(), model.GroupRows);
  };

  // All rows first.
  std::vector<ViewRowValues> first;
  for (int i = 0; i < 500; ++i) first.push_back(maker.Row(nextID++));
  const std::set<DWORD> firstGroups = maker.Groups();
  harness.AllRows(MakeBlock(firstGroups, first));
  check(0, model.Apply(kNotifyAllRows, firstGroups, first), true);
  log.clear();

  for (int step = 1; step <= messages; ++step) {
    // Known IDs in a random order, to pick from.
    std::vector<DWORD> known;
    for (const auto& entry : model.Rows) known.push_back(entry.first);
    std::shuffle(known.begin(), known.end(), maker.Random);

    std::size_t kind = maker.Below(10);
    if (model.Rows.size() > 540) kind = 9;
    if (model.Rows.size() < 460) kind = 5;
    std::vector<ViewRowValues> rows;
    const std::set<DWORD> groups = maker.Groups();
    int type = kNotifyRowsChanged;
    if (kind < 4) {
      const std::size_t count = 1 + maker.Below(5);
      for (std::size_t i = 0; i < count && i < known.size(); ++i) rows.push_back(maker.Row(known[i]));
      if (maker.Below(6) == 0) rows.insert(rows.begin() + maker.Below(rows.size() + 1), maker.Row(900000 + step));
      harness.ModifyRows(MakeBlock(groups, rows));
    } else if (kind < 7) {
      type = kNotifyRowsAdded;
      const std::size_t count = 1 + maker.Below(4);
      for (std::size_t i = 0; i < count; ++i) {
        // Now and then an ID that was removed comes back as a new row.
        DWORD id = nextID++;
        if (!gone.empty() && maker.Below(8) == 0) {
          id = gone.back();
          gone.pop_back();
        }
        rows.push_back(maker.Row(id));
      }
      harness.AddRows(MakeBlock(groups, rows));
    } else {
      type = kNotifyRowsRemoved;
      const std::size_t count = 1 + maker.Below(3);
      for (std::size_t i = 0; i < count && i < known.size(); ++i) {
        rows.push_back(maker.Row(known[i]));
        gone.push_back(known[i]);
      }
      if (maker.Below(6) == 0) rows.push_back(maker.Row(800000 + step));
      harness.RemoveRows(MakeBlock(groups, rows));
    }
    const std::vector<std::string> expected = model.Apply(type, groups, rows);
    check(step, expected, step % 50 == 0);
    if (::testing::Test::HasFatalFailure()) return;
    // The rows of this message, whatever the step.
    for (const ViewRowValues& row : rows) {
      auto found = model.Rows.find(row.RowID);
      if (found != model.Rows.end()) CheckRow(*view.GetRowMap().at(row.RowID), found->second, row.RowID);
    }
    log.clear();
  }
}

}  // namespace

TEST(RMViewProperty, RandomMessagesKeepTheViewInStepWithTheModel) {
  const Config configs[] = {
      {"lgHeader_Laps", TRUE, TRUE, FALSE, EFilterMode::ShowOnlyMatchingAll, FALSE, 11},
      {"lgHeader_Name", TRUE, FALSE, TRUE, EFilterMode::ShowOnlyMatchingAll, FALSE, 12},
      {"lgHeader_Pos", FALSE, TRUE, TRUE, EFilterMode::ShowIfAnyMatches, TRUE, 13},
      {"", TRUE, TRUE, TRUE, EFilterMode::ShowIfAnyDiffers, FALSE, 14},
      {"lgHeader_Laps", TRUE, TRUE, TRUE, EFilterMode::HideIfAnyMatches, TRUE, 15},
      {"lgHeader_Name", TRUE, TRUE, TRUE, EFilterMode::ShowIfAnyMatches, FALSE, 16},
      {"lgHeader_Pos", FALSE, FALSE, FALSE, EFilterMode::ShowOnlyMatchingAll, FALSE, 17},
      {"lgHeader_Name", TRUE, TRUE, TRUE, EFilterMode::ShowIfAnyDiffers, TRUE, 18},
  };
  for (const Config& config : configs) {
    RunConfig(config, 400);
    if (HasFatalFailure()) return;
  }
}
