// The web server in this process, beside a host with the real module: pages of the test's
// own that fail, or that hold the message thread, show how a module call is waited for.
#include <gtest/gtest.h>
#include <httplib.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include "frame/BaseModule.h"
#include "frame/KVTException.h"
#include "frame/platform/Sockets.h"
#include "host/ModuleHost.h"
#include "host/WebServer.h"
#include "testing/TempDir.h"
#include "testing/WaitUntil.h"
#include "web/WebPage.h"

namespace {

using Clock = std::chrono::steady_clock;

class FailingPage : public CWebPage {
 public:
  FailingPage() : CWebPage(nullptr, "Failing", "failing.html") {}
  void HandleRequest(CKVTHttpRequest&, CKVTHttpResponse&) override {
    Guarded("CFailingPage::HandleRequest()", [] {
      Guarded("CFailingPage::ReadRow()", [] { throw std::out_of_range("row 12 of 3"); });
    });
  }
};

// Holds the message thread for as long as the test says.
class SlowPage : public CWebPage {
 public:
  explicit SlowPage(std::shared_ptr<std::atomic<int>> milliseconds)
      : CWebPage(nullptr, "Slow", "slow.html"), Milliseconds(std::move(milliseconds)) {}
  void HandleRequest(CKVTHttpRequest& request, CKVTHttpResponse& response) override {
    std::this_thread::sleep_for(std::chrono::milliseconds(Milliseconds->load()));
    response.Framed = 0;
    response.SetBody("slow page done, token " + request.FormToken);
  }

 private:
  std::shared_ptr<std::atomic<int>> Milliseconds;
};

class WebInProcess {
 public:
  explicit WebInProcess(std::chrono::milliseconds callLimit) {
    HostOptions options;
    options.ModulePath = std::string(ZOL_BINARY_DIR) + "/libzolserver.so";
    options.ApplicationDirectory = AppDir.Path();
    Host = std::make_unique<CModuleHost>(options);
    WebServerSettings settings;
    settings.Port = platform::FindFreeTcpPort();
    settings.CallLimit = callLimit;
    Web = std::make_unique<CWebServer>(*Host, settings);
    std::string error;
    if (!Host->Load() || !Web->Bind(error)) return;
    Host->AddPeer(Web->MakePeer(0x7F000001));
    if (!Host->Start()) return;
    Web->Start();
    auto delay = Delay;
    Ready = Host->RunOnMessageThread(
        [delay](CBaseModule& module) {
          module.WebServerAddPage(new FailingPage);
          module.WebServerAddPage(new SlowPage(delay));
        },
        std::chrono::milliseconds(5000));
    Ready = Ready && WaitUntil([&] { return Client().Get("/zol/_server/index.html"); }, 10);
  }
  ~WebInProcess() {
    Web->Stop();
    Host->Stop();
  }
  httplib::Client Client() const {
    httplib::Client client("127.0.0.1", Web->Port());
    client.set_connection_timeout(5, 0);
    client.set_read_timeout(15, 0);
    return client;
  }

  TempDir AppDir;
  std::unique_ptr<CModuleHost> Host;
  std::unique_ptr<CWebServer> Web;
  std::shared_ptr<std::atomic<int>> Delay = std::make_shared<std::atomic<int>>(0);
  bool Ready = false;
};

}  // namespace

TEST(ZolhostWebCall, AFailingPageIs500AndTheLogNamesTheTrailAndTheReason) {
  testing::internal::CaptureStderr();
  std::string log;
  {
    WebInProcess web(std::chrono::milliseconds(5000));
    ASSERT_TRUE(web.Ready);
    const auto failed = web.Client().Get("/zol/failing.html");
    ASSERT_TRUE(failed);
    EXPECT_EQ(failed->status, 500);
    EXPECT_NE(failed->body.find("the server's log tells why"), std::string::npos);
    // The server goes on.
    const auto page = web.Client().Get("/zol/_server/index.html");
    ASSERT_TRUE(page);
    EXPECT_EQ(page->status, 200);
  }
  log = testing::internal::GetCapturedStderr();
  EXPECT_NE(log.find("web: GET /zol/failing.html answered 500: exception in CFailingPage::ReadRow() <- "
                     "CFailingPage::HandleRequest(): row 12 of 3"),
            std::string::npos)
      << log;
}

TEST(ZolhostWebCall, ASlowPageHoldsUpNoOtherConnectionAndPastTheLimitIs503) {
  testing::internal::CaptureStderr();
  {
    WebInProcess web(std::chrono::milliseconds(600));
    ASSERT_TRUE(web.Ready);
    // Within the limit the page's answer comes, with the form token handed to it.
    *web.Delay = 100;
    const auto quick = web.Client().Get("/zol/slow.html");
    ASSERT_TRUE(quick);
    EXPECT_EQ(quick->status, 200);
    EXPECT_EQ(quick->body, "slow page done, token " + web.Web->FormToken());
    // Past the limit: 503, while the server's own files come at once meanwhile.
    *web.Delay = 1500;
    std::atomic<int> slowStatus{0};
    std::atomic<double> slowSeconds{0};
    std::thread slow([&] {
      const auto start = Clock::now();
      const auto answer = web.Client().Get("/zol/slow.html");
      slowSeconds = std::chrono::duration<double>(Clock::now() - start).count();
      slowStatus = answer ? answer->status : -1;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    const auto start = Clock::now();
    const auto sheet = web.Client().Get("/includes/frame.css");
    const double sheetSeconds = std::chrono::duration<double>(Clock::now() - start).count();
    slow.join();
    ASSERT_TRUE(sheet);
    EXPECT_EQ(sheet->status, 200);
    EXPECT_LT(sheetSeconds, 0.3);
    EXPECT_EQ(slowStatus.load(), 503);
    EXPECT_GE(slowSeconds.load(), 0.5);
    EXPECT_LT(slowSeconds.load(), 1.4);
    // Once the message thread is free again pages answer as before.
    *web.Delay = 0;
    EXPECT_TRUE(WaitUntil([&] {
      const auto again = web.Client().Get("/zol/slow.html");
      return again && again->status == 200;
    }, 10));
  }
  testing::internal::GetCapturedStderr();
}

TEST(ZolhostWebCall, StopAnswersTheRequestsStillWaitingForTheModule) {
  testing::internal::CaptureStderr();
  {
    WebInProcess web(std::chrono::milliseconds(10000));
    ASSERT_TRUE(web.Ready);
    *web.Delay = 1000;
    std::atomic<int> status{0};
    std::thread waiting([&] {
      const auto answer = web.Client().Get("/zol/slow.html");
      status = answer ? answer->status : -1;
    });
    // A second request queues behind the first on the message thread.
    std::atomic<int> second{0};
    std::thread queued([&] {
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
      const auto answer = web.Client().Get("/zol/slow.html");
      second = answer ? answer->status : -1;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    const auto start = Clock::now();
    web.Web->Stop();
    EXPECT_LT(std::chrono::duration<double>(Clock::now() - start).count(), 2.0);
    waiting.join();
    queued.join();
    // Both got an answer or a closed connection; none waited for the 10 s limit.
    EXPECT_NE(status.load(), 200);
    EXPECT_NE(second.load(), 200);
  }
  testing::internal::GetCapturedStderr();
}
