// Live pages under a stream of row changes: a results view of 2,000 rows read by ten
// pages of one site, one table of eight columns each. An iteration is a burst of one-row
// modify messages and then the site's one-second tick, which writes the pages that are
// due and builds their packets; the counter is changes per second of message-thread time.
// With a burst of 1,000 an iteration is one second of traffic at 1,000 changes a second,
// so a counter above 1,000/s means the message thread keeps up with that rate.
// The baseline feeds the same messages to the same view with a reader that only counts,
// so the ratio is what the pages add to decoding and sorting. The variant that ticks
// after every message shows what writing the pages at every change would cost.
#include <benchmark/benchmark.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "bench/BenchPackage.h"
#include "data/DataEncoder.h"
#include "data/DataTestSupport.h"
#include "data/Event.h"
#include "data/Run.h"
#include "frame/Package.h"
#include "site/ZOLServerPage.h"
#include "site/ZOLServerSite.h"
#include "site/ZOLServerTable.h"
#include "views/RMCell.h"
#include "views/RMView.h"
#include "views/ViewEncoder.h"

namespace {

namespace fs = std::filesystem;

constexpr int kRows = 2000;
constexpr int kPages = 10;
constexpr DWORD kEvent = 0x80000001;
constexpr DWORD kRun = 0x40000001;

// The view's columns and the table columns that show them, in the same order.
struct ColumnPair {
  BYTE Type;
  const char* Key;
  const char* TableColumn;
};
constexpr ColumnPair kColumns[] = {
    {kColumnDWord, "lgHeader_Pos", "position"},      {kColumnString, "lgHeader_No", "no"},
    {kColumnString, "lgHeader_Name", "name"},        {kColumnString, "lgHeader_Class", "class"},
    {kColumnInteger, "lgHeader_Laps", "laps"},       {kColumnKVTTime, "lgHeader_TotalTm", "totaltime"},
    {kColumnKVTDiff, "lgHeader_Gap", "gap"},         {kColumnKVTTime, "lgHeader_BestTm", "besttime"},
};

const char* const kNames[] = {"Ann Berger", "Tomas Keel", "Mira Olsen", "Joost Vermeer", "Lena Fisk",
                              "Omar Said",  "Ruth Kamp",  "Ivo Marek",  "Sara Lind",     "Paul Okafor"};

std::vector<CColumn> ViewColumns() {
  std::vector<CColumn> columns;
  for (const ColumnPair& pair : kColumns) {
    CColumn column;
    column.Type = pair.Type;
    column.Key = pair.Key;
    column.Title = pair.TableColumn;
    columns.push_back(column);
  }
  return columns;
}

ViewRowValues ResultRow(DWORD id, DWORD position) {
  ViewRowValues row;
  row.RowID = id;
  row.Cells.resize(std::size(kColumns));
  row.Cells[0].Dword = position;
  row.Cells[1].Text = std::to_string(id + 1);
  row.Cells[2].Text = std::string(kNames[id % 10]) + " " + std::to_string(id);
  row.Cells[3].Text = "Class " + std::string(1, static_cast<char>('A' + id % 5));
  row.Cells[4].Integer = 40 - static_cast<int>(position / 100);
  row.Cells[5].Time = 3600000000LL + static_cast<KVTTIME>(position) * 250000;
  row.Cells[6].Time = static_cast<KVTTIME>(position) * 250000;
  row.Cells[7].Time = 61000000LL + static_cast<KVTTIME>(id % 700) * 1000;
  return row;
}

// Ten templates with one results table of the eight columns each, all reached from
// index.zol; written once into a temporary folder.
class LiveSiteFolder {
 public:
  LiveSiteFolder() {
    std::mt19937 random(20261125);
    do {
      Folder = fs::temp_directory_path() / ("zolbench-live-" + std::to_string(random() & 0xFFFFFF));
    } while (!fs::create_directory(Folder));
    std::string index = "<zol version=\"1\" id=\"index\">\n";
    for (int page = 0; page < kPages; ++page) {
      index += "<zol_include file=\"standings" + std::to_string(page) + ".zol\" path=\"live/\"/>\n";
      Write("live/standings" + std::to_string(page) + ".zol", TableTemplate(page));
    }
    Write("index.zol", index + "</zol>\n");
  }
  LiveSiteFolder(const LiveSiteFolder&) = delete;
  LiveSiteFolder& operator=(const LiveSiteFolder&) = delete;
  ~LiveSiteFolder() {
    std::error_code error;
    fs::remove_all(Folder, error);
  }
  std::string Root() const { return Folder.string() + "/"; }

 private:
  void Write(const std::string& relative, const std::string& contents) const {
    const fs::path path = Folder / relative;
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << contents;
  }

  static std::string TableTemplate(int page) {
    std::string text = "<zol version=\"1\" id=\"standings" + std::to_string(page) +
                       "\">\n<table class=\"results\">\n<zol_table type=\"results\">\n";
    for (const ColumnPair& pair : kColumns) text += std::string("<zol_rh type=\"") + pair.TableColumn + "\"/>\n";
    text += "<zol_rr><tr>";
    for (std::size_t c = 0; c < std::size(kColumns); ++c) text += "<td><zol_rd>-</zol_rd></td>";
    return text + "</tr></zol_rr>\n</zol_table>\n</table>\n</zol>\n";
  }

  fs::path Folder;
};

const LiveSiteFolder& Folder() {
  static const LiveSiteFolder folder;
  return folder;
}

// A link that holds an event and its active race, and a view of 2,000 rows.
struct LiveData {
  LiveData() : columns(ViewColumns()), types(ViewEncoder::ColumnTypes(columns)) {
    CBaseDataComm model;
    auto* event = new Cevent(nullptr);
    event->UniqueID = kEvent;
    event->Name = "Endurance";
    model.Events[kEvent] = event;
    auto* run = new CRun(nullptr);
    run->UniqueID = kRun;
    run->EventID = kEvent;
    run->Name = "Race";
    run->RunType = 2;
    run->Flags = kRunLocal | kRunActive;
    model.Runs[kRun] = run;
    link.Apply(DataEncoder::Snapshot(model));
  }

  // The view that the data manager answers: structure and all rows, row i at position
  // i + 1.
  void Answer(DWORD viewID) {
    link.Apply(ViewEncoder::ViewStructure(viewID, columns));
    ViewRowBlock block;
    for (int i = 0; i < kRows; ++i) block.Rows.push_back(ResultRow(static_cast<DWORD>(i), static_cast<DWORD>(i + 1)));
    link.Apply(ViewEncoder::AllRows(viewID, types, block));
  }

  // One-row changes: the row at the middle goes to the top and back, again and again.
  std::vector<std::unique_ptr<CModuleMessage>> Changes(DWORD viewID) const {
    std::vector<std::unique_ptr<CModuleMessage>> moves;
    const DWORD id = kRows / 2;
    for (DWORD position : {DWORD{0}, id + 1}) {
      ViewRowBlock block;
      block.Rows.push_back(ResultRow(id, position));
      moves.emplace_back(ViewEncoder::ModifyRows(viewID, types, block));
    }
    return moves;
  }

  CLiveLink link;
  std::vector<CColumn> columns;
  std::vector<BYTE> types;
};

// The site on the link, built over the folder: ten pages whose tables share one view.
struct LiveSite {
  LiveSite() : site(1, &data.link.comm) {
    site.Build(Folder().Root(), static_cast<int>(kEvent), 1);
    view = nullptr;
    for (const auto& [number, page] : site.GetPages()) {
      auto* templatePage = dynamic_cast<CZOLServerPage*>(page);
      if (templatePage == nullptr) continue;
      for (const auto& [id, table] : templatePage->GetTables()) {
        ++tables;
        view = table->GetView();
      }
    }
    if (view != nullptr) data.Answer(view->GetViewID());
    // The first tick writes every page with the rows; the benchmark starts after it.
    site.OnTimerEvent();
  }

  // True when every table page went out with all rows of the view.
  bool PagesHoldAllRows() const {
    int pages = 0;
    for (const auto& [number, page] : site.GetPages()) {
      if (dynamic_cast<const CZOLServerPage*>(page) == nullptr || page->GetIsTemplate() == 0) continue;
      const std::string text = page->GetDataAsString();
      if (text.find("<zol_table") == std::string::npos) continue;
      std::size_t rows = 0;
      for (auto at = text.find("<zol_rr"); at != std::string::npos; at = text.find("<zol_rr", at + 1)) ++rows;
      if (rows != static_cast<std::size_t>(kRows)) return false;
      ++pages;
    }
    return pages == kPages;
  }

  PackageInstalled package;
  LiveData data;
  CZOLServerSite site;
  CRMView* view = nullptr;
  int tables = 0;
};

class CCountingObserver : public CRMViewObserver {
 public:
  void OnNotifyData(int type, CRMView* view) override { Count += static_cast<std::size_t>(type) + view->GetRowCount(); }
  std::size_t Count = 0;
};

// The same view with a reader that only counts.
struct BareView {
  BareView() {
    view = data.link.comm.CreateView("lgView_Results", FALSE, CParameters(), FALSE);
    view->SetSortColumn("lgHeader_Pos", TRUE);
    observer.Attach(view);
    data.Answer(view->GetViewID());
  }
  PackageInstalled package;
  LiveData data;
  CRMView* view = nullptr;
  CCountingObserver observer;
};

void Deliver(CRMComm& comm, CModuleMessage& message) {
  message.Reset();
  comm.ProcessMessage(&message);
}

void ReportChanges(benchmark::State& state, std::int64_t changes) {
  state.counters["changes"] = benchmark::Counter(static_cast<double>(changes), benchmark::Counter::kIsRate);
}

// False, with the run marked as failed, when the pages do not show the view's rows.
bool Ready(LiveSite& live, benchmark::State& state) {
  if (live.view != nullptr && live.tables == kPages && live.PagesHoldAllRows()) return true;
  state.SkipWithError("the pages do not show the view's rows");
  return false;
}

// A burst of changes, then one tick.
void BM_LivePagesChanges(benchmark::State& state) {
  LiveSite live;
  if (!Ready(live, state)) return;
  auto moves = live.data.Changes(live.view->GetViewID());
  const auto burst = state.range(0);
  std::int64_t changes = 0;
  std::size_t turn = 0;
  for (auto _ : state) {
    for (std::int64_t i = 0; i < burst; ++i) Deliver(live.data.link.comm, *moves[turn++ % 2]);
    live.site.OnTimerEvent();
    changes += burst;
  }
  ReportChanges(state, changes);
  state.counters["pages"] = static_cast<double>(kPages);
  state.counters["rows"] = static_cast<double>(live.view->GetRowCount());
}
BENCHMARK(BM_LivePagesChanges)->Arg(1)->Arg(10)->Arg(100)->Arg(1000)->Unit(benchmark::kMillisecond);

// The same messages, each followed by a tick: every change writes the pages.
void BM_LivePagesChangesEveryTick(benchmark::State& state) {
  LiveSite live;
  if (!Ready(live, state)) return;
  auto moves = live.data.Changes(live.view->GetViewID());
  const auto burst = state.range(0);
  std::int64_t changes = 0;
  std::size_t turn = 0;
  for (auto _ : state) {
    for (std::int64_t i = 0; i < burst; ++i) {
      Deliver(live.data.link.comm, *moves[turn++ % 2]);
      live.site.OnTimerEvent();
    }
    changes += burst;
  }
  ReportChanges(state, changes);
}
BENCHMARK(BM_LivePagesChangesEveryTick)->Arg(10)->Unit(benchmark::kMillisecond);

// Decoding and sorting the same messages, with no pages behind the view.
void BM_LivePagesChanges_Baseline(benchmark::State& state) {
  BareView bare;
  auto moves = bare.data.Changes(bare.view->GetViewID());
  const auto burst = state.range(0);
  std::int64_t changes = 0;
  std::size_t turn = 0;
  for (auto _ : state) {
    for (std::int64_t i = 0; i < burst; ++i) Deliver(bare.data.link.comm, *moves[turn++ % 2]);
    changes += burst;
  }
  benchmark::DoNotOptimize(bare.observer.Count);
  ReportChanges(state, changes);
}
BENCHMARK(BM_LivePagesChanges_Baseline)->Arg(1)->Arg(10)->Arg(100)->Arg(1000)->Unit(benchmark::kMillisecond);
// The baseline of the variant that ticks after every message is the same decoding.
BENCHMARK(BM_LivePagesChanges_Baseline)
    ->Name("BM_LivePagesChangesEveryTick_Baseline")
    ->Arg(10)
    ->Unit(benchmark::kMillisecond);

}  // namespace
