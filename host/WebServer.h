// The installation's web server, run inside zolhost: a module of class 2 to the loaded
// module, which registers its administration pages with it, and an HTTP server that
// hands every request under a registered prefix to the module's page on zolhost's one
// message thread and puts framed answers into the web server's frame.
//
// The HTTP side is one event loop on its own thread. A request for a module's page is
// queued for the message thread and its connection set aside until the answer is there
// (or the call limit passed), so that no connection waits for another's page.
#pragma once

#include <atomic>
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

struct MHD_Daemon;
struct MHD_Connection;

struct WebServerSettings {
  std::string Address = "127.0.0.1";
  std::uint16_t Port = 8080;
  // With credentials every request must bring them (HTTP basic authentication).
  bool Authentication = false;
  WebCredentials Credentials;
  // With both (PEM text) the pages are served over HTTPS.
  std::string CertificatePem;
  std::string KeyPem;
  // How long a request waits for the message thread before it is answered 503.
  std::chrono::milliseconds CallLimit{10000};
  // Larger request bodies are answered 413.
  std::size_t MaxBodyBytes = 1024 * 1024;
  // The request line and headers of a request together: beyond it 431.
  std::size_t MaxHeaderBytes = 64 * 1024;
  // A connection that sends nothing for this long (while it sends its request or between
  // requests) is closed.
  unsigned IdleSeconds = 5;
  // Connections at once, in all and from one address.
  unsigned MaxConnections = 2000;
  unsigned MaxConnectionsPerAddress = 64;
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

  // Takes the address and port and readies the HTTP side (with TLS when asked); false with
  // a one-line reason. Requests that come before Start are answered 503.
  bool Bind(std::string& error);
  std::uint16_t Port() const { return BoundPort; }
  bool Secure() const { return !Settings.CertificatePem.empty(); }
  // The anti-forgery token of this run: random, 32 hexadecimal digits.
  const std::string& FormToken() const { return Token; }
  // The module of class 2 to add to the host; it shares this server's registrations.
  std::unique_ptr<CHostPeer> MakePeer(DWORD computer);
  // Begins handing requests to the module.
  void Start();
  // Answers the requests still waiting for the module 503 and ends the HTTP side.
  void Stop();

  struct Request;
  struct Answer;
  struct PendingCall;
  class CallBoard;

 private:
  friend struct WebServerCallbacks;

  // A whole request (its body read): the checks, the server's own files, the redirects,
  // and the module's pages; false when the answer is to come from the module later.
  bool Respond(MHD_Connection* connection, Request& request);
  void AnswerFromModule(MHD_Connection* connection, Request& request, const WebModuleRegistration& module,
                        const std::string& path);
  // The module's answer (or its failure) as the HTTP answer.
  void ModuleAnswer(PendingCall& call, const std::string& pageLink, Answer& answer) const;
  bool ServeOwnFile(const std::string& path, Answer& answer) const;
  // True when the form body's anti-forgery field is this run's token.
  bool CarriesToken(const std::string& formBody) const;
  void Send(MHD_Connection* connection, const Request& request, const Answer& answer) const;

  CModuleHost& Host;
  WebServerSettings Settings;
  std::shared_ptr<CWebRegistry> Registry;
  std::string Token;
  std::shared_ptr<CallBoard> Calls;
  MHD_Daemon* Daemon = nullptr;
  int ListenSocket = -1;
  std::uint16_t BoundPort = 0;
  std::atomic<bool> Started{false};
  std::thread Deadlines;
};
