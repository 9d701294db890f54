#include "testing/MqttBroker.h"

#include <mosquitto.h>
#include <mqtt_protocol.h>
#include <signal.h>

#include <chrono>
#include <thread>

#include "frame/platform/Sockets.h"

MqttBroker::MqttBroker(std::string extraConfiguration) : BrokerPort(platform::FindFreeTcpPort()) {
  Configuration = Folder.Write("mosquitto.conf", "listener " + std::to_string(BrokerPort) +
                                                     " 127.0.0.1\n"
                                                     "allow_anonymous true\n"
                                                     "persistence false\n"
                                                     "log_dest stderr\n"
                                                     "log_type error\n"
                                                     "log_type warning\n"
                                                     "log_type notice\n"
                                                     "max_queued_messages 100000\n" +
                                                     extraConfiguration);
}

MqttBroker::~MqttBroker() { Kill(); }

bool MqttBroker::Start() {
  if (BrokerPort == 0) return false;
  Kill();
  Process = std::make_unique<ChildProcess>(kMosquittoProgram, std::vector<std::string>{"-c", Configuration},
                                           Folder.Path());
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (std::chrono::steady_clock::now() < deadline) {
    if (!Process->Running()) return false;
    const int socket = platform::TcpConnect("127.0.0.1", BrokerPort);
    if (socket >= 0) {
      platform::CloseSocket(socket);
      return true;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return false;
}

void MqttBroker::Kill() {
  if (Process == nullptr) return;
  if (Process->Running()) Process->Signal(SIGKILL);
  Process->WaitForExit(10);
}

std::string MqttBroker::Url(const std::string& topic) const {
  return "mqtt://127.0.0.1:" + std::to_string(BrokerPort) + "/" + topic;
}

std::string MqttBroker::Log() const { return Process == nullptr ? std::string() : Process->Stderr(); }

bool PublishRetainedForTest(std::uint16_t port, const std::string& topic, const std::string& payload,
                            const std::vector<std::pair<std::string, std::string>>& userProperties) {
  mosquitto_lib_init();
  bool published = false;
  struct mosquitto* client = mosquitto_new(nullptr, true, &published);
  if (client == nullptr) return false;
  mosquitto_int_option(client, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
  mosquitto_publish_v5_callback_set(client, [](struct mosquitto*, void* flag, int, int, const mosquitto_property*) {
    *static_cast<bool*>(flag) = true;
  });
  bool ok = mosquitto_connect(client, "127.0.0.1", port, 10) == MOSQ_ERR_SUCCESS;
  if (ok) {
    mosquitto_property* properties = nullptr;
    for (const auto& [name, value] : userProperties) {
      mosquitto_property_add_string_pair(&properties, MQTT_PROP_USER_PROPERTY, name.c_str(), value.c_str());
    }
    ok = mosquitto_publish_v5(client, nullptr, topic.c_str(), static_cast<int>(payload.size()), payload.data(), 1,
                              true, properties) == MOSQ_ERR_SUCCESS;
    mosquitto_property_free_all(&properties);
  }
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (ok && !published && std::chrono::steady_clock::now() < deadline) {
    if (mosquitto_loop(client, 100, 1) != MOSQ_ERR_SUCCESS) break;
  }
  mosquitto_disconnect(client);
  mosquitto_destroy(client);
  return ok && published;
}
