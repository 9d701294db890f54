#include "host/WebServer.h"

#include <httplib.h>

#include <algorithm>
#include <cctype>
#include <utility>

#include "frame/BaseModule.h"
#include "frame/KVTException.h"
#include "host/ModuleHost.h"
#include "web/WebPage.h"

#if defined(__SANITIZE_THREAD__)
// The HTTP library comes from the system, built without the thread sanitizer: the order
// its own threads keep among themselves is invisible to it, so what it reports from inside
// the library is left out. Calls from the library into this program are still checked.
extern "C" const char* __tsan_default_suppressions() { return "called_from_lib:libcpp-httplib.so\n"; }
#endif

namespace {

// Request values as the library keeps them; header names count without case.
std::string Header(const httplib::Request& request, const char* name) {
  return request.has_header(name) ? request.get_header_value(name) : std::string();
}

bool IsRedirect(int status) { return status >= 300 && status < 400; }

// One call of a module's page: made on an HTTP thread, filled on the message thread. It
// is shared, so that a call that the HTTP thread gave up on still has its objects.
struct PageCall {
  CKVTHttpRequest Request;
  CKVTHttpResponse Response;
  bool Found = false;
  bool Completed = false;
};

}  // namespace

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
      Http(std::make_unique<httplib::Server>()) {
  const std::size_t threads = std::max<std::size_t>(Settings.Threads, 1);
  Http->new_task_queue = [threads] { return new httplib::ThreadPool(threads); };
  Http->set_payload_max_length(Settings.MaxBodyBytes);
  Http->set_keep_alive_timeout(2);
  Http->set_read_timeout(10, 0);
  Http->set_write_timeout(10, 0);
  Http->Get(".*", [this](const httplib::Request& request, httplib::Response& response) {
    Answer(request, response, false, std::string());
  });
  // With a reader of its own the handler takes the body itself: the library would read
  // a form into its parameters, and only up to a size far below a page's source.
  Http->Post(".*", [this](const httplib::Request& request, httplib::Response& response,
                          const httplib::ContentReader& reader) {
    std::string body;
    bool tooLarge = false;
    const bool read = reader([&](const char* data, std::size_t length) {
      if (body.size() + length > Settings.MaxBodyBytes) {
        tooLarge = true;
        return false;
      }
      body.append(data, length);
      return true;
    });
    if (!read || tooLarge) {
      response.set_header("Connection", "close");
      if (tooLarge || response.status == 413) {
        AnswerText(response, 413, "413: the request body is larger than " + std::to_string(Settings.MaxBodyBytes) +
                                      " bytes.");
      } else {
        AnswerText(response, 400, "400: the request body could not be read.");
      }
      LogRequest(request, response);
      return;
    }
    Answer(request, response, true, body);
  });
  Http->set_exception_handler([](const httplib::Request&, httplib::Response& response, std::exception_ptr) {
    response.status = 500;
    response.set_content("500: internal error.", "text/plain");
  });
}

CWebServer::~CWebServer() { Stop(); }

bool CWebServer::Bind(std::string& error) {
  const std::string where = Settings.Address + ":" + std::to_string(Settings.Port);
  if (!Http->bind_to_port(Settings.Address, Settings.Port)) {
    error = "web server cannot listen on " + where + " (the port is taken, or the address is not one of this machine)";
    return false;
  }
  BoundPort = Settings.Port;
  Bound = true;
  return true;
}

std::unique_ptr<CHostPeer> CWebServer::MakePeer(DWORD computer) {
  return std::make_unique<CWebServerPeer>(computer, Registry, [this](const std::string& line) { Host.WriteLog(line); });
}

void CWebServer::Start() {
  if (!Bound || Listener.joinable()) return;
  Listener = std::thread([this] { Http->listen_after_bind(); });
}

void CWebServer::Stop() {
  if (!Listener.joinable()) return;
  // The library may not have started its loop yet; stop only works once it runs. A loop
  // that ended at once (it could not accept) is not waited for.
  const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(2);
  while (!Http->is_running() && std::chrono::steady_clock::now() < giveUp) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  Http->stop();
  Listener.join();
}

void CWebServer::AnswerText(httplib::Response& response, int status, const std::string& text) const {
  response.status = status;
  response.set_content(text + "\n", "text/plain; charset=utf-8");
}

bool CWebServer::ServeOwnFile(const std::string& path, httplib::Response& response) const {
  if (path == CWebFrame::kStyleSheetPath) {
    response.set_content(CWebFrame::StyleSheet(), "text/css");
  } else if (path == CWebFrame::kTextAreaScriptPath) {
    response.set_content(CWebFrame::TextAreaScript(), "text/javascript");
  } else if (path == CWebFrame::kFolderImagePath) {
    response.set_content(CWebFrame::FolderImage(), "image/gif");
  } else {
    return false;
  }
  response.status = 200;
  return true;
}

void CWebServer::Answer(const httplib::Request& request, httplib::Response& response, bool post,
                        const std::string& body) {
  response.set_header("X-Frame-Options", "DENY");
  response.set_header("X-Content-Type-Options", "nosniff");
  const std::string host = Header(request, "Host");
  // On loopback only names of this machine are answered: a page elsewhere that points
  // its own name at 127.0.0.1 does not get at the administration.
  const bool onLoopback = Settings.Address.rfind("127.", 0) == 0;
  if (onLoopback && !CWebAccess::LoopbackHost(host)) {
    AnswerText(response, 403, "403: this server answers only requests for its loopback address.");
  } else if (Settings.Authentication && !CWebAccess::Authorized(Header(request, "Authorization"), Settings.Credentials)) {
    response.set_header("WWW-Authenticate", "Basic realm=\"ZOL Server administration\", charset=\"UTF-8\"");
    AnswerText(response, 401, "401: this server asks for a user name and a password.");
  } else if (CWebAccess::UnsafePath(request.path)) {
    AnswerText(response, 400, "400: a path with a \"..\" component or a control character is refused.");
  } else if (post && !CWebAccess::SameOrigin(Header(request, "Origin"), Header(request, "Referer"), host)) {
    AnswerText(response, 403, "403: a form sent from another site is refused.");
  } else if (!post && ServeOwnFile(request.path, response)) {
    // The web server's own file.
  } else {
    const std::vector<WebModuleRegistration> modules = Registry->Modules();
    const std::string& path = request.path;
    if (path == "/" && !modules.empty()) {
      response.status = 302;
      response.set_header("Location", "/" + modules.front().Prefix + "/" + modules.front().HomePage);
      response.set_content("redirect", "text/plain");
    } else {
      // "/<prefix>/<page path>"
      const auto slash = path.find('/', 1);
      const std::string prefix = path.substr(1, slash == std::string::npos ? std::string::npos : slash - 1);
      WebModuleRegistration module;
      if (!Registry->Find(prefix, module)) {
        AnswerText(response, 404, "404: Page not found.");
      } else if (slash == std::string::npos || slash + 1 == path.size()) {
        response.status = 302;
        response.set_header("Location", "/" + module.Prefix + "/" + module.HomePage);
        response.set_content("redirect", "text/plain");
      } else {
        AnswerFromModule(module, path.substr(slash + 1), request, response, post, body);
      }
    }
  }
  LogRequest(request, response);
}

void CWebServer::AnswerFromModule(const WebModuleRegistration& module, const std::string& path,
                                  const httplib::Request& request, httplib::Response& response, bool post,
                                  const std::string& body) {
  auto call = std::make_shared<PageCall>();
  call->Request.Method = post ? CKVTHttpRequest::kMethodPost : 1;
  call->Request.Path = path;
  const auto question = request.target.find('?');
  if (question != std::string::npos) {
    call->Request.Attributes = CWebAccess::ParsePairs(request.target.substr(question + 1), true);
  }
  if (post) call->Request.Form = CWebAccess::ParsePairs(body, false);
  const std::string pageLink = "/" + module.Prefix + "/" + path;
  call->Response.PrintLink = pageLink;
  call->Response.Framed = 1;
  call->Response.Status = 200;

  const bool ran = Host.RunOnMessageThread(
      [call](CBaseModule& server) {
        CWebPage* page = server.WebServerFindPage(call->Request.Path);
        if (page == nullptr) page = server.WebServerFindPage("GET");
        if (page == nullptr) return;
        call->Found = true;
        page->HandleRequest(call->Request, call->Response);
        call->Completed = true;
      },
      Settings.CallLimit);
  if (!ran) {
    response.set_header("Retry-After", "5");
    AnswerText(response, 503, "503: the server is busy; try again in a moment.");
    return;
  }
  if (!call->Found) {
    AnswerText(response, 404, "404: Page not found.");
    return;
  }
  if (!call->Completed) {
    AnswerText(response, 500, "500: the page failed; the server's log tells why.");
    return;
  }
  const CKVTHttpResponse& answer = call->Response;
  response.status = answer.Status;
  std::string contentType;
  for (const auto& [name, value] : answer.Headers) {
    std::string lower = name;
    std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    // A value that would break the header lines is left out.
    if (value.find_first_of("\r\n") != std::string::npos || name.find_first_of("\r\n: ") != std::string::npos) continue;
    if (lower == "content-type") {
      contentType = value;
    } else {
      response.set_header(name, value);
    }
  }
  response.set_header("Cache-Control", "no-store");
  if (answer.Framed != 0 && !IsRedirect(answer.Status)) {
    WebFrameContent content;
    content.HeadText = answer.HeadText;
    content.PrinterFriendly = answer.PrinterFriendly != 0;
    // The page asks for a print link by adding to the link it was given.
    if (answer.PrintLink != pageLink) content.PrintLink = answer.PrintLink;
    content.Body = answer.BodyText();
    response.set_content(CWebFrame::Document(Registry->Modules(), content), "text/html; charset=utf-8");
    return;
  }
  response.set_content(answer.BodyText(), contentType.empty() ? std::string("text/html; charset=utf-8") : contentType);
}

void CWebServer::LogRequest(const httplib::Request& request, const httplib::Response& response) const {
  if (!Host.Verbose()) return;
  Host.WriteLog("web: " + request.method + " " + request.path + " " + std::to_string(response.status) + ", " +
                std::to_string(response.body.size()) + " bytes");
}
