#include "client/MqttPublisher.h"

#include <mosquitto.h>
#include <mqtt_protocol.h>

#include <nlohmann/json.hpp>

#include <utility>

#include "client/PageWriter.h"
#include "frame/KVTException.h"
#include "frame/platform/Time.h"

namespace zolclient {

namespace {

DWORD PageKey(DWORD site, DWORD page) { return (site << 9) | page; }

std::string VersionText(const ReceivedPage& page) {
  return std::to_string(page.SequenceHigh) + "." + std::to_string(page.SequenceLow);
}

void ConnectCallback(struct mosquitto*, void* self, int rc, int, const mosquitto_property*) {
  static_cast<CMqttPublisher*>(self)->Connected(rc);
}

void DisconnectCallback(struct mosquitto*, void* self, int rc, const mosquitto_property*) {
  static_cast<CMqttPublisher*>(self)->Disconnected(rc);
}

nlohmann::json StringObject(const std::map<std::string, std::string>& entries) {
  nlohmann::json object = nlohmann::json::object();
  for (const auto& [key, value] : entries) object[key] = value;
  return object;
}

}  // namespace

std::string MqttClockJson(const SiteState& state) {
  return Guarded("MqttClockJson()", [&] {
    nlohmann::json object = nlohmann::json::object();
    object["buildtime"] = state.BuildTime;
    object["clock"] = StringObject(state.Clock);
    if (state.HasSiteParameters) object["site"] = StringObject(state.SiteParameters);
    // Text from the wire need not be UTF-8; JSON must be.
    return object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  });
}

CMqttPublisher::CMqttPublisher(MqttSettings settings, const CSiteTracker& sites, std::uint64_t maxHeldBytes)
    : Settings(std::move(settings)), Sites(sites), MaxHeldBytes(maxHeldBytes) {}

CMqttPublisher::~CMqttPublisher() { StopMqttClient(Client); }

bool CMqttPublisher::Start(std::string& error) {
  return Guarded("CMqttPublisher::Start()", [&] {
    StartedAt = platform::MonotonicMilliseconds();
    Client = NewMqttClient(Settings, this, error);
    if (Client == nullptr) return false;
    mosquitto_connect_v5_callback_set(Client, ConnectCallback);
    mosquitto_disconnect_v5_callback_set(Client, DisconnectCallback);
    return StartMqttClient(Client, Settings, error);
  });
}

void CMqttPublisher::Tell(const std::string& line) { News.push_back("zolclient: " + line); }

bool CMqttPublisher::PublishRetained(const std::string& topic, const void* data, std::size_t size) {
  return Guarded("CMqttPublisher::PublishRetained()", [&] {
    const int rc = mosquitto_publish_v5(Client, nullptr, topic.c_str(), static_cast<int>(size), data, Settings.Qos,
                                        true, nullptr);
    return rc == MOSQ_ERR_SUCCESS;
  });
}

bool CMqttPublisher::PublishPage(DWORD key, const HeldPage& page) {
  return Guarded("CMqttPublisher::PublishPage()", [&] {
    mosquitto_property* properties = nullptr;
    const std::string pageNumber = std::to_string(key & 0x1FF);
    const std::string level = std::to_string(page.Level);
    mosquitto_property_add_string_pair(&properties, MQTT_PROP_USER_PROPERTY, kMqttVersionProperty,
                                       page.Version.c_str());
    mosquitto_property_add_string_pair(&properties, MQTT_PROP_USER_PROPERTY, kMqttPageProperty, pageNumber.c_str());
    mosquitto_property_add_string_pair(&properties, MQTT_PROP_USER_PROPERTY, kMqttLevelProperty, level.c_str());
    const int rc = mosquitto_publish_v5(Client, nullptr, page.Topic.c_str(), static_cast<int>(page.Data.size()),
                                        page.Data.data(), Settings.Qos, true, properties);
    mosquitto_property_free_all(&properties);
    return rc == MOSQ_ERR_SUCCESS;
  });
}

void CMqttPublisher::OnPage(const ReceivedPage& page) {
  Guarded("CMqttPublisher::OnPage()", [&] {
    std::string relative;
    // A location the writer would refuse, or one that the clock object has, is no topic of ours.
    const bool usable = SafeRelativeLocation(page.Record.Path, page.Record.Name, relative) &&
                        relative != kMqttClockLevel && relative.find_first_of("+#") == std::string::npos &&
                        !page.Record.Data.empty();
    const std::lock_guard<std::mutex> hold(Lock);
    if (!usable) {
      ++Stats.Refused;
      if (!RefusalTold) {
        RefusalTold = true;
        Tell("site " + std::to_string(page.SiteNumber) + " page " + std::to_string(page.PageNumber) +
             " is not published: its location '" + PrintableText(DisplayLocation(page.Record.Path, page.Record.Name)) +
             "' is no topic, or it is empty (told once)");
      }
      return;
    }
    const DWORD key = PageKey(page.SiteNumber, page.PageNumber);
    HeldPage next;
    next.Topic = Settings.Address.Prefix + "/" + std::to_string(page.SiteNumber) + "/" + relative;
    next.Version = VersionText(page);
    next.Level = page.Level;
    const auto found = Pages.find(key);
    if (found != Pages.end() && found->second.Version == next.Version && found->second.Topic == next.Topic &&
        (!found->second.HasData || found->second.Data == page.Record.Data)) {
      ++Stats.Repeats;
      return;
    }
    std::uint64_t held = HeldBytes;
    if (found != Pages.end()) {
      held -= found->second.Data.size();
      if (found->second.Topic != next.Topic) {
        bool shared = false;
        for (const auto& [other, kept] : Pages) shared = shared || (other != key && kept.Topic == found->second.Topic);
        if (!shared && IsConnected && PublishRetained(found->second.Topic, nullptr, 0)) ++Stats.Clears;
      }
    }
    next.Data = page.Record.Data;
    next.HasData = held + next.Data.size() <= MaxHeldBytes;
    if (IsConnected && PublishPage(key, next)) ++Stats.Pages;
    if (!next.HasData) {
      if (!BoundTold) {
        BoundTold = true;
        Tell("the pages kept for the broker reached " + std::to_string(MaxHeldBytes) +
             " bytes; pages past it are not published again after a broker loss");
      }
      next.Data.clear();
      next.Data.shrink_to_fit();
    }
    HeldBytes = held + next.Data.size();
    Pages[key] = std::move(next);
  });
}

void CMqttPublisher::OnSiteClock(DWORD site, const std::map<std::string, std::string>&) {
  Guarded("CMqttPublisher::OnSiteClock()", [&] {
    const auto state = Sites.Sites().find(site);
    if (state == Sites.Sites().end()) return;
    std::string json = MqttClockJson(state->second);
    const std::lock_guard<std::mutex> hold(Lock);
    std::string& last = Clocks[site];
    if (last == json) return;
    last = std::move(json);
    const std::string topic = Settings.Address.Prefix + "/" + std::to_string(site) + "/" + kMqttClockLevel;
    if (IsConnected && PublishRetained(topic, last.data(), last.size())) ++Stats.Clocks;
  });
}

void CMqttPublisher::Connected(int rc) {
  Guarded("CMqttPublisher::Connected()", [&] {
    const std::lock_guard<std::mutex> hold(Lock);
    if (rc != 0) {
      if (!WasLost) Tell("broker " + MqttBrokerName(Settings) + " refused the connection: " + mosquitto_reason_string(rc));
      WasLost = true;
      return;
    }
    IsConnected = true;
    EverConnected = true;
    if (WasLost) Tell("broker " + MqttBrokerName(Settings) + " back; publishing every page again");
    WasLost = false;
    // Everything held, whether the broker kept it or not: it may have lost it all.
    for (const auto& [key, page] : Pages) {
      if (page.HasData && PublishPage(key, page)) ++Stats.Republished;
    }
    for (const auto& [site, json] : Clocks) {
      const std::string topic = Settings.Address.Prefix + "/" + std::to_string(site) + "/" + kMqttClockLevel;
      if (PublishRetained(topic, json.data(), json.size())) ++Stats.Republished;
    }
  });
}

void CMqttPublisher::Disconnected(int rc) {
  Guarded("CMqttPublisher::Disconnected()", [&] {
    const std::lock_guard<std::mutex> hold(Lock);
    IsConnected = false;
    if (rc == 0 || WasLost) return;
    WasLost = true;
    Tell("lost broker " + MqttBrokerName(Settings) + "; reconnecting, at most " +
         std::to_string(kMqttLongestReconnectPause) + " s apart");
  });
}

std::vector<std::string> CMqttPublisher::TakeNews() {
  return Guarded("CMqttPublisher::TakeNews()", [&] {
    const std::lock_guard<std::mutex> hold(Lock);
    if (!EverConnected && !AbsenceTold && platform::MonotonicMilliseconds() - StartedAt > kMqttAbsenceMilliseconds) {
      AbsenceTold = true;
      Tell("broker " + MqttBrokerName(Settings) + " not reached yet; trying again, at most " +
           std::to_string(kMqttLongestReconnectPause) + " s apart");
    }
    return std::exchange(News, {});
  });
}

MqttPublishCounters CMqttPublisher::Counters() {
  return Guarded("CMqttPublisher::Counters()", [&] {
    const std::lock_guard<std::mutex> hold(Lock);
    return Stats;
  });
}

}  // namespace zolclient
