// Publishes the pages a session completes to an MQTT broker: each new version once, as a
// retained message on PREFIX/SITE/PATH/NAME with its version, page number and level as
// user properties, and each site's clock as a small JSON object on PREFIX/SITE/_clock.
// It keeps the current version of every page, so that after the broker was lost it
// publishes them all again. Pages come on the receiving thread, the broker's news on the
// library's network thread; all state is behind one lock.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "client/MqttConnection.h"
#include "client/PageListener.h"
#include "client/SiteTracker.h"

struct mosquitto;

namespace zolclient {

inline constexpr char kMqttClockLevel[] = "_clock";
inline constexpr char kMqttVersionProperty[] = "version";
inline constexpr char kMqttPageProperty[] = "page";
inline constexpr char kMqttLevelProperty[] = "level";

struct MqttPublishCounters {
  std::uint64_t Pages = 0;      // page versions published
  std::uint64_t Repeats = 0;    // versions already published, passed over
  std::uint64_t Clears = 0;     // old topics emptied
  std::uint64_t Clocks = 0;     // clock objects published
  std::uint64_t Republished = 0;  // messages published again after the broker came back
  std::uint64_t Refused = 0;    // pages whose location is no topic of ours
};

// The clock object of a site: build time, clock and, when known, the site's parameters.
std::string MqttClockJson(const SiteState& state);

class CMqttPublisher : public CPageListener {
 public:
  // `sites` is read on the receiving thread when a clock comes; `maxHeldBytes` bounds the
  // pages kept for publishing again.
  CMqttPublisher(MqttSettings settings, const CSiteTracker& sites, std::uint64_t maxHeldBytes);
  ~CMqttPublisher() override;
  CMqttPublisher(const CMqttPublisher&) = delete;
  CMqttPublisher& operator=(const CMqttPublisher&) = delete;

  bool Start(std::string& error);

  void OnPage(const ReceivedPage& page) override;
  void OnSiteClock(DWORD site, const std::map<std::string, std::string>& clock) override;

  // Lines for stderr since last asked: the broker lost, back, refused.
  std::vector<std::string> TakeNews();
  MqttPublishCounters Counters();

  // From the library's network thread: a connection was made (rc 0) or refused, or lost.
  void Connected(int rc);
  void Disconnected(int rc);

 private:
  struct HeldPage {
    std::string Topic;
    std::string Version;
    DWORD Level = 0;
    bool HasData = false;  // false once past the bound: not published again
    std::vector<BYTE> Data;
  };

  // With the lock held. False when the library would not take the message.
  bool PublishPage(DWORD key, const HeldPage& page);
  bool PublishRetained(const std::string& topic, const void* data, std::size_t size);
  void Tell(const std::string& line);

  MqttSettings Settings;
  const CSiteTracker& Sites;
  std::uint64_t MaxHeldBytes;
  struct mosquitto* Client = nullptr;

  std::mutex Lock;
  bool IsConnected = false;
  bool WasLost = false;
  bool EverConnected = false;
  bool AbsenceTold = false;
  std::uint64_t StartedAt = 0;  // monotonic milliseconds
  bool RefusalTold = false;
  bool BoundTold = false;
  std::uint64_t HeldBytes = 0;
  std::map<DWORD, HeldPage> Pages;   // by site << 9 | page number
  std::map<DWORD, std::string> Clocks;  // by site: the object last published
  std::vector<std::string> News;
  MqttPublishCounters Stats;
};

}  // namespace zolclient
