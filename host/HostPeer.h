// A module of the installation that the host runs beside the loaded module: the data
// manager stand-in, later the web server. The host routes messages to it by class.
#pragma once

#include <vector>

#include "frame/ModuleMessage.h"
#include "frame/Types.h"

class CHostPeer {
 public:
  virtual ~CHostPeer() = default;
  virtual WORD PeerClass() const = 0;
  virtual DWORD PeerInstance() const = 0;
  virtual DWORD PeerComputer() const = 0;
  // Takes a message addressed to this peer and returns the replies for the module,
  // which the host then owns.
  virtual std::vector<CModuleMessage*> Receive(CModuleMessage& message) = 0;

  // The peer's own clock: every PeerTimerInterval() milliseconds (0: never) the host calls
  // OnPeerTimer on its message thread and delivers what it returns to the module, so a
  // peer can send changes without being asked.
  virtual int PeerTimerInterval() const { return 0; }
  virtual std::vector<CModuleMessage*> OnPeerTimer() { return {}; }
};
