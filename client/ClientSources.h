// Where the packets come from: a TCP connection that is made again when lost, a UDP
// socket (multicast group joined), a serial line, or a recording played back. All calls
// go through the platform.
#pragma once

#include <cstddef>
#include <memory>
#include <ostream>
#include <string>

#include "client/ClientOptions.h"
#include "frame/Types.h"

namespace zolclient {

class CByteSource {
 public:
  virtual ~CByteSource() = default;
  // Waits up to `timeoutMilliseconds`; returns the number of bytes read, 0 when none came.
  virtual long Read(BYTE* buffer, std::size_t size, int timeoutMilliseconds) = 0;
  // True when each Read gives exactly one datagram.
  virtual bool IsDatagram() const = 0;
  // Connections made so far; a change means the byte stream starts afresh.
  virtual unsigned Connections() const = 0;
  // True once the source has nothing more to give and never will (a recording played to
  // its end); a live source never finishes.
  virtual bool Finished() const { return false; }
};

// Opens the source the options name. On failure returns null with a one-line `error`.
// TCP never fails here: it connects (and reconnects) inside Read, telling `err` so. A
// replay fails here when the file is no recording; damage further on is told on `err`.
std::unique_ptr<CByteSource> OpenByteSource(const ClientOptions& options, std::ostream& err, std::string& error);

}  // namespace zolclient
