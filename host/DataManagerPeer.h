// The data manager stand-in as a module the host runs beside the loaded one.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/DataManagerStandIn.h"
#include "host/HostPeer.h"

class CDataManagerPeer : public CHostPeer {
 public:
  explicit CDataManagerPeer(DWORD computer) : StandIn(0, computer) {}

  // Reads the race it plays; false with a one-line reason.
  bool LoadRace(const std::string& path, std::string& error) { return StandIn.LoadRaceFile(path, error); }

  WORD PeerClass() const override { return StandIn.GetClass(); }
  DWORD PeerInstance() const override { return StandIn.GetInstance(); }
  DWORD PeerComputer() const override { return StandIn.GetComputer(); }
  std::vector<CModuleMessage*> Receive(CModuleMessage& message) override { return StandIn.OnMessage(message); }

 private:
  CDataManagerStandIn StandIn;
};
