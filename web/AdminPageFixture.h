// A running server for the tests of the administration pages: its own application
// folder, a pseudo-terminal standing in for COM 7 (every other COM number leads nowhere),
// and helpers that hand a GET or a POST to a registered page.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "distribution/SerialPort.h"
#include "distribution/ZOLServer.h"
#include "frame/platform/SerialLine.h"
#include "testing/ModuleFixture.h"
#include "web/WebPage.h"

class AdminPageFixture {
 public:
  static constexpr int kComPort = 7;

  AdminPageFixture() {
    PtyOk = platform::OpenPseudoTerminal(Controller, Device, DeviceName);
    for (int i = 1; i <= CZOLSerialPort::kHighestComPort; ++i) {
      Scope.Package.ComPorts[i] = i == kComPort ? DeviceName : "/nonexistent/zol-tty" + std::to_string(i);
    }
    // 127.0.0.1 in network byte order.
    Scope.Package.LocalAddress = 0x0100007F;
  }
  ~AdminPageFixture() {
    Server.reset();
    platform::CloseSerial(Controller);
    platform::CloseSerial(Device);
  }
  AdminPageFixture(const AdminPageFixture&) = delete;
  AdminPageFixture& operator=(const AdminPageFixture&) = delete;

  // Writes the configuration file and makes the server.
  CZOLServer& Start(const std::string& settings) {
    Scope.WriteSettings(settings);
    Server = std::make_unique<CZOLServer>();
    return *Server;
  }

  // A server without ports and with one site "main" whose root is the folder "site",
  // holding `file` with `text`; returns the root.
  std::string StartWithOneSite(const std::string& file, const std::string& text) {
    const std::string root = Scope.Folder.Path() + "/site";
    Scope.Folder.Write("site/" + file, text);
    Start("[ports]\ncount=0\n[sites]\ncount=1\nsite0=main\n[main]\nroot=" + root + "\n");
    return root;
  }

  CWebPage* Page(const std::string& path) const { return Server->WebServerFindPage(path); }

  CKVTHttpResponse Get(const std::string& path, const std::map<std::string, std::string>& attributes = {}) {
    CKVTHttpRequest request;
    request.Method = 1;
    request.Path = path;
    request.Attributes = attributes;
    return Handle(path, request);
  }

  CKVTHttpResponse Post(const std::string& path, const std::map<std::string, std::string>& form) {
    CKVTHttpRequest request;
    request.Method = CKVTHttpRequest::kMethodPost;
    request.Path = path;
    request.Form = form;
    return Handle(path, request);
  }

  CKVTHttpResponse Handle(const std::string& path, CKVTHttpRequest& request) {
    CKVTHttpResponse response;
    response.PrintLink = "/zol/" + path;
    CWebPage* page = Page(path);
    if (page == nullptr) {
      response.Status = -1;  // no page: a test that expected one fails on the status
      return response;
    }
    page->HandleRequest(request, response);
    return response;
  }

  PackageScope Scope;
  bool PtyOk = false;
  int Controller = -1, Device = -1;
  std::string DeviceName;
  std::unique_ptr<CZOLServer> Server;
};
