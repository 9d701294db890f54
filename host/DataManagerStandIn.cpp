#include "host/DataManagerStandIn.h"

#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "data/DataEncoder.h"

namespace {

using nlohmann::json;

constexpr DWORD kEventBit = 0x80000000;
constexpr DWORD kRunBit = 0x40000000;

std::vector<DWORD> Transponders(const json& competitor) {
  std::vector<DWORD> values;
  if (competitor.contains("transponders")) {
    for (const json& value : competitor.at("transponders")) values.push_back(value.get<DWORD>());
  }
  return values;
}

void FillCompetitors(CBaseCompetitorContainer& container, const json& list) {
  for (const json& entry : list) {
    auto* competitor = new CBaseCompetitor;
    competitor->UniqueID = entry.at("id").get<DWORD>();
    competitor->Number = entry.value("number", "");
    competitor->FirstName = entry.value("first", "");
    competitor->LastName = entry.value("last", "");
    competitor->Class = entry.value("class", "");
    competitor->Transponders = Transponders(entry);
    competitor->BuildFullName();
    auto& slot = container.Competitors[competitor->UniqueID];
    delete slot;
    slot = competitor;
  }
  container.UpdateTransponderMap();
}

std::unique_ptr<CBaseDataComm> BuildModel(const json& race, std::vector<std::string>& views) {
  auto model = std::make_unique<CBaseDataComm>();
  DWORD trackID = 0xFFFFFFFF;
  if (race.contains("track")) {
    const json& source = race.at("track");
    auto* track = new CTrack(nullptr);
    model->Tracks[source.value("id", 1u)] = track;
    track->UniqueID = source.value("id", 1u);
    track->Name = source.value("name", "");
    track->Length = source.value("length", 0.0);
    trackID = track->UniqueID;
    for (const json& entry : source.value("timelines", json::array())) {
      auto* line = new CTimeline;
      line->UniqueID = entry.at("id").get<BYTE>();
      line->Name = entry.value("name", "");
      line->Order = entry.value("order", BYTE{0});
      line->Position = entry.value("position", 0.0);
      delete track->Timelines[line->UniqueID];
      track->Timelines[line->UniqueID] = line;
    }
    for (const json& entry : source.value("sections", json::array())) {
      auto* section = new CSection;
      section->UniqueID = entry.at("id").get<BYTE>();
      section->Name = entry.value("name", "");
      section->StartTimeline = entry.value("start", BYTE{255});
      section->EndTimeline = entry.value("end", BYTE{255});
      section->Order = entry.value("order", BYTE{0});
      section->Length = entry.value("length", 0.0);
      delete track->Sections[section->UniqueID];
      track->Sections[section->UniqueID] = section;
    }
  }
  const json competitors = race.value("competitors", json::array());
  for (const json& entry : race.value("events", json::array())) {
    auto* event = new Cevent(nullptr);
    event->UniqueID = kEventBit | entry.at("id").get<DWORD>();
    delete model->Events[event->UniqueID];
    model->Events[event->UniqueID] = event;
    event->Name = entry.value("name", "");
    event->StartDate = event->EndDate = 0;
    if (entry.contains("parent")) {
      event->ParentID = kEventBit | entry.at("parent").get<DWORD>();
    } else {
      event->TrackID = trackID;
      FillCompetitors(*event->Competitors, competitors);
    }
  }
  for (const json& entry : race.value("runs", json::array())) {
    auto* run = new CRun(nullptr);
    run->UniqueID = kRunBit | entry.at("id").get<DWORD>();
    delete model->Runs[run->UniqueID];
    model->Runs[run->UniqueID] = run;
    run->Name = entry.value("name", "");
    run->EventID = kEventBit | entry.value("event", 1u);
    run->RunType = entry.value("type", BYTE{0});
    run->Flags = kRunLocal;
    if (entry.value("active", false)) run->Flags |= kRunActive;
    run->Parameters.Add("UniqueID", run->UniqueID);
    FillCompetitors(*run->Competitors, entry.value("competitors", competitors));
  }
  for (const json& entry : race.value("txtranslations", json::array())) {
    auto* record = new CBaseTxTranslation;
    record->UniqueID = entry.at("transponder").get<DWORD>() & kTransponderNumberMask;
    record->Text = entry.value("text", "");
    delete model->TxTranslations[record->UniqueID];
    model->TxTranslations[record->UniqueID] = record;
  }
  views = race.value("views", std::vector<std::string>{});
  return model;
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
  return LoadRaceText(text.str(), error);
}

bool CDataManagerStandIn::LoadRaceText(const std::string& text, std::string& error) {
  try {
    const json race = json::parse(text);
    if (!race.is_object()) {
      error = "race file: the top level is not an object";
      return false;
    }
    std::vector<std::string> views;
    auto model = BuildModel(race, views);
    Model = std::move(model);
    ViewNames = std::move(views);
    return true;
  } catch (const std::exception& e) {
    error = std::string("race file: ") + e.what();
    return false;
  }
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
      Connected = FALSE;
      break;
    case 2:
      replies.push_back(Address(DataEncoder::Snapshot(*Model)));
      break;
    case 0x8020: {
      CModuleMessage* views = DataEncoder::NewMessage(0x8020);
      *views << static_cast<int>(ViewNames.size());
      for (const std::string& name : ViewNames) *views << name;
      replies.push_back(Address(views));
      break;
    }
    default:
      break;
  }
  return replies;
}

std::vector<CModuleMessage*> CDataManagerStandIn::OnClock() { return {}; }
