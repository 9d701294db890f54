#include "site/ZOLServerTestSite.h"

#include <gtest/gtest.h>

#include "testing/ModuleFixture.h"

TEST(TestSite, TestPageSizeWithoutATestPageDoesNothing) {
  PackageScope scope;
  CZOLServerTestSite site(1, nullptr);
  EXPECT_NO_THROW(site.SetTestPageSize(5000));
  EXPECT_TRUE(site.GetUpdatedPages().empty());
}

TEST(TestSite, TestPageSizeResizesTheTestPageAndGivesANewVersion) {
  PackageScope scope;
  TempDir folder;
  CZOLServerTestSite site(1, nullptr);
  site.Build(folder.Path() + "/", -1, 1);
  auto* page = new CZOLTestPage(1, 60);
  site.AddPageToSite(page);
  site.SetTestPage(page);
  site.OnTimerEvent();
  const BYTE version = page->GetSequenceLow();
  site.SetTestPageSize(3000);
  EXPECT_EQ(page->GetTestSize(), 3000u);
  EXPECT_EQ(page->GetData().size(), 3000u);
  EXPECT_EQ(page->GetDataAsString().substr(0, 14), "ZOL test page ");
  EXPECT_EQ(site.GetUpdatedPages().count(60), 1u);
  EXPECT_NE(page->GetSequenceLow(), version);
}

TEST(TestSite, ServerForwardsTheTestPageSizeOnlyToATestSiteItHas) {
  PackageScope scope;
  CZOLServer server;
  CZOLServerTestSite site(1, nullptr);
  CZOLTestPage page(1, 60);
  site.SetTestPage(&page);
  server.SetTestPageSize(100);
  EXPECT_EQ(page.GetTestSize(), 0u);
  server.SetTestSite(&site);
  server.SetTestPageSize(200);
  EXPECT_EQ(page.GetTestSize(), 200u);
  EXPECT_EQ(server.GetTestPageSize(), 200u);
  server.SetTestSite(nullptr);
}
