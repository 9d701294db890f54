// Sockets behind small functions named for their role: the sending ports use the TCP
// listener, the gathering send and the multicast sender; a receiving client uses
// the TCP connect, the multicast receiver and the read helpers. Every socket is a plain
// int; -1 means none.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace platform {

inline constexpr int kNoSocket = -1;

// ---- addresses -------------------------------------------------------------------
// Dotted text of an IPv4 address held in network byte order.
std::string DottedAddress(std::uint32_t networkOrderAddress);
// Network-byte-order address of dotted text; false when the text is no IPv4 address.
bool ParseDottedAddress(const std::string& text, std::uint32_t& networkOrderAddress);
// True for 224.0.0.0 to 239.255.255.255.
bool IsMulticastAddress(const std::string& text);

// ---- common ------------------------------------------------------------------------
void CloseSocket(int socket);
// Shuts both directions down, reads one byte at a time until the peer gives nothing
// more (or an error), then closes: the orderly close of the sending ports.
void ShutdownDrainClose(int socket);
// The local port a socket is bound to, 0 when unknown.
std::uint16_t LocalPort(int socket);
// Waits up to `timeoutMicroseconds` for the socket to take data; 0 polls.
bool WaitWritable(int socket, long timeoutMicroseconds);
// Waits up to `timeoutMicroseconds` for data (or end of stream) on the socket.
bool WaitReadable(int socket, long timeoutMicroseconds);
// One send call of at most `length` bytes, never raising SIGPIPE; -1 on error.
long SendSome(int socket, const void* data, std::size_t length);
// One receive call; 0 at end of stream, -1 on error.
long ReceiveSome(int socket, void* data, std::size_t length);

// ---- TCP server ----------------------------------------------------------------------
int OpenTcpSocket();
// Binds to any local address at `port` (0: the system picks one).
bool BindAnyAddress(int socket, std::uint16_t port);
bool Listen(int socket, int backlog);
// Accepts one connection; the peer's IPv4 address in network byte order. -1 on failure.
int AcceptConnection(int listenSocket, std::uint32_t& peerAddress);
bool SetKeepAlive(int socket, bool on);
bool SetLinger(int socket, bool on, int seconds);
// Bytes the socket still holds for its peer (not yet sent or not yet acknowledged);
// 0 when there are none or the socket cannot tell.
std::size_t UnsentBytes(int socket);
// Closes a connected socket without ever waiting for its peer. A socket that still holds
// bytes for the peer is reset and the bytes are dropped; one that holds none is shut
// down, drained and closed in the orderly way, the kernel finishing the close by itself.
void CloseWithoutWaiting(int socket);
// Finds a TCP port on 127.0.0.1 that is free right now (for tests and demos), 0 on
// failure. It is drawn at random below the system's range of ephemeral ports, so that
// neither outgoing connections nor another process asking at the same moment are likely
// to take it before the caller listens on it; port 0's choice is the fallback.
std::uint16_t FindFreeTcpPort();

// The longest queue of pending connections the system lets a listener ask for.
int LargestListenBacklog();
// Makes the socket's calls return at once instead of waiting.
bool SetNonBlocking(int socket, bool on);
// A piece of memory to send.
struct ByteSpan {
  const void* Data = nullptr;
  std::size_t Length = 0;
};
// At most `kMostSpansPerSend` spans are taken in one call.
inline constexpr std::size_t kMostSpansPerSend = 64;
// True when the peer of a connected socket has closed it or reset it; never waits. Bytes
// the peer sent stay unread.
bool PeerHasClosed(int socket);
// One gathering send of the spans in order that never waits and never raises SIGPIPE:
// the bytes taken, 0 when the socket takes nothing right now, -1 on error.
long SendSpansWithoutWaiting(int socket, const ByteSpan* spans, std::size_t count);

// ---- one-peer links (the data manager link) ---------------------------------------------
// Allows binding a listening port again at once after a restart.
bool SetReuseAddress(int socket, bool on);
// Binds to the IPv4 address `address` (dotted text) at `port` (0: the system picks one).
bool BindAddress(int socket, const std::string& address, std::uint16_t port);
// A TCP socket that listens on the IPv4 `address` and `port`, non-blocking and with
// address reuse, for a server whose own loop accepts; -1 when any step fails.
int OpenTcpListener(const std::string& address, std::uint16_t port, int backlog);
// Accepts one connection; the peer's IPv4 address in network byte order and its port.
// -1 on failure.
int AcceptConnectionFrom(int listenSocket, std::uint32_t& peerAddress, std::uint16_t& peerPort);
// One send call that never waits and never raises SIGPIPE: the bytes taken, 0 when the
// socket takes nothing right now, -1 on error.
long SendWithoutWaiting(int socket, const void* data, std::size_t length);
// Sends all `length` bytes, waiting at most `timeoutMilliseconds` in all for the socket to
// take them.
enum class SendAllResult { Sent, Failed, TimedOut };
SendAllResult SendAllWithin(int socket, const void* data, std::size_t length, int timeoutMilliseconds);
// Ends both directions of a connected socket without closing it: a thread blocked or
// waiting on it wakes up and sees the end of the stream.
void ShutdownBothWays(int socket);
// Waits up to `timeoutMicroseconds` for data (or end of stream) on the listening socket
// or on `peer` (kNoSocket: none). Returns -1 on error, 0 when the time ran out, else the
// number of ready sockets.
int WaitListenAndPeer(int listenSocket, int peer, long timeoutMicroseconds, bool& listenReadable,
                      bool& peerReadable);
// True for 127.0.0.0 to 127.255.255.255 (network byte order).
bool IsLoopbackAddress(std::uint32_t networkOrderAddress);

// ---- TCP client ----------------------------------------------------------------------
// Connects to host (dotted IPv4 text) and port; -1 when that fails. A receive buffer
// size above 0 is set before connecting.
int TcpConnect(const std::string& host, std::uint16_t port, int receiveBufferBytes = 0);
// As TcpConnect, and before connecting also asks the peer for segments of at most
// `maxSegmentBytes`. The peer sizes its send buffer by the segment size, so such a client
// that never reads ties up little of the peer's memory (for tests).
int TcpConnectWithSmallSegments(const std::string& host, std::uint16_t port, int receiveBufferBytes,
                                int maxSegmentBytes);
// As TcpConnect, giving up after `timeoutMilliseconds` (-1 then too).
int TcpConnectWithin(const std::string& host, std::uint16_t port, int timeoutMilliseconds);

// ---- UDP multicast -------------------------------------------------------------------
int OpenUdpSocket();
// Joins `group` on the interface with address `interfaceAddress` (empty: any).
bool JoinMulticastGroup(int socket, const std::string& group, const std::string& interfaceAddress = "");
bool SetMulticastTtl(int socket, int ttl);
bool SetMulticastLoopback(int socket, bool on);
// One datagram to address:port; -1 on error.
long SendDatagram(int socket, const void* data, std::size_t length, const std::string& address,
                  std::uint16_t port);
// A socket that receives datagrams sent to group:port: address reuse, bound to the port,
// group joined on the interface with address `interfaceAddress` (empty: any). -1 on failure.
int OpenMulticastReceiver(const std::string& group, std::uint16_t port, const std::string& interfaceAddress = "");
// One datagram into `data`; its length, or -1 on error.
long ReceiveDatagram(int socket, void* data, std::size_t length);

// ---- network namespaces (tests and demos) ------------------------------------------------
// Moves the calling thread into the named network namespace (made with "ip netns add");
// sockets it creates afterwards belong there. False without the rights or the name.
bool EnterNetworkNamespace(const std::string& name);

}  // namespace platform
