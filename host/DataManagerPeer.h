// The data manager stand-in as a module the host runs beside the loaded one: it answers
// the module's requests and, at its own clock, plays the meeting and sends the changes.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/DataManagerStandIn.h"
#include "host/HostPeer.h"
#include "host/RacePlayOptions.h"

class CDataManagerPeer : public CHostPeer {
 public:
  explicit CDataManagerPeer(DWORD computer, RacePlayOptions play = {}) : StandIn(0, computer) { StandIn.SetPlay(play); }

  // Reads the race it plays; false with a one-line reason naming the file and the place.
  bool LoadRace(const std::string& path, std::string& error) { return StandIn.LoadRaceFile(path, error); }

  WORD PeerClass() const override { return StandIn.GetClass(); }
  DWORD PeerInstance() const override { return StandIn.GetInstance(); }
  DWORD PeerComputer() const override { return StandIn.GetComputer(); }
  std::vector<CModuleMessage*> Receive(CModuleMessage& message) override { return StandIn.OnMessage(message); }
  int PeerTimerInterval() const override { return kClockIntervalMilliseconds; }
  std::vector<CModuleMessage*> OnPeerTimer() override { return StandIn.OnClock(); }

  CDataManagerStandIn& GetStandIn() { return StandIn; }

 private:
  static constexpr int kClockIntervalMilliseconds = 100;
  CDataManagerStandIn StandIn;
};
