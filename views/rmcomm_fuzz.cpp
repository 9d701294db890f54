// libFuzzer target over the view messages of the link to the data manager (0x8000 to
// 0x8027).
//
// An input is a sequence of messages, each a BYTE that picks the ID (0x8000 plus the byte
// modulo 40), a WORD payload length and that many payload bytes. Every input starts from
// a live link with a small race, three views with readers (one of them private, grouped
// and filtered) and a lap view for the first run. A message that ends early or holds a
// wrong count must leave by the guards; nothing may leak or read freed memory.
//
// Seeds: run the target once with --write-seeds=DIR to write encoder output (structures,
// then row and lap row messages) into DIR, then fuzz with DIR as the corpus.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "data/DataEncoder.h"
#include "data/DataTestSupport.h"
#include "frame/KVTException.h"
#include "views/RMLapView.h"
#include "views/RMView.h"
#include "views/ViewEncoder.h"

namespace {

// Reads every text of every row it is told of, as a table would.
class CReadingObserver : public CRMViewObserver {
 public:
  void OnNotifyData(int type, CRMView* view) override {
    (void)type;
    for (const CRMViewRow* row : view->GetSortedRows()) {
      for (const CRMCell* cell : row->Cells) Total += std::strlen(cell->GetText());
    }
    for (const CRMViewRow* row : view->GetChangedRows()) Total += row->RowID;
    for (const CRMViewRow* row : view->GetRemovedRows()) Total += row->RowID;
  }
  std::size_t Total = 0;
};

class CReadingLapObserver : public CRMLapViewObserver {
 public:
  void OnRowsModified(CRMLapView* view, const std::vector<CRMLapViewRow*>& rows) override {
    (void)view;
    for (const CRMLapViewRow* row : rows) Total += row->Alternative.size();
  }
  std::size_t Total = 0;
};

std::vector<CColumn> Columns() {
  std::vector<CColumn> columns;
  const char* keys[] = {"lgHeader_Pos", "lgHeader_No", "lgHeader_Points", "lgHeader_Name", "lgHeader_Time",
                        "lgHeader_Gap", "lgHeader_Date", "lgHeader_DateTime", "lgHeader_Transponder"};
  for (BYTE type = 0; type <= 8; ++type) {
    CColumn column;
    column.Type = type;
    column.Key = keys[type];
    column.Title = keys[type];
    columns.push_back(column);
  }
  return columns;
}

ViewRowBlock SampleRows(DWORD first, int count) {
  ViewRowBlock block;
  block.Groups[1] = "Group A";
  block.Groups[2] = "Group B";
  for (int i = 0; i < count; ++i) {
    ViewRowValues row;
    row.RowID = first + static_cast<DWORD>(i);
    row.GroupID = 1 + static_cast<DWORD>(i % 2);
    row.Cells.resize(9);
    row.Cells[0].Dword = static_cast<DWORD>(i + 1);
    row.Cells[1].Integer = 100 - i;
    row.Cells[2].Real = i * 1.5;
    row.Cells[3].Text = "Name " + std::to_string(i);
    row.Cells[4].Time = 60000000LL + i * 1000;
    row.Cells[5].Time = i * 250000LL;
    row.Cells[6].Dword = 1700000000u + static_cast<DWORD>(i) * 86400u;
    row.Cells[7].Dword = 1700000000u + static_cast<DWORD>(i);
    row.Cells[8].Transponders = {1000u + static_cast<DWORD>(i), 1000u + static_cast<DWORD>(i)};
    block.Rows.push_back(row);
  }
  return block;
}

std::vector<std::unique_ptr<CModuleMessage>> SeedMessages(DWORD runID) {
  const std::vector<CColumn> columns = Columns();
  const std::vector<BYTE> types = ViewEncoder::ColumnTypes(columns);
  std::vector<std::unique_ptr<CModuleMessage>> seeds;
  auto add = [&](CModuleMessage* message) { seeds.emplace_back(message); };
  for (DWORD view = 0; view < 3; ++view) add(ViewEncoder::ViewStructure(view, columns));
  for (DWORD view = 0; view < 3; ++view) add(ViewEncoder::AllRows(view, types, SampleRows(1, 6)));
  add(ViewEncoder::AddRows(0, types, SampleRows(10, 2)));
  add(ViewEncoder::ModifyRows(0, types, SampleRows(3, 2)));
  add(ViewEncoder::ModifyRows(2, types, SampleRows(2, 3)));
  add(ViewEncoder::RemoveRows(0, types, SampleRows(1, 1)));
  add(ViewEncoder::RemoveRows(2, types, SampleRows(4, 2)));
  add(ViewEncoder::AllViews({"lgView_Results", "lgView_LapTimes"}));
  add(ViewEncoder::ViewDisconnect("lgView_Results", 1));
  CRMLapViewRow lap;
  lap.RowID = 1;
  lap.PassingTime = 5000000;
  CRMLapViewRow photocell;
  photocell.RowID = 2;
  photocell.Flags = 1 << 2;
  photocell.PassingTime = 4000000;
  CRMLapViewRow flag;
  flag.RowID = 3;
  flag.Flags = (4 << 2) | (2 << 16);
  flag.PassingTime = 6000000;
  add(ViewEncoder::AllPassings(runID, {&lap, &photocell}));
  add(ViewEncoder::AddLapRow(runID, flag));
  photocell.PassingTime = KVTTIME_NULL;
  add(ViewEncoder::ModifyLapRows(runID, {&photocell, &lap}));
  return seeds;
}

void AppendFramed(std::string& input, const CModuleMessage& message) {
  const BYTE pick = static_cast<BYTE>(message.ID - 0x8000);
  const WORD length = static_cast<WORD>(message.GetFilled() > 0xFFFF ? 0xFFFF : message.GetFilled());
  input.push_back(static_cast<char>(pick));
  input.append(reinterpret_cast<const char*>(&length), 2);
  input.append(reinterpret_cast<const char*>(message.GetData()), length);
}

std::string SnapshotBytes;
DWORD RunID = 0;

// A live link with the race, three views with readers and a lap view.
struct CFuzzLink {
  CFuzzLink() {
    auto* snapshot = DataEncoder::NewMessage(2);
    snapshot->Assign(SnapshotBytes.data(), SnapshotBytes.size());
    link.Apply(snapshot);
    CParameters parameters;
    parameters.Add("UniqueID", RunID);
    CParameters other;
    other.Add("UniqueID", static_cast<DWORD>(7));
    results = link.comm.CreateView("lgView_Results", FALSE, parameters, FALSE);
    laps = link.comm.CreateView("lgView_LapTimes", FALSE, other, FALSE);
    filtered = link.comm.CreateView("lgView_Results", TRUE, parameters, TRUE);
    filtered->SetFilter(TRUE, TRUE, EFilterMode::ShowIfAnyMatches, {"lgHeader_Name"}, {"name 1"});
    first.Attach(results);
    second.Attach(results);
    third.Attach(laps);
    fourth.Attach(filtered);
    results->SetSortColumn("lgHeader_Pos", TRUE);
    laps->SetSortColumn("lgHeader_Transponder", FALSE);
    filtered->SetSortColumn("lgHeader_Name", TRUE);
    CRMLapView* lapView = link.comm.CreateLapView(link.comm.GetData()->GetRun(RunID));
    if (lapView != nullptr) lapObserver.Attach(lapView);
  }

  CLiveLink link;
  CRMView* results = nullptr;
  CRMView* laps = nullptr;
  CRMView* filtered = nullptr;
  CReadingObserver first;
  CReadingObserver second;
  CReadingObserver third;
  CReadingObserver fourth;
  CReadingLapObserver lapObserver;
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
  CSampleMaker maker(5);
  auto model = MakeModel(maker, 1, 1, 2, 0, 4);
  RunID = model->Runs.begin()->first;
  std::unique_ptr<CModuleMessage> snapshot(DataEncoder::Snapshot(*model));
  SnapshotBytes.assign(reinterpret_cast<const char*>(snapshot->GetData()), snapshot->GetFilled());
  for (int i = 1; i < *argc; ++i) {
    const std::string argument = (*argv)[i];
    if (argument.rfind("--write-seeds=", 0) != 0) continue;
    const std::string directory = argument.substr(std::strlen("--write-seeds="));
    // One seed with every message in order, and one per message after the structures.
    const auto messages = SeedMessages(RunID);
    std::string all;
    for (const auto& message : messages) AppendFramed(all, *message);
    std::ofstream(directory + "/seed-all", std::ios::binary) << all;
    std::string structures;
    for (std::size_t n = 0; n < 3; ++n) AppendFramed(structures, *messages[n]);
    for (std::size_t n = 3; n < messages.size(); ++n) {
      std::string input = structures;
      AppendFramed(input, *messages[n]);
      std::ofstream(directory + "/seed" + std::to_string(n), std::ios::binary) << input;
    }
    std::printf("%zu seeds written to %s\n", messages.size() - 2, directory.c_str());
    std::exit(0);
  }
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  CFuzzLink fuzz;
  std::size_t at = 0;
  int messages = 0;
  while (at + 3 <= size && messages++ < 64) {
    const WORD id = static_cast<WORD>(0x8000 + data[at] % 40);
    WORD length = 0;
    std::memcpy(&length, data + at + 1, 2);
    at += 3;
    const std::size_t take = length < size - at ? length : size - at;
    auto* message = DataEncoder::NewMessage(id);
    message->Assign(data + at, take);
    at += take;
    try {
      fuzz.link.Apply(message);
    } catch (CKVTException* e) {
      delete e;
    }
  }
  return 0;
}
