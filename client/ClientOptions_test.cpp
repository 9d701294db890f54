#include "client/ClientOptions.h"

#include <gtest/gtest.h>

namespace {

using zolclient::ClientOptions;
using zolclient::ParseClientOptions;
using zolclient::TransportKind;

bool Parse(const std::vector<std::string>& args, ClientOptions& options, std::string& error) {
  options = ClientOptions();
  error.clear();
  return ParseClientOptions(args, options, error);
}

TEST(ClientOptions, TcpSourceWithEveryOption) {
  ClientOptions o;
  std::string error;
  ASSERT_TRUE(Parse({"tcp://127.0.0.1:51000", "--out", "pages", "--stats", "--timeout", "2.5", "--until-complete",
                     "4", "--packet-size=64", "--reconnect-pause", "0.2"},
                    o, error))
      << error;
  EXPECT_EQ(o.Transport, TransportKind::Tcp);
  EXPECT_EQ(o.Host, "127.0.0.1");
  EXPECT_EQ(o.Port, 51000);
  EXPECT_EQ(o.OutputFolder, "pages");
  EXPECT_TRUE(o.Stats);
  EXPECT_DOUBLE_EQ(o.TimeoutSeconds, 2.5);
  EXPECT_EQ(o.UntilComplete, 4u);
  EXPECT_EQ(o.PacketSize, 64u);
  EXPECT_DOUBLE_EQ(o.ReconnectPauseSeconds, 0.2);
}

TEST(ClientOptions, UdpSourceTakesAnInterface) {
  ClientOptions o;
  std::string error;
  ASSERT_TRUE(Parse({"udp://239.254.1.2:7125", "--interface", "eth0"}, o, error)) << error;
  EXPECT_EQ(o.Transport, TransportKind::Udp);
  EXPECT_EQ(o.Host, "239.254.1.2");
  EXPECT_EQ(o.Port, 7125);
  EXPECT_EQ(o.Interface, "eth0");
}

TEST(ClientOptions, SerialSourceWithAndWithoutBaud) {
  ClientOptions o;
  std::string error;
  ASSERT_TRUE(Parse({"serial:/dev/ttyUSB0?baud=57600"}, o, error)) << error;
  EXPECT_EQ(o.Transport, TransportKind::Serial);
  EXPECT_EQ(o.Device, "/dev/ttyUSB0");
  EXPECT_EQ(o.BaudRate, 57600u);
  ASSERT_TRUE(Parse({"serial:/dev/ttyS1"}, o, error)) << error;
  EXPECT_EQ(o.BaudRate, 115200u);
  EXPECT_EQ(o.PacketSize, 128u);
}

TEST(ClientOptions, UntilCompleteTakesSiteInsteadOfACount) {
  ClientOptions o;
  std::string error;
  ASSERT_TRUE(Parse({"tcp://127.0.0.1:51000", "--until-complete", "site"}, o, error)) << error;
  EXPECT_TRUE(o.UntilSitesComplete);
  EXPECT_EQ(o.UntilComplete, 0u);
  ASSERT_TRUE(Parse({"tcp://127.0.0.1:51000", "--until-complete=site"}, o, error)) << error;
  EXPECT_TRUE(o.UntilSitesComplete);
  // The last one given counts.
  ASSERT_TRUE(Parse({"tcp://127.0.0.1:51000", "--until-complete", "site", "--until-complete", "3"}, o, error));
  EXPECT_FALSE(o.UntilSitesComplete);
  EXPECT_EQ(o.UntilComplete, 3u);
  ASSERT_TRUE(Parse({"tcp://127.0.0.1:51000", "--until-complete", "3", "--until-complete", "site"}, o, error));
  EXPECT_TRUE(o.UntilSitesComplete);
  EXPECT_EQ(o.UntilComplete, 0u);
  EXPECT_FALSE(Parse({"tcp://127.0.0.1:51000", "--until-complete", "sites"}, o, error));
  EXPECT_EQ(error, "bad --until-complete 'sites': expected a page count of at least 1, or site");
}

TEST(ClientOptions, HelpNeedsNoSource) {
  ClientOptions o;
  std::string error;
  ASSERT_TRUE(Parse({"--help"}, o, error));
  EXPECT_TRUE(o.Help);
  EXPECT_NE(zolclient::ClientUsage().find("--until-complete"), std::string::npos);
  EXPECT_NE(zolclient::ClientUsage().find("--until-complete site"), std::string::npos);
  EXPECT_NE(zolclient::ClientUsage().find("DIR/_siteS.info"), std::string::npos);
}

TEST(ClientOptions, BadArgumentsGiveOneLineErrors) {
  const std::vector<std::vector<std::string>> bad = {
      {},
      {"http://x:1"},
      {"tcp://127.0.0.1"},
      {"tcp://127.0.0.1:0"},
      {"tcp://127.0.0.1:65536"},
      {"tcp://:80"},
      {"udp://not-an-address:7125"},
      {"serial:"},
      {"serial:/dev/ttyS0?speed=9600"},
      {"serial:/dev/ttyS0?baud=fast"},
      {"tcp://127.0.0.1:1", "tcp://127.0.0.1:2"},
      {"tcp://127.0.0.1:1", "--packet-size", "15"},
      {"tcp://127.0.0.1:1", "--packet-size", "129"},
      {"tcp://127.0.0.1:1", "--timeout", "-1"},
      {"tcp://127.0.0.1:1", "--timeout", "soon"},
      {"tcp://127.0.0.1:1", "--timeout"},
      {"tcp://127.0.0.1:1", "--until-complete", "0"},
      {"tcp://127.0.0.1:1", "--until-complete", "Site"},
      {"tcp://127.0.0.1:1", "--until-complete", ""},
      {"tcp://127.0.0.1:1", "--interface", "eth0"},
      {"tcp://127.0.0.1:1", "--stats=yes"},
      {"tcp://127.0.0.1:1", "--unknown"},
      {"tcp://127.0.0.1:1", "--out", ""},
      {"tcp://127.0.0.1:1", "--max-bytes", "0"},
      {"tcp://127.0.0.1:1", "--max-bytes", "-5"},
      {"tcp://127.0.0.1:1", "--max-bytes", "1G"},
      {"tcp://127.0.0.1:1", "--max-bytes", ""},
      {"tcp://127.0.0.1:1", "--max-bytes", "99999999999999999999999"},
      {"tcp://127.0.0.1:1", "--max-bytes"},
  };
  for (const auto& args : bad) {
    ClientOptions o;
    std::string error;
    std::string joined;
    for (const auto& a : args) joined += a + " ";
    EXPECT_FALSE(Parse(args, o, error)) << joined;
    EXPECT_FALSE(error.empty()) << joined;
    EXPECT_EQ(error.find('\n'), std::string::npos) << joined;
  }
}

TEST(ClientOptions, MaxBytesDefaultsToOneGibibyteAndTakesACount) {
  ClientOptions o;
  std::string error;
  ASSERT_TRUE(Parse({"tcp://127.0.0.1:51000", "--out", "pages"}, o, error)) << error;
  EXPECT_EQ(o.MaxBytes, 1073741824u);
  ASSERT_TRUE(Parse({"tcp://127.0.0.1:51000", "--max-bytes", "5000"}, o, error)) << error;
  EXPECT_EQ(o.MaxBytes, 5000u);
  ASSERT_TRUE(Parse({"tcp://127.0.0.1:51000", "--max-bytes=1"}, o, error)) << error;
  EXPECT_EQ(o.MaxBytes, 1u);
  EXPECT_FALSE(Parse({"tcp://127.0.0.1:51000", "--max-bytes", "0"}, o, error));
  EXPECT_EQ(error, "bad --max-bytes '0': expected a positive whole number of bytes");
  EXPECT_NE(zolclient::ClientUsage().find("--max-bytes N"), std::string::npos);
}

}  // namespace

TEST(ClientOptions, ReplayTakesAFileAndASpeed) {
  ClientOptions o;
  std::string error;
  ASSERT_TRUE(Parse({"replay:/tmp/run.zolrec", "--speed", "0", "--out", "pages"}, o, error)) << error;
  EXPECT_EQ(o.Transport, TransportKind::Replay);
  EXPECT_EQ(o.ReplayFile, "/tmp/run.zolrec");
  EXPECT_DOUBLE_EQ(o.ReplaySpeed, 0);
  ASSERT_TRUE(Parse({"replay:run.zolrec", "--speed=2.5"}, o, error)) << error;
  EXPECT_DOUBLE_EQ(o.ReplaySpeed, 2.5);
  ASSERT_TRUE(Parse({"replay:run.zolrec"}, o, error)) << error;
  EXPECT_DOUBLE_EQ(o.ReplaySpeed, 1);
  ASSERT_TRUE(Parse({"tcp://127.0.0.1:51000", "--record", "out.zolrec"}, o, error)) << error;
  EXPECT_EQ(o.RecordFile, "out.zolrec");

  EXPECT_FALSE(Parse({"replay:"}, o, error));
  EXPECT_EQ(error, "bad source 'replay:': expected replay:FILE");
  EXPECT_FALSE(Parse({"tcp://127.0.0.1:51000", "--speed", "2"}, o, error));
  EXPECT_EQ(error, "--speed applies to replay: sources only");
  EXPECT_FALSE(Parse({"replay:a", "--speed", "-1"}, o, error));
  EXPECT_EQ(error, "bad --speed '-1': expected 0 or a positive number");
  EXPECT_FALSE(Parse({"replay:a", "--speed", "fast"}, o, error));
  EXPECT_FALSE(Parse({"tcp://127.0.0.1:51000", "--record", ""}, o, error));
  EXPECT_EQ(error, "option --record needs a file");
}

TEST(ClientOptions, ServeIsOnLoopbackUnlessMadePublic) {
  ClientOptions o;
  std::string error;
  ASSERT_TRUE(Parse({"tcp://127.0.0.1:51000", "--serve", "8090"}, o, error)) << error;
  EXPECT_EQ(o.ServeAddress, "127.0.0.1");
  EXPECT_EQ(o.ServePort, 8090);
  ASSERT_TRUE(Parse({"tcp://127.0.0.1:51000", "--serve", "127.0.0.2:8091"}, o, error)) << error;
  EXPECT_EQ(o.ServeAddress, "127.0.0.2");
  EXPECT_EQ(o.ServePort, 8091);
  ASSERT_TRUE(Parse({"tcp://127.0.0.1:51000", "--serve", "0.0.0.0:80", "--serve-public"}, o, error)) << error;
  EXPECT_EQ(o.ServeAddress, "0.0.0.0");
  EXPECT_TRUE(o.ServePublic);

  EXPECT_FALSE(Parse({"tcp://127.0.0.1:51000", "--serve", "0.0.0.0:80"}, o, error));
  EXPECT_EQ(error, "--serve on 0.0.0.0 lets others see the pages; add --serve-public to allow it");
  EXPECT_FALSE(Parse({"tcp://127.0.0.1:51000", "--serve", "host.example:80"}, o, error));
  EXPECT_EQ(error, "bad --serve 'host.example:80': expected [ADDR:]PORT with a dotted IPv4 address and a port");
  EXPECT_FALSE(Parse({"tcp://127.0.0.1:51000", "--serve", "0"}, o, error));
  EXPECT_FALSE(Parse({"tcp://127.0.0.1:51000", "--serve", "70000"}, o, error));
  EXPECT_FALSE(Parse({"tcp://127.0.0.1:51000", "--serve-public=yes"}, o, error));
  EXPECT_EQ(error, "option --serve-public takes no value");
}

TEST(ClientOptions, TraceIsAFlagForEverySource) {
  ClientOptions o;
  std::string error;
  ASSERT_TRUE(Parse({"tcp://127.0.0.1:51000"}, o, error)) << error;
  EXPECT_FALSE(o.Trace);
  for (const char* source : {"tcp://127.0.0.1:51000", "udp://239.254.1.2:7125", "serial:/dev/ttyS0", "replay:x.rec"}) {
    ASSERT_TRUE(Parse({source, "--trace"}, o, error)) << source << ": " << error;
    EXPECT_TRUE(o.Trace) << source;
  }
  EXPECT_FALSE(Parse({"tcp://127.0.0.1:51000", "--trace=yes"}, o, error));
  EXPECT_EQ(error, "option --trace takes no value");
  EXPECT_NE(zolclient::ClientUsage().find("  --trace "), std::string::npos);
}

TEST(ClientOptions, MqttSourceAndPublishingSettings) {
  ClientOptions o;
  std::string error;
  ASSERT_TRUE(Parse({"mqtt://127.0.0.1:1884/zol/1", "--out", "pages", "--until-complete", "site"}, o, error)) << error;
  EXPECT_EQ(o.Transport, TransportKind::Mqtt);
  EXPECT_EQ(o.MqttSource.Host, "127.0.0.1");
  EXPECT_EQ(o.MqttSource.Port, 1884);
  EXPECT_EQ(o.MqttSource.Prefix, "zol");
  EXPECT_EQ(o.MqttSource.Site, 1u);
  EXPECT_FALSE(o.MqttPublish);
  ASSERT_TRUE(Parse({"tcp://127.0.0.1:51000", "--mqtt", "mqtts://cloud:8884/track", "--mqtt-cafile", "ca.pem",
                     "--mqtt-client-id", "track-1", "--mqtt-username", "timing", "--mqtt-password-file", "pw",
                     "--mqtt-qos=0"},
                    o, error))
      << error;
  EXPECT_TRUE(o.MqttPublish);
  EXPECT_TRUE(o.MqttPublishAddress.Tls);
  EXPECT_EQ(o.MqttPublishAddress.Port, 8884);
  EXPECT_EQ(o.MqttPublishAddress.Prefix, "track");
  EXPECT_EQ(o.MqttCaFile, "ca.pem");
  EXPECT_EQ(o.MqttClientId, "track-1");
  EXPECT_EQ(o.MqttUsername, "timing");
  EXPECT_EQ(o.MqttPasswordFile, "pw");
  EXPECT_EQ(o.MqttQos, 0);
  ASSERT_TRUE(Parse({"tcp://127.0.0.1:51000", "--mqtt", "mqtt://h/zol"}, o, error)) << error;
  EXPECT_EQ(o.MqttQos, 1);
}

TEST(ClientOptions, BadMqttArgumentsGiveOneLineErrors) {
  ClientOptions o;
  std::string error;
  EXPECT_FALSE(Parse({"mqtt://:1883/zol/1"}, o, error));
  EXPECT_EQ(error, "bad broker address 'mqtt://:1883/zol/1': no host (expected mqtt[s]://HOST[:PORT]/PREFIX/SITE)");
  EXPECT_FALSE(Parse({"tcp://127.0.0.1:51000", "--mqtt", "mqtt://h:70000/zol"}, o, error));
  EXPECT_EQ(error,
            "bad broker address 'mqtt://h:70000/zol': the port must be a number from 1 to 65535 (expected "
            "mqtt[s]://HOST[:PORT]/PREFIX)");
  EXPECT_FALSE(Parse({"tcp://127.0.0.1:51000", "--mqtt", "mqtt://h"}, o, error));
  EXPECT_EQ(error, "bad broker address 'mqtt://h': no prefix (expected mqtt[s]://HOST[:PORT]/PREFIX)");
  EXPECT_FALSE(Parse({"tcp://127.0.0.1:51000", "--mqtt", "mqtts://h/zol"}, o, error));
  EXPECT_EQ(error, "an mqtts:// address needs --mqtt-cafile");
  EXPECT_FALSE(Parse({"tcp://127.0.0.1:51000", "--mqtt", "mqtt://h/zol", "--mqtt-cafile", "ca.pem"}, o, error));
  EXPECT_EQ(error, "--mqtt-cafile applies to mqtts:// addresses only");
  EXPECT_FALSE(Parse({"tcp://127.0.0.1:51000", "--mqtt-qos", "1"}, o, error));
  EXPECT_EQ(error, "the --mqtt-* settings apply to an mqtt:// source or to --mqtt only");
  EXPECT_FALSE(Parse({"tcp://127.0.0.1:51000", "--mqtt", "mqtt://h/zol", "--mqtt-qos", "2"}, o, error));
  EXPECT_EQ(error, "bad --mqtt-qos '2': expected 0 or 1");
  EXPECT_FALSE(Parse({"tcp://127.0.0.1:51000", "--mqtt", "mqtt://h/zol", "--mqtt-username", "u"}, o, error));
  EXPECT_EQ(error, "--mqtt-username and --mqtt-password-file go together");
  EXPECT_FALSE(Parse({"mqtt://h/zol/1", "--record", "r.rec"}, o, error));
  EXPECT_EQ(error, "--record applies to packet sources only; an mqtt:// source gives whole pages");
  EXPECT_FALSE(Parse({"tcp://127.0.0.1:51000", "--mqtt"}, o, error));
  EXPECT_EQ(error, "option --mqtt needs a value");
}
