// A data manager for tests that run the module inside the host. The stand-in answers the
// connect request, the all-data request (a race read from JSON) and the view list; on
// top of it, each view request (0x8021) is answered with the structure and all rows
// that the test scripted for that view name and UniqueID, and every view request and
// release is written down. A release is not answered: the module keeps the dropped view
// until the test posts the data manager's 0x8022, as row messages already on their way
// would find it. The messages a data manager sends of its own accord (row
// changes, a run's new flags) are made here and posted by the test through the host.
// Receive runs on the host's message thread; everything else may be called from the
// test's thread.
#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/DataManagerStandIn.h"
#include "host/HostPeer.h"
#include "views/Column.h"
#include "views/ViewEncoder.h"

class CScriptedDataManager : public CHostPeer {
 public:
  // What the data manager holds of one view: its columns and its rows in its own order.
  struct ScriptedView {
    std::vector<CColumn> Columns;
    std::vector<ViewRowValues> Rows;
  };
  // A view request or release the module sent.
  struct Request {
    WORD ID = 0;
    std::string Name;
    DWORD ViewID = 0;
    DWORD UniqueID = 0xFFFFFFFF;  // from the request's parameters; all ones when absent
  };

  explicit CScriptedDataManager(DWORD computer);

  // The race: events, runs, competitors and the view names offered, as the stand-in
  // reads them. False with a one-line reason.
  bool LoadRace(const std::string& json, std::string& error);
  // Serves `view` for requests of `name` with that UniqueID; a later call replaces it.
  void Script(const std::string& name, DWORD uniqueID, ScriptedView view);

  WORD PeerClass() const override { return StandIn.GetClass(); }
  DWORD PeerInstance() const override { return StandIn.GetInstance(); }
  DWORD PeerComputer() const override { return StandIn.GetComputer(); }
  std::vector<CModuleMessage*> Receive(CModuleMessage& message) override;

  // Every 0x8021 and 0x8022 the module sent, in order.
  std::vector<Request> Requests() const;
  // The IDs of the messages the module sent, in order.
  std::vector<WORD> ReceivedIDs() const;
  // The view ID under which the module holds the view of that name and UniqueID: the
  // latest request for it, unless released since.
  std::optional<DWORD> ViewIDOf(const std::string& name, DWORD uniqueID) const;

  // 0x8026 for view `viewID` of the scripted view `name`/`uniqueID`: the rows given
  // replace the scripted rows of the same row IDs, so that a later request sees them.
  CModuleMessage* ModifyRows(const std::string& name, DWORD uniqueID, DWORD viewID,
                             const std::vector<ViewRowValues>& rows);
  // Message 66 for a run of the race, its flags replaced by `flags` (also in the data
  // that later snapshots carry).
  CModuleMessage* ModifyRunFlags(DWORD runID, WORD flags);

 private:
  using ViewKey = std::pair<std::string, DWORD>;

  CDataManagerStandIn StandIn;
  mutable std::mutex Lock;
  std::map<ViewKey, ScriptedView> Views;
  std::vector<Request> Log;
  std::vector<WORD> Received;
};
