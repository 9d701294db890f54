// The frame of the data manager link: length, ID and payload, and a decoder that takes
// the stream however it is cut.
#include "host/LinkFrame.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace {

using linkframe::CFrameDecoder;

std::vector<BYTE> Bytes(std::initializer_list<int> values) {
  std::vector<BYTE> bytes;
  for (int value : values) bytes.push_back(static_cast<BYTE>(value));
  return bytes;
}

void Feed(CFrameDecoder& decoder, const std::vector<BYTE>& bytes) { decoder.Feed(bytes.data(), bytes.size()); }

}  // namespace

TEST(LinkFrame, ConnectRequestIsLengthIdAndPayloadByteForByte) {
  // Message 0 with the connect parameter 0 as an int: N = 2 + 4.
  CModuleMessage message(0, kDataManagerClass, 0, 0x0100007F);
  message << 0;
  EXPECT_EQ(linkframe::Encode(message), Bytes({0x06, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00}));
}

TEST(LinkFrame, IdAndLengthAreLittleEndian) {
  CModuleMessage message(0x8021, kDataManagerClass, 0, 0);
  message << std::string("ab");  // a DWORD length and the characters
  EXPECT_EQ(linkframe::Encode(message),
            Bytes({0x08, 0x00, 0x00, 0x00, 0x21, 0x80, 0x02, 0x00, 0x00, 0x00, 'a', 'b'}));
  EXPECT_EQ(linkframe::Encode(2, nullptr, 0), Bytes({0x02, 0x00, 0x00, 0x00, 0x02, 0x00}));
}

TEST(LinkFrame, RoundTripGivesTheMessageBack) {
  CModuleMessage message(0x0041, kZolServerClass, 0, 0);
  message << DWORD{0x40000007} << std::string("Run 1") << 12345 << 2.5;
  const std::vector<BYTE> frame = linkframe::Encode(message);
  CFrameDecoder decoder;
  Feed(decoder, frame);
  linkframe::Frame decoded;
  ASSERT_EQ(decoder.Next(decoded), CFrameDecoder::Result::Frame);
  EXPECT_EQ(decoder.Next(decoded), CFrameDecoder::Result::NeedMore);
  EXPECT_FALSE(decoder.InsideFrame());
  std::unique_ptr<CModuleMessage> back(linkframe::ToMessage(decoded));
  EXPECT_EQ(back->ID, 0x0041);
  ASSERT_EQ(back->GetFilled(), message.GetFilled());
  DWORD key = 0;
  std::string name;
  int number = 0;
  double value = 0;
  *back >> key >> name >> number >> value;
  EXPECT_EQ(key, 0x40000007u);
  EXPECT_EQ(name, "Run 1");
  EXPECT_EQ(number, 12345);
  EXPECT_EQ(value, 2.5);
  EXPECT_EQ(back->GetRemaining(), 0u);
}

TEST(LinkFrame, FrameSplitAcrossManyReadsComesOutWhole) {
  CModuleMessage first(2, kZolServerClass, 0, 0);
  for (int i = 0; i < 300; ++i) first << i;
  CModuleMessage second(0x8020, kZolServerClass, 0, 0);
  std::vector<BYTE> stream = linkframe::Encode(first);
  const std::vector<BYTE> tail = linkframe::Encode(second);
  stream.insert(stream.end(), tail.begin(), tail.end());

  CFrameDecoder decoder;
  std::vector<linkframe::Frame> frames;
  for (BYTE byte : stream) {
    decoder.Feed(&byte, 1);
    linkframe::Frame frame;
    while (decoder.Next(frame) == CFrameDecoder::Result::Frame) frames.push_back(frame);
    if (frames.empty()) {
      EXPECT_TRUE(decoder.InsideFrame());
    }
  }
  ASSERT_EQ(frames.size(), 2u);
  EXPECT_EQ(frames[0].ID, 2);
  EXPECT_EQ(frames[0].Payload.size(), 1200u);
  EXPECT_EQ(frames[0].Payload[4], 1);  // the second int, little-endian
  EXPECT_EQ(frames[1].ID, 0x8020);
  EXPECT_TRUE(frames[1].Payload.empty());
  EXPECT_FALSE(decoder.InsideFrame());
}

TEST(LinkFrame, PendingLengthIsKnownOnceTheLengthFieldIsIn) {
  CFrameDecoder decoder;
  Feed(decoder, Bytes({0x0A, 0x00, 0x00}));
  EXPECT_EQ(decoder.PendingLength(), 0u);
  Feed(decoder, Bytes({0x00, 0x01}));
  EXPECT_EQ(decoder.PendingLength(), 10u);
  EXPECT_EQ(decoder.Buffered(), 5u);
  linkframe::Frame frame;
  EXPECT_EQ(decoder.Next(frame), CFrameDecoder::Result::NeedMore);
}

TEST(LinkFrame, LengthBelowTwoIsAnError) {
  for (int length : {0, 1}) {
    CFrameDecoder decoder;
    Feed(decoder, Bytes({length, 0, 0, 0, 0, 0}));
    linkframe::Frame frame;
    EXPECT_EQ(decoder.Next(frame), CFrameDecoder::Result::Error) << length;
    EXPECT_EQ(decoder.Error(), "frame length " + std::to_string(length) + " is below 2");
    // After an error it takes nothing more.
    Feed(decoder, linkframe::Encode(2, nullptr, 0));
    EXPECT_EQ(decoder.Next(frame), CFrameDecoder::Result::Error);
  }
}

TEST(LinkFrame, LengthOfExactly64MiBIsTakenAndOneMoreIsRefused) {
  {
    CFrameDecoder decoder;
    Feed(decoder, Bytes({0x00, 0x00, 0x00, 0x04, 0x05, 0x00}));  // 0x04000000 = 64 MiB
    linkframe::Frame frame;
    EXPECT_EQ(decoder.Next(frame), CFrameDecoder::Result::NeedMore);
    EXPECT_EQ(decoder.PendingLength(), linkframe::kMaxLength);
  }
  CFrameDecoder decoder;
  Feed(decoder, Bytes({0x01, 0x00, 0x00, 0x04}));  // 64 MiB + 1
  linkframe::Frame frame;
  EXPECT_EQ(decoder.Next(frame), CFrameDecoder::Result::Error);
  EXPECT_EQ(decoder.Error(), "frame length 67108865 is above the limit of 67108864");
}

TEST(LinkFrame, LengthOfAllOnesIsRefusedWithoutWaitingForTheBytes) {
  CFrameDecoder decoder;
  Feed(decoder, Bytes({0xFF, 0xFF, 0xFF, 0xFF}));
  linkframe::Frame frame;
  EXPECT_EQ(decoder.Next(frame), CFrameDecoder::Result::Error);
  EXPECT_EQ(decoder.Error(), "frame length 4294967295 is above the limit of 67108864");
  EXPECT_EQ(decoder.Buffered(), 0u);
}

TEST(LinkFrame, LargeFrameWithinTheLimitComesThrough) {
  std::vector<BYTE> payload(3 * 1024 * 1024 + 7);
  for (std::size_t i = 0; i < payload.size(); ++i) payload[i] = static_cast<BYTE>(i * 31);
  const std::vector<BYTE> stream = linkframe::Encode(0x0030, payload.data(), payload.size());
  CFrameDecoder decoder;
  linkframe::Frame frame;
  // In reads of 64 KiB, as the link reads.
  std::size_t frames = 0;
  for (std::size_t at = 0; at < stream.size(); at += 65536) {
    decoder.Feed(stream.data() + at, std::min<std::size_t>(65536, stream.size() - at));
    while (decoder.Next(frame) == CFrameDecoder::Result::Frame) ++frames;
  }
  ASSERT_EQ(frames, 1u);
  EXPECT_EQ(frame.Payload, payload);
  std::unique_ptr<CModuleMessage> message(linkframe::ToMessage(frame));
  EXPECT_EQ(message->GetFilled(), payload.size());
}

TEST(LinkFrame, KeepAliveAndRefusalAreIdOnlyFramesWithIdsNoModuleMessageUses) {
  EXPECT_EQ(linkframe::KeepAliveFrame(), Bytes({0x02, 0x00, 0x00, 0x00, 0xFF, 0xFF}));
  EXPECT_EQ(linkframe::RefusedFrame(), Bytes({0x02, 0x00, 0x00, 0x00, 0xFE, 0xFF}));
  EXPECT_TRUE(linkframe::IsLinkControl(0xFFFF));
  EXPECT_TRUE(linkframe::IsLinkControl(0xFFFE));
  // Data manager messages are below 0x100, view messages from 0x8000 on.
  for (const int id : {0, 1, 2, 66, 0xFF, 0x8000, 0x8020, 0x8027, 0xFFFD}) {
    EXPECT_FALSE(linkframe::IsLinkControl(static_cast<WORD>(id))) << id;
  }
}

TEST(LinkFrame, KeepAliveBetweenMessagesIsCutOutByteByByte) {
  CModuleMessage first(2, kDataManagerClass, 0, 0);
  first << 7;
  std::vector<BYTE> stream = linkframe::KeepAliveFrame();
  const std::vector<BYTE> message = linkframe::Encode(first);
  stream.insert(stream.end(), message.begin(), message.end());
  const std::vector<BYTE> keepAlive = linkframe::KeepAliveFrame();
  stream.insert(stream.end(), keepAlive.begin(), keepAlive.end());
  CFrameDecoder decoder;
  std::vector<linkframe::Frame> frames;
  for (const BYTE byte : stream) {
    decoder.Feed(&byte, 1);
    linkframe::Frame frame;
    while (decoder.Next(frame) == CFrameDecoder::Result::Frame) frames.push_back(frame);
  }
  ASSERT_EQ(frames.size(), 3u);
  EXPECT_EQ(frames[0].ID, linkframe::kKeepAliveID);
  EXPECT_TRUE(frames[0].Payload.empty());
  EXPECT_EQ(frames[1].ID, 2);
  EXPECT_EQ(frames[1].Payload, Bytes({7, 0, 0, 0}));
  EXPECT_EQ(frames[2].ID, linkframe::kKeepAliveID);
  EXPECT_FALSE(decoder.InsideFrame());
}
