#include "frame/platform/Sockets.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/sockios.h>
#include <sched.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <ctime>

namespace platform {

namespace {

timespec MicrosecondsToTimespec(long microseconds) {
  if (microseconds < 0) microseconds = 0;
  timespec limit{};
  limit.tv_sec = microseconds / 1000000;
  limit.tv_nsec = (microseconds % 1000000) * 1000;
  return limit;
}

bool WaitFor(int socket, short events, long timeoutMicroseconds) {
  pollfd entry{};
  entry.fd = socket;
  entry.events = events;
  timespec limit = MicrosecondsToTimespec(timeoutMicroseconds);
  int result;
  do {
    result = ppoll(&entry, 1, &limit, nullptr);
  } while (result < 0 && errno == EINTR);
  return result == 1 && (entry.revents & (events | POLLERR | POLLHUP)) != 0;
}

bool MakeAddress(const std::string& text, std::uint16_t port, sockaddr_in& address) {
  address = sockaddr_in{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  return inet_pton(AF_INET, text.c_str(), &address.sin_addr) == 1;
}

}  // namespace

std::string DottedAddress(std::uint32_t networkOrderAddress) {
  in_addr address{};
  address.s_addr = networkOrderAddress;
  char text[INET_ADDRSTRLEN] = {0};
  inet_ntop(AF_INET, &address, text, sizeof text);
  return text;
}

bool ParseDottedAddress(const std::string& text, std::uint32_t& networkOrderAddress) {
  in_addr address{};
  if (inet_pton(AF_INET, text.c_str(), &address) != 1) return false;
  networkOrderAddress = address.s_addr;
  return true;
}

bool IsMulticastAddress(const std::string& text) {
  std::uint32_t address = 0;
  if (!ParseDottedAddress(text, address)) return false;
  return IN_MULTICAST(ntohl(address));
}

void CloseSocket(int socket) {
  if (socket >= 0) close(socket);
}

void ShutdownDrainClose(int socket) {
  if (socket < 0) return;
  shutdown(socket, SHUT_RDWR);
  char byte = 0;
  while (recv(socket, &byte, 1, MSG_DONTWAIT) > 0) {
  }
  close(socket);
}

std::uint16_t LocalPort(int socket) {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  if (getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length) != 0) return 0;
  return ntohs(address.sin_port);
}

bool WaitWritable(int socket, long timeoutMicroseconds) { return WaitFor(socket, POLLOUT, timeoutMicroseconds); }

bool WaitReadable(int socket, long timeoutMicroseconds) { return WaitFor(socket, POLLIN, timeoutMicroseconds); }

long SendSome(int socket, const void* data, std::size_t length) {
  ssize_t sent;
  do {
    sent = send(socket, data, length, MSG_NOSIGNAL);
  } while (sent < 0 && errno == EINTR);
  return static_cast<long>(sent);
}

long ReceiveSome(int socket, void* data, std::size_t length) {
  ssize_t got;
  do {
    got = recv(socket, data, length, 0);
  } while (got < 0 && errno == EINTR);
  return static_cast<long>(got);
}

int OpenTcpSocket() { return socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0); }

bool BindAnyAddress(int socket, std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_ANY);
  return bind(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
}

bool Listen(int socket, int backlog) { return listen(socket, backlog) == 0; }

int AcceptConnection(int listenSocket, std::uint32_t& peerAddress) {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  const int client = accept4(listenSocket, reinterpret_cast<sockaddr*>(&address), &length, SOCK_CLOEXEC);
  if (client < 0) return kNoSocket;
  peerAddress = address.sin_addr.s_addr;
  return client;
}

bool SetKeepAlive(int socket, bool on) {
  const int value = on ? 1 : 0;
  return setsockopt(socket, SOL_SOCKET, SO_KEEPALIVE, &value, sizeof value) == 0;
}

bool SetLinger(int socket, bool on, int seconds) {
  linger value{};
  value.l_onoff = on ? 1 : 0;
  value.l_linger = seconds;
  return setsockopt(socket, SOL_SOCKET, SO_LINGER, &value, sizeof value) == 0;
}

std::size_t UnsentBytes(int socket) {
  int unsent = 0;
  if (ioctl(socket, SIOCOUTQ, &unsent) != 0 || unsent < 0) return 0;
  return static_cast<std::size_t>(unsent);
}

void CloseWithoutWaiting(int socket) {
  if (socket < 0) return;
  int unsent = 0;
  // When the socket cannot tell, it is treated as holding bytes: a reset never waits.
  const bool holding = ioctl(socket, SIOCOUTQ, &unsent) != 0 || unsent > 0;
  linger value{};
  value.l_onoff = holding ? 1 : 0;
  value.l_linger = 0;
  setsockopt(socket, SOL_SOCKET, SO_LINGER, &value, sizeof value);
  if (!holding) {
    shutdown(socket, SHUT_RDWR);
    // Bytes the peer sent and nobody read would turn the close into a reset. The drain is
    // bounded, so that a peer that keeps sending cannot hold the close up.
    char bytes[4096];
    for (int round = 0; round < 16 && recv(socket, bytes, sizeof bytes, MSG_DONTWAIT) > 0; ++round) {
    }
  }
  close(socket);
}

namespace {

// Binds a fresh socket to `port` on 127.0.0.1 (0: the system's choice) and returns the
// port it got, 0 when the bind failed.
std::uint16_t ProbeTcpPort(std::uint16_t port) {
  const int probe = OpenTcpSocket();
  if (probe < 0) return 0;
  sockaddr_in address{};
  MakeAddress("127.0.0.1", port, address);
  std::uint16_t bound = 0;
  if (bind(probe, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) bound = LocalPort(probe);
  close(probe);
  return bound;
}

}  // namespace

std::uint16_t FindFreeTcpPort() {
  // 20000 to 32767 lies below Linux's default ephemeral range (32768 and up).
  constexpr std::uint32_t kFirst = 20000;
  constexpr std::uint32_t kCount = 12768;
  static std::atomic<std::uint32_t> draw{static_cast<std::uint32_t>(
      std::chrono::steady_clock::now().time_since_epoch().count() ^ (static_cast<std::uint64_t>(getpid()) << 16))};
  for (int attempt = 0; attempt < 64; ++attempt) {
    // A linear congruential step is random enough to spread the draws of parallel tests.
    const std::uint32_t next = draw.fetch_add(0x9E3779B9u) * 1103515245u + 12345u;
    const auto candidate = static_cast<std::uint16_t>(kFirst + (next >> 8) % kCount);
    if (ProbeTcpPort(candidate) == candidate) return candidate;
  }
  return ProbeTcpPort(0);
}

bool SetReuseAddress(int socket, bool on) {
  const int value = on ? 1 : 0;
  return setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &value, sizeof value) == 0;
}

bool BindAddress(int socket, const std::string& address, std::uint16_t port) {
  sockaddr_in local{};
  if (!MakeAddress(address, port, local)) return false;
  return bind(socket, reinterpret_cast<sockaddr*>(&local), sizeof local) == 0;
}

int OpenTcpListener(const std::string& address, std::uint16_t port, int backlog) {
  const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (listener < 0) return kNoSocket;
  if (!SetReuseAddress(listener, true) || !BindAddress(listener, address, port) || !Listen(listener, backlog)) {
    close(listener);
    return kNoSocket;
  }
  return listener;
}

int AcceptConnectionFrom(int listenSocket, std::uint32_t& peerAddress, std::uint16_t& peerPort) {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  int client;
  do {
    client = accept4(listenSocket, reinterpret_cast<sockaddr*>(&address), &length, SOCK_CLOEXEC);
  } while (client < 0 && errno == EINTR);
  if (client < 0) return kNoSocket;
  peerAddress = address.sin_addr.s_addr;
  peerPort = ntohs(address.sin_port);
  return client;
}

int LargestListenBacklog() { return SOMAXCONN; }

bool SetNonBlocking(int socket, bool on) {
  const int flags = fcntl(socket, F_GETFL, 0);
  if (flags < 0) return false;
  return fcntl(socket, F_SETFL, on ? (flags | O_NONBLOCK) : (flags & ~O_NONBLOCK)) == 0;
}

bool PeerHasClosed(int socket) {
  char byte = 0;
  ssize_t got;
  do {
    got = recv(socket, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
  } while (got < 0 && errno == EINTR);
  if (got == 0) return true;
  return got < 0 && errno != EAGAIN && errno != EWOULDBLOCK;
}

long SendSpansWithoutWaiting(int socket, const ByteSpan* spans, std::size_t count) {
  iovec parts[kMostSpansPerSend];
  const std::size_t taken = count < kMostSpansPerSend ? count : kMostSpansPerSend;
  for (std::size_t i = 0; i < taken; ++i) {
    parts[i].iov_base = const_cast<void*>(spans[i].Data);
    parts[i].iov_len = spans[i].Length;
  }
  msghdr message{};
  message.msg_iov = parts;
  message.msg_iovlen = taken;
  ssize_t sent;
  do {
    sent = sendmsg(socket, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
  } while (sent < 0 && errno == EINTR);
  if (sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return 0;
  return static_cast<long>(sent);
}

long SendWithoutWaiting(int socket, const void* data, std::size_t length) {
  ssize_t sent;
  do {
    sent = send(socket, data, length, MSG_NOSIGNAL | MSG_DONTWAIT);
  } while (sent < 0 && errno == EINTR);
  if (sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return 0;
  return static_cast<long>(sent);
}

SendAllResult SendAllWithin(int socket, const void* data, std::size_t length, int timeoutMilliseconds) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMilliseconds);
  const char* bytes = static_cast<const char*>(data);
  std::size_t done = 0;
  while (done < length) {
    const long sent = SendWithoutWaiting(socket, bytes + done, length - done);
    if (sent < 0) return SendAllResult::Failed;
    done += static_cast<std::size_t>(sent);
    if (done == length) break;
    if (sent > 0) continue;
    const auto left =
        std::chrono::duration_cast<std::chrono::microseconds>(deadline - std::chrono::steady_clock::now()).count();
    if (left <= 0 || !WaitWritable(socket, static_cast<long>(left))) return SendAllResult::TimedOut;
  }
  return SendAllResult::Sent;
}

void ShutdownBothWays(int socket) {
  if (socket >= 0) shutdown(socket, SHUT_RDWR);
}

int WaitListenAndPeer(int listenSocket, int peer, long timeoutMicroseconds, bool& listenReadable,
                      bool& peerReadable) {
  pollfd entries[2] = {};
  entries[0].fd = listenSocket;
  entries[0].events = POLLIN;
  // A negative descriptor is left out by poll.
  entries[1].fd = peer;
  entries[1].events = POLLIN;
  timespec limit = MicrosecondsToTimespec(timeoutMicroseconds);
  int result;
  do {
    result = ppoll(entries, 2, &limit, nullptr);
  } while (result < 0 && errno == EINTR);
  listenReadable = false;
  peerReadable = false;
  if (result <= 0) return result;
  if ((entries[0].revents & POLLNVAL) != 0) return -1;
  listenReadable = (entries[0].revents & (POLLIN | POLLERR | POLLHUP)) != 0;
  peerReadable = peer >= 0 && (entries[1].revents & (POLLIN | POLLERR | POLLHUP | POLLNVAL)) != 0;
  return result;
}

bool IsLoopbackAddress(std::uint32_t networkOrderAddress) { return (ntohl(networkOrderAddress) >> 24) == 127; }

namespace {

// A connected TCP socket, with the receive buffer and the segment size set first when
// they are above 0; kNoSocket when any step fails.
int ConnectTcp(const std::string& host, std::uint16_t port, int receiveBufferBytes, int maxSegmentBytes) {
  sockaddr_in address{};
  if (!MakeAddress(host, port, address)) return kNoSocket;
  const int s = OpenTcpSocket();
  if (s < 0) return kNoSocket;
  if (receiveBufferBytes > 0) setsockopt(s, SOL_SOCKET, SO_RCVBUF, &receiveBufferBytes, sizeof receiveBufferBytes);
  if (maxSegmentBytes > 0 && setsockopt(s, IPPROTO_TCP, TCP_MAXSEG, &maxSegmentBytes, sizeof maxSegmentBytes) != 0) {
    close(s);
    return kNoSocket;
  }
  int result;
  do {
    result = connect(s, reinterpret_cast<sockaddr*>(&address), sizeof address);
  } while (result < 0 && errno == EINTR);
  if (result != 0) {
    close(s);
    return kNoSocket;
  }
  return s;
}

}  // namespace

int TcpConnect(const std::string& host, std::uint16_t port, int receiveBufferBytes) {
  return ConnectTcp(host, port, receiveBufferBytes, 0);
}

int TcpConnectWithSmallSegments(const std::string& host, std::uint16_t port, int receiveBufferBytes,
                                int maxSegmentBytes) {
  return ConnectTcp(host, port, receiveBufferBytes, maxSegmentBytes);
}

int TcpConnectWithin(const std::string& host, std::uint16_t port, int timeoutMilliseconds) {
  sockaddr_in address{};
  if (!MakeAddress(host, port, address)) return kNoSocket;
  const int s = OpenTcpSocket();
  if (s < 0) return kNoSocket;
  const int flags = fcntl(s, F_GETFL, 0);
  if (flags < 0 || fcntl(s, F_SETFL, flags | O_NONBLOCK) != 0) {
    close(s);
    return kNoSocket;
  }
  int result = connect(s, reinterpret_cast<sockaddr*>(&address), sizeof address);
  if (result != 0 && (errno == EINPROGRESS || errno == EINTR)) {
    int error = 0;
    socklen_t length = sizeof error;
    result = WaitFor(s, POLLOUT, static_cast<long>(timeoutMilliseconds) * 1000) &&
                     getsockopt(s, SOL_SOCKET, SO_ERROR, &error, &length) == 0 && error == 0
                 ? 0
                 : -1;
  }
  if (result != 0 || fcntl(s, F_SETFL, flags) != 0) {
    close(s);
    return kNoSocket;
  }
  return s;
}

int OpenUdpSocket() { return socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0); }

bool JoinMulticastGroup(int socket, const std::string& group, const std::string& interfaceAddress) {
  ip_mreq request{};
  if (inet_pton(AF_INET, group.c_str(), &request.imr_multiaddr) != 1) return false;
  if (interfaceAddress.empty()) {
    request.imr_interface.s_addr = htonl(INADDR_ANY);
  } else if (inet_pton(AF_INET, interfaceAddress.c_str(), &request.imr_interface) != 1) {
    return false;
  }
  return setsockopt(socket, IPPROTO_IP, IP_ADD_MEMBERSHIP, &request, sizeof request) == 0;
}

bool SetMulticastTtl(int socket, int ttl) {
  const unsigned char value = static_cast<unsigned char>(ttl);
  return setsockopt(socket, IPPROTO_IP, IP_MULTICAST_TTL, &value, sizeof value) == 0;
}

bool SetMulticastLoopback(int socket, bool on) {
  const unsigned char value = on ? 1 : 0;
  return setsockopt(socket, IPPROTO_IP, IP_MULTICAST_LOOP, &value, sizeof value) == 0;
}

long SendDatagram(int socket, const void* data, std::size_t length, const std::string& address,
                  std::uint16_t port) {
  sockaddr_in target{};
  if (!MakeAddress(address, port, target)) return -1;
  return static_cast<long>(
      sendto(socket, data, length, MSG_NOSIGNAL, reinterpret_cast<sockaddr*>(&target), sizeof target));
}

int OpenMulticastReceiver(const std::string& group, std::uint16_t port, const std::string& interfaceAddress) {
  const int s = OpenUdpSocket();
  if (s < 0) return kNoSocket;
  const int reuse = 1;
  setsockopt(s, SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_ANY);
  if (bind(s, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      !JoinMulticastGroup(s, group, interfaceAddress)) {
    close(s);
    return kNoSocket;
  }
  return s;
}

long ReceiveDatagram(int socket, void* data, std::size_t length) {
  ssize_t got;
  do {
    got = recvfrom(socket, data, length, 0, nullptr, nullptr);
  } while (got < 0 && errno == EINTR);
  return static_cast<long>(got);
}

bool EnterNetworkNamespace(const std::string& name) {
  const std::string path = "/var/run/netns/" + name;
  const int handle = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (handle < 0) return false;
  const bool entered = setns(handle, CLONE_NEWNET) == 0;
  close(handle);
  return entered;
}

}  // namespace platform
