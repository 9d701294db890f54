// The frame of the data manager link: every message, in either direction, is a DWORD N
// (little-endian), the number of bytes that follow; the WORD message ID (little-endian);
// then N - 2 bytes of payload, the message's buffer bytes as written.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "frame/ModuleMessage.h"
#include "frame/Types.h"

namespace linkframe {

// The largest N taken: the ID and 64 MiB minus 2 bytes of payload.
inline constexpr std::uint32_t kMaxLength = 64u * 1024u * 1024u;
// The smallest N: the ID alone.
inline constexpr std::uint32_t kMinLength = 2;
// The length field and the ID.
inline constexpr std::size_t kHeaderBytes = 6;

// Frames of the link itself, never handed to the module; IDs no module message uses.
// The keep-alive: sent by either side when it has sent nothing else for a while, so that
// the other side can tell a silent peer from a quiet one. No payload.
inline constexpr WORD kKeepAliveID = 0xFFFF;
// zolhost's answer to a data manager it turns away (another one holds the link), sent
// just before it closes the connection. No payload.
inline constexpr WORD kRefusedID = 0xFFFE;
inline constexpr bool IsLinkControl(WORD id) { return id == kKeepAliveID || id == kRefusedID; }
// The six bytes of a keep-alive frame and of a refusal frame.
std::vector<BYTE> KeepAliveFrame();
std::vector<BYTE> RefusedFrame();

// The frame of a message: its ID and the bytes written into it (its filled size).
std::vector<BYTE> Encode(const CModuleMessage& message);
std::vector<BYTE> Encode(WORD id, const BYTE* payload, std::size_t payloadBytes);

// A message made of a received frame, for the module: its payload as sent, the cursor at
// the start; addressed to the server module (class 38, instance 0, computer 0).
struct Frame {
  WORD ID = 0;
  std::vector<BYTE> Payload;
};
CModuleMessage* ToMessage(const Frame& frame);

// Cuts a byte stream into frames, however the bytes arrive. After an error it takes
// nothing more.
class CFrameDecoder {
 public:
  enum class Result { NeedMore, Frame, Error };

  // Adds received bytes; a decoder in error ignores them.
  void Feed(const BYTE* bytes, std::size_t count);
  // The next whole frame into `frame` (Frame), NeedMore while it is incomplete, or Error
  // with a one-line reason in Error() when the length is out of range.
  Result Next(Frame& frame);

  const std::string& Error() const { return LastError; }
  // True when bytes of a frame that is not complete are held (the stream may not end here).
  bool InsideFrame() const { return Buffered() > 0; }
  std::size_t Buffered() const { return Bytes.size() - Start; }
  // The length of the frame under way, once its length field is in; 0 before.
  std::uint32_t PendingLength() const;

 private:
  std::vector<BYTE> Bytes;
  std::size_t Start = 0;
  bool Failed = false;
  std::string LastError;
};

}  // namespace linkframe
