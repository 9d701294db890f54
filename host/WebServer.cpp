#include "host/WebServer.h"

#include <microhttpd.h>

#include <algorithm>
#include <cctype>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <map>
#include <utility>

#include "frame/BaseModule.h"
#include "frame/KVTException.h"
#include "frame/platform/RandomBytes.h"
#include "frame/platform/Sockets.h"
#include "host/ModuleHost.h"
#include "web/WebPage.h"

#if defined(__SANITIZE_THREAD__)
// The HTTP library comes from the system, built without the thread sanitizer: the order
// its own threads keep among themselves is invisible to it, so what it reports from inside
// the library is left out. Calls from the library into this program are still checked.
extern "C" const char* __tsan_default_suppressions() {
  return "called_from_lib:libmicrohttpd.so\ncalled_from_lib:libgnutls.so\n";
}
#endif

#if defined(__SANITIZE_ADDRESS__)
// When the HTTP library cannot start with a certificate and key that are no pair, it does
// not free what the TLS library read from them; zolhost then ends at once (status 2). That
// leak lies inside the two system libraries, so it is left out of the leak report.
extern "C" const char* __lsan_default_suppressions() { return "leak:libgnutls.so\nleak:libtasn1.so\n"; }
// Without the table of suppressions used, zolhost's last line stays its own.
extern "C" const char* __lsan_default_options() { return "print_suppressions=0"; }
#endif

namespace {

using SteadyClock = std::chrono::steady_clock;

// Connections the kernel holds for the event loop to accept.
constexpr int kListenBacklog = 1024;

bool IsRedirect(int status) { return status >= 300 && status < 400; }

std::string Lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

std::string HeaderOf(MHD_Connection* connection, const char* name) {
  const char* value = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, name);
  return value == nullptr ? std::string() : std::string(value);
}

// How a request frames its body, from its headers.
struct BodyFraming {
  int ContentLengths = 0;
  std::string ContentLength;
  bool TransferEncoding = false;
};

MHD_Result CountFraming(void* cls, MHD_ValueKind, const char* key, const char* value) {
  auto* framing = static_cast<BodyFraming*>(cls);
  const std::string name = Lower(key == nullptr ? std::string() : std::string(key));
  if (name == "content-length") {
    ++framing->ContentLengths;
    framing->ContentLength = value == nullptr ? std::string() : std::string(value);
  } else if (name == "transfer-encoding") {
    framing->TransferEncoding = true;
  }
  return MHD_YES;
}

// The library leaves the path and the query as sent (see IdentityUnescape); the server
// decodes them itself, so that a %00 cannot cut a path short unseen.
MHD_Result CollectQuery(void* cls, MHD_ValueKind, const char* key, const char* value) {
  auto* pairs = static_cast<std::map<std::string, std::string>*>(cls);
  const std::string name = CWebAccess::Decode(key == nullptr ? std::string() : std::string(key), true);
  if (!name.empty()) (*pairs)[name] = CWebAccess::Decode(value == nullptr ? std::string() : std::string(value), true);
  return MHD_YES;
}

std::size_t IdentityUnescape(void*, MHD_Connection*, char* text) { return std::char_traits<char>::length(text); }

}  // namespace

// One request as the web server keeps it between the library's calls.
struct CWebServer::Request {
  std::string Method;
  std::string Path;
  std::map<std::string, std::string> Query;
  std::string Body;
  bool Post = false;
  // Set while the module's page works on it.
  std::shared_ptr<PendingCall> Call;
  std::string PageLink;
};

// What goes back to the client.
struct CWebServer::Answer {
  int Status = 200;
  std::string ContentType = "text/plain; charset=utf-8";
  std::string Body;
  std::vector<std::pair<std::string, std::string>> Headers;
  bool Close = false;

  void Text(int status, const std::string& text) {
    Status = status;
    ContentType = "text/plain; charset=utf-8";
    Body = text + "\n";
  }
};

// A request handed to the module's page: made on the HTTP thread, filled on the message
// thread, and ended exactly once (answered, timed out, or cancelled at the stop), which
// resumes its connection.
struct CWebServer::PendingCall {
  enum class Phase { Waiting, Answered, TimedOut, Cancelled };
  std::mutex Lock;
  Phase State = Phase::Waiting;
  MHD_Connection* Connection = nullptr;
  SteadyClock::time_point Deadline;
  std::uint64_t Id = 0;
  CKVTHttpRequest PageRequest;
  CKVTHttpResponse PageResponse;
  bool Ran = false;
  bool Found = false;
  bool Completed = false;
};

// The calls that wait for the module, with their deadlines.
class CWebServer::CallBoard {
 public:
  // False once the server stops: the call is then not taken.
  bool Add(const std::shared_ptr<PendingCall>& call) {
    std::lock_guard<std::mutex> guard(Lock);
    if (Stopping) return false;
    call->Id = ++LastId;
    Waiting[call->Id] = call;
    Wake.notify_all();
    return true;
  }
  void Remove(std::uint64_t id) {
    std::lock_guard<std::mutex> guard(Lock);
    Waiting.erase(id);
  }
  // Ends a waiting call in `phase` and resumes its connection; false when it had ended.
  static bool Finish(PendingCall& call, PendingCall::Phase phase) {
    std::lock_guard<std::mutex> guard(call.Lock);
    if (call.State != PendingCall::Phase::Waiting) return false;
    call.State = phase;
    // Under the call's lock, so that after a stop has ended every call no resume is
    // still on its way to the library.
    MHD_resume_connection(call.Connection);
    return true;
  }
  // Ends the calls past their deadline, until the stop; runs on a thread of its own.
  void RunDeadlines() {
    std::unique_lock<std::mutex> guard(Lock);
    while (!Stopping && !DeadlinesEnd) {
      auto next = SteadyClock::now() + std::chrono::seconds(1);
      std::vector<std::shared_ptr<PendingCall>> due;
      const auto now = SteadyClock::now();
      for (auto it = Waiting.begin(); it != Waiting.end();) {
        if (it->second->Deadline <= now) {
          due.push_back(it->second);
          it = Waiting.erase(it);
        } else {
          next = std::min(next, it->second->Deadline);
          ++it;
        }
      }
      if (!due.empty()) {
        guard.unlock();
        for (const auto& call : due) Finish(*call, PendingCall::Phase::TimedOut);
        guard.lock();
        continue;
      }
      Wake.wait_until(guard, next);
    }
  }
  // No more calls are taken; the waiting ones are cancelled (answered 503).
  void StopAll() {
    std::map<std::uint64_t, std::shared_ptr<PendingCall>> left;
    {
      std::lock_guard<std::mutex> guard(Lock);
      Stopping = true;
      left.swap(Waiting);
    }
    Wake.notify_all();
    for (auto& [id, call] : left) Finish(*call, PendingCall::Phase::Cancelled);
  }
  void EndDeadlines() {
    {
      std::lock_guard<std::mutex> guard(Lock);
      DeadlinesEnd = true;
    }
    Wake.notify_all();
  }

 private:
  std::mutex Lock;
  std::condition_variable Wake;
  std::map<std::uint64_t, std::shared_ptr<PendingCall>> Waiting;
  std::uint64_t LastId = 0;
  bool Stopping = false;
  bool DeadlinesEnd = false;
};

// The library's callbacks, with access to the server.
struct WebServerCallbacks {
  static MHD_Result OnRequest(void* cls, MHD_Connection* connection, const char* url, const char* method,
                              const char* version, const char* uploadData, std::size_t* uploadSize, void** context);
  static void OnCompleted(void* cls, MHD_Connection* connection, void** context, MHD_RequestTerminationCode code);
  static void OnLibraryMessage(void* cls, const char* format, va_list arguments);
};

void CWebRegistry::Register(WebModuleRegistration registration) {
  std::lock_guard<std::mutex> guard(Lock);
  for (WebModuleRegistration& module : Registered) {
    if (module.Prefix == registration.Prefix) {
      module = std::move(registration);
      return;
    }
  }
  Registered.push_back(std::move(registration));
}

std::vector<WebModuleRegistration> CWebRegistry::Modules() const {
  std::lock_guard<std::mutex> guard(Lock);
  return Registered;
}

bool CWebRegistry::Find(const std::string& prefix, WebModuleRegistration& found) const {
  std::lock_guard<std::mutex> guard(Lock);
  for (const WebModuleRegistration& module : Registered) {
    if (module.Prefix == prefix) {
      found = module;
      return true;
    }
  }
  return false;
}

CWebServerPeer::CWebServerPeer(DWORD computer, std::shared_ptr<CWebRegistry> registry,
                               std::function<void(const std::string&)> log)
    : Computer(computer), Registry(std::move(registry)), Log(std::move(log)) {}

bool CWebServerPeer::ReadRegistration(CModuleMessage& message, WebModuleRegistration& registration) {
  // No module names that many pages; a count beyond it is a broken message.
  constexpr int kMostPages = 100000;
  try {
    message >> registration.Title >> registration.Prefix >> registration.HomePage;
    int count = 0;
    message >> count;
    if (count < 0 || count > kMostPages) return false;
    registration.MenuPages.clear();
    for (int i = 0; i < count; ++i) {
      std::string path;
      std::string title;
      message >> path >> title;
      registration.MenuPages.emplace_back(std::move(path), std::move(title));
    }
  } catch (CKVTException* e) {
    delete e;
    return false;
  }
  // The prefix is one path component.
  const std::string& prefix = registration.Prefix;
  return !prefix.empty() && prefix.find_first_of("/\\?#") == std::string::npos && prefix != "." && prefix != "..";
}

std::vector<CModuleMessage*> CWebServerPeer::Receive(CModuleMessage& message) {
  if (message.ID != kMsgWebRegisterModule) return {};
  WebModuleRegistration registration;
  if (!ReadRegistration(message, registration)) {
    if (Log) Log("web server: a page registration that cannot be read was dropped");
    return {};
  }
  if (Log) {
    Log("web server: \"" + registration.Title + "\" registered under /" + registration.Prefix + "/, home page /" +
        registration.Prefix + "/" + registration.HomePage + ", " + std::to_string(registration.MenuPages.size()) +
        " page(s) in the menu");
  }
  Registry->Register(std::move(registration));
  return {};
}

CWebServer::CWebServer(CModuleHost& host, WebServerSettings settings)
    : Host(host), Settings(std::move(settings)), Registry(std::make_shared<CWebRegistry>()),
      Token(platform::RandomHex(16)), Calls(std::make_shared<CallBoard>()) {}

CWebServer::~CWebServer() { Stop(); }

bool CWebServer::Bind(std::string& error) {
  const std::string where = Settings.Address + ":" + std::to_string(Settings.Port);
  if (Token.empty()) {
    error = "web server: the kernel gives no random bytes for the form token";
    return false;
  }
  if (Secure() && MHD_is_feature_supported(MHD_FEATURE_TLS) != MHD_YES) {
    error = "web server: the HTTP library was built without TLS; --web-cert cannot be used";
    return false;
  }
  // The socket is taken here, so that a port in use is told apart from a certificate
  // that cannot be used.
  const int fd = platform::OpenTcpListener(Settings.Address, Settings.Port, kListenBacklog);
  if (fd < 0) {
    error = "web server cannot listen on " + where + " (the port is taken, or the address is not one of this machine)";
    return false;
  }
  unsigned flags = MHD_USE_EPOLL_INTERNAL_THREAD | MHD_ALLOW_SUSPEND_RESUME;
  if (Secure()) flags |= MHD_USE_TLS;
  if (Host.Verbose()) flags |= MHD_USE_ERROR_LOG;
  std::vector<MHD_OptionItem> options = {
      {MHD_OPTION_LISTEN_SOCKET, fd, nullptr},
      {MHD_OPTION_CONNECTION_MEMORY_LIMIT, static_cast<intptr_t>(Settings.MaxHeaderBytes), nullptr},
      {MHD_OPTION_CONNECTION_LIMIT, static_cast<intptr_t>(Settings.MaxConnections), nullptr},
      {MHD_OPTION_PER_IP_CONNECTION_LIMIT, static_cast<intptr_t>(Settings.MaxConnectionsPerAddress), nullptr},
      {MHD_OPTION_CONNECTION_TIMEOUT, static_cast<intptr_t>(Settings.IdleSeconds), nullptr},
      {MHD_OPTION_NOTIFY_COMPLETED, reinterpret_cast<intptr_t>(&WebServerCallbacks::OnCompleted), this},
      {MHD_OPTION_UNESCAPE_CALLBACK, reinterpret_cast<intptr_t>(&IdentityUnescape), nullptr},
      {MHD_OPTION_EXTERNAL_LOGGER, reinterpret_cast<intptr_t>(&WebServerCallbacks::OnLibraryMessage), this},
  };
  if (Secure()) {
    options.push_back({MHD_OPTION_HTTPS_MEM_CERT, 0, const_cast<char*>(Settings.CertificatePem.c_str())});
    options.push_back({MHD_OPTION_HTTPS_MEM_KEY, 0, const_cast<char*>(Settings.KeyPem.c_str())});
  }
  options.push_back({MHD_OPTION_END, 0, nullptr});
  Daemon = MHD_start_daemon(flags, 0, nullptr, nullptr, &WebServerCallbacks::OnRequest, this, MHD_OPTION_ARRAY,
                            options.data(), MHD_OPTION_END);
  if (Daemon == nullptr) {
    platform::CloseSocket(fd);
    error = Secure() ? "web server: the certificate (--web-cert) and key (--web-key) cannot be used together: "
                       "not PEM, damaged, or not a pair"
                     : "web server cannot start on " + where;
    return false;
  }
  ListenSocket = fd;
  BoundPort = Settings.Port;
  Deadlines = std::thread([calls = Calls] { calls->RunDeadlines(); });
  return true;
}

std::unique_ptr<CHostPeer> CWebServer::MakePeer(DWORD computer) {
  return std::make_unique<CWebServerPeer>(computer, Registry, [this](const std::string& line) { Host.WriteLog(line); });
}

void CWebServer::Start() { Started = true; }

void CWebServer::Stop() {
  if (Daemon == nullptr) return;
  Started = false;
  Calls->StopAll();
  Calls->EndDeadlines();
  if (Deadlines.joinable()) Deadlines.join();
  MHD_stop_daemon(Daemon);
  Daemon = nullptr;
  // The library closes the socket it was given only when asked to; it is ours.
  if (ListenSocket >= 0) platform::CloseSocket(ListenSocket);
  ListenSocket = -1;
}

MHD_Result WebServerCallbacks::OnRequest(void* cls, MHD_Connection* connection, const char* url, const char* method,
                                         const char*, const char* uploadData, std::size_t* uploadSize,
                                         void** context) {
  auto* server = static_cast<CWebServer*>(cls);
  auto* request = static_cast<CWebServer::Request*>(*context);
  CWebServer::Answer answer;
  if (request == nullptr) {
    request = new CWebServer::Request;
    *context = request;
    request->Method = method == nullptr ? std::string() : std::string(method);
    request->Path = CWebAccess::Decode(url == nullptr ? std::string() : std::string(url), false);
    request->Post = request->Method == "POST";
    MHD_get_connection_values(connection, MHD_GET_ARGUMENT_KIND, &CollectQuery, &request->Query);
    // The body's framing is checked before any of it is read.
    BodyFraming framing;
    MHD_get_connection_values(connection, MHD_HEADER_KIND, &CountFraming, &framing);
    answer.Close = true;
    if (framing.ContentLengths > 1 || (framing.ContentLengths == 1 && framing.TransferEncoding)) {
      answer.Text(400, "400: the request gives its length twice.");
    } else if (framing.ContentLengths == 1 &&
               (framing.ContentLength.empty() || framing.ContentLength.find_first_not_of("0123456789") != std::string::npos)) {
      answer.Text(400, "400: the request's Content-Length is not a number.");
    } else if (framing.ContentLengths == 1 &&
               (framing.ContentLength.size() > 15 ||
                std::stoull(framing.ContentLength) > static_cast<unsigned long long>(server->Settings.MaxBodyBytes))) {
      answer.Text(413, "413: the request body is larger than " + std::to_string(server->Settings.MaxBodyBytes) + " bytes.");
    } else if (request->Method != "GET" && request->Method != "HEAD" && request->Method != "POST") {
      answer.Text(405, "405: only GET, HEAD and POST are answered.");
      answer.Headers.emplace_back("Allow", "GET, HEAD, POST");
    } else {
      // The body comes in the calls that follow.
      return MHD_YES;
    }
    server->Send(connection, *request, answer);
    return MHD_YES;
  }
  if (request->Call) {
    // Resumed: the module answered, or the wait ended.
    server->ModuleAnswer(*request->Call, request->PageLink, answer);
    server->Send(connection, *request, answer);
    return MHD_YES;
  }
  if (*uploadSize > 0) {
    if (request->Body.size() + *uploadSize > server->Settings.MaxBodyBytes) {
      // Only a body without a length gets here; the connection is closed unanswered, as
      // the library takes no answer in the middle of a body.
      if (server->Host.Verbose()) {
        server->Host.WriteLog("web: " + request->Method + " " + request->Path + ": body over " +
                              std::to_string(server->Settings.MaxBodyBytes) + " bytes, connection closed");
      }
      return MHD_NO;
    }
    request->Body.append(uploadData, *uploadSize);
    *uploadSize = 0;
    return MHD_YES;
  }
  server->Respond(connection, *request);
  return MHD_YES;
}

void WebServerCallbacks::OnCompleted(void*, MHD_Connection*, void** context, MHD_RequestTerminationCode) {
  delete static_cast<CWebServer::Request*>(*context);
  *context = nullptr;
}

void WebServerCallbacks::OnLibraryMessage(void* cls, const char* format, va_list arguments) {
  auto* server = static_cast<CWebServer*>(cls);
  if (!server->Host.Verbose()) return;
  char text[512];
  std::vsnprintf(text, sizeof text, format, arguments);
  std::string line(text);
  while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.pop_back();
  server->Host.WriteLog("web server: " + line);
}

bool CWebServer::ServeOwnFile(const std::string& path, Answer& answer) const {
  if (path == CWebFrame::kStyleSheetPath) {
    answer.Body = CWebFrame::StyleSheet();
    answer.ContentType = "text/css";
  } else if (path == CWebFrame::kTextAreaScriptPath) {
    answer.Body = CWebFrame::TextAreaScript();
    answer.ContentType = "text/javascript";
  } else if (path == CWebFrame::kFolderImagePath) {
    answer.Body = CWebFrame::FolderImage();
    answer.ContentType = "image/gif";
  } else if (path == CWebFrame::kIconPath) {
    answer.Body = CWebFrame::Icon();
    answer.ContentType = "image/svg+xml";
  } else {
    return false;
  }
  answer.Status = 200;
  return true;
}

bool CWebServer::CarriesToken(const std::string& formBody) const {
  const std::string sent = CWebAccess::ParsePairs(formBody, false)[CKVTHttpRequest::kFormTokenField];
  return CWebAccess::EqualInConstantTime(CWebAccess::Decode(sent, true), Token);
}

bool CWebServer::Respond(MHD_Connection* connection, Request& request) {
  Answer answer;
  const std::string host = HeaderOf(connection, "Host");
  // On loopback only names of this machine are answered: a page elsewhere that points
  // its own name at 127.0.0.1 does not get at the administration.
  const bool onLoopback = Settings.Address.rfind("127.", 0) == 0;
  const std::string& path = request.Path;
  if (!Started) {
    answer.Headers.emplace_back("Retry-After", "5");
    answer.Text(503, "503: the server is starting; try again in a moment.");
  } else if (onLoopback && !CWebAccess::LoopbackHost(host)) {
    answer.Text(403, "403: this server answers only requests for its loopback address.");
  } else if (Settings.Authentication &&
             !CWebAccess::Authorized(HeaderOf(connection, "Authorization"), Settings.Credentials)) {
    answer.Headers.emplace_back("WWW-Authenticate", "Basic realm=\"ZOL Server administration\", charset=\"UTF-8\"");
    answer.Text(401, "401: this server asks for a user name and a password.");
  } else if (CWebAccess::UnsafePath(path)) {
    answer.Text(400, "400: a path with a \"..\" component or a control character is refused.");
  } else if (request.Post && !CWebAccess::SameOrigin(HeaderOf(connection, "Origin"), HeaderOf(connection, "Referer"),
                                                      host, Secure() ? "https" : "http")) {
    answer.Text(403, "403: a form sent from another site is refused.");
  } else if (request.Post && !CarriesToken(request.Body)) {
    answer.Text(403, "403: the form does not carry this server's token; open the page again and send it from there.");
  } else if (!request.Post && ServeOwnFile(path, answer)) {
    // The web server's own file.
  } else {
    const std::vector<WebModuleRegistration> modules = Registry->Modules();
    if (path == "/" && !modules.empty()) {
      answer.Status = 302;
      answer.Headers.emplace_back("Location", "/" + modules.front().Prefix + "/" + modules.front().HomePage);
      answer.Body = "redirect";
    } else {
      // "/<prefix>/<page path>"
      const auto slash = path.find('/', 1);
      const std::string prefix = path.size() < 2 ? std::string()
                                                 : path.substr(1, slash == std::string::npos ? std::string::npos : slash - 1);
      WebModuleRegistration module;
      if (!Registry->Find(prefix, module)) {
        answer.Text(404, "404: Page not found.");
        answer.Body.pop_back();
      } else if (slash == std::string::npos || slash + 1 == path.size()) {
        answer.Status = 302;
        answer.Headers.emplace_back("Location", "/" + module.Prefix + "/" + module.HomePage);
        answer.Body = "redirect";
      } else {
        AnswerFromModule(connection, request, module, path.substr(slash + 1));
        return false;
      }
    }
  }
  Send(connection, request, answer);
  return true;
}

void CWebServer::AnswerFromModule(MHD_Connection* connection, Request& request, const WebModuleRegistration& module,
                                  const std::string& path) {
  auto call = std::make_shared<PendingCall>();
  call->Connection = connection;
  call->Deadline = SteadyClock::now() + Settings.CallLimit;
  call->PageRequest.Method = request.Post ? CKVTHttpRequest::kMethodPost : 1;
  call->PageRequest.Path = path;
  call->PageRequest.Attributes = request.Query;
  call->PageRequest.FormToken = Token;
  if (request.Post) call->PageRequest.Form = CWebAccess::ParsePairs(request.Body, false);
  request.PageLink = "/" + module.Prefix + "/" + path;
  call->PageResponse.PrintLink = request.PageLink;
  call->PageResponse.Framed = 1;
  call->PageResponse.Status = 200;
  request.Call = call;

  // Set aside before the call can end: its end resumes the connection.
  MHD_suspend_connection(connection);
  if (!Calls->Add(call)) {
    CallBoard::Finish(*call, PendingCall::Phase::Cancelled);
    return;
  }
  CModuleHost* host = &Host;
  std::weak_ptr<CallBoard> board = Calls;
  const std::string what = request.Method + " " + request.PageLink;
  Host.PostToMessageThread(
      [call, host, what](CBaseModule& server) {
        {
          std::lock_guard<std::mutex> guard(call->Lock);
          // A call whose wait ended is left out.
          if (call->State != PendingCall::Phase::Waiting) return;
        }
        CWebPage* page = server.WebServerFindPage(call->PageRequest.Path);
        if (page == nullptr) page = server.WebServerFindPage("GET");
        call->Ran = true;
        if (page == nullptr) return;
        call->Found = true;
        try {
          page->HandleRequest(call->PageRequest, call->PageResponse);
          call->Completed = true;
        } catch (CKVTException* e) {
          host->WriteLog("web: " + what + " answered 500: exception in " + e->DescribeWithReason());
          delete e;
        } catch (const std::exception& e) {
          host->WriteLog("web: " + what + " answered 500: " + e.what());
        }
      },
      [call, board](bool ran) {
        if (!ran) {
          CallBoard::Finish(*call, PendingCall::Phase::Cancelled);
        } else {
          CallBoard::Finish(*call, PendingCall::Phase::Answered);
        }
        if (auto calls = board.lock()) calls->Remove(call->Id);
      });
}

void CWebServer::ModuleAnswer(PendingCall& call, const std::string& pageLink, Answer& answer) const {
  std::lock_guard<std::mutex> guard(call.Lock);
  if (call.State != PendingCall::Phase::Answered || !call.Ran) {
    answer.Headers.emplace_back("Retry-After", "5");
    answer.Text(503, "503: the server is busy; try again in a moment.");
    return;
  }
  if (!call.Found) {
    answer.Text(404, "404: Page not found.");
    answer.Body.pop_back();
    return;
  }
  if (!call.Completed) {
    answer.Text(500, "500: the page failed; the server's log tells why.");
    return;
  }
  const CKVTHttpResponse& page = call.PageResponse;
  answer.Status = page.Status;
  std::string contentType;
  for (const auto& [name, value] : page.Headers) {
    // A value that would break the header lines is left out.
    if (value.find_first_of("\r\n") != std::string::npos || name.empty() ||
        name.find_first_of("\r\n: ") != std::string::npos) {
      continue;
    }
    if (Lower(name) == "content-type") {
      contentType = value;
    } else {
      answer.Headers.emplace_back(name, value);
    }
  }
  answer.Headers.emplace_back("Cache-Control", "no-store");
  if (page.Framed != 0 && !IsRedirect(page.Status)) {
    WebFrameContent content;
    content.HeadText = page.HeadText;
    content.PrinterFriendly = page.PrinterFriendly != 0;
    // The page asks for a print link by adding to the link it was given.
    if (page.PrintLink != pageLink) content.PrintLink = page.PrintLink;
    content.Body = page.BodyText();
    answer.Body = CWebFrame::Document(Registry->Modules(), content);
    answer.ContentType = "text/html; charset=utf-8";
    return;
  }
  answer.Body = page.BodyText();
  answer.ContentType = contentType.empty() ? std::string("text/html; charset=utf-8") : contentType;
}

void CWebServer::Send(MHD_Connection* connection, const Request& request, const Answer& answer) const {
  MHD_Response* response = MHD_create_response_from_buffer(answer.Body.size(), const_cast<char*>(answer.Body.data()),
                                                            MHD_RESPMEM_MUST_COPY);
  if (response == nullptr) return;
  MHD_add_response_header(response, "Content-Type", answer.ContentType.c_str());
  MHD_add_response_header(response, "X-Frame-Options", "DENY");
  MHD_add_response_header(response, "X-Content-Type-Options", "nosniff");
  for (const auto& [name, value] : answer.Headers) MHD_add_response_header(response, name.c_str(), value.c_str());
  if (answer.Close) MHD_add_response_header(response, "Connection", "close");
  MHD_queue_response(connection, static_cast<unsigned>(answer.Status), response);
  MHD_destroy_response(response);
  if (Host.Verbose()) {
    Host.WriteLog("web: " + request.Method + " " + request.Path + " " + std::to_string(answer.Status) + ", " +
                  std::to_string(answer.Body.size()) + " bytes");
  }
}
