// The installation's web server, run inside zolhost: a module of class 2 to the loaded
// module, which registers its administration pages with it, and an HTTP server that
// hands every request under a registered prefix to the module's page on zolhost's one
// message thread and puts framed answers into the web server's frame.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "frame/ModuleMessage.h"
#include "frame/Types.h"
#include "host/HostPeer.h"
#include "host/WebAccess.h"
#include "host/WebFrame.h"

class CModuleHost;

namespace httplib {
class Server;
struct Request;
struct Response;
class ContentReader;
}  // namespace httplib

struct WebServerSettings {
  std::string Address = "127.0.0.1";
  std::uint16_t Port = 8080;
  // With credentials every request must bring them (HTTP basic authentication).
  bool Authentication = false;
  WebCredentials Credentials;
  // How long a request waits for the message thread before it is answered 503.
  std::chrono::milliseconds CallLimit{10000};
  // Larger request bodies are answered 413.
  std::size_t MaxBodyBytes = 1024 * 1024;
  // Threads that serve connections.
  std::size_t Threads = 12;
};

// The registrations of the modules, by prefix; the message thread writes them, the HTTP
// threads read them.
class CWebRegistry {
 public:
  // Enters a registration, replacing an earlier one of the same prefix.
  void Register(WebModuleRegistration registration);
  std::vector<WebModuleRegistration> Modules() const;
  // The registration of the module served under `prefix`; false when there is none.
  bool Find(const std::string& prefix, WebModuleRegistration& found) const;

 private:
  mutable std::mutex Lock;
  std::vector<WebModuleRegistration> Registered;
};

// The web server as the loaded module sees it: a module of class 2 that takes the page
// registration (message 1) and answers nothing.
class CWebServerPeer : public CHostPeer {
 public:
  CWebServerPeer(DWORD computer, std::shared_ptr<CWebRegistry> registry, std::function<void(const std::string&)> log);

  WORD PeerClass() const override { return kWebServerClass; }
  DWORD PeerInstance() const override { return 0; }
  DWORD PeerComputer() const override { return Computer; }
  std::vector<CModuleMessage*> Receive(CModuleMessage& message) override;

  // Reads the registration: title, prefix, home page, a count and as many paths and
  // titles. False when the message is cut short or names no prefix.
  static bool ReadRegistration(CModuleMessage& message, WebModuleRegistration& registration);

 private:
  DWORD Computer;
  std::shared_ptr<CWebRegistry> Registry;
  std::function<void(const std::string&)> Log;
};

class CWebServer {
 public:
  CWebServer(CModuleHost& host, WebServerSettings settings);
  CWebServer(const CWebServer&) = delete;
  CWebServer& operator=(const CWebServer&) = delete;
  ~CWebServer();

  // Takes the address and port; false with a one-line reason.
  bool Bind(std::string& error);
  std::uint16_t Port() const { return BoundPort; }
  // The module of class 2 to add to the host; it shares this server's registrations.
  std::unique_ptr<CHostPeer> MakePeer(DWORD computer);
  // Serves on threads of its own until Stop.
  void Start();
  void Stop();

 private:
  // One request after the library read it; `body` is the POSTed body.
  void Answer(const httplib::Request& request, httplib::Response& response, bool post, const std::string& body);
  // Hands the request to the module's page on the message thread and writes the answer.
  void AnswerFromModule(const WebModuleRegistration& module, const std::string& path, const httplib::Request& request,
                        httplib::Response& response, bool post, const std::string& body);
  void AnswerText(httplib::Response& response, int status, const std::string& text) const;
  bool ServeOwnFile(const std::string& path, httplib::Response& response) const;
  void LogRequest(const httplib::Request& request, const httplib::Response& response) const;

  CModuleHost& Host;
  WebServerSettings Settings;
  std::shared_ptr<CWebRegistry> Registry;
  std::unique_ptr<httplib::Server> Http;
  std::uint16_t BoundPort = 0;
  bool Bound = false;
  std::thread Listener;
};
