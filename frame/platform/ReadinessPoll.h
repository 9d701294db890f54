// Readiness of many sockets at once, for a server thread with thousands of clients: a
// listener that is told when connections wait, clients that are told when they take
// data again (edge-triggered: once per change from full to not full), and a wake-up that
// another thread can ring.
#pragma once

#include <cstdint>
#include <vector>

namespace platform {

class CReadinessPoll {
 public:
  struct Event {
    std::uint64_t Token = 0;
    bool Readable = false;
    // Takes data again, or failed: the next send tells which.
    bool Writable = false;
  };
  // The token that a wake-up reports.
  static constexpr std::uint64_t kWakeToken = ~std::uint64_t{0};

  CReadinessPoll();
  ~CReadinessPoll();
  CReadinessPoll(const CReadinessPoll&) = delete;
  CReadinessPoll& operator=(const CReadinessPoll&) = delete;

  bool IsOpen() const { return PollHandle >= 0 && WakeHandle >= 0; }
  // A socket whose readability (pending connections) is reported as long as it lasts.
  bool AddReader(int socket, std::uint64_t token);
  // A socket that is reported each time it becomes able to take data.
  bool AddWriter(int socket, std::uint64_t token);
  void Remove(int socket);
  // Any thread: makes the current or next Wait return with kWakeToken.
  void Wake();
  // Waits up to `timeoutMilliseconds` (0: does not wait) and fills `events`; false on
  // an error other than an interruption.
  bool Wait(int timeoutMilliseconds, std::vector<Event>& events);

 private:
  int PollHandle = -1;
  int WakeHandle = -1;
};

}  // namespace platform
