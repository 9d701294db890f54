#include "client/ClientOptions.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>

#include "client/PacketScanner.h"
#include "frame/KVTException.h"
#include "frame/platform/Sockets.h"

namespace zolclient {

namespace {

bool ParseUnsigned(const std::string& text, unsigned long long maximum, unsigned long long& value) {
  if (text.empty() || text.size() > 20) return false;
  for (char c : text) {
    if (c < '0' || c > '9') return false;
  }
  errno = 0;
  value = std::strtoull(text.c_str(), nullptr, 10);
  return errno == 0 && value <= maximum;
}

bool ParseSeconds(const std::string& text, double& value) {
  if (text.empty()) return false;
  char* end = nullptr;
  errno = 0;
  value = std::strtod(text.c_str(), &end);
  return errno == 0 && end != nullptr && *end == '\0' && std::isfinite(value) && value > 0 && value <= 1e7 &&
         (text[0] >= '0' && text[0] <= '9');
}

bool ParseHostPort(const std::string& text, std::string& host, std::uint16_t& port) {
  const std::size_t colon = text.rfind(':');
  if (colon == std::string::npos || colon == 0) return false;
  host = text.substr(0, colon);
  unsigned long long number = 0;
  if (!ParseUnsigned(text.substr(colon + 1), 65535, number) || number == 0) return false;
  port = static_cast<std::uint16_t>(number);
  return true;
}

// [ADDR:]PORT, the address dotted IPv4.
bool ParseServeAddress(const std::string& text, ClientOptions& options) {
  std::string address = "127.0.0.1";
  std::string port = text;
  const std::size_t colon = text.rfind(':');
  if (colon != std::string::npos) {
    address = text.substr(0, colon);
    port = text.substr(colon + 1);
  }
  std::uint32_t parsed = 0;
  unsigned long long number = 0;
  if (!platform::ParseDottedAddress(address, parsed) || !ParseUnsigned(port, 65535, number) || number == 0) {
    return false;
  }
  options.ServeAddress = address;
  options.ServePort = static_cast<std::uint16_t>(number);
  return true;
}

bool ParseSource(const std::string& source, ClientOptions& options, std::string& error) {
  options.Source = source;
  if (source.rfind("tcp://", 0) == 0) {
    options.Transport = TransportKind::Tcp;
    if (!ParseHostPort(source.substr(6), options.Host, options.Port)) {
      error = "bad source '" + source + "': expected tcp://HOST:PORT with a port from 1 to 65535";
      return false;
    }
    return true;
  }
  if (source.rfind("udp://", 0) == 0) {
    options.Transport = TransportKind::Udp;
    std::uint32_t address = 0;
    if (!ParseHostPort(source.substr(6), options.Host, options.Port) ||
        !platform::ParseDottedAddress(options.Host, address)) {
      error = "bad source '" + source + "': expected udp://GROUP:PORT with a dotted IPv4 group and a port";
      return false;
    }
    return true;
  }
  if (source.rfind("serial:", 0) == 0) {
    options.Transport = TransportKind::Serial;
    std::string rest = source.substr(7);
    const std::size_t question = rest.find('?');
    options.Device = rest.substr(0, question);
    if (options.Device.empty()) {
      error = "bad source '" + source + "': expected serial:DEVICE[?baud=N]";
      return false;
    }
    if (question != std::string::npos) {
      const std::string query = rest.substr(question + 1);
      unsigned long long baud = 0;
      if (query.rfind("baud=", 0) != 0 || !ParseUnsigned(query.substr(5), 4000000, baud) || baud == 0) {
        error = "bad source '" + source + "': the only setting is baud=N with a rate from 1 to 4000000";
        return false;
      }
      options.BaudRate = static_cast<std::uint32_t>(baud);
    }
    return true;
  }
  if (source.rfind("replay:", 0) == 0) {
    options.Transport = TransportKind::Replay;
    options.ReplayFile = source.substr(7);
    if (options.ReplayFile.empty()) {
      error = "bad source '" + source + "': expected replay:FILE";
      return false;
    }
    return true;
  }
  if (IsMqttAddress(source)) {
    options.Transport = TransportKind::Mqtt;
    return ParseMqttAddress(source, MqttAddressUse::Read, options.MqttSource, error);
  }
  error = "bad source '" + source +
          "': expected tcp://HOST:PORT, udp://GROUP:PORT, serial:DEVICE?baud=N replay:FILE or mqtt://HOST[:PORT]/PREFIX/SITE";
  return false;
}

}  // namespace

std::string ClientUsage() {
  return "Usage: zolclient SOURCE [options]\n"
         "Receives the page carousel of a result distribution server, checks every packet,\n"
         "rebuilds the pages and writes each new page version into a folder.\n"
         "\n"
         "SOURCE is one of:\n"
         "  tcp://HOST:PORT          connect to the server's TCP port; when the connection is\n"
         "                           lost or refused, try again after a pause (see stderr)\n"
         "  udp://GROUP:PORT         receive datagrams sent to a multicast group (one packet each);\n"
         "                           a non-multicast address just receives on PORT\n"
         "  serial:DEVICE?baud=N     read a serial line, raw 8N1 (baud 115200 when not given)\n"
         "  replay:FILE              play back a recording made with --record, at the pace it\n"
         "                           was recorded (see --speed); a damaged or cut recording is\n"
         "                           played up to the damage, with one line saying where\n"
         "  mqtt://HOST[:PORT]/PREFIX/SITE\n"
         "                           read the pages of SITE that zolclient --mqtt published to an\n"
         "                           MQTT broker (port 1883; mqtts:// is TLS, port 8883); the\n"
         "                           broker's retained pages come at once, new versions as they\n"
         "                           are published; a message that is not one of ours is skipped\n"
         "                           with one line\n"
         "\n"
         "Options:\n"
         "  --out DIR                write every page under DIR at its path and name; a page whose\n"
         "                           path or name could leave DIR is refused and counted\n"
         "                           (without --out pages are only listed). A site's information\n"
         "                           page is written as DIR/_siteS.info, key=value lines.\n"
         "                           Each page keeps one file: when its path or name changes,\n"
         "                           the old file is removed\n"
         "  --max-bytes N            the files written under DIR hold at most N bytes together\n"
         "                           (default 1073741824, 1 GiB); a page that would pass it is\n"
         "                           not written, and from then on nothing is: told once on\n"
         "                           stderr and counted in --stats\n"
         "  --stats                  print packet and page counts when the client ends, and\n"
         "                           per site its name, pagecount, pages complete and clock\n"
         "  --trace                  also print one line per packet checked and one per page\n"
         "                           completed (formats below)\n"
         "  --timeout S              stop after S seconds (decimals allowed)\n"
         "  --until-complete N       stop once N distinct pages (page 0 included) are complete;\n"
         "                           with --timeout, exit status 1 when the time runs out first\n"
         "  --until-complete site    stop once every site heard is complete: its information\n"
         "                           page (page 0) with the site's parameters came since its\n"
         "                           latest build time, and at least 'pagecount' distinct other\n"
         "                           pages of it were complete since then (a new build time\n"
         "                           starts the site afresh); exit status 1 as above\n"
         "  --packet-size N          packet size of the server, 16 to 128 (default 128)\n"
         "  --interface NAME         udp only: join the group on this interface (name or address)\n"
         "  --reconnect-pause S      tcp and serial: seconds between tries (default 1)\n"
         "  --record FILE            write what the source delivers, as it came and with the\n"
         "                           time it came, to FILE (replace it); each read is written\n"
         "                           as it comes, so a crash loses nothing already received\n"
         "  --speed X                replay only: play X times faster than recorded (default 1;\n"
         "                           0 as fast as the file can be read)\n"
         "  --serve [ADDR:]PORT      show the rebuilt pages as a web site on ADDR:PORT (default\n"
         "                           address 127.0.0.1): / lists the sites and pages, each page\n"
         "                           under its web name, .zol pages rendered as HTML that\n"
         "                           updates itself when a new version comes\n"
         "  --serve-public           allow --serve on an address other than loopback\n"
         "  --mqtt mqtt://HOST[:PORT]/PREFIX\n"
         "                           publish every page version completed to an MQTT 5 broker,\n"
         "                           retained, on PREFIX/SITE/PATH/NAME with its version, page\n"
         "                           number and level as user properties, and each site's clock\n"
         "                           and parameters as JSON on PREFIX/SITE/_clock; when the broker\n"
         "                           is lost, reconnect (at most 10 s apart) and publish every\n"
         "                           page again (kept in memory up to --max-bytes)\n"
         "  --mqtt-qos 0|1           quality of service of publishing and reading (default 1)\n"
         "  --mqtt-client-id ID      the broker client id of --mqtt (of an mqtt:// source when\n"
         "                           nothing is published); default: one made up\n"
         "  --mqtt-username NAME     log in to the broker(s) as NAME, with\n"
         "  --mqtt-password-file F   the password on the first line of F\n"
         "  --mqtt-cafile FILE       the certificate authority for mqtts:// addresses (needed)\n"
         "  -h, --help               show this text\n"
         "\n"
         "For each new page version one line goes to stdout:\n"
         "  site S page P PATH/NAME SIZE bytes version HIGH.LOW\n"
         "where PATH/NAME is (information) for a site's information page (page 0), and\n"
         "  site S rebuilt: build time T\n"
         "when a site's information page shows a new build time.\n"
         "With --trace, before those lines:\n"
         "  packet site S page P level L number N of T version H.L checksum CCCC good bytes B\n"
         "  packet bad checksum CCCC bytes B      (or: bad end mark, bad header)\n"
         "  page site S page P level L version H.L complete packets T bytes D PATH/NAME\n"
         "N is the packet number as sent (twelve bits, from 0 again after 4095), T is ? until\n"
         "the page's last packet, then the packet count of that version; CCCC is the checksum\n"
         "the packet carries (hex), B the packet size, D the size of the page's data.\n"
         "Exit status: 0 done, 1 a source that cannot be opened or a goal not reached in time\n"
         "(or before a recording ended), "
         "2 a bad argument.\n";
}

bool ParseClientOptions(const std::vector<std::string>& arguments, ClientOptions& options, std::string& error) {
  return Guarded("ParseClientOptions()", [&] {
    bool haveSource = false;
    bool haveInterface = false;
    bool haveSpeed = false;
    bool haveMqttSetting = false;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
      std::string name = arguments[i];
      std::string value;
      bool hasInlineValue = false;
      if (name.rfind("--", 0) == 0) {
        const std::size_t equals = name.find('=');
        if (equals != std::string::npos) {
          value = name.substr(equals + 1);
          name = name.substr(0, equals);
          hasInlineValue = true;
        }
      }
      const auto takeValue = [&]() {
        if (hasInlineValue) return true;
        if (i + 1 >= arguments.size()) {
          error = "option " + name + " needs a value";
          return false;
        }
        value = arguments[++i];
        return true;
      };
      const auto noValue = [&]() {
        if (!hasInlineValue) return true;
        error = "option " + name + " takes no value";
        return false;
      };
      unsigned long long number = 0;
      if (name == "-h" || name == "--help") {
        if (!noValue()) return false;
        options.Help = true;
      } else if (name == "--stats") {
        if (!noValue()) return false;
        options.Stats = true;
      } else if (name == "--trace") {
        if (!noValue()) return false;
        options.Trace = true;
      } else if (name == "--out") {
        if (!takeValue()) return false;
        if (value.empty()) {
          error = "option --out needs a folder";
          return false;
        }
        options.OutputFolder = value;
      } else if (name == "--max-bytes") {
        if (!takeValue()) return false;
        if (!ParseUnsigned(value, std::uint64_t{1} << 62, number) || number == 0) {
          error = "bad --max-bytes '" + value + "': expected a positive whole number of bytes";
          return false;
        }
        options.MaxBytes = static_cast<std::uint64_t>(number);
      } else if (name == "--timeout") {
        if (!takeValue()) return false;
        if (!ParseSeconds(value, options.TimeoutSeconds)) {
          error = "bad --timeout '" + value + "': expected a positive number of seconds";
          return false;
        }
      } else if (name == "--reconnect-pause") {
        if (!takeValue()) return false;
        if (!ParseSeconds(value, options.ReconnectPauseSeconds)) {
          error = "bad --reconnect-pause '" + value + "': expected a positive number of seconds";
          return false;
        }
      } else if (name == "--until-complete") {
        if (!takeValue()) return false;
        if (value == "site") {
          options.UntilSitesComplete = true;
          options.UntilComplete = 0;
        } else if (!ParseUnsigned(value, 1u << 20, number) || number == 0) {
          error = "bad --until-complete '" + value + "': expected a page count of at least 1, or site";
          return false;
        } else {
          options.UntilComplete = static_cast<std::size_t>(number);
          options.UntilSitesComplete = false;
        }
      } else if (name == "--packet-size") {
        if (!takeValue()) return false;
        if (!ParseUnsigned(value, kMaxPacketSize, number) || number < kMinPacketSize) {
          error = "bad --packet-size '" + value + "': expected 16 to 128";
          return false;
        }
        options.PacketSize = static_cast<std::size_t>(number);
      } else if (name == "--interface") {
        if (!takeValue()) return false;
        if (value.empty()) {
          error = "option --interface needs a name";
          return false;
        }
        options.Interface = value;
        haveInterface = true;
      } else if (name == "--record") {
        if (!takeValue()) return false;
        if (value.empty()) {
          error = "option --record needs a file";
          return false;
        }
        options.RecordFile = value;
      } else if (name == "--speed") {
        if (!takeValue()) return false;
        if (value != "0" && !ParseSeconds(value, options.ReplaySpeed)) {
          error = "bad --speed '" + value + "': expected 0 or a positive number";
          return false;
        }
        if (value == "0") options.ReplaySpeed = 0;
        haveSpeed = true;
      } else if (name == "--serve") {
        if (!takeValue()) return false;
        if (!ParseServeAddress(value, options)) {
          error = "bad --serve '" + value + "': expected [ADDR:]PORT with a dotted IPv4 address and a port";
          return false;
        }
      } else if (name == "--mqtt") {
        if (!takeValue()) return false;
        if (!ParseMqttAddress(value, MqttAddressUse::Publish, options.MqttPublishAddress, error)) return false;
        options.MqttPublish = true;
      } else if (name == "--mqtt-client-id" || name == "--mqtt-username" || name == "--mqtt-password-file" ||
                 name == "--mqtt-cafile") {
        if (!takeValue()) return false;
        if (value.empty()) {
          error = "option " + name + " needs a value";
          return false;
        }
        if (name == "--mqtt-client-id") options.MqttClientId = value;
        if (name == "--mqtt-username") options.MqttUsername = value;
        if (name == "--mqtt-password-file") options.MqttPasswordFile = value;
        if (name == "--mqtt-cafile") options.MqttCaFile = value;
        haveMqttSetting = true;
      } else if (name == "--mqtt-qos") {
        if (!takeValue()) return false;
        if (value != "0" && value != "1") {
          error = "bad --mqtt-qos '" + value + "': expected 0 or 1";
          return false;
        }
        options.MqttQos = value == "1" ? 1 : 0;
        haveMqttSetting = true;
      } else if (name == "--serve-public") {
        if (!noValue()) return false;
        options.ServePublic = true;
      } else if (!name.empty() && name[0] == '-') {
        error = "unknown option " + name;
        return false;
      } else if (haveSource) {
        error = "more than one source given ('" + options.Source + "' and '" + name + "')";
        return false;
      } else {
        if (!ParseSource(name, options, error)) return false;
        haveSource = true;
      }
    }
    if (options.Help) return true;
    if (!haveSource) {
      error = "no source given (tcp://HOST:PORT, udp://GROUP:PORT, serial:DEVICE?baud=N, replay:FILE or "
              "mqtt://HOST/PREFIX/SITE); see --help";
      return false;
    }
    if (haveInterface && options.Transport != TransportKind::Udp) {
      error = "--interface applies to udp:// sources only";
      return false;
    }
    if (haveSpeed && options.Transport != TransportKind::Replay) {
      error = "--speed applies to replay: sources only";
      return false;
    }
    const bool readsBroker = options.Transport == TransportKind::Mqtt;
    if (haveMqttSetting && !readsBroker && !options.MqttPublish) {
      error = "the --mqtt-* settings apply to an mqtt:// source or to --mqtt only";
      return false;
    }
    if (options.MqttPasswordFile.empty() != options.MqttUsername.empty()) {
      error = "--mqtt-username and --mqtt-password-file go together";
      return false;
    }
    if (options.MqttCaFile.empty() &&
        ((readsBroker && options.MqttSource.Tls) || (options.MqttPublish && options.MqttPublishAddress.Tls))) {
      error = "an mqtts:// address needs --mqtt-cafile";
      return false;
    }
    if (!options.MqttCaFile.empty() && !(readsBroker && options.MqttSource.Tls) &&
        !(options.MqttPublish && options.MqttPublishAddress.Tls)) {
      error = "--mqtt-cafile applies to mqtts:// addresses only";
      return false;
    }
    if (readsBroker && !options.RecordFile.empty()) {
      error = "--record applies to packet sources only; an mqtt:// source gives whole pages";
      return false;
    }
    if (options.ServePort != 0 && !options.ServePublic && options.ServeAddress.rfind("127.", 0) != 0) {
      error = "--serve on " + options.ServeAddress + " lets others see the pages; add --serve-public to allow it";
      return false;
    }
    return true;
  });
}

}  // namespace zolclient
