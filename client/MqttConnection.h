// What the broker publisher and the broker source share: the settings of a connection,
// and a libmosquitto client made from them, speaking MQTT 5 and reconnecting by itself
// after a growing pause of at most 10 s.
#pragma once

#include <cstdint>
#include <string>

#include "client/MqttAddress.h"

struct mosquitto;

namespace zolclient {

inline constexpr unsigned kMqttLongestReconnectPause = 10;
// A broker not reached this long after the start is told of once.
inline constexpr std::uint64_t kMqttAbsenceMilliseconds = 5000;

struct MqttSettings {
  MqttAddress Address;
  std::string ClientId;      // empty: the library makes one up
  std::string Username;      // empty: none
  std::string PasswordFile;  // the password is its first line
  std::string CaFile;        // TLS with this certificate authority; needed by mqtts://
  int Qos = 1;
};

// A client for `settings` whose callbacks get `owner`, or null with a one-line `error`
// (the password file unreadable, TLS refused by the library, ...). Call StartMqttClient
// once the callbacks are set.
struct mosquitto* NewMqttClient(const MqttSettings& settings, void* owner, std::string& error);
// Connects in the background and starts the client's network thread; false with `error`
// when the thread cannot start. A broker that is not there yet is tried again and again.
bool StartMqttClient(struct mosquitto* client, const MqttSettings& settings, std::string& error);
// Disconnects, stops the network thread and frees the client.
void StopMqttClient(struct mosquitto* client);

std::string MqttBrokerName(const MqttSettings& settings);

}  // namespace zolclient
