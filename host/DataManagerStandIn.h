// A stand-in for the data manager (module class 5). It answers the connect request with
// "connected", the all-data request with a snapshot of the race file's data, the
// view-list request with the views it serves, and each view request with the view's
// structure and all its rows. At its clock it plays the meeting of the race file and
// sends what changed: the rows of every view the module holds (added, changed and
// removed rows only) and the active run when it moves on.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "data/BaseDataComm.h"
#include "frame/ModuleMessage.h"
#include "frame/Types.h"
#include "host/RaceFile.h"
#include "host/RacePlayOptions.h"
#include "host/RaceSimulation.h"
#include "host/RaceViews.h"

class CDataManagerStandIn {
 public:
  CDataManagerStandIn(DWORD instance, DWORD computer);
  ~CDataManagerStandIn();
  CDataManagerStandIn(const CDataManagerStandIn&) = delete;
  CDataManagerStandIn& operator=(const CDataManagerStandIn&) = delete;

  // How the meeting is played; call before loading the race.
  void SetPlay(const RacePlayOptions& play) { Play = play; }
  // The code page the data manager's text is written in, the installation's (default
  // CP1252); call before loading the race. The race file's texts are converted to it.
  void SetCodePage(const std::string& codePage) { CodePage = codePage; }
  const std::string& GetCodePage() const { return CodePage; }
  // How many texts of the loaded race lost a character that the code page cannot hold.
  std::size_t NamesLosingCharacters() const { return Race != nullptr ? Race->NamesLosingCharacters : 0; }

  // Reads the race and begins its meeting; false with a one-line reason in `error`
  // naming the file and the place when the file is unusable.
  bool LoadRaceFile(const std::string& path, std::string& error);
  bool LoadRaceText(const std::string& text, std::string& error, const std::string& fileName = "(text)");

  // Where the replies go: by default the server module (class 38, instance 0, computer 0).
  void SetPeer(WORD peerClass, DWORD instance, DWORD computer);

  // The replies to one message from the module, owned by the caller; each has Class 5.
  std::vector<CModuleMessage*> OnMessage(const CModuleMessage& message);
  // Called often (every 100 ms or so): moves the race on by the real time passed since
  // the last call, times the speed, and returns what the data manager sends unasked.
  // A longer gap (the process stopped or starved) counts as kLongestClockGap: the race
  // holds while the data manager stands still instead of jumping on when it wakes.
  std::vector<CModuleMessage*> OnClock(std::chrono::steady_clock::time_point now = std::chrono::steady_clock::now());
  static constexpr std::chrono::milliseconds kLongestClockGap{1000};
  // The same for a given stretch of race time, for tests.
  std::vector<CModuleMessage*> AdvanceRaceTime(KVTTIME raceTime);

  WORD GetClass() const { return kDataManagerClass; }
  DWORD GetInstance() const { return Instance; }
  DWORD GetComputer() const { return Computer; }
  BOOL IsConnected() const { return Connected; }
  const CBaseDataComm& GetModel() const { return *Model; }
  // Message 66 for a run of the race, its flags replaced by `flags` (also in the data
  // that later snapshots carry).
  CModuleMessage* ModifyRunFlags(DWORD runID, WORD flags);
  // The meeting being played; null before a race is loaded.
  const CRaceSimulation* GetMeeting() const { return Meeting.get(); }

 private:
  // A view the module holds: what it asked for and the rows it was last sent.
  struct ServedView {
    RaceViews::Request Request;
    std::vector<BYTE> Types;
    std::map<DWORD, ViewRowValues> Sent;
    std::uint64_t Revision = 0;
  };

  CModuleMessage* Address(CModuleMessage* message) const;
  void Serve(DWORD viewID, RaceViews::Request request, std::vector<CModuleMessage*>& replies);
  void SendChanges(DWORD viewID, ServedView& view, std::vector<CModuleMessage*>& out);
  void SendActiveRun(std::vector<CModuleMessage*>& out);

  RacePlayOptions Play;
  std::string CodePage = "CP1252";
  DWORD Instance;
  DWORD Computer;
  WORD PeerClass = kZolServerClass;
  DWORD PeerInstance = 0;
  DWORD PeerComputer = 0;
  BOOL Connected = FALSE;
  std::unique_ptr<RaceDescription> Race;
  std::unique_ptr<CBaseDataComm> Model;
  std::unique_ptr<CRaceSimulation> Meeting;
  std::vector<std::string> ViewNames;
  std::map<DWORD, ServedView> Views;
  std::size_t AnnouncedActiveRun = 0;
  int AnnouncedRound = 0;
  std::optional<std::chrono::steady_clock::time_point> LastClock;
  double RaceTimeCarry = 0.0;  // race microseconds not yet played, below one
};
