// zolhost with its web server as the process tests run it: on a copy of the examples, its
// TCP port and its web server on free ports; and plain-socket helpers that send requests no
// HTTP client library would, every wait bounded.
#pragma once

#include <gtest/gtest.h>
#include <httplib.h>
#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "testing/ChildProcess.h"
#include "testing/TempDir.h"

inline const std::string kZolhostProgram = std::string(ZOL_BINARY_DIR) + "/zolhost";

class WebInstallation {
 public:
  // Starts zolhost with its web server on 127.0.0.1 and the `extra` options.
  explicit WebInstallation(const std::vector<std::string>& extra = {});
  // Stops zolhost with SIGTERM.
  ~WebInstallation();
  WebInstallation(const WebInstallation&) = delete;
  WebInstallation& operator=(const WebInstallation&) = delete;

  // Fails with zolhost's log when the site did not come up.
  ::testing::AssertionResult Started() const;

  httplib::Client Client() const;
  httplib::Result MainPage() const;
  // The IDs of the ports the main page offers to delete, read afresh; none (and a test
  // failure) when the page does not come.
  std::vector<std::string> MainPagePortIDs() const;
  // A form POST with this site's own Origin; the body as given (see WithToken).
  httplib::Result PostForm(const std::string& path, const std::string& body) const;

  std::string Origin() const;
  // The Host header line of a request written by hand.
  std::string HostLine() const;
  // The anti-forgery token, from the hidden field of a form on the main page.
  std::string Token() const;
  // A form body with the token added.
  std::string WithToken(const std::string& body) const;

  pid_t Pid() const;
  std::string Log() const;

  TempDir AppDir;
  TempDir Logs;
  std::uint16_t PagePort = 0;
  std::uint16_t WebPort = 0;
  std::optional<ChildProcess> Host;

 private:
  bool Ready = false;
  mutable std::string CachedToken;
};

// The IDs of the ports a main page offers to delete: a link "deleteport.html?ID=n", or a
// small form to deleteport.html with a hidden field ID.
std::vector<std::string> PortIDs(const std::string& page);
// The anti-forgery token in the hidden field of a page's form; empty when there is none.
std::string FormTokenIn(const std::string& page);

double SecondsSince(std::chrono::steady_clock::time_point start);

// A TCP connection to 127.0.0.1:port, from `source` (another 127.x.x.x address) when given;
// every send and receive on it waits at most `seconds`. -1 when it cannot be made.
int RawConnect(std::uint16_t port, const std::string& source = "", int seconds = 5);

bool SendText(int fd, const std::string& text);

struct RawAnswer {
  int Status = 0;
  std::string Head;
  std::string Body;
  // The server closed the connection (before or after a whole answer).
  bool Closed = false;
};

// Reads one answer: the status line and headers, then the body by its Content-Length (or
// up to the close); gives up after `seconds`.
RawAnswer ReadAnswer(int fd, double seconds);
