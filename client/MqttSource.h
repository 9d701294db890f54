// Pages read back from an MQTT broker: subscribes to PREFIX/SITE/#, and hands each page
// and each clock object to the session whole, on the receiving thread. Messages come on
// the library's network thread and wait in a queue behind a lock until then. A message
// under the prefix that is not one of ours is passed over with one line on stderr.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include "client/ClientSession.h"
#include "client/MqttConnection.h"

struct mosquitto;

namespace zolclient {

// One message as it came: the topic, the payload and our user properties (empty when absent).
struct MqttPageMessage {
  std::string Topic;
  std::vector<BYTE> Payload;
  std::string Version;
  std::string Page;
  std::string Level;
};

// Hands `message` to `session` when it is one of ours for `prefix` and `site`; otherwise
// false with `why` (a few words). An empty payload is a cleared page: passed over, true.
bool DeliverMqttMessage(const MqttPageMessage& message, const std::string& prefix, DWORD site,
                        CClientSession& session, std::string& why);

class CMqttPageSource {
 public:
  // `maxQueuedBytes` bounds what waits for the receiving thread.
  CMqttPageSource(MqttSettings settings, std::uint64_t maxQueuedBytes);
  ~CMqttPageSource();
  CMqttPageSource(const CMqttPageSource&) = delete;
  CMqttPageSource& operator=(const CMqttPageSource&) = delete;

  bool Start(std::string& error);
  // Waits up to `timeoutMilliseconds` for messages and hands all that came to `session`;
  // tells `err` of messages passed over and of the broker lost or back.
  void Deliver(CClientSession& session, std::ostream& err, int timeoutMilliseconds);

  // From the library's network thread.
  void Connected(int rc);
  void Disconnected(int rc);
  void Received(MqttPageMessage message);

 private:
  MqttSettings Settings;
  std::uint64_t MaxQueuedBytes;
  struct mosquitto* Client = nullptr;

  std::mutex Lock;
  std::condition_variable Arrived;
  std::deque<MqttPageMessage> Queue;
  std::uint64_t QueuedBytes = 0;
  std::uint64_t Dropped = 0;
  bool WasLost = false;
  bool EverConnected = false;
  bool AbsenceTold = false;
  std::uint64_t StartedAt = 0;  // monotonic milliseconds
  std::vector<std::string> News;
};

}  // namespace zolclient
