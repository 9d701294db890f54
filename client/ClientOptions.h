// The command line of zolclient: where the packets come from and what to do with them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "client/MqttAddress.h"

namespace zolclient {

enum class TransportKind { Tcp, Udp, Serial, Replay, Mqtt };

struct ClientOptions {
  TransportKind Transport = TransportKind::Tcp;
  std::string Source;     // the source as given, for messages
  std::string Host;       // tcp: host name or dotted address; udp: group or local address
  std::uint16_t Port = 0;
  std::string Interface;  // udp: interface name or address for the join; empty: any
  std::string Device;     // serial
  std::string ReplayFile;  // replay: a recording made with --record
  double ReplaySpeed = 1;  // replay: times faster than recorded; 0 as fast as it reads
  std::uint32_t BaudRate = 115200;

  std::string OutputFolder;  // empty: pages are listed, not written
  std::uint64_t MaxBytes = std::uint64_t{1} << 30;  // what the files under OutputFolder may hold
  bool Stats = false;
  bool Trace = false;  // one line per packet and per completed page on stdout
  double TimeoutSeconds = 0;      // 0: no limit
  std::size_t UntilComplete = 0;  // 0: no limit
  bool UntilSitesComplete = false;  // --until-complete site
  std::size_t PacketSize = 128;
  double ReconnectPauseSeconds = 1;
  std::string RecordFile;  // empty: nothing recorded

  // The viewer: a web site of the rebuilt pages. ServePort 0: none.
  std::string ServeAddress = "127.0.0.1";
  std::uint16_t ServePort = 0;
  bool ServePublic = false;  // an address other than loopback is allowed

  // A broker: read from as the source (TransportKind::Mqtt), and/or published to (--mqtt).
  MqttAddress MqttSource;
  bool MqttPublish = false;
  MqttAddress MqttPublishAddress;
  std::string MqttClientId;  // the publisher's, or the source's when nothing is published
  std::string MqttUsername;
  std::string MqttPasswordFile;
  std::string MqttCaFile;
  int MqttQos = 1;

  bool Help = false;
};

// Parses the arguments after the program name. On failure `error` is one line.
bool ParseClientOptions(const std::vector<std::string>& arguments, ClientOptions& options, std::string& error);

std::string ClientUsage();

}  // namespace zolclient
