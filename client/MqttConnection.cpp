#include "client/MqttConnection.h"

#include <mosquitto.h>
#include <mqtt_protocol.h>

#include <fstream>
#include <mutex>

#include "frame/KVTException.h"

namespace zolclient {

namespace {

constexpr int kKeepAliveSeconds = 30;

bool ReadPassword(const std::string& file, std::string& password) {
  std::ifstream in(file, std::ios::binary);
  if (!in) return false;
  std::getline(in, password);
  if (!password.empty() && password.back() == '\r') password.pop_back();
  return !in.bad();
}

}  // namespace

std::string MqttBrokerName(const MqttSettings& settings) {
  return settings.Address.Host + ":" + std::to_string(settings.Address.Port);
}

struct mosquitto* NewMqttClient(const MqttSettings& settings, void* owner, std::string& error) {
  return Guarded("NewMqttClient()", [&]() -> struct mosquitto* {
    // The library's initialisation is not thread safe; once is enough for the process.
    static std::once_flag initialised;
    std::call_once(initialised, [] { mosquitto_lib_init(); });
    std::string password;
    if (!settings.PasswordFile.empty() && !ReadPassword(settings.PasswordFile, password)) {
      error = "cannot read the broker password from " + settings.PasswordFile;
      return nullptr;
    }
    struct mosquitto* client =
        mosquitto_new(settings.ClientId.empty() ? nullptr : settings.ClientId.c_str(), true, owner);
    if (client == nullptr) {
      error = "cannot make a broker client (out of memory or a bad --mqtt-client-id)";
      return nullptr;
    }
    const auto fail = [&](const std::string& why) -> struct mosquitto* {
      error = why;
      mosquitto_destroy(client);
      return nullptr;
    };
    if (mosquitto_int_option(client, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5) != MOSQ_ERR_SUCCESS) {
      return fail("the broker client library does not speak MQTT 5");
    }
    if (!settings.Username.empty() &&
        mosquitto_username_pw_set(client, settings.Username.c_str(),
                                  settings.PasswordFile.empty() ? nullptr : password.c_str()) != MOSQ_ERR_SUCCESS) {
      return fail("the broker user name or password is not acceptable");
    }
    if (settings.Address.Tls) {
      const int rc = mosquitto_tls_set(client, settings.CaFile.c_str(), nullptr, nullptr, nullptr, nullptr);
      if (rc != MOSQ_ERR_SUCCESS) {
        return fail("cannot use " + settings.CaFile + " for TLS: " + mosquitto_strerror(rc));
      }
    }
    mosquitto_reconnect_delay_set(client, 1, kMqttLongestReconnectPause, true);
    return client;
  });
}

bool StartMqttClient(struct mosquitto* client, const MqttSettings& settings, std::string& error) {
  return Guarded("StartMqttClient()", [&] {
    // A refused first try is no failure: the network thread tries again.
    mosquitto_connect_async(client, settings.Address.Host.c_str(), settings.Address.Port, kKeepAliveSeconds);
    const int rc = mosquitto_loop_start(client);
    if (rc != MOSQ_ERR_SUCCESS) {
      error = std::string("cannot start the broker client: ") + mosquitto_strerror(rc);
      return false;
    }
    return true;
  });
}

void StopMqttClient(struct mosquitto* client) {
  Guarded("StopMqttClient()", [&] {
    if (client == nullptr) return;
    mosquitto_disconnect(client);
    mosquitto_loop_stop(client, false);
    mosquitto_destroy(client);
  });
}

}  // namespace zolclient
