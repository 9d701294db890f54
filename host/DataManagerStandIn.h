// A stand-in for the data manager (module class 5): it answers the connect request with
// "connected", the all-data request with a snapshot of an example race read from JSON,
// and the view-list request with the view names of that file.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "data/BaseDataComm.h"
#include "frame/ModuleMessage.h"
#include "frame/Types.h"
#include "host/RacePlayOptions.h"

class CDataManagerStandIn {
 public:
  CDataManagerStandIn(DWORD instance, DWORD computer);
  ~CDataManagerStandIn();
  CDataManagerStandIn(const CDataManagerStandIn&) = delete;
  CDataManagerStandIn& operator=(const CDataManagerStandIn&) = delete;

  // Reads the race; false with a one-line reason in `error` when the file is unusable.
  bool LoadRaceFile(const std::string& path, std::string& error);
  bool LoadRaceText(const std::string& text, std::string& error);

  // Where the replies go: by default the server module (class 38, instance 0, computer 0).
  void SetPeer(WORD peerClass, DWORD instance, DWORD computer);

  // How the meeting is played; call before the first clock.
  void SetPlay(const RacePlayOptions& play) { Play = play; }

  // The replies to one message from the module, owned by the caller; each has Class 5.
  std::vector<CModuleMessage*> OnMessage(const CModuleMessage& message);
  // Called often (every 100 ms or so): moves the race on by the real time passed and
  // returns what the data manager sends of its own accord.
  std::vector<CModuleMessage*> OnClock();

  WORD GetClass() const { return kDataManagerClass; }
  DWORD GetInstance() const { return Instance; }
  DWORD GetComputer() const { return Computer; }
  BOOL IsConnected() const { return Connected; }
  const CBaseDataComm& GetModel() const { return *Model; }
  const std::vector<std::string>& GetViewNames() const { return ViewNames; }

 private:
  CModuleMessage* Address(CModuleMessage* message) const;

  RacePlayOptions Play;
  DWORD Instance;
  DWORD Computer;
  WORD PeerClass = kZolServerClass;
  DWORD PeerInstance = 0;
  DWORD PeerComputer = 0;
  BOOL Connected = FALSE;
  std::unique_ptr<CBaseDataComm> Model;
  std::vector<std::string> ViewNames;
};
