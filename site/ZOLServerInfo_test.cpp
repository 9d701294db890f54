#include "site/ZOLServerInfo.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "frame/Clock.h"
#include "frame/TTBuffer.h"
#include "frame/TimeText.h"
#include "site/ZOLServerSite.h"
#include "testing/ModuleFixture.h"
#include "testing/StreamRecordingPort.h"

namespace {

struct InfoRecord {
  DWORD BuildTime = 0;
  CParameters Clock;
  bool HasSite = false;
  CParameters Site;
};

InfoRecord Decode(const COutputPage& page) {
  const std::vector<BYTE>& data = page.GetData();
  CTTBuffer buffer(0);
  buffer.Assign(data.data(), data.size());
  InfoRecord record;
  buffer >> record.BuildTime;
  record.Clock.BufferToParameters(buffer);
  record.Site.BufferToParameters(buffer);
  record.HasSite = record.Site.GetCount() > 0;
  EXPECT_EQ(buffer.GetRemaining(), 0u) << "bytes behind the record";
  return record;
}

struct InfoPage : ::testing::Test {
  void SetUp() override {
    site.SetParameter("name", "demo");
    site.SetParameter("width", "800");
    site.SetParameter("height", "600");
    site.PortAdd(&port);
    site.Build(folder.Path() + "/", -1, 1);
  }
  PackageScope scope;
  TempDir folder;
  StreamRecordingPort port;
  CZOLServerSite site{2, nullptr};
};

}  // namespace

TEST_F(InfoPage, IsPageZeroAtLevelZeroWithRepeatOneAndNoName) {
  const CZOLServerInfo* info = site.GetInfoPage();
  EXPECT_EQ(site.GetPages().at(0), info);
  EXPECT_EQ(info->GetPageKey(), (2u << 18));
  EXPECT_EQ(info->GetRepeat(), 1u);
  EXPECT_EQ(info->GetFilename(), "");
  EXPECT_EQ(info->GetIsTemplate(), 0u);
}

TEST_F(InfoPage, NeverRepeatsByTheCarousel) {
  for (int tick = 0; tick < 5; ++tick) EXPECT_FALSE(site.GetInfoPage()->ShouldRepeat());
}

TEST_F(InfoPage, FirstExportHoldsBuildTimeClockAndTheSitesParameters) {
  site.GetInfoPage()->ZOLExport();
  const InfoRecord record = Decode(*site.GetInfoPage());
  EXPECT_EQ(record.BuildTime, site.GetBuildTime());
  std::vector<std::string> keys;
  for (const auto& [key, value] : record.Clock.GetEntries()) keys.push_back(key);
  EXPECT_EQ(keys, (std::vector<std::string>{"flag", "racetime", "timeofday", "timetogo"}));
  // Without a run there is no race time, no time to go and no flag.
  EXPECT_EQ(record.Clock.GetString("racetime"), FormatTime(KVTTIME_NULL, 0, 0));
  EXPECT_EQ(record.Clock.GetString("timetogo"), FormatTime(KVTTIME_NULL, 0, 0));
  EXPECT_EQ(record.Clock.GetString("flag"), "none");
  EXPECT_FALSE(record.Clock.GetString("timeofday").empty());
  EXPECT_NE(record.Clock.GetString("timeofday"), FormatTime(KVTTIME_NULL, 0, 0));
  // The first export follows no earlier one, whose second counts as 0.
  ASSERT_TRUE(record.HasSite);
  EXPECT_EQ(record.Site.GetString("name"), "demo");
  EXPECT_EQ(record.Site.GetString("width"), "800");
  EXPECT_EQ(record.Site.GetString("height"), "600");
  EXPECT_EQ(record.Site.GetString("pagecount"), "1");
  EXPECT_EQ(record.Clock, site.GetClockParameters());
}

TEST_F(InfoPage, SiteParametersGoAlongOnlyWhenThePreviousExportsSecondIsAMultipleOfFive) {
  site.GetInfoPage()->ZOLExport();
  for (int exportCount = 0; exportCount < 3; ++exportCount) {
    const DWORD previous = site.GetInfoPage()->GetLastSecond();
    site.GetInfoPage()->ZOLExport();
    EXPECT_EQ(Decode(*site.GetInfoPage()).HasSite, previous % 5 == 0) << "previous second " << previous;
  }
}

TEST_F(InfoPage, ContentHasNoClosingZeroByte) {
  site.GetInfoPage()->ZOLExport();
  // The record decodes to its very end; a text page would end in a zero byte.
  const InfoRecord record = Decode(*site.GetInfoPage());
  EXPECT_TRUE(record.HasSite);
  EXPECT_GT(site.GetInfoPage()->GetPackets().size(), 0u);
}

TEST_F(InfoPage, WithoutARunTheSitesTimerSendsANewVersionEverySecond) {
  port.Updates.clear();
  port.Sequences.clear();
  const DWORD key = site.GetInfoPage()->GetPageKey();
  for (int second = 0; second < 3; ++second) site.OnTimerEvent();
  std::vector<BYTE> versions;
  for (std::size_t i = 0; i < port.Updates.size(); ++i) {
    if (port.Updates[i] == key) versions.push_back(port.Sequences[i]);
  }
  ASSERT_EQ(versions.size(), 3u);
  EXPECT_NE(versions[0], versions[1]);
  EXPECT_NE(versions[1], versions[2]);
}

TEST_F(InfoPage, ItsUpdateReachesTheStreamAtOnceWithoutWaitingForATick) {
  site.GetInfoPage()->ZOLExport();
  port.Updates.clear();
  site.GetInfoPage()->NotifyPageUpdated();
  EXPECT_EQ(port.Updates, std::vector<DWORD>{site.GetInfoPage()->GetPageKey()});
  EXPECT_EQ(site.GetUpdatedPages().count(0), 0u);
}

TEST_F(InfoPage, BuildTimeOfARebuildIsSent) {
  site.Build(folder.Path() + "/", -1, 1);
  site.GetInfoPage()->ZOLExport();
  EXPECT_EQ(Decode(*site.GetInfoPage()).BuildTime, site.GetBuildTime());
  EXPECT_NEAR(static_cast<double>(site.GetBuildTime()), static_cast<double>(GetTimeOfDay()), 5.0);
}
