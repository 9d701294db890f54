// libFuzzer target over the frame decoder of the data manager link.
//
// An input is one byte that sets the size of the reads (1 to 256 bytes) and then the byte
// stream a data manager sends. The decoder must give back exactly the frames in the
// stream, each of which encodes to the bytes it came from; it must refuse a length below
// 2 or above the limit at once, without holding more than a frame's bytes; and a message
// made of a frame must hold the payload as sent.
//
// Seeds: run the target once with --write-seeds=DIR to write a few well-formed streams
// (the connect request, "connected", a snapshot, keep-alives between messages) into DIR.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "data/DataEncoder.h"
#include "data/DataTestSupport.h"
#include "host/LinkFrame.h"

namespace {

void Check(bool condition) {
  if (!condition) __builtin_trap();
}

std::uint32_t LengthAt(const std::uint8_t* data) {
  return static_cast<std::uint32_t>(data[0]) | static_cast<std::uint32_t>(data[1]) << 8 |
         static_cast<std::uint32_t>(data[2]) << 16 | static_cast<std::uint32_t>(data[3]) << 24;
}

void Append(std::string& stream, CModuleMessage* message) {
  std::unique_ptr<CModuleMessage> owned(message);
  const std::vector<BYTE> frame = linkframe::Encode(*owned);
  stream.append(reinterpret_cast<const char*>(frame.data()), frame.size());
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
  for (int i = 1; i < *argc; ++i) {
    const std::string argument = (*argv)[i];
    if (argument.rfind("--write-seeds=", 0) != 0) continue;
    const std::string directory = argument.substr(std::strlen("--write-seeds="));
    auto* request = new CModuleMessage(0, kDataManagerClass, 0, 0);
    *request << 0;
    std::string connect(1, '\x07');
    Append(connect, request);
    std::ofstream(directory + "/seed-connect", std::ios::binary) << connect;
    std::string connected(1, '\x01');
    Append(connected, DataEncoder::Connected());
    Append(connected, new CModuleMessage(0x8020, kZolServerClass, 0, 0));
    std::ofstream(directory + "/seed-connected", std::ios::binary) << connected;
    CSampleMaker maker(3);
    auto model = MakeModel(maker, 1, 1, 2, 0, 3);
    std::string snapshot(1, '\x40');
    Append(snapshot, DataEncoder::Snapshot(*model));
    std::ofstream(directory + "/seed-snapshot", std::ios::binary) << snapshot;
    // Keep-alive frames, the link's own, before, between and after messages.
    std::string keepAlive(1, '\x02');
    const std::vector<BYTE> alive = linkframe::KeepAliveFrame();
    keepAlive.append(reinterpret_cast<const char*>(alive.data()), alive.size());
    Append(keepAlive, DataEncoder::Connected());
    keepAlive.append(reinterpret_cast<const char*>(alive.data()), alive.size());
    Append(keepAlive, new CModuleMessage(0x8020, kZolServerClass, 0, 0));
    const std::vector<BYTE> refused = linkframe::RefusedFrame();
    keepAlive.append(reinterpret_cast<const char*>(refused.data()), refused.size());
    std::ofstream(directory + "/seed-keepalive", std::ios::binary) << keepAlive;
    std::printf("4 seeds written to %s\n", directory.c_str());
    std::exit(0);
  }
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::size_t readSize = static_cast<std::size_t>(data[0]) + 1;
  const std::uint8_t* stream = data + 1;
  const std::size_t length = size - 1;

  linkframe::CFrameDecoder decoder;
  std::size_t fed = 0;
  std::size_t consumed = 0;
  bool failed = false;
  while (fed < length && !failed) {
    const std::size_t count = std::min(readSize, length - fed);
    decoder.Feed(stream + fed, count);
    fed += count;
    linkframe::Frame frame;
    while (true) {
      const auto result = decoder.Next(frame);
      if (result == linkframe::CFrameDecoder::Result::NeedMore) break;
      if (result == linkframe::CFrameDecoder::Result::Error) {
        // Refused only for a length out of range, as soon as the length field is in.
        Check(fed - consumed >= 4);
        const std::uint32_t bad = LengthAt(stream + consumed);
        Check(bad < linkframe::kMinLength || bad > linkframe::kMaxLength);
        Check(decoder.Buffered() == 0);
        failed = true;
        break;
      }
      const std::uint32_t frameLength = LengthAt(stream + consumed);
      Check(frameLength >= linkframe::kMinLength && frameLength <= linkframe::kMaxLength);
      const std::vector<BYTE> again = linkframe::Encode(frame.ID, frame.Payload.data(), frame.Payload.size());
      Check(again.size() == 4 + static_cast<std::size_t>(frameLength));
      Check(std::memcmp(again.data(), stream + consumed, again.size()) == 0);
      consumed += again.size();
      std::unique_ptr<CModuleMessage> message(linkframe::ToMessage(frame));
      Check(message->ID == frame.ID && message->GetFilled() == frame.Payload.size());
      Check(frame.Payload.empty() || std::memcmp(message->GetData(), frame.Payload.data(), frame.Payload.size()) == 0);
    }
    // What is held is the frame under way, never more.
    if (!failed) Check(decoder.Buffered() == fed - consumed);
  }
  return 0;
}
