// The command line of zolhost: the data manager link and how the stand-in plays.
#include "host/HostOptions.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

TEST(HostOptions, LinkAndRacePlayDefaults) {
  std::string error;
  const auto options = ParseHostOptions({}, error);
  ASSERT_TRUE(options.has_value()) << error;
  EXPECT_EQ(options->DataManagerPort, 0);
  EXPECT_EQ(options->Race.Speed, 1.0);
  EXPECT_EQ(options->Race.Seed, 1u);
  EXPECT_FALSE(options->Race.Loop);
}

TEST(HostOptions, LinkPortListensOnLoopbackAndListenTakesAnAddress) {
  std::string error;
  auto options = ParseHostOptions({"--data-manager-port", "5200"}, error);
  ASSERT_TRUE(options.has_value()) << error;
  EXPECT_EQ(options->DataManagerAddress, "127.0.0.1");
  EXPECT_EQ(options->DataManagerPort, 5200);
  options = ParseHostOptions({"--data-manager-listen", "0.0.0.0:65535"}, error);
  ASSERT_TRUE(options.has_value()) << error;
  EXPECT_EQ(options->DataManagerAddress, "0.0.0.0");
  EXPECT_EQ(options->DataManagerPort, 65535);
}

TEST(HostOptions, RacePlayOptionsFillRace) {
  std::string error;
  const auto options =
      ParseHostOptions({"--race", "r.json", "--race-speed", "2.5", "--seed", "4294967295", "--race-loop"}, error);
  ASSERT_TRUE(options.has_value()) << error;
  EXPECT_EQ(options->RaceFile, "r.json");
  EXPECT_EQ(options->Race.Speed, 2.5);
  EXPECT_EQ(options->Race.Seed, 4294967295u);
  EXPECT_TRUE(options->Race.Loop);
}

TEST(HostOptions, BadValuesAreRefusedWithTheOptionNamed) {
  const std::vector<std::vector<std::string>> cases = {
      {"--data-manager-port", "0"},       {"--data-manager-port", "65536"}, {"--data-manager-port", "+80"},
      {"--data-manager-port", ""},        {"--data-manager-listen", "1.2.3.4"}, {"--data-manager-listen", ":80"},
      {"--data-manager-listen", "1.2.3:80"}, {"--race-speed", "0"},       {"--race-speed", "nan"},
      {"--race-speed", "1x"},             {"--race-speed", "-1"},          {"--seed", "-1"},
      {"--seed", "12345678901"},          {"--seed", "1.5"},               {"--seed"},
  };
  for (const auto& arguments : cases) {
    std::string error;
    EXPECT_FALSE(ParseHostOptions(arguments, error).has_value()) << arguments[0] << " " << arguments.back();
    EXPECT_NE(error.find(arguments[0]), std::string::npos) << error;
  }
}

TEST(HostOptions, UsageNamesEveryOption) {
  const std::string usage = HostUsage();
  for (const char* option : {"--appdir", "--module", "--language", "--com", "--code-page", "--race ", "--race-speed",
                             "--seed", "--race-loop", "--data-manager-port", "--data-manager-listen", "--verbose",
                             "--help"}) {
    EXPECT_NE(usage.find(option), std::string::npos) << option;
  }
}

TEST(HostOptions, WebCertificateAndKeyGoTogether) {
  std::string error;
  auto both = ParseHostOptions({"--web-cert", "/etc/zol/cert.pem", "--web-key", "/etc/zol/key.pem"}, error);
  ASSERT_TRUE(both.has_value()) << error;
  EXPECT_EQ(both->WebCertificateFile, "/etc/zol/cert.pem");
  EXPECT_EQ(both->WebKeyFile, "/etc/zol/key.pem");
  EXPECT_FALSE(ParseHostOptions({"--web-cert", "/etc/zol/cert.pem"}, error).has_value());
  EXPECT_NE(error.find("--web-key"), std::string::npos) << error;
  EXPECT_FALSE(ParseHostOptions({"--web-key", "/etc/zol/key.pem"}, error).has_value());
  EXPECT_NE(error.find("--web-cert"), std::string::npos) << error;
  EXPECT_FALSE(ParseHostOptions({"--web-cert"}, error).has_value());
  EXPECT_NE(error.find("needs a value"), std::string::npos) << error;
  const std::string usage = HostUsage();
  EXPECT_NE(usage.find("--web-cert FILE"), std::string::npos);
  EXPECT_NE(usage.find("--web-key FILE"), std::string::npos);
}
