#include "client/MqttAddress.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using zolclient::MqttAddress;
using zolclient::MqttAddressUse;
using zolclient::ParseMqttAddress;

TEST(MqttAddress, PublishingTakesHostPortAndPrefix) {
  MqttAddress a;
  std::string error;
  ASSERT_TRUE(ParseMqttAddress("mqtt://broker.example:1884/zol", MqttAddressUse::Publish, a, error)) << error;
  EXPECT_FALSE(a.Tls);
  EXPECT_EQ(a.Host, "broker.example");
  EXPECT_EQ(a.Port, 1884);
  EXPECT_EQ(a.Prefix, "zol");
  ASSERT_TRUE(ParseMqttAddress("mqtt://10.0.0.2/track/zol", MqttAddressUse::Publish, a, error)) << error;
  EXPECT_EQ(a.Port, 1883);
  EXPECT_EQ(a.Prefix, "track/zol");
  ASSERT_TRUE(ParseMqttAddress("mqtts://cloud/zol", MqttAddressUse::Publish, a, error)) << error;
  EXPECT_TRUE(a.Tls);
  EXPECT_EQ(a.Port, 8883);
  ASSERT_TRUE(ParseMqttAddress("mqtt://h:65535/p", MqttAddressUse::Publish, a, error)) << error;
  EXPECT_EQ(a.Port, 65535);
}

TEST(MqttAddress, ReadingTakesTheSiteAsTheLastLevel) {
  MqttAddress a;
  std::string error;
  ASSERT_TRUE(ParseMqttAddress("mqtt://127.0.0.1:1883/a/zol/1", MqttAddressUse::Read, a, error)) << error;
  EXPECT_EQ(a.Prefix, "a/zol");
  EXPECT_EQ(a.Site, 1u);
  ASSERT_TRUE(ParseMqttAddress("mqtts://h/zol/7", MqttAddressUse::Read, a, error)) << error;
  EXPECT_EQ(a.Site, 7u);
  EXPECT_EQ(a.Prefix, "zol");
}

TEST(MqttAddress, BadAddressesGiveExactOneLineErrors) {
  const auto failure = [](const std::string& text, MqttAddressUse use) {
    MqttAddress a;
    a.Host = "untouched";
    std::string error;
    EXPECT_FALSE(ParseMqttAddress(text, use, a, error)) << text;
    EXPECT_EQ(a.Host, "untouched") << text;
    EXPECT_EQ(error.find('\n'), std::string::npos);
    return error;
  };
  const auto publish = MqttAddressUse::Publish;
  const auto read = MqttAddressUse::Read;
  EXPECT_EQ(failure("http://h/zol", publish),
            "bad broker address 'http://h/zol': it must start with mqtt:// or mqtts:// (expected "
            "mqtt[s]://HOST[:PORT]/PREFIX)");
  EXPECT_EQ(failure("mqtt:///zol", publish),
            "bad broker address 'mqtt:///zol': no host (expected mqtt[s]://HOST[:PORT]/PREFIX)");
  EXPECT_EQ(failure("mqtt://:1883/zol", publish),
            "bad broker address 'mqtt://:1883/zol': no host (expected mqtt[s]://HOST[:PORT]/PREFIX)");
  EXPECT_EQ(failure("mqtt://h:0/zol", publish),
            "bad broker address 'mqtt://h:0/zol': the port must be a number from 1 to 65535 (expected "
            "mqtt[s]://HOST[:PORT]/PREFIX)");
  EXPECT_EQ(failure("mqtt://h:65536/zol", publish),
            "bad broker address 'mqtt://h:65536/zol': the port must be a number from 1 to 65535 (expected "
            "mqtt[s]://HOST[:PORT]/PREFIX)");
  EXPECT_EQ(failure("mqtt://h:/zol", publish),
            "bad broker address 'mqtt://h:/zol': the port must be a number from 1 to 65535 (expected "
            "mqtt[s]://HOST[:PORT]/PREFIX)");
  EXPECT_EQ(failure("mqtt://h:-1/zol", publish),
            "bad broker address 'mqtt://h:-1/zol': the port must be a number from 1 to 65535 (expected "
            "mqtt[s]://HOST[:PORT]/PREFIX)");
  EXPECT_EQ(failure("mqtt://h", publish),
            "bad broker address 'mqtt://h': no prefix (expected mqtt[s]://HOST[:PORT]/PREFIX)");
  EXPECT_EQ(failure("mqtt://h/", publish),
            "bad broker address 'mqtt://h/': no prefix (expected mqtt[s]://HOST[:PORT]/PREFIX)");
  EXPECT_EQ(failure("mqtt://h/zol/#", publish),
            "bad broker address 'mqtt://h/zol/#': an empty topic level or one with a wildcard or control "
            "character (expected mqtt[s]://HOST[:PORT]/PREFIX)");
  EXPECT_EQ(failure("mqtt://h//zol", publish),
            "bad broker address 'mqtt://h//zol': an empty topic level or one with a wildcard or control "
            "character (expected mqtt[s]://HOST[:PORT]/PREFIX)");
  EXPECT_EQ(failure("mqtt://h@x/zol", publish),
            "bad broker address 'mqtt://h@x/zol': bad host (expected mqtt[s]://HOST[:PORT]/PREFIX)");
  EXPECT_EQ(failure("mqtt://h/zol", read),
            "bad broker address 'mqtt://h/zol': no site after the prefix (expected "
            "mqtt[s]://HOST[:PORT]/PREFIX/SITE)");
  EXPECT_EQ(failure("mqtt://h/zol/x", read),
            "bad broker address 'mqtt://h/zol/x': the site must be a number from 0 to 7 (expected "
            "mqtt[s]://HOST[:PORT]/PREFIX/SITE)");
  EXPECT_EQ(failure("mqtt://h/zol/8", read),
            "bad broker address 'mqtt://h/zol/8': the site must be a number from 0 to 7 (expected "
            "mqtt[s]://HOST[:PORT]/PREFIX/SITE)");
  EXPECT_EQ(failure("mqtts://h:99999", read),
            "bad broker address 'mqtts://h:99999': the port must be a number from 1 to 65535 (expected "
            "mqtt[s]://HOST[:PORT]/PREFIX/SITE)");
}

}  // namespace
