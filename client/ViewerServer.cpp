#include "client/ViewerServer.h"

#include <microhttpd.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "client/ViewerDocument.h"
#include "frame/KVTException.h"
#include "frame/platform/OpenFileLimit.h"
#include "frame/platform/Sockets.h"

namespace zolclient {

struct CViewerServer::Answer {
  unsigned Status = 200;
  std::string ContentType = "text/html; charset=utf-8";
  std::string Body;
  bool IsStream = false;
};

struct CViewerServer::Stream {
  MHD_Connection* Connection = nullptr;
  std::uint64_t NextEvent = 0;
  std::uint64_t SeenSecond = ~std::uint64_t{0};
  bool Parked = false;
  std::string Pending;
};

namespace {

// What one stream may hold unsent; beyond it the stream is told that it missed changes.
constexpr std::size_t kMostPendingBytes = 64 * 1024;

const char* const kPageSecurity =
    "default-src 'self'; script-src 'self'; style-src 'self' 'unsafe-inline'; img-src 'self' data:; "
    "object-src 'none'; base-uri 'none'; form-action 'none'; frame-ancestors 'self'";

bool EndsWith(const std::string& text, const std::string& ending) {
  return text.size() >= ending.size() && text.compare(text.size() - ending.size(), ending.size(), ending) == 0;
}

// "/site/N/REST": the site number and the rest; false for anything else.
bool SplitSitePath(const std::string& url, DWORD& site, std::string& rest) {
  const std::string prefix = "/site/";
  if (url.rfind(prefix, 0) != 0) return false;
  const std::size_t slash = url.find('/', prefix.size());
  const std::string number = url.substr(prefix.size(), slash == std::string::npos ? std::string::npos : slash - prefix.size());
  if (number.size() != 1 || number[0] < '0' || number[0] > '7') return false;
  site = static_cast<DWORD>(number[0] - '0');
  rest = slash == std::string::npos ? "" : url.substr(slash + 1);
  if (rest.empty()) rest = "index.html";
  return true;
}

// The library's callbacks are C: a failure must end in them, as the library's own way
// to fail the request or the stream.
template <class Body, class Result>
Result Contained(Body&& body, Result onFailure) {
  try {
    return body();
  } catch (CKVTException* e) {
    delete e;
  } catch (...) {
  }
  return onFailure;
}

struct StreamContext {
  CViewerServer* Server;
  CViewerServer::Stream* Stream;
};

extern "C" ssize_t ReadStreamCallback(void* context, std::uint64_t, char* buffer, std::size_t size) {
  auto* stream = static_cast<StreamContext*>(context);
  return Contained([&]() -> ssize_t { return stream->Server->ReadStream(*stream->Stream, buffer, size); },
                   static_cast<ssize_t>(MHD_CONTENT_READER_END_WITH_ERROR));
}

extern "C" void FreeStreamCallback(void* context) {
  auto* stream = static_cast<StreamContext*>(context);
  Contained([&] { return (stream->Server->EndStream(stream->Stream), true); }, false);
  delete stream;
}

MHD_Result AnswerRequest(CViewerServer* viewer, MHD_Connection* connection, const char* url, const char* method) {
  const char* part = MHD_lookup_connection_value(connection, MHD_GET_ARGUMENT_KIND, "part");
  const auto answer = viewer->Serve(method, url, part != nullptr ? part : "");
  MHD_Response* response = nullptr;
  if (answer.IsStream) {
    auto* context = new StreamContext{viewer, viewer->OpenStream(connection)};
    response = MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, 4096, &ReadStreamCallback, context,
                                                 &FreeStreamCallback);
    if (response == nullptr) {
      FreeStreamCallback(context);
      return MHD_NO;
    }
    MHD_add_response_header(response, "Cache-Control", "no-store");
  } else {
    response = MHD_create_response_from_buffer(answer.Body.size(), const_cast<char*>(answer.Body.data()),
                                               MHD_RESPMEM_MUST_COPY);
    if (response == nullptr) return MHD_NO;
    MHD_add_response_header(response, "Cache-Control", "no-cache");
    if (answer.Status == 405) MHD_add_response_header(response, "Allow", "GET, HEAD");
  }
  MHD_add_response_header(response, "Content-Type", answer.ContentType.c_str());
  MHD_add_response_header(response, "X-Content-Type-Options", "nosniff");
  if (answer.ContentType.rfind("text/html", 0) == 0) {
    MHD_add_response_header(response, "Content-Security-Policy", kPageSecurity);
  }
  const MHD_Result queued = MHD_queue_response(connection, answer.Status, response);
  MHD_destroy_response(response);
  return queued;
}

extern "C" MHD_Result OnViewerRequest(void* server, MHD_Connection* connection, const char* url, const char* method,
                                      const char*, const char*, std::size_t* uploadSize, void** state) {
  // The first call only announces the request; a body is not wanted.
  if (*state == nullptr) {
    *state = connection;
    return MHD_YES;
  }
  if (*uploadSize != 0) {
    *uploadSize = 0;
    return MHD_YES;
  }
  return Contained([&] { return AnswerRequest(static_cast<CViewerServer*>(server), connection, url, method); }, MHD_NO);
}

// The library's messages are not the viewer's business; failures show as answers.
extern "C" void IgnoreLibraryMessage(void*, const char*, va_list) {}

}  // namespace

CViewerServer::CViewerServer(CViewerPages& pages) : Pages(pages) {}

CViewerServer::~CViewerServer() { Stop(); }

bool CViewerServer::Start(const std::string& address, std::uint16_t port, std::string& error) {
  return Guarded("CViewerServer::Start()", [&] {
    platform::RaiseOpenFileLimit();
    const int socket = platform::OpenTcpListener(address, port, platform::LargestListenBacklog());
    if (socket < 0) {
      error = "the viewer cannot listen on " + address + ":" + std::to_string(port) +
              " (the port is taken, or the address is not one of this machine)";
      return false;
    }
    BoundPort = platform::LocalPort(socket);
    MHD_OptionItem options[] = {
        {MHD_OPTION_LISTEN_SOCKET, socket, nullptr},
        {MHD_OPTION_CONNECTION_LIMIT, static_cast<intptr_t>(kMostConnections), nullptr},
        {MHD_OPTION_CONNECTION_MEMORY_LIMIT, static_cast<intptr_t>(16 * 1024), nullptr},
        {MHD_OPTION_CONNECTION_TIMEOUT, static_cast<intptr_t>(60), nullptr},
        // Rendering walks a page recursively (256 elements deep at most).
        {MHD_OPTION_THREAD_STACK_SIZE, static_cast<intptr_t>(8 * 1024 * 1024), nullptr},
        {MHD_OPTION_EXTERNAL_LOGGER, reinterpret_cast<intptr_t>(&IgnoreLibraryMessage), nullptr},
        {MHD_OPTION_END, 0, nullptr},
    };
    Daemon = MHD_start_daemon(MHD_USE_EPOLL_INTERNAL_THREAD | MHD_ALLOW_SUSPEND_RESUME, 0, nullptr, nullptr,
                              &OnViewerRequest, this, MHD_OPTION_ARRAY, options, MHD_OPTION_END);
    if (Daemon == nullptr) {
      platform::CloseSocket(socket);
      error = "the viewer's web server cannot start on " + address + ":" + std::to_string(port);
      return false;
    }
    Pages.SetChangeListener([this] { WakeStreams(); });
    Stopping = false;
    Clock = std::thread([this] { RunClock(); });
    return true;
  });
}

void CViewerServer::Stop() {
  Guarded("CViewerServer::Stop()", [&] {
    if (Daemon == nullptr) return;
    Pages.SetChangeListener(nullptr);
    {
      std::lock_guard<std::mutex> hold(ClockLock);
      Stopping = true;
    }
    ClockSignal.notify_all();
    if (Clock.joinable()) Clock.join();
    // Parked streams are woken so that they end.
    WakeStreams();
    MHD_stop_daemon(Daemon);
    Daemon = nullptr;
  });
}

void CViewerServer::RunClock() {
  std::unique_lock<std::mutex> hold(ClockLock);
  while (!ClockSignal.wait_for(hold, std::chrono::seconds(1), [this] { return Stopping; })) {
    Seconds.fetch_add(1);
    hold.unlock();
    WakeStreams();
    hold.lock();
  }
}

void CViewerServer::WakeStreams() {
  std::lock_guard<std::mutex> hold(StreamLock);
  ++Wakes;
  for (Stream* stream : Streams) {
    if (!stream->Parked) continue;
    stream->Parked = false;
    MHD_resume_connection(stream->Connection);
  }
}

CViewerServer::Stream* CViewerServer::OpenStream(MHD_Connection* connection) {
  auto* stream = new Stream;
  stream->Connection = connection;
  stream->NextEvent = Pages.LastSequence();
  stream->Pending = "retry: 2000\n\n";
  std::lock_guard<std::mutex> hold(StreamLock);
  Streams.insert(stream);
  return stream;
}

void CViewerServer::EndStream(Stream* stream) {
  std::lock_guard<std::mutex> hold(StreamLock);
  Streams.erase(stream);
  delete stream;
}

long CViewerServer::ReadStream(Stream& stream, char* buffer, std::size_t size) {
  return Guarded("CViewerServer::ReadStream()", [&]() -> long {
    while (stream.Pending.empty()) {
      {
        std::lock_guard<std::mutex> hold(ClockLock);
        if (Stopping) return MHD_CONTENT_READER_END_OF_STREAM;
      }
      std::uint64_t wakes = 0;
      {
        std::lock_guard<std::mutex> hold(StreamLock);
        wakes = Wakes;
      }
      bool missed = false;
      const auto events = Pages.EventsAfter(stream.NextEvent, missed);
      if (missed) stream.Pending += MissedEventMessage();
      for (const ViewerEvent& event : events) {
        if (stream.Pending.size() > kMostPendingBytes) {
          stream.Pending = MissedEventMessage();
          stream.NextEvent = Pages.LastSequence();
          break;
        }
        stream.Pending += PageEventMessage(event);
        stream.NextEvent = event.Sequence;
      }
      const std::uint64_t second = Seconds.load();
      if (second != stream.SeenSecond) {
        stream.SeenSecond = second;
        for (DWORD site : Pages.Sites()) stream.Pending += StatusEventMessage(site, Pages.SiteStatus(site));
      }
      if (!stream.Pending.empty()) break;
      std::lock_guard<std::mutex> hold(StreamLock);
      // A change that came while the stream looked is taken before it parks.
      if (Wakes != wakes) continue;
      stream.Parked = true;
      MHD_suspend_connection(stream.Connection);
      return 0;
    }
    const std::size_t count = std::min(size, stream.Pending.size());
    std::memcpy(buffer, stream.Pending.data(), count);
    stream.Pending.erase(0, count);
    return static_cast<long>(count);
  });
}

RenderedZolPage CViewerServer::Render(const ViewerPage& page) {
  const std::uint64_t generation = Pages.ContentGeneration(page.Site);
  {
    std::lock_guard<std::mutex> hold(RenderLock);
    const auto found = Rendered.find({page.Site, page.Number});
    if (found != Rendered.end() && found->second.Generation == generation) return found->second.Page;
  }
  const auto texts = Pages.PageTexts(page.Site);
  RenderedZolPage rendered = RenderZolPage(*page.Data, [&](unsigned number) -> const std::string* {
    const auto found = texts.find(number);
    return found == texts.end() ? nullptr : found->second.get();
  });
  std::lock_guard<std::mutex> hold(RenderLock);
  Rendered[{page.Site, page.Number}] = Rendering{generation, rendered};
  return rendered;
}

CViewerServer::Answer CViewerServer::ServePage(DWORD site, const std::string& webName, const std::string& part) {
  const auto page = Pages.FindByWebName(site, webName);
  if (!page || !page->Data) {
    return {404, "text/html; charset=utf-8",
            "<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\"><title>Not here</title></head><body>"
            "<p>This page has not come (yet). <a href=\"/\">All pages</a></p></body></html>\n",
            false};
  }
  if (page->IsZolPage && EndsWith(webName, ".html")) {
    const RenderedZolPage rendered = Render(*page);
    if (part == "live") return {200, "text/html; charset=utf-8", LivePart(rendered), false};
    return {200, "text/html; charset=utf-8", PageDocument(rendered, site, page->Number, Pages.SiteStatus(site)), false};
  }
  if (page->IsZolPage) return {200, ContentTypeFor(webName), UnwrappedZolText(*page->Data), false};
  return {200, ContentTypeFor(webName), *page->Data, false};
}

CViewerServer::Answer CViewerServer::Serve(const std::string& method, const std::string& url, const std::string& part) {
  return Guarded("CViewerServer::Serve()", [&]() -> Answer {
    if (method != "GET" && method != "HEAD") {
      return {405, "text/plain; charset=utf-8", "Only GET and HEAD are served here.\n", false};
    }
    if (url == "/") {
      std::vector<CViewerPages::Status> statuses;
      const std::vector<DWORD> sites = Pages.Sites();
      for (DWORD site : sites) statuses.push_back(Pages.SiteStatus(site));
      return {200, "text/html; charset=utf-8", IndexDocument(Pages.Pages(), sites, statuses), false};
    }
    if (url == "/events") return {200, "text/event-stream", "", true};
    if (url == "/_viewer/live.js") return {200, "text/javascript; charset=utf-8", kViewerScript, false};
    if (url == "/_viewer/viewer.css") return {200, "text/css; charset=utf-8", kViewerStyle, false};
    DWORD site = 0;
    std::string webName;
    if (SplitSitePath(url, site, webName)) return ServePage(site, webName, part);
    return {404, "text/plain; charset=utf-8", "Not found.\n", false};
  });
}

}  // namespace zolclient
