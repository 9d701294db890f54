// libFuzzer target over the import of a page template: any bytes given to a template page
// as its content must import without an exception, with its tables and labels bound to
// the views of a live link, and the page must then export a well-framed wire text and a
// browser text, also after the views have delivered rows.
//
// Seeds: run the target once with --write-seeds=DIR to write templates with tables,
// labels and includes (the example site's own among them) into DIR.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <deque>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "data/DataEncoder.h"
#include "data/DataTestSupport.h"
#include "frame/KVTException.h"
#include "frame/Parameters.h"
#include "site/ZOLServerPage.h"
#include "views/RMView.h"
#include "views/ViewEncoder.h"

namespace {

constexpr DWORD kEventID = 0x80000002;
constexpr DWORD kRaceRun = 0x40000002;

// A link with a track, an event group and an active race run, made once.
CLiveLink& Link() {
  static CLiveLink* link = [] {
    auto* made = new CLiveLink;
    CBaseDataComm model;
    AddTrackAndEventGroup(model);
    auto* run = new CRun(nullptr);
    run->UniqueID = kRaceRun;
    run->EventID = kEventID;
    run->RunType = 2;
    run->Flags = kRunActive;
    model.Runs[kRaceRun] = run;
    made->Apply(DataEncoder::Snapshot(model));
    return made;
  }();
  return *link;
}

CColumn Column(BYTE type, const char* key) {
  CColumn column;
  column.Type = type;
  column.Key = key;
  column.Title = key;
  return column;
}

// The data manager answers every view the page asked for with a structure and three rows.
void ServeViews(CLiveLink& link) {
  const std::vector<CColumn> columns{
      Column(1, "lgHeader_Pos"),   Column(3, "lgHeader_Name"),     Column(1, "lgHeader_Laps"),
      Column(5, "lgHeader_Gap"),   Column(4, "lgHeader_ElapsedTime"), Column(0, "lgHeader_Flag"),
      Column(0, "lgHeader_FlagSpecial"), Column(3, "lgHeader_Run"), Column(4, "lgHeader_TimeToGo")};
  const std::vector<BYTE> types = ViewEncoder::ColumnTypes(columns);
  ViewRowBlock block;
  for (int i = 0; i < 3; ++i) {
    ViewRowValues row;
    row.RowID = static_cast<DWORD>(i + 1);
    row.Cells.resize(columns.size());
    row.Cells[0].Integer = i + 1;
    row.Cells[1].Text = "Rider <" + std::to_string(i) + "> & \"co\"";
    row.Cells[2].Integer = 10 - i / 2;
    row.Cells[3].Time = i * 1500000LL;
    row.Cells[4].Time = 600000000LL;
    row.Cells[5].Dword = 1;
    row.Cells[7].Text = "Final";
    block.Rows.push_back(row);
  }
  std::vector<DWORD> ids;
  for (const auto& [id, view] : link.comm.GetViews()) ids.push_back(id);
  for (DWORD id : ids) {
    if (link.comm.GetViews().count(id) == 0) continue;
    link.Apply(ViewEncoder::ViewStructure(id, columns));
    if (link.comm.GetViews().count(id) != 0) link.Apply(ViewEncoder::AllRows(id, types, block));
  }
}

void CheckWire(const CZOLServerPage& page) {
  const std::vector<BYTE>& wire = page.GetData();
  if (page.GetChunks().empty()) {
    if (!wire.empty()) __builtin_trap();
    return;
  }
  static const std::string kStart = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\r\n<zol";
  if (wire.size() < kStart.size() + 1 || wire.back() != 0) __builtin_trap();
  if (std::string(wire.begin(), wire.begin() + static_cast<long>(kStart.size())) != kStart) __builtin_trap();
}

const char* const kSeedTemplates[] = {
    "<zol version=\"1\"><p>a</p><zol_table type=\"race\" showheader=\"false\" startrow=\"2\" maxrows=\"2\">"
    "<tr><zol_rh type=\"position\">P</zol_rh><zol_rh type=\"name\" url=\"x'y\"/></tr>"
    "<zol_rr flags=\"odd\"><tr><td><zol_rd>1</zol_rd></td><td><zol_rd url=\"u\">n</zol_rd></td></tr></zol_rr>"
    "</zol_table><zol_label type=\"runname\"/><zol_label type=\"flag\">x</zol_label></zol>",
    "<zol><zol_table type=\"results\"><zol_rh type=\"laps\"/><zol_rr><zol_rd/></zol_rr><zol_rr><zol_rd>2</zol_rd>"
    "</zol_rr></zol_table><zol_label type=\"racetime\"/><zol_label type=\"timetogo\"/></zol>",
    "<zol><zol_label type=\"tracklength\"/><zol_table type=\"schedule\"><zol_rh type=\"runname\"/></zol_table>"
    "<zol_include path=\"../\" file=\"x.zol\"/></zol>",
    "<zol><zol_table><zol_rh type=\"name\"/></zol_table><zol_label type=\"weather\"/>"
    "<zol_table type=\"none\"/><zol_table type=\"laptimes\"><zol_rh type=\"unknown\">u</zol_rh></zol_table></zol>",
};

void WriteSeeds(const std::string& folder) {
  std::filesystem::create_directories(folder);
  int index = 0;
  const auto write = [&](const std::string& text) {
    std::ofstream(folder + "/seed" + std::to_string(index++), std::ios::binary) << text;
  };
  for (const char* text : kSeedTemplates) write(text);
  const std::filesystem::path examples = std::filesystem::path(ZOL_SOURCE_DIR) / "examples" / "site";
  std::error_code error;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(examples, error)) {
    if (entry.path().extension() != ".zol") continue;
    std::ifstream file(entry.path(), std::ios::binary);
    write(std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()));
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
  for (int i = 1; i < *argc; ++i) {
    const char* prefix = "--write-seeds=";
    if (std::strncmp((*argv)[i], prefix, std::strlen(prefix)) == 0) {
      WriteSeeds((*argv)[i] + std::strlen(prefix));
      std::exit(0);
    }
  }
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  try {
    CLiveLink& link = Link();
    const std::string text(reinterpret_cast<const char*>(data), size);
    {
      CZOLServerPage page(1, 9, 1, 5, "f/", "fuzz.zol");
      if (!text.empty() && page.Initialize(&link.comm, static_cast<int>(kEventID), "", -1, text) != TRUE) {
        __builtin_trap();
      }
      page.ZOLExport();
      CheckWire(page);
      // Every link belongs to an include that was kept.
      if (page.GetLinks().size() != page.GetIncludes().size()) __builtin_trap();
      std::deque<std::string> queue;
      page.AddLinksToQueue(queue);
      if (queue.size() != page.GetLinks().size()) __builtin_trap();
      (void)page.HTMLExport(CParameters());
      ServeViews(link);
      page.ExportIfDue();
      page.ZOLExport();
      CheckWire(page);
      (void)page.HTMLExport(CParameters());
    }
    // The page took its tables and labels along: no view has a reader left. The data
    // manager then lets each view go, as it answers the module's disconnect.
    std::vector<DWORD> dropped;
    for (const auto& [id, view] : link.comm.GetViews()) {
      if (!view->GetObservers().empty() || !view->GetName().empty()) __builtin_trap();
      dropped.push_back(id);
    }
    for (DWORD id : dropped) link.Apply(ViewEncoder::ViewDisconnect("", id));
    if (!link.comm.GetViews().empty()) __builtin_trap();
  } catch (CKVTException* e) {
    delete e;
    __builtin_trap();
  }
  return 0;
}
