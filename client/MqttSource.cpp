#include "client/MqttSource.h"

#include <mosquitto.h>
#include <mqtt_protocol.h>

#include <nlohmann/json.hpp>

#include <chrono>
#include <cstdlib>
#include <utility>

#include "client/MqttPublisher.h"
#include "client/PageWriter.h"
#include "distribution/PacketFormat.h"
#include "frame/KVTException.h"
#include "frame/platform/Time.h"

namespace zolclient {

namespace {

void ConnectCallback(struct mosquitto*, void* self, int rc, int, const mosquitto_property*) {
  static_cast<CMqttPageSource*>(self)->Connected(rc);
}

void DisconnectCallback(struct mosquitto*, void* self, int rc, const mosquitto_property*) {
  static_cast<CMqttPageSource*>(self)->Disconnected(rc);
}

void MessageCallback(struct mosquitto*, void* self, const struct mosquitto_message* message,
                     const mosquitto_property* properties) {
  MqttPageMessage taken;
  taken.Topic = message->topic;
  const BYTE* payload = static_cast<const BYTE*>(message->payload);
  if (message->payloadlen > 0) taken.Payload.assign(payload, payload + message->payloadlen);
  const mosquitto_property* at = properties;
  bool skipFirst = false;
  while (true) {
    char* name = nullptr;
    char* value = nullptr;
    at = mosquitto_property_read_string_pair(at, MQTT_PROP_USER_PROPERTY, &name, &value, skipFirst);
    if (at == nullptr) break;
    skipFirst = true;
    const std::string key = name;
    if (key == kMqttVersionProperty) taken.Version = value;
    if (key == kMqttPageProperty) taken.Page = value;
    if (key == kMqttLevelProperty) taken.Level = value;
    std::free(name);
    std::free(value);
  }
  static_cast<CMqttPageSource*>(self)->Received(std::move(taken));
}

bool SmallNumber(const std::string& text, unsigned maximum, unsigned& value) {
  if (text.empty() || text.size() > 3) return false;
  value = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return false;
    value = value * 10 + static_cast<unsigned>(c - '0');
  }
  return value <= maximum;
}

bool ParseVersion(const std::string& text, BYTE& high, BYTE& low) {
  const std::size_t dot = text.find('.');
  unsigned h = 0;
  unsigned l = 0;
  if (dot == std::string::npos || !SmallNumber(text.substr(0, dot), 255, h) ||
      !SmallNumber(text.substr(dot + 1), 255, l)) {
    return false;
  }
  high = static_cast<BYTE>(h);
  low = static_cast<BYTE>(l);
  return true;
}

bool StringEntries(const nlohmann::json& object, std::map<std::string, std::string>& entries) {
  if (!object.is_object()) return false;
  for (const auto& [key, value] : object.items()) {
    if (!value.is_string()) return false;
    entries[key] = value.get<std::string>();
  }
  return true;
}

bool DecodeClock(const std::vector<BYTE>& payload, SiteInformation& information, std::string& why) {
  const nlohmann::json object = nlohmann::json::parse(payload.begin(), payload.end(), nullptr, false);
  if (object.is_discarded() || !object.is_object()) {
    why = "not a clock object (no JSON object)";
    return false;
  }
  const auto buildTime = object.find("buildtime");
  if (buildTime == object.end() || !buildTime->is_number_unsigned() || buildTime->get<std::uint64_t>() > 0xFFFFFFFFu) {
    why = "not a clock object (no build time)";
    return false;
  }
  information.BuildTime = buildTime->get<DWORD>();
  const auto clock = object.find("clock");
  if (clock == object.end() || !StringEntries(*clock, information.Clock)) {
    why = "not a clock object (no clock of strings)";
    return false;
  }
  const auto site = object.find("site");
  if (site != object.end()) {
    if (!StringEntries(*site, information.SiteParameters)) {
      why = "not a clock object (site parameters that are not strings)";
      return false;
    }
    information.HasSiteParameters = true;
  }
  return true;
}

}  // namespace

bool DeliverMqttMessage(const MqttPageMessage& message, const std::string& prefix, DWORD site,
                        CClientSession& session, std::string& why) {
  return Guarded("DeliverMqttMessage()", [&] {
    const std::string under = prefix + "/" + std::to_string(site) + "/";
    if (message.Topic.rfind(under, 0) != 0) {
      why = "not under " + under;
      return false;
    }
    // A cleared page: the page it was has another topic now, or none.
    if (message.Payload.empty()) return true;
    const std::string rest = message.Topic.substr(under.size());
    ReceivedPage page;
    page.SiteNumber = site;
    if (rest == kMqttClockLevel) {
      SiteInformation information;
      if (!DecodeClock(message.Payload, information, why)) return false;
      page.PageIdentity = wire::MakePageKey(site, 0, 0);
      page.Record.Data = message.Payload;
      session.OnWholeInformation(page, std::move(information));
      return true;
    }
    unsigned number = 0;
    unsigned level = 0;
    if (!ParseVersion(message.Version, page.SequenceHigh, page.SequenceLow) ||
        !SmallNumber(message.Page, wire::kLastPageNumber, number) || number == 0 ||
        !SmallNumber(message.Level, 3, level)) {
      why = "no page: version, page or level properties missing or bad";
      return false;
    }
    const std::size_t slash = rest.rfind('/');
    page.Record.Path = slash == std::string::npos ? std::string() : rest.substr(0, slash);
    page.Record.Name = slash == std::string::npos ? rest : rest.substr(slash + 1);
    std::string relative;
    if (!SafeRelativeLocation(page.Record.Path, page.Record.Name, relative) || relative != rest) {
      why = "no valid page location";
      return false;
    }
    page.PageNumber = number;
    page.Level = level;
    page.PageIdentity = wire::MakePageKey(site, number, level);
    page.Record.Data = message.Payload;
    session.OnWholePage(page);
    return true;
  });
}

CMqttPageSource::CMqttPageSource(MqttSettings settings, std::uint64_t maxQueuedBytes)
    : Settings(std::move(settings)), MaxQueuedBytes(maxQueuedBytes) {}

CMqttPageSource::~CMqttPageSource() { StopMqttClient(Client); }

bool CMqttPageSource::Start(std::string& error) {
  return Guarded("CMqttPageSource::Start()", [&] {
    StartedAt = platform::MonotonicMilliseconds();
    Client = NewMqttClient(Settings, this, error);
    if (Client == nullptr) return false;
    mosquitto_connect_v5_callback_set(Client, ConnectCallback);
    mosquitto_disconnect_v5_callback_set(Client, DisconnectCallback);
    mosquitto_message_v5_callback_set(Client, MessageCallback);
    return StartMqttClient(Client, Settings, error);
  });
}

void CMqttPageSource::Connected(int rc) {
  Guarded("CMqttPageSource::Connected()", [&] {
    const std::lock_guard<std::mutex> hold(Lock);
    const std::string broker = MqttBrokerName(Settings);
    if (rc != 0) {
      if (!WasLost) News.push_back("zolclient: broker " + broker + " refused the connection: " + mosquitto_reason_string(rc));
      WasLost = true;
      return;
    }
    const std::string topic = Settings.Address.Prefix + "/" + std::to_string(Settings.Address.Site) + "/#";
    mosquitto_subscribe_v5(Client, nullptr, topic.c_str(), Settings.Qos, 0, nullptr);
    if (!EverConnected || WasLost) {
      News.push_back("zolclient: " + std::string(EverConnected ? "broker back: " : "connected to broker ") + broker +
                     ", reading " + topic);
    }
    EverConnected = true;
    WasLost = false;
  });
}

void CMqttPageSource::Disconnected(int rc) {
  Guarded("CMqttPageSource::Disconnected()", [&] {
    const std::lock_guard<std::mutex> hold(Lock);
    if (rc == 0 || WasLost) return;
    WasLost = true;
    News.push_back("zolclient: lost broker " + MqttBrokerName(Settings) + "; reconnecting, at most " +
                   std::to_string(kMqttLongestReconnectPause) + " s apart");
  });
}

void CMqttPageSource::Received(MqttPageMessage message) {
  Guarded("CMqttPageSource::Received()", [&] {
    {
      const std::lock_guard<std::mutex> hold(Lock);
      if (QueuedBytes + message.Payload.size() > MaxQueuedBytes) {
        ++Dropped;
        return;
      }
      QueuedBytes += message.Payload.size();
      Queue.push_back(std::move(message));
    }
    Arrived.notify_one();
  });
}

void CMqttPageSource::Deliver(CClientSession& session, std::ostream& err, int timeoutMilliseconds) {
  Guarded("CMqttPageSource::Deliver()", [&] {
    std::deque<MqttPageMessage> taken;
    std::vector<std::string> news;
    std::uint64_t dropped = 0;
    {
      std::unique_lock<std::mutex> hold(Lock);
      Arrived.wait_for(hold, std::chrono::milliseconds(timeoutMilliseconds),
                       [&] { return !Queue.empty() || !News.empty(); });
      taken.swap(Queue);
      QueuedBytes = 0;
      news.swap(News);
      dropped = std::exchange(Dropped, 0);
      if (!EverConnected && !AbsenceTold && platform::MonotonicMilliseconds() - StartedAt > kMqttAbsenceMilliseconds) {
        AbsenceTold = true;
        news.push_back("zolclient: broker " + MqttBrokerName(Settings) + " not reached yet; trying again, at most " +
                       std::to_string(kMqttLongestReconnectPause) + " s apart");
      }
    }
    for (const std::string& line : news) err << line << std::endl;
    if (dropped > 0) {
      err << "zolclient: " << dropped << " broker messages dropped: the pages waiting reached "
          << MaxQueuedBytes << " bytes" << std::endl;
    }
    for (const MqttPageMessage& message : taken) {
      std::string why;
      if (!DeliverMqttMessage(message, Settings.Address.Prefix, Settings.Address.Site, session, why)) {
        err << "zolclient: skipped broker message on '" << PrintableText(message.Topic) << "': " << why << std::endl;
      }
    }
  });
}

}  // namespace zolclient
