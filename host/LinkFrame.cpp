#include "host/LinkFrame.h"

#include <algorithm>

namespace linkframe {

namespace {

std::uint32_t ReadLength(const BYTE* bytes) {
  return static_cast<std::uint32_t>(bytes[0]) | static_cast<std::uint32_t>(bytes[1]) << 8 |
         static_cast<std::uint32_t>(bytes[2]) << 16 | static_cast<std::uint32_t>(bytes[3]) << 24;
}

}  // namespace

std::vector<BYTE> Encode(WORD id, const BYTE* payload, std::size_t payloadBytes) {
  const std::uint32_t length = static_cast<std::uint32_t>(payloadBytes + 2);
  std::vector<BYTE> frame;
  frame.reserve(kHeaderBytes + payloadBytes);
  for (int shift = 0; shift < 32; shift += 8) frame.push_back(static_cast<BYTE>(length >> shift));
  frame.push_back(static_cast<BYTE>(id & 0xFF));
  frame.push_back(static_cast<BYTE>(id >> 8));
  if (payloadBytes > 0) frame.insert(frame.end(), payload, payload + payloadBytes);
  return frame;
}

std::vector<BYTE> KeepAliveFrame() { return Encode(kKeepAliveID, nullptr, 0); }

std::vector<BYTE> RefusedFrame() { return Encode(kRefusedID, nullptr, 0); }

std::vector<BYTE> Encode(const CModuleMessage& message) {
  return Encode(message.ID, message.GetData(), message.GetFilled());
}

CModuleMessage* ToMessage(const Frame& frame) {
  auto* message = new CModuleMessage(frame.ID, kZolServerClass, 0, 0);
  message->Assign(frame.Payload.data(), frame.Payload.size());
  return message;
}

void CFrameDecoder::Feed(const BYTE* bytes, std::size_t count) {
  if (Failed || count == 0) return;
  // What the frames before took is let go once it is at least half of what is held.
  if (Start > 0 && Start * 2 >= Bytes.size()) {
    Bytes.erase(Bytes.begin(), Bytes.begin() + static_cast<std::ptrdiff_t>(Start));
    Start = 0;
  }
  Bytes.insert(Bytes.end(), bytes, bytes + count);
}

std::uint32_t CFrameDecoder::PendingLength() const {
  return Buffered() >= 4 ? ReadLength(Bytes.data() + Start) : 0;
}

CFrameDecoder::Result CFrameDecoder::Next(Frame& frame) {
  if (Failed) return Result::Error;
  if (Buffered() < 4) return Result::NeedMore;
  const std::uint32_t length = ReadLength(Bytes.data() + Start);
  if (length < kMinLength || length > kMaxLength) {
    Failed = true;
    LastError = "frame length " + std::to_string(length) +
                (length < kMinLength ? " is below 2" : " is above the limit of " + std::to_string(kMaxLength));
    Bytes.clear();
    Bytes.shrink_to_fit();
    Start = 0;
    return Result::Error;
  }
  if (Buffered() - 4 < length) return Result::NeedMore;
  const BYTE* at = Bytes.data() + Start + 4;
  frame.ID = static_cast<WORD>(at[0] | at[1] << 8);
  frame.Payload.assign(at + 2, at + length);
  Start += 4 + static_cast<std::size_t>(length);
  if (Start == Bytes.size()) {
    Bytes.clear();
    Start = 0;
  }
  return Result::Frame;
}

}  // namespace linkframe
