#include "frame/BaseModule.h"

#include <gtest/gtest.h>

#include "testing/RecordingTarget.h"
#include "web/WebPage.h"

namespace {

class PlainModule : public CBaseModule {
 public:
  int ProcessMessage(CModuleMessage*) override { return 0; }
};

class NamedPage : public CWebPage {
 public:
  NamedPage(std::string title, std::string path, BOOL inMenu) : CWebPage(nullptr, std::move(title), std::move(path), inMenu) {}
  void HandleRequest(CKVTHttpRequest&, CKVTHttpResponse& response) override { response.SetBody(Title); }
};

int ReadInt(CModuleMessage& message) {
  message.Reset();
  int value = 0;
  message >> value;
  return value;
}

std::string ReadString(CModuleMessage& message) {
  std::string value;
  message >> value;
  return value;
}

}  // namespace

TEST(BaseModule, StartsUnconnectedWithTheDocumentedDefaults) {
  PlainModule module;
  EXPECT_EQ(module.Handle, -1);
  EXPECT_EQ(module.Class, 65535);
  EXPECT_EQ(module.Description, "No description");
  EXPECT_EQ(module.ConnectedClass, 65535);
  EXPECT_EQ(module.ConnectedInstance, 0u);
  EXPECT_EQ(module.ConnectedComputer, 0xFFFFFFFFu);
  EXPECT_EQ(module.SendTarget, nullptr);
}

TEST(BaseModule, SendWithoutTargetDoesNothingVisible) {
  PlainModule module;
  EXPECT_NO_THROW(module.Send(static_cast<WORD>(7)));
  EXPECT_NO_THROW(module.Send(new CModuleMessage(8, 5, 0, 0)));
  EXPECT_NO_THROW(module.SetTimerInterval(200));
  EXPECT_EQ(module.ConnectedClass, 65535);
}

TEST(BaseModule, SendHandsTheMessageToTheTarget) {
  PlainModule module;
  RecordingTarget target;
  module.SendTarget = &target;
  module.Send(9, 5, 3, 0x0100007F);
  ASSERT_EQ(target.Sent.size(), 1u);
  EXPECT_EQ(target.Sent[0]->ID, 9);
  EXPECT_EQ(target.Sent[0]->TargetClass, 5);
  EXPECT_EQ(target.Sent[0]->TargetInstance, 3u);
  EXPECT_EQ(target.Sent[0]->TargetComputer, 0x0100007Fu);
}

TEST(BaseModule, SendByIdAddressesTheConnectedPeer) {
  PlainModule module;
  RecordingTarget target;
  module.SendTarget = &target;
  module.SetConnected(5, 2, 0x0A000001);
  module.Send(static_cast<WORD>(0));
  ASSERT_EQ(target.Sent.size(), 1u);
  EXPECT_EQ(target.Sent[0]->TargetClass, 5);
  EXPECT_EQ(target.Sent[0]->TargetInstance, 2u);
  EXPECT_EQ(target.Sent[0]->TargetComputer, 0x0A000001u);
}

TEST(BaseModule, AfterGetAllModulesSendByIdAddressesClass65535) {
  PlainModule module;
  RecordingTarget target;
  module.SendTarget = &target;
  module.SetConnected(5, 2, 0x0A000001);
  module.WaitFlags = 3;
  module.GetAllModules();
  module.Send(static_cast<WORD>(0));
  ASSERT_EQ(target.Sent.size(), 2u);
  EXPECT_EQ(target.Sent[0]->ID, kMsgGetAllModules);
  EXPECT_EQ(target.Sent[0]->TargetClass, kHostClass);
  EXPECT_EQ(target.Sent[1]->TargetClass, 65535);
  EXPECT_EQ(target.Sent[1]->TargetInstance, 0u);
  EXPECT_EQ(target.Sent[1]->TargetComputer, 0xFFFFFFFFu);
  EXPECT_EQ(module.WaitFlags, 0u);
}

TEST(BaseModule, TimerAndWaitingRequestsCarryAnIntToTheHost) {
  PlainModule module;
  RecordingTarget target;
  module.SendTarget = &target;
  module.SetTimerInterval(200);
  module.EnableWaiting(1);
  ASSERT_EQ(target.Sent.size(), 2u);
  EXPECT_EQ(target.Sent[0]->ID, 0x30);
  EXPECT_EQ(target.Sent[0]->TargetClass, 0);
  EXPECT_EQ(target.Sent[0]->GetFilled(), 4u);
  EXPECT_EQ(ReadInt(*target.Sent[0]), 200);
  EXPECT_EQ(target.Sent[1]->ID, 0x34);
  EXPECT_EQ(ReadInt(*target.Sent[1]), 1);
}

TEST(ModuleMessage, EnvelopeStartsWithTheDocumentedValues) {
  CModuleMessage message(0x8021, 5, 1, 2);
  EXPECT_EQ(message.ID, 0x8021);
  EXPECT_EQ(message.TargetClass, 5);
  EXPECT_EQ(message.TargetInstance, 1u);
  EXPECT_EQ(message.TargetComputer, 2u);
  EXPECT_EQ(message.Class, 0);
  EXPECT_EQ(message.HostFlag, 0xFF);
  EXPECT_EQ(message.GetCapacity(), 1024u);
  EXPECT_EQ(message.GetFilled(), 0u);
}

TEST(WebRegistration, ModuleWithoutSitesRegistersACountOfZeroWithTheHomePageNamed) {
  PlainModule module;
  module.Name = "ZOL Server";
  module.ShortName = "zol";
  module.HomePage = "_server/index.html";
  module.WebServerAddPage(new NamedPage("ZOL Server Home", "_server/index.html", 0));
  RecordingTarget target;
  module.SendTarget = &target;
  module.WebServerRegisterModule(4, 0x0100007F);
  ASSERT_EQ(target.Sent.size(), 1u);
  CModuleMessage& message = *target.Sent[0];
  EXPECT_EQ(message.ID, 1);
  EXPECT_EQ(message.TargetClass, 2);
  EXPECT_EQ(message.TargetInstance, 4u);
  message.Reset();
  EXPECT_EQ(ReadString(message), "ZOL Server");
  EXPECT_EQ(ReadString(message), "zol");
  EXPECT_EQ(ReadString(message), "_server/index.html");
  int count = -1;
  message >> count;
  EXPECT_EQ(count, 0);
  EXPECT_EQ(message.GetRemaining(), 0u);
}

TEST(WebRegistration, OnlyMenuPagesAreNamedInPathOrder) {
  PlainModule module;
  module.WebServerAddPage(new NamedPage("B content", "b/content.html", 1));
  module.WebServerAddPage(new NamedPage("hidden", "a/settings.html", 0));
  module.WebServerAddPage(new NamedPage("A content", "a/content.html", 1));
  RecordingTarget target;
  module.SendTarget = &target;
  module.WebServerRegisterModule(0, 0);
  CModuleMessage& message = *target.Sent.at(0);
  message.Reset();
  ReadString(message), ReadString(message), ReadString(message);
  int count = 0;
  message >> count;
  ASSERT_EQ(count, 2);
  EXPECT_EQ(ReadString(message), "a/content.html");
  EXPECT_EQ(ReadString(message), "A content");
  EXPECT_EQ(ReadString(message), "b/content.html");
  EXPECT_EQ(ReadString(message), "B content");
}

TEST(WebRegistration, RemovingAnUnknownPathIsHarmless) {
  PlainModule module;
  module.WebServerAddPage(new NamedPage("x", "x.html", 0));
  EXPECT_NO_THROW(module.WebServerRemovePage("nothing.html"));
  EXPECT_NE(module.WebServerFindPage("x.html"), nullptr);
  module.WebServerRemovePage("x.html");
  EXPECT_EQ(module.WebServerFindPage("x.html"), nullptr);
}

TEST(WebRegistration, AddingAPageUnderAUsedPathReplacesTheEarlierOne) {
  PlainModule module;
  module.WebServerAddPage(new NamedPage("old", "p.html", 0));
  module.WebServerAddPage(new NamedPage("new", "p.html", 0));
  ASSERT_NE(module.WebServerFindPage("p.html"), nullptr);
  EXPECT_EQ(module.WebServerFindPage("p.html")->Title, "new");
  EXPECT_EQ(module.GetWebPages().size(), 1u);
}
