#include "testing/ScriptedDataManager.h"

#include "data/DataEncoder.h"
#include "data/Run.h"
#include "views/RMView.h"

namespace {

DWORD UniqueIDOf(const CParameters& parameters) {
  return ViewEncoder::RequestNumber(parameters, "UniqueID", 0xFFFFFFFF);
}

CModuleMessage* Addressed(CModuleMessage* message) {
  message->Class = kDataManagerClass;
  message->Reset();
  return message;
}

}  // namespace

CScriptedDataManager::CScriptedDataManager(DWORD computer) : StandIn(0, computer) {}

bool CScriptedDataManager::LoadRace(const std::string& json, std::string& error) {
  std::lock_guard<std::mutex> guard(Lock);
  return StandIn.LoadRaceText(json, error);
}

void CScriptedDataManager::Script(const std::string& name, DWORD uniqueID, ScriptedView view) {
  std::lock_guard<std::mutex> guard(Lock);
  Views[{name, uniqueID}] = std::move(view);
}

std::vector<CModuleMessage*> CScriptedDataManager::Receive(CModuleMessage& message) {
  std::lock_guard<std::mutex> guard(Lock);
  Received.push_back(message.ID);
  if (message.ID != kMsgViewConnect && message.ID != kMsgViewDisconnect) {
    return StandIn.OnMessage(message);
  }
  const ViewRequest request = ViewEncoder::ReadViewRequest(message);
  Log.push_back({message.ID, request.Name, request.ViewID, UniqueIDOf(request.Parameters)});
  if (message.ID != kMsgViewConnect) return {};
  auto found = Views.find({request.Name, UniqueIDOf(request.Parameters)});
  if (found == Views.end()) return {};
  const ScriptedView& view = found->second;
  const std::vector<BYTE> types = ViewEncoder::ColumnTypes(view.Columns);
  ViewRowBlock block;
  block.Rows = view.Rows;
  return {Addressed(ViewEncoder::ViewStructure(request.ViewID, view.Columns)),
          Addressed(ViewEncoder::AllRows(request.ViewID, types, block))};
}

std::vector<CScriptedDataManager::Request> CScriptedDataManager::Requests() const {
  std::lock_guard<std::mutex> guard(Lock);
  return Log;
}

std::vector<WORD> CScriptedDataManager::ReceivedIDs() const {
  std::lock_guard<std::mutex> guard(Lock);
  return Received;
}

std::optional<DWORD> CScriptedDataManager::ViewIDOf(const std::string& name, DWORD uniqueID) const {
  std::lock_guard<std::mutex> guard(Lock);
  std::optional<DWORD> viewID;
  for (const Request& request : Log) {
    if (request.ID == kMsgViewConnect) {
      if (request.Name == name && request.UniqueID == uniqueID) viewID = request.ViewID;
    } else if (viewID == request.ViewID) {
      // A release carries an empty parameter block; view IDs are never given twice.
      viewID.reset();
    }
  }
  return viewID;
}

CModuleMessage* CScriptedDataManager::ModifyRows(const std::string& name, DWORD uniqueID, DWORD viewID,
                                                 const std::vector<ViewRowValues>& rows) {
  std::lock_guard<std::mutex> guard(Lock);
  ScriptedView& view = Views.at({name, uniqueID});
  for (const ViewRowValues& row : rows) {
    for (ViewRowValues& held : view.Rows) {
      if (held.RowID == row.RowID) held = row;
    }
  }
  ViewRowBlock block;
  block.Rows = rows;
  return Addressed(ViewEncoder::ModifyRows(viewID, ViewEncoder::ColumnTypes(view.Columns), block));
}

CModuleMessage* CScriptedDataManager::ModifyRunFlags(DWORD runID, WORD flags) {
  std::lock_guard<std::mutex> guard(Lock);
  return Addressed(StandIn.ModifyRunFlags(runID, flags));
}
