#include "host/DataManagerStandIn.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <sstream>

#include "data/DataEncoder.h"
#include "data/Run.h"
#include "frame/KVTException.h"
#include "frame/platform/Time.h"
#include "views/ViewEncoder.h"

namespace {

constexpr WORD kViewConnect = 0x8021;
constexpr WORD kViewDisconnect = 0x8022;
constexpr KVTTIME kSecond = CRaceSimulation::kSecond;

bool SameCell(const ViewCellValue& a, const ViewCellValue& b) {
  return a.Dword == b.Dword && a.Integer == b.Integer && a.Real == b.Real && a.Text == b.Text && a.Time == b.Time &&
         a.Transponders == b.Transponders && a.Option == b.Option;
}

bool SameRow(const ViewRowValues& a, const ViewRowValues& b) {
  if (a.GroupID != b.GroupID || a.Status != b.Status || a.Cells.size() != b.Cells.size()) return false;
  for (std::size_t i = 0; i < a.Cells.size(); ++i) {
    if (!SameCell(a.Cells[i], b.Cells[i])) return false;
  }
  return true;
}

}  // namespace

CDataManagerStandIn::CDataManagerStandIn(DWORD instance, DWORD computer)
    : Instance(instance), Computer(computer), Model(std::make_unique<CBaseDataComm>()) {}

CDataManagerStandIn::~CDataManagerStandIn() = default;

bool CDataManagerStandIn::LoadRaceFile(const std::string& path, std::string& error) {
  std::ifstream file(path);
  if (!file) {
    error = "cannot read race file " + path;
    return false;
  }
  std::stringstream text;
  text << file.rdbuf();
  return LoadRaceText(text.str(), error, path);
}

bool CDataManagerStandIn::LoadRaceText(const std::string& text, std::string& error, const std::string& fileName) {
  auto race = std::make_unique<RaceDescription>();
  if (!ReadRaceDescription(text, fileName, *race, error, CodePage)) return false;
  Model = std::move(race->Model);
  ViewNames = race->ViewNames.empty() ? RaceViews::Names() : race->ViewNames;

  // The meeting's clock of the day: its first green flag at the file's start time today,
  // or a few seconds from now.
  const platform::WallTime now = platform::NowWallTime();
  const long offset = platform::LocalOffsetSeconds(now.Seconds);
  const std::int64_t localNow = static_cast<std::int64_t>(now.Seconds) + offset;
  std::int64_t localOrigin = localNow;
  if (race->StartSecondOfDay >= 0) {
    localOrigin = localNow - localNow % 86400 + race->StartSecondOfDay - CRaceSimulation::kFirstStartDelay / kSecond;
  }
  Race = std::move(race);
  Meeting = std::make_unique<CRaceSimulation>(*Race, Play.Seed, Play.Loop, localOrigin * kSecond, localOrigin - offset);
  Views.clear();
  AnnouncedActiveRun = 0;
  AnnouncedRound = 0;
  LastClock.reset();
  return true;
}

void CDataManagerStandIn::SetPeer(WORD peerClass, DWORD instance, DWORD computer) {
  PeerClass = peerClass;
  PeerInstance = instance;
  PeerComputer = computer;
}

CModuleMessage* CDataManagerStandIn::Address(CModuleMessage* message) const {
  message->TargetClass = PeerClass;
  message->TargetInstance = PeerInstance;
  message->TargetComputer = PeerComputer;
  message->Class = kDataManagerClass;
  message->Reset();
  return message;
}

std::vector<CModuleMessage*> CDataManagerStandIn::OnMessage(const CModuleMessage& message) {
  std::vector<CModuleMessage*> replies;
  switch (message.ID) {
    case 0:
      Connected = TRUE;
      replies.push_back(Address(DataEncoder::Connected()));
      break;
    case 1:
      // The module has let go of everything, its views too.
      Connected = FALSE;
      Views.clear();
      break;
    case 2:
      replies.push_back(Address(DataEncoder::Snapshot(*Model)));
      break;
    case 0x8020:
      replies.push_back(Address(ViewEncoder::AllViews(ViewNames)));
      break;
    case kViewConnect:
    case kViewDisconnect: {
      CModuleMessage body(message);
      body.Reset();
      ViewRequest request;
      try {
        request = ViewEncoder::ReadViewRequest(body);
      } catch (CKVTException* cut) {
        // A request cut short is not answered.
        delete cut;
        break;
      }
      if (message.ID == kViewDisconnect) {
        Views.erase(request.ViewID);
        // The module keeps the view until it hears that the data manager let go too.
        replies.push_back(Address(ViewEncoder::ViewDisconnect(request.Name, request.ViewID)));
        break;
      }
      RaceViews::Request wanted;
      wanted.Name = request.Name;
      wanted.UniqueID = ViewEncoder::RequestNumber(request.Parameters, "UniqueID", 0xFFFFFFFF);
      wanted.SortType = static_cast<int>(ViewEncoder::RequestNumber(request.Parameters, "SortType", 0xFFFFFFFF));
      Serve(request.ViewID, wanted, replies);
      break;
    }
    default:
      break;
  }
  return replies;
}

void CDataManagerStandIn::Serve(DWORD viewID, RaceViews::Request request, std::vector<CModuleMessage*>& replies) {
  const std::vector<CColumn> columns = RaceViews::Columns(request.Name);
  // A view this data manager does not compute is not answered: the module waits for it.
  if (columns.empty() || Meeting == nullptr) return;
  ServedView& view = Views[viewID];
  view = ServedView{};
  view.Request = request;
  view.Types = ViewEncoder::ColumnTypes(columns);
  view.Revision = RaceViews::Revision(request, *Meeting);
  ViewRowBlock block;
  block.Rows = RaceViews::Rows(request, *Meeting);
  for (const ViewRowValues& row : block.Rows) view.Sent[row.RowID] = row;
  replies.push_back(Address(ViewEncoder::ViewStructure(viewID, columns)));
  replies.push_back(Address(ViewEncoder::AllRows(viewID, view.Types, block)));
}

void CDataManagerStandIn::SendChanges(DWORD viewID, ServedView& view, std::vector<CModuleMessage*>& out) {
  const std::uint64_t revision = RaceViews::Revision(view.Request, *Meeting);
  if (revision == view.Revision) return;
  view.Revision = revision;
  ViewRowBlock added;
  ViewRowBlock changed;
  ViewRowBlock removed;
  std::map<DWORD, ViewRowValues> now;
  for (ViewRowValues& row : RaceViews::Rows(view.Request, *Meeting)) {
    const auto sent = view.Sent.find(row.RowID);
    if (sent == view.Sent.end()) {
      added.Rows.push_back(row);
    } else if (!SameRow(sent->second, row)) {
      changed.Rows.push_back(row);
    }
    const DWORD id = row.RowID;
    now.emplace(id, std::move(row));
  }
  for (const auto& [id, row] : view.Sent) {
    if (now.count(id) == 0) removed.Rows.push_back(row);
  }
  view.Sent = std::move(now);
  if (!removed.Rows.empty()) out.push_back(Address(ViewEncoder::RemoveRows(viewID, view.Types, removed)));
  if (!added.Rows.empty()) out.push_back(Address(ViewEncoder::AddRows(viewID, view.Types, added)));
  if (!changed.Rows.empty()) out.push_back(Address(ViewEncoder::ModifyRows(viewID, view.Types, changed)));
}

CModuleMessage* CDataManagerStandIn::ModifyRunFlags(DWORD runID, WORD flags) {
  CRun& run = *Model->Runs.at(runID);
  run.Flags = flags;
  return Address(DataEncoder::ModifyRun(run));
}

// When the meeting moves to another run, the run that was active loses the active bit
// and the new one gets it (message 66 for each), in the data held for snapshots too.
void CDataManagerStandIn::SendActiveRun(std::vector<CModuleMessage*>& out) {
  const std::size_t active = Meeting->ActiveRun();
  if (active == AnnouncedActiveRun && Meeting->Round() == AnnouncedRound) return;
  const DWORD oldID = kRaceRunBit | Race->Runs[AnnouncedActiveRun].ID;
  const DWORD newID = kRaceRunBit | Race->Runs[active].ID;
  AnnouncedActiveRun = active;
  AnnouncedRound = Meeting->Round();
  const WORD oldFlags = static_cast<WORD>(Model->Runs.at(oldID)->Flags & ~kRunActive);
  const WORD newFlags = static_cast<WORD>(Model->Runs.at(newID)->Flags | kRunActive);
  CModuleMessage* leaving = oldID != newID ? ModifyRunFlags(oldID, oldFlags) : nullptr;
  CModuleMessage* coming = ModifyRunFlags(newID, newFlags);
  // The data held for snapshots follows in any case; the module hears it only when connected.
  if (!Connected) {
    delete leaving;
    delete coming;
    return;
  }
  if (leaving != nullptr) out.push_back(leaving);
  out.push_back(coming);
}

std::vector<CModuleMessage*> CDataManagerStandIn::AdvanceRaceTime(KVTTIME raceTime) {
  std::vector<CModuleMessage*> out;
  if (Meeting == nullptr) return out;
  Meeting->AdvanceTo(Meeting->Now() + raceTime);
  if (Connected) {
    for (auto& [viewID, view] : Views) SendChanges(viewID, view, out);
  }
  SendActiveRun(out);
  return out;
}

std::vector<CModuleMessage*> CDataManagerStandIn::OnClock(std::chrono::steady_clock::time_point now) {
  const auto last = LastClock.value_or(now);
  LastClock = now;
  const auto gap = std::clamp<std::chrono::steady_clock::duration>(now - last, {}, kLongestClockGap);
  const double real = std::chrono::duration<double, std::micro>(gap).count();
  RaceTimeCarry += real * Play.Speed;
  const double whole = std::floor(RaceTimeCarry);
  RaceTimeCarry -= whole;
  return AdvanceRaceTime(static_cast<KVTTIME>(whole));
}
