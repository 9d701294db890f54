#include "frame/platform/ReadinessPoll.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>

namespace platform {

namespace {

constexpr int kMostEventsPerWait = 1024;

bool AddWithEvents(int pollHandle, int socket, std::uint64_t token, std::uint32_t events) {
  epoll_event entry{};
  entry.events = events;
  entry.data.u64 = token;
  return epoll_ctl(pollHandle, EPOLL_CTL_ADD, socket, &entry) == 0;
}

}  // namespace

CReadinessPoll::CReadinessPoll() {
  PollHandle = epoll_create1(EPOLL_CLOEXEC);
  WakeHandle = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (PollHandle >= 0 && WakeHandle >= 0) AddWithEvents(PollHandle, WakeHandle, kWakeToken, EPOLLIN);
}

CReadinessPoll::~CReadinessPoll() {
  if (PollHandle >= 0) close(PollHandle);
  if (WakeHandle >= 0) close(WakeHandle);
}

bool CReadinessPoll::AddReader(int socket, std::uint64_t token) {
  return AddWithEvents(PollHandle, socket, token, EPOLLIN);
}

bool CReadinessPoll::AddWriter(int socket, std::uint64_t token) {
  return AddWithEvents(PollHandle, socket, token, EPOLLOUT | EPOLLET);
}

void CReadinessPoll::Remove(int socket) { epoll_ctl(PollHandle, EPOLL_CTL_DEL, socket, nullptr); }

void CReadinessPoll::Wake() {
  const std::uint64_t one = 1;
  // A full counter still wakes the waiter; nothing to do about a failure.
  [[maybe_unused]] const ssize_t written = write(WakeHandle, &one, sizeof one);
}

bool CReadinessPoll::Wait(int timeoutMilliseconds, std::vector<Event>& events) {
  events.clear();
  epoll_event ready[kMostEventsPerWait];
  int count;
  do {
    count = epoll_wait(PollHandle, ready, kMostEventsPerWait, timeoutMilliseconds);
  } while (count < 0 && errno == EINTR);
  if (count < 0) return false;
  for (int i = 0; i < count; ++i) {
    Event event;
    event.Token = ready[i].data.u64;
    if (event.Token == kWakeToken) {
      std::uint64_t rings = 0;
      [[maybe_unused]] const ssize_t taken = read(WakeHandle, &rings, sizeof rings);
    }
    event.Readable = (ready[i].events & (EPOLLIN | EPOLLERR | EPOLLHUP)) != 0;
    // A socket with an error or a hung-up peer counts as writable: the send then fails.
    event.Writable = (ready[i].events & (EPOLLOUT | EPOLLERR | EPOLLHUP)) != 0;
    events.push_back(event);
  }
  return true;
}

}  // namespace platform
