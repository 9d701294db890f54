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
