// A Mosquitto broker of a test's own: a generated configuration, a free loopback port,
// started as a child process and stopped by its process id, never the system's service.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "testing/ChildProcess.h"
#include "testing/TempDir.h"

inline const std::string kMosquittoProgram = "/usr/sbin/mosquitto";

class MqttBroker {
 public:
  // `extraConfiguration`: lines added to the configuration (a bridge, say).
  explicit MqttBroker(std::string extraConfiguration = "");
  MqttBroker(const MqttBroker&) = delete;
  MqttBroker& operator=(const MqttBroker&) = delete;
  ~MqttBroker();

  // Starts the broker (again on the same port) and waits until it takes connections;
  // false after 10 s.
  bool Start();
  // Kills the broker (SIGKILL, as a crash would) and waits for it to end.
  void Kill();
  bool Running() const { return Process != nullptr && Process->Running(); }

  std::uint16_t Port() const { return BrokerPort; }
  // mqtt://127.0.0.1:PORT/ followed by `topic`.
  std::string Url(const std::string& topic) const;
  std::string Log() const;

 private:
  TempDir Folder;
  std::string Configuration;
  std::uint16_t BrokerPort = 0;
  std::unique_ptr<ChildProcess> Process;
};

// Publishes one retained message at QoS 1 to the broker on loopback `port`, with these
// MQTT 5 user properties; false when the broker did not take it within 10 s.
bool PublishRetainedForTest(std::uint16_t port, const std::string& topic, const std::string& payload,
                            const std::vector<std::pair<std::string, std::string>>& userProperties = {});
