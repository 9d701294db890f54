// Live pages from end to end: the host runs the module with a scripted data manager, a
// site of one results page with tables for a race, a practice and any run, and labels;
// a TCP client of the module's port reassembles what goes out. The client sees the
// view's rows in the table, a changed leader after one row message (the time it took is
// recorded, not judged),
// the run's flag and race time on the information page, and after the active run moves
// to the practice the race table gone and the practice's rows in its place. Row messages
// for a view that lost its tables in that change are dropped without a word.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "data/Run.h"
#include "distribution/PacketFormat.h"
#include "frame/Parameters.h"
#include "frame/TTBuffer.h"
#include "frame/TimeText.h"
#include "frame/platform/Interfaces.h"
#include "frame/platform/Sockets.h"
#include "host/ModuleHost.h"
#include "testing/PageReassembler.h"
#include "testing/ScriptedDataManager.h"
#include "testing/TempDir.h"
#include "testing/ViewTestSupport.h"
#include "testing/WaitUntil.h"
#include "testing/WireTables.h"
#include "views/RMCell.h"

namespace {

constexpr DWORD kRaceRun = 0x40000001;
constexpr DWORD kPracticeRun = 0x40000002;
constexpr KVTTIME kSecond = 1000000;

const char kRace[] = R"({
  "track": {"name": "Test Ring", "length": 2.0, "timelines": [{"id": 0, "name": "Finish", "position": 0}]},
  "events": [{"id": 1, "name": "Club Trophy"}],
  "competitors": [{"id": 1, "number": "1", "last": "Solo"}],
  "runs": [
    {"id": 1, "name": "Final", "event": 1, "type": 2, "laps": 10},
    {"id": 2, "name": "Free practice", "event": 1, "type": 0, "minutes": 10}
  ],
  "views": ["lgView_Results", "lgView_RunInfo"]
})";

// A table of each kind a run may need, and two labels; the page repeats every three
// seconds, so that a client that joins late hears it soon.
const char kCurrentPage[] = R"(<zol version="1" repeat="3">
<h1><zol_label type="runname"/></h1>
<table><zol_table type="race"><zol_rh type="position"/><zol_rh type="no"/><zol_rh type="name"/><zol_rh type="laps"/><zol_rh type="totaltime"/><zol_rr><zol_rd>-</zol_rd><zol_rd>-</zol_rd><zol_rd>-</zol_rd><zol_rd>-</zol_rd><zol_rd>-</zol_rd></zol_rr></zol_table></table>
<table><zol_table type="practice"><zol_rh type="position"/><zol_rh type="no"/><zol_rh type="name"/><zol_rh type="laps"/><zol_rr><zol_rd>-</zol_rd><zol_rd>-</zol_rd><zol_rd>-</zol_rd><zol_rd>-</zol_rd></zol_rr></zol_table></table>
<table><zol_table type="results"><zol_rh type="position"/><zol_rh type="name"/><zol_rh type="totaltime"/><zol_rr><zol_rd>-</zol_rd><zol_rd>-</zol_rd><zol_rd>-</zol_rd></zol_rr></zol_table></table>
<p>Flag: <zol_label type="flag"/></p>
</zol>)";

struct Competitor {
  DWORD RowID;
  const char* Number;
  const char* Name;
  int Laps;
};

const std::vector<Competitor> kRaceField = {
    {1, "7", "Ada Moreau", 12}, {2, "21", "Bruno Keller", 12}, {3, "3", "Carla Ortiz", 12},
    {4, "44", "Dmitri Voss", 11}, {5, "9", "Eva Lindqvist", 10}};
const std::vector<Competitor> kPracticeField = {
    {101, "12", "Pia Practice", 4}, {102, "5", "Quentin Practice", 5}, {103, "30", "Rosa Practice", 3}};

std::vector<CColumn> ResultColumns() {
  return {MakeColumn(kColumnDWord, "lgHeader_Pos", "Pos"), MakeColumn(kColumnString, "lgHeader_No", "No"),
          MakeColumn(kColumnString, "lgHeader_Name", "Name"), MakeColumn(kColumnInteger, "lgHeader_Laps", "Laps"),
          MakeColumn(kColumnKVTTime, "lgHeader_TotalTm", "Total")};
}

ViewRowValues ResultRow(const Competitor& competitor, DWORD position) {
  return MakeRowValues(competitor.RowID,
                       {DwordValue(position), TextValue(competitor.Number), TextValue(competitor.Name),
                        IntegerValue(competitor.Laps), TimeValue((600 + 10 * static_cast<KVTTIME>(position)) * kSecond)});
}

CScriptedDataManager::ScriptedView ResultsView(const std::vector<Competitor>& field) {
  CScriptedDataManager::ScriptedView view;
  view.Columns = ResultColumns();
  for (std::size_t i = 0; i < field.size(); ++i) view.Rows.push_back(ResultRow(field[i], static_cast<DWORD>(i + 1)));
  return view;
}

std::vector<CColumn> RunInfoColumns() {
  return {MakeColumn(kColumnString, "lgHeader_Run", "Run"), MakeColumn(kColumnDWord, "lgHeader_Flag", "Flag"),
          MakeColumn(kColumnDWord, "lgHeader_FlagSpecial", "Special"),
          MakeColumn(kColumnKVTTime, "lgHeader_ElapsedTime", "Elapsed"),
          MakeColumn(kColumnKVTTime, "lgHeader_TimeToGo", "To go"),
          MakeColumn(kColumnKVTTime, "lgHeader_TimeOfDay", "Time of day")};
}

ViewRowValues RunInfoRow(const std::string& run, DWORD flag, KVTTIME elapsed) {
  return MakeRowValues(1, {TextValue(run), DwordValue(flag), DwordValue(0), TimeValue(elapsed),
                           TimeValue(30 * 60 * kSecond - elapsed), TimeValue((14 * 3600) * kSecond + elapsed)});
}

// A client of the module's TCP port on a thread of its own: connects (again) until
// stopped and reassembles every page version that comes, repeats included.
class CPortClient {
 public:
  explicit CPortClient(std::uint16_t port) : Receiver(128), Thread([this, port] { Run(port); }) {}
  ~CPortClient() {
    Stopping = true;
    Thread.join();
  }
  CPortClient(const CPortClient&) = delete;
  CPortClient& operator=(const CPortClient&) = delete;

  bool IsConnected() const { return Connected; }
  std::size_t Count() const {
    std::lock_guard<std::mutex> guard(Lock);
    return Receiver.Completed.size();
  }
  // The first page completed at index `from` or later that `match` accepts.
  std::optional<ReceivedPage> FindFrom(std::size_t from, const std::function<bool(const ReceivedPage&)>& match) const {
    std::lock_guard<std::mutex> guard(Lock);
    for (std::size_t i = from; i < Receiver.Completed.size(); ++i) {
      if (match(Receiver.Completed[i])) return Receiver.Completed[i];
    }
    return std::nullopt;
  }
  // The latest page completed so far that `match` accepts.
  std::optional<ReceivedPage> FindLast(const std::function<bool(const ReceivedPage&)>& match) const {
    std::lock_guard<std::mutex> guard(Lock);
    for (auto page = Receiver.Completed.rbegin(); page != Receiver.Completed.rend(); ++page) {
      if (match(*page)) return *page;
    }
    return std::nullopt;
  }
  // Waits up to `seconds` for such a page.
  std::optional<ReceivedPage> WaitFor(std::size_t from, const std::function<bool(const ReceivedPage&)>& match,
                                      int seconds) const {
    std::optional<ReceivedPage> found;
    WaitUntil([&] { return (found = FindFrom(from, match)).has_value(); }, seconds);
    return found;
  }
  std::size_t BadPages() const {
    std::lock_guard<std::mutex> guard(Lock);
    return Receiver.BadPages;
  }

 private:
  void Run(std::uint16_t port) {
    int socket = platform::kNoSocket;
    std::vector<BYTE> buffer(65536);
    while (!Stopping) {
      if (socket == platform::kNoSocket) {
        socket = platform::TcpConnect("127.0.0.1", port);
        if (socket == platform::kNoSocket) {
          std::this_thread::sleep_for(std::chrono::milliseconds(20));
          continue;
        }
        Connected = true;
      }
      if (!platform::WaitReadable(socket, 50000)) continue;
      const long received = platform::ReceiveSome(socket, buffer.data(), buffer.size());
      if (received <= 0) {
        platform::CloseSocket(socket);
        socket = platform::kNoSocket;
        Connected = false;
        continue;
      }
      std::lock_guard<std::mutex> guard(Lock);
      Receiver.FeedStream(buffer.data(), static_cast<std::size_t>(received));
    }
    if (socket != platform::kNoSocket) platform::CloseSocket(socket);
  }

  mutable std::mutex Lock;
  CTestReassembler Receiver;
  std::atomic<bool> Stopping{false};
  std::atomic<bool> Connected{false};
  std::thread Thread;
};

std::string Text(const ReceivedPage& page) {
  std::string text(page.Data.begin(), page.Data.end());
  if (!text.empty() && text.back() == '\0') text.pop_back();
  return text;
}

bool IsCurrentPage(const ReceivedPage& page) { return page.Path == "results/" && page.Name == "current.zol"; }
bool IsInformationPage(const ReceivedPage& page) { return wire::PageNumber(page.PageIdentity) == 0; }
bool SameVersion(const ReceivedPage& a, const ReceivedPage& b) {
  return a.SequenceHigh == b.SequenceHigh && a.SequenceLow == b.SequenceLow;
}

// The names in a table's rows, in order: the cell that holds one of the field's names.
std::vector<std::string> NamesIn(const std::string& page, const std::string& type) {
  std::vector<std::string> names;
  const auto table = TableOf(page, type);
  if (!table) return names;
  for (const auto& row : RowsOf(*table)) {
    for (const std::string& cell : row) {
      if (cell.find(' ') != std::string::npos && cell != "-") names.push_back(cell);
    }
  }
  return names;
}

std::vector<std::string> Names(const std::vector<Competitor>& field, const std::vector<std::size_t>& order) {
  std::vector<std::string> names;
  for (std::size_t i : order) names.push_back(field[i].Name);
  return names;
}


// Page 0: build time, clock parameters, site parameters or a 0 count.
struct Information {
  DWORD BuildTime = 0;
  CParameters Clock;
};

std::optional<Information> DecodeInformation(const ReceivedPage& page) {
  try {
    CTTBuffer buffer(0);
    buffer.Assign(page.Data.data(), page.Data.size());
    Information information;
    buffer >> information.BuildTime;
    information.Clock.BufferToParameters(buffer);
    return information;
  } catch (...) {
    return std::nullopt;
  }
}

std::string Describe(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
  return "[" + text + "]";
}

std::string RequestsText(const CScriptedDataManager& dataManager) {
  std::string text;
  char line[160];
  for (const auto& request : dataManager.Requests()) {
    std::snprintf(line, sizeof line, "  0x%04X %s view %u UniqueID 0x%08X\n", request.ID, request.Name.c_str(),
                  static_cast<unsigned>(request.ViewID), static_cast<unsigned>(request.UniqueID));
    text += line;
  }
  return text.empty() ? "  (no view requests)\n" : text;
}

}  // namespace

TEST(LivePagesEndToEnd, TablesAndLabelsFollowTheViewsAndTheActiveRunOnTheWire) {
  const std::uint16_t port = platform::FindFreeTcpPort();
  ASSERT_NE(port, 0);
  TempDir appdir;
  appdir.Write("Config/ZOLServer.ini", "[ports]\ncount=1\nport0=2\n[port0]\nID=1\nport=" + std::to_string(port) +
                                           "\n[sites]\ncount=1\nsite0=live\n[live]\nname=live\nroot=\\site\\\n"
                                           "ports=1\n");
  appdir.Write("site/results/current.zol", kCurrentPage);

  auto peer = std::make_unique<CScriptedDataManager>(platform::LocalIPv4Address());
  CScriptedDataManager& dataManager = *peer;
  std::string error;
  ASSERT_TRUE(dataManager.LoadRace(kRace, error)) << error;
  dataManager.Script("lgView_Results", kRaceRun, ResultsView(kRaceField));
  dataManager.Script("lgView_Results", kPracticeRun, ResultsView(kPracticeField));
  const KVTTIME elapsed = (12 * 60 + 34) * kSecond;
  dataManager.Script("lgView_RunInfo", kRaceRun, {RunInfoColumns(), {RunInfoRow("Final", 1, elapsed)}});
  dataManager.Script("lgView_RunInfo", kPracticeRun, {RunInfoColumns(), {RunInfoRow("Free practice", 2, elapsed)}});

  HostOptions options;
  options.ModulePath = std::string(ZOL_BINARY_DIR) + "/libzolserver.so";
  options.ApplicationDirectory = appdir.Path();
  CModuleHost host(options);
  ASSERT_TRUE(host.Load()) << host.Error();
  host.AddPeer(std::move(peer));
  testing::internal::CaptureStderr();
  std::string log;
  // Stops the host and gives the log; every assertion below that ends the test prints it.
  auto finish = [&] {
    host.Stop();
    log += testing::internal::GetCapturedStderr();
    return log;
  };
  ASSERT_TRUE(host.Start()) << host.Error() << finish();
  CPortClient client(port);
  const bool connected = WaitUntil([&] { return client.IsConnected(); }, 10);
  ASSERT_TRUE(connected) << finish();

  // The module asks for the results and the run information of the active race.
  const bool asked = WaitUntil(
      [&] {
        return dataManager.ViewIDOf("lgView_Results", kRaceRun).has_value() &&
               dataManager.ViewIDOf("lgView_RunInfo", kRaceRun).has_value();
      },
      10);
  ASSERT_TRUE(asked) << "view requests:\n" << RequestsText(dataManager) << finish();

  // The race's rows in the view's order, in the race table and the results table.
  const auto initialOrder = Names(kRaceField, {0, 1, 2, 3, 4});
  auto hasRaceOrder = [&](const std::vector<std::string>& order) {
    return [&, order](const ReceivedPage& page) { return IsCurrentPage(page) && NamesIn(Text(page), "race") == order; };
  };
  const auto first = client.WaitFor(0, hasRaceOrder(initialOrder), 10);
  if (!first) {
    const auto any = client.FindFrom(0, IsCurrentPage);
    FAIL() << "no version of results/current.zol with the race's rows " << Describe(initialOrder) << "; last seen:\n"
           << (any ? Text(*any) : std::string("(none)")) << "\nview requests:\n"
           << RequestsText(dataManager) << finish();
  }
  const std::string firstText = Text(*first);
  // At connect the module asks for a view, lets it go and asks again as the site is
  // built more than once; rows on the wire come only from the view it kept, so from here
  // on the data manager has seen every request and release of that time.
  const DWORD raceResults = *dataManager.ViewIDOf("lgView_Results", kRaceRun);
  const DWORD raceInfo = *dataManager.ViewIDOf("lgView_RunInfo", kRaceRun);
  EXPECT_EQ(NamesIn(firstText, "results"), initialOrder) << firstText;
  EXPECT_FALSE(TableOf(firstText, "practice").has_value()) << firstText;
  EXPECT_EQ(LabelOf(firstText, "runname"), std::optional<std::string>("Final")) << firstText;
  EXPECT_EQ(LabelOf(firstText, "flag"), std::optional<std::string>("green")) << firstText;
  {
    const auto table = TableOf(firstText, "race");
    const auto rows = RowsOf(*table);
    ASSERT_EQ(rows.size(), kRaceField.size()) << *table << finish();
    EXPECT_EQ(rows[0], (std::vector<std::string>{"1", "7", "Ada Moreau", "12", FormatTime(610 * kSecond, TRUE, 3)}))
        << *table;
  }

  // One row message that swaps the first two: a new version with the new leader.
  std::size_t mark = client.Count();
  const auto before = client.FindLast(IsCurrentPage);
  ASSERT_EQ(NamesIn(Text(*before), "race"), initialOrder) << Text(*before) << finish();
  const auto swapped = Names(kRaceField, {1, 0, 2, 3, 4});
  const auto posted = std::chrono::steady_clock::now();
  host.PostFromPeer(kDataManagerClass, dataManager.ModifyRows("lgView_Results", kRaceRun, raceResults,
                                                              {ResultRow(kRaceField[0], 2), ResultRow(kRaceField[1], 1)}));
  const auto next = client.WaitFor(
      mark, [&](const ReceivedPage& page) { return IsCurrentPage(page) && !SameVersion(page, *before); }, 5);
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - posted).count();
  ASSERT_TRUE(next.has_value()) << "no new version of results/current.zol after the row message" << finish();
  RecordProperty("leader_change_seconds", std::to_string(seconds));
  EXPECT_EQ(NamesIn(Text(*next), "race"), swapped) << Text(*next);
  EXPECT_EQ(NamesIn(Text(*next), "results"), swapped) << Text(*next);

  // The information page carries the run's flag and race time; the run's clock ticks on.
  mark = client.Count();
  const KVTTIME later = elapsed + kSecond;
  host.PostFromPeer(kDataManagerClass,
                    dataManager.ModifyRows("lgView_RunInfo", kRaceRun, raceInfo, {RunInfoRow("Final", 1, later)}));
  const auto clock = client.WaitFor(
      mark,
      [&](const ReceivedPage& page) {
        const auto information = IsInformationPage(page) ? DecodeInformation(page) : std::nullopt;
        return information && information->Clock.GetString("racetime") == FormatTime(later, 0, 0);
      },
      5);
  if (!clock) {
    const auto any = client.FindFrom(0, IsInformationPage);
    const auto information = any ? DecodeInformation(*any) : std::nullopt;
    std::string seen = "(no information page)";
    if (information) {
      seen.clear();
      for (const auto& [key, value] : information->Clock.GetEntries()) seen += key + "=" + value + " ";
    }
    FAIL() << "no information page with race time " << FormatTime(later, 0, 0) << "; first seen: " << seen
           << finish();
  }
  const auto information = DecodeInformation(*clock);
  EXPECT_EQ(information->Clock.GetString("flag"), "green");
  EXPECT_EQ(information->Clock.GetString("timetogo"), FormatTime(30 * 60 * kSecond - later, 0, 0));
  EXPECT_NE(information->BuildTime, 0u);

  // The active run moves to the practice: the data manager takes the bit from the race
  // and gives it to the practice.
  mark = client.Count();
  const auto raceVersion = client.FindLast(IsCurrentPage);
  ASSERT_EQ(NamesIn(Text(*raceVersion), "race"), swapped) << Text(*raceVersion) << finish();
  host.PostFromPeer(kDataManagerClass, dataManager.ModifyRunFlags(kRaceRun, kRunLocal));
  host.PostFromPeer(kDataManagerClass, dataManager.ModifyRunFlags(kPracticeRun, kRunLocal | kRunActive));
  const bool practiceAsked = WaitUntil([&] { return dataManager.ViewIDOf("lgView_Results", kPracticeRun).has_value(); }, 10);
  ASSERT_TRUE(practiceAsked) << "view requests:\n" << RequestsText(dataManager) << finish();
  const auto changed = client.WaitFor(
      mark, [&](const ReceivedPage& page) { return IsCurrentPage(page) && !SameVersion(page, *raceVersion); }, 10);
  ASSERT_TRUE(changed.has_value()) << "no new version of results/current.zol after the run change" << finish();
  const std::string changedText = Text(*changed);
  const auto practiceOrder = Names(kPracticeField, {0, 1, 2});
  EXPECT_FALSE(TableOf(changedText, "race").has_value()) << changedText;
  EXPECT_EQ(NamesIn(changedText, "practice"), practiceOrder) << changedText;
  EXPECT_EQ(NamesIn(changedText, "results"), practiceOrder) << changedText;
  EXPECT_EQ(LabelOf(changedText, "runname"), std::optional<std::string>("Free practice")) << changedText;
  EXPECT_EQ(LabelOf(changedText, "flag"), std::optional<std::string>("yellow")) << changedText;

  // Row messages for the race's view, whose tables went with the change, are dropped
  // without a word: one that meets the view the module let go, and one after the data
  // manager's release, when the module knows the view no more. The practice's next
  // change still comes through.
  EXPECT_FALSE(dataManager.ViewIDOf("lgView_Results", kRaceRun).has_value()) << RequestsText(dataManager);
  log += testing::internal::GetCapturedStderr();
  testing::internal::CaptureStderr();
  mark = client.Count();
  host.PostFromPeer(kDataManagerClass, dataManager.ModifyRows("lgView_Results", kRaceRun, raceResults,
                                                              {ResultRow(kRaceField[4], 1), ResultRow(kRaceField[1], 5)}));
  host.PostFromPeer(kDataManagerClass, ViewEncoder::ViewDisconnect("lgView_Results", raceResults));
  host.PostFromPeer(kDataManagerClass, dataManager.ModifyRows("lgView_Results", kRaceRun, raceResults,
                                                              {ResultRow(kRaceField[3], 1), ResultRow(kRaceField[4], 4)}));
  const DWORD practiceResults = *dataManager.ViewIDOf("lgView_Results", kPracticeRun);
  host.PostFromPeer(kDataManagerClass,
                    dataManager.ModifyRows("lgView_Results", kPracticeRun, practiceResults,
                                           {ResultRow(kPracticeField[2], 1), ResultRow(kPracticeField[0], 3)}));
  const auto practiceNewOrder = Names(kPracticeField, {2, 1, 0});
  const auto afterStale = client.WaitFor(
      mark,
      [&](const ReceivedPage& page) { return IsCurrentPage(page) && NamesIn(Text(page), "practice") == practiceNewOrder; },
      5);
  host.Stop();
  const std::string staleLog = testing::internal::GetCapturedStderr();
  log += staleLog;
  EXPECT_TRUE(afterStale.has_value()) << "the practice's change did not come through after the stale row message";
  if (afterStale) {
    EXPECT_FALSE(TableOf(Text(*afterStale), "race").has_value());
  }
  // Between the stale messages and the stop the host has nothing to complain about.
  EXPECT_EQ(staleLog.find("exception"), std::string::npos) << staleLog;
  EXPECT_EQ(staleLog.find("rror"), std::string::npos) << staleLog;  // "Error", "error"
  EXPECT_EQ(staleLog.find("ail"), std::string::npos) << staleLog;   // "Failed", "failed"
  EXPECT_EQ(log.find("exception"), std::string::npos) << log;
  EXPECT_EQ(client.BadPages(), 0u);
}
