// The viewer's web server: the rebuilt pages as a small web site, with an event stream
// (/events) that tells every open page of each new page version and, once a second, each
// site's status line. The HTTP library's own thread serves; it only reads the page store.
// An event stream that has nothing to send is parked (suspended) until the next change
// or second, so a thousand open streams cost nothing while the pages stand still.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>

#include "client/ViewerPages.h"
#include "client/ZolRender.h"

struct MHD_Daemon;
struct MHD_Connection;

namespace zolclient {

class CViewerServer {
 public:
  // At most this many connections at once; the open-files limit is raised to allow them.
  static constexpr unsigned kMostConnections = 4000;

  explicit CViewerServer(CViewerPages& pages);
  ~CViewerServer();
  CViewerServer(const CViewerServer&) = delete;
  CViewerServer& operator=(const CViewerServer&) = delete;

  // Listens on address:port (port 0: any free one); false with a one-line `error`.
  bool Start(const std::string& address, std::uint16_t port, std::string& error);
  void Stop();
  std::uint16_t Port() const { return BoundPort; }

  // Entry points of the HTTP library's callbacks.
  struct Answer;
  struct Stream;
  Answer Serve(const std::string& method, const std::string& url, const std::string& part);
  long ReadStream(Stream& stream, char* buffer, std::size_t size);
  void EndStream(Stream* stream);
  Stream* OpenStream(MHD_Connection* connection);

 private:
  // Rings every parked stream (a change, or the second's status).
  void WakeStreams();
  void RunClock();
  Answer ServePage(DWORD site, const std::string& webName, const std::string& part);
  struct Rendering {
    std::uint64_t Generation = 0;
    RenderedZolPage Page;
  };
  RenderedZolPage Render(const ViewerPage& page);

  CViewerPages& Pages;
  MHD_Daemon* Daemon = nullptr;
  std::uint16_t BoundPort = 0;

  std::mutex StreamLock;
  std::set<Stream*> Streams;
  std::uint64_t Wakes = 0;  // under StreamLock
  std::atomic<std::uint64_t> Seconds{0};

  std::mutex RenderLock;
  std::map<std::pair<DWORD, DWORD>, Rendering> Rendered;

  std::mutex ClockLock;
  std::condition_variable ClockSignal;
  bool Stopping = false;
  std::thread Clock;
};

}  // namespace zolclient
