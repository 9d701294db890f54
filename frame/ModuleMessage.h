// The message envelope: a payload buffer plus the address fields the host routes by.
#pragma once

#include "frame/TTBuffer.h"
#include "frame/Types.h"

class CBaseModule;

class CModuleMessage : public CTTBuffer {
 public:
  CModuleMessage(WORD id, WORD targetClass, DWORD targetInstance, DWORD targetComputer);
  // Addressed to the module's connected peer.
  CModuleMessage(WORD id, const CBaseModule* module);

  WORD ID;
  WORD TargetClass;
  DWORD TargetInstance;
  DWORD TargetComputer;
  // On a received message: the class of the sending module.
  WORD Class = 0;
  // The host's own fields; the module leaves them alone.
  BYTE HostReservedA[8] = {};
  BYTE HostReservedB[9] = {};
  BYTE HostFlag = 0xFF;
};

// Module classes met by this module.
inline constexpr WORD kHostClass = 0;
inline constexpr WORD kWebServerClass = 2;
inline constexpr WORD kDataManagerClass = 5;
inline constexpr WORD kZolServerClass = 38;
inline constexpr WORD kNoClass = 65535;
inline constexpr DWORD kNoComputer = 0xFFFFFFFF;

// Messages to the host.
inline constexpr WORD kMsgGetAllModules = 1;
inline constexpr WORD kMsgSetTimerInterval = 0x30;
inline constexpr WORD kMsgEnableWaiting = 0x34;
// Message to the web server.
inline constexpr WORD kMsgWebRegisterModule = 1;
