#include "frame/TTBuffer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "testing/KVTCatch.h"

namespace {

std::vector<BYTE> Bytes(const CTTBuffer& buffer) {
  return std::vector<BYTE>(buffer.GetData(), buffer.GetData() + buffer.GetFilled());
}

bool TrailHas(const CKVTException& e, const std::string& name) {
  const auto& trail = e.GetTrail();
  return std::find(trail.begin(), trail.end(), name) != trail.end();
}

}  // namespace

TEST(TTBuffer, NewBufferStartsEmptyWithItsSizeAsCapacityAndStep) {
  CTTBuffer buffer(1024);
  EXPECT_EQ(buffer.GetCapacity(), 1024u);
  EXPECT_EQ(buffer.GetGrowBy(), 1024u);
  EXPECT_EQ(buffer.GetSize(), 0u);
  EXPECT_EQ(buffer.GetAutoGrow(), 1);
  EXPECT_EQ(buffer.GetPosition(), 0u);
}

TEST(TTBuffer, EmptyStringWritesFourZeroBytesAndReadsBackEmpty) {
  CTTBuffer buffer(16);
  buffer << std::string();
  EXPECT_EQ(Bytes(buffer), (std::vector<BYTE>{0, 0, 0, 0}));
  EXPECT_EQ(buffer.GetPosition(), 4u);
  buffer.Reset();
  std::string text = "was here";
  buffer >> text;
  EXPECT_EQ(text, "");
  EXPECT_EQ(buffer.GetPosition(), 4u);
}

TEST(TTBuffer, EveryTypeRoundTrips) {
  CTTBuffer buffer(8);
  const std::string withNul("a\0b", 3);
  buffer << static_cast<BYTE>(0xAB) << static_cast<WORD>(0xBEEF) << static_cast<DWORD>(0xDEADBEEF)
         << static_cast<KVTTIME>(-123456789012345LL) << KVTTIME_NULL << -5 << 3.25 << -1e300
         << std::string("hello") << withNul;
  buffer.Reset();
  BYTE b = 0;
  WORD w = 0;
  DWORD d = 0;
  KVTTIME t1 = 0;
  KVTTIME t2 = 0;
  int i = 0;
  double f1 = 0;
  double f2 = 0;
  std::string s1;
  std::string s2;
  buffer >> b >> w >> d >> t1 >> t2 >> i >> f1 >> f2 >> s1 >> s2;
  EXPECT_EQ(b, 0xAB);
  EXPECT_EQ(w, 0xBEEF);
  EXPECT_EQ(d, 0xDEADBEEFu);
  EXPECT_EQ(t1, -123456789012345LL);
  EXPECT_EQ(t2, KVTTIME_NULL);
  EXPECT_EQ(i, -5);
  EXPECT_EQ(f1, 3.25);
  EXPECT_EQ(f2, -1e300);
  EXPECT_EQ(s1, "hello");
  EXPECT_EQ(s2, withNul);
  EXPECT_EQ(buffer.GetPosition(), buffer.GetFilled());
}

TEST(TTBuffer, IntegersAreLittleEndianWithoutPadding) {
  CTTBuffer buffer(4);
  buffer << static_cast<BYTE>(0x11) << static_cast<WORD>(0x2233) << static_cast<DWORD>(0x44556677) << -2
         << static_cast<KVTTIME>(0x0102030405060708LL);
  EXPECT_EQ(Bytes(buffer), (std::vector<BYTE>{0x11, 0x33, 0x22, 0x77, 0x66, 0x55, 0x44, 0xFE, 0xFF, 0xFF, 0xFF,
                                              0x08, 0x07, 0x06, 0x05, 0x04, 0x03, 0x02, 0x01}));
}

TEST(TTBuffer, DoubleIsIeeeBinary64) {
  CTTBuffer buffer(8);
  buffer << 1.0;
  EXPECT_EQ(Bytes(buffer), (std::vector<BYTE>{0, 0, 0, 0, 0, 0, 0xF0, 0x3F}));
}

TEST(TTBuffer, StringIsDwordLengthThenBytesWithoutTerminator) {
  CTTBuffer buffer(8);
  buffer << std::string("abc");
  EXPECT_EQ(Bytes(buffer), (std::vector<BYTE>{3, 0, 0, 0, 'a', 'b', 'c'}));
}

TEST(TTBuffer, Writing1025BytesIntoNew1024ByteBufferLeavesCapacity32768) {
  CTTBuffer buffer(1024);
  buffer << std::string(1021, 'x');  // one growth request of 1021 + 4 bytes
  EXPECT_EQ(buffer.GetCapacity(), 32768u);
  EXPECT_EQ(buffer.GetGrowBy(), 32768u);
  EXPECT_EQ(buffer.GetSize(), 1025u);
}

TEST(TTBuffer, ByteByByteWritePast1024JumpsTo32768) {
  CTTBuffer buffer(1024);
  for (int i = 0; i < 1025; ++i) buffer << static_cast<BYTE>(i);
  EXPECT_EQ(buffer.GetCapacity(), 32768u);
  EXPECT_EQ(buffer.GetSize(), 1025u);
  buffer.Reset();
  for (int i = 0; i < 1025; ++i) {
    BYTE b = 0;
    buffer >> b;
    ASSERT_EQ(b, static_cast<BYTE>(i));
  }
}

TEST(TTBuffer, BufferWithGrowBy32768GetsGrowBy65536AtNextGrowth) {
  CTTBuffer buffer(32768);
  EXPECT_EQ(buffer.GetGrowBy(), 32768u);
  buffer << std::string(32768, 'y');
  EXPECT_EQ(buffer.GetGrowBy(), 65536u);
  // ((0 + 32772) / 65536 + 1) * 65536
  EXPECT_EQ(buffer.GetCapacity(), 65536u);
  EXPECT_EQ(buffer.GetSize(), 32772u);
}

TEST(TTBuffer, GrowthGivesMultipleOfStepAboveTheNeed) {
  CTTBuffer buffer(1024);
  buffer.SetNewSize(100000);
  // Step 32768: (100000 / 32768 + 1) * 32768
  EXPECT_EQ(buffer.GetCapacity(), 131072u);
  EXPECT_EQ(buffer.GetGrowBy(), 32768u);
  buffer.SetPosition(131072);
  buffer.SetNewSize(1);
  // Step 65536: (131073 / 65536 + 1) * 65536
  EXPECT_EQ(buffer.GetGrowBy(), 65536u);
  EXPECT_EQ(buffer.GetCapacity(), 196608u);
}

TEST(TTBuffer, GrowthKeepsContentsAndCursorOffset) {
  CTTBuffer buffer(8);
  buffer << 7 << 8;
  buffer << std::string(40000, 'z');
  EXPECT_EQ(buffer.GetPosition(), 8u + 4u + 40000u);
  buffer.Reset();
  int a = 0;
  int b = 0;
  std::string s;
  buffer >> a >> b >> s;
  EXPECT_EQ(a, 7);
  EXPECT_EQ(b, 8);
  EXPECT_EQ(s, std::string(40000, 'z'));
}

TEST(TTBuffer, SizeAddsTheRequestNotTheHighWaterMark) {
  CTTBuffer buffer(64);
  buffer << 1 << 2;  // 8 bytes
  EXPECT_EQ(buffer.GetSize(), 8u);
  buffer.SetPosition(4);
  buffer << 3;  // 4 + 4 is not above 8: unchanged
  EXPECT_EQ(buffer.GetSize(), 8u);
  buffer.SetPosition(6);
  buffer << static_cast<DWORD>(4);  // 6 + 4 > 8: Size grows by 4, not to 10
  EXPECT_EQ(buffer.GetSize(), 12u);
  EXPECT_EQ(buffer.GetFilled(), 10u);
}

TEST(TTBuffer, SetPositionReturnsTheOldOffset) {
  CTTBuffer buffer(16);
  buffer << 1 << 2;
  EXPECT_EQ(buffer.SetPosition(2), 8u);
  EXPECT_EQ(buffer.SetPosition(0), 2u);
}

TEST(TTBuffer, WritesChainAndOverwriteAtTheCursor) {
  CTTBuffer buffer(16);
  buffer << 1 << 2 << 3;
  buffer.SetPosition(4);
  buffer << 20;
  buffer.Reset();
  int a = 0;
  int b = 0;
  int c = 0;
  buffer >> a >> b >> c;
  EXPECT_EQ(a, 1);
  EXPECT_EQ(b, 20);
  EXPECT_EQ(c, 3);
}

TEST(TTBuffer, ReadPastTheWrittenBytesThrowsWithTheReaderInItsTrail) {
  CTTBuffer buffer(1024);
  buffer << static_cast<BYTE>(1);
  buffer.Reset();
  int value = 0;
  auto e = CatchKVT([&] { buffer >> value; });
  ASSERT_NE(e, nullptr);
  EXPECT_TRUE(TrailHas(*e, "CTTBuffer::operator>>(int)")) << e->Describe();
  EXPECT_EQ(e->GetTrail().back(), "CTTBuffer::operator>>(int)");
}

TEST(TTBuffer, EveryReaderRefusesAnEmptyMessage) {
  CTTBuffer buffer(64);
  BYTE b = 0;
  WORD w = 0;
  DWORD d = 0;
  KVTTIME t = 0;
  double f = 0;
  std::string s;
  auto check = [](std::unique_ptr<CKVTException> e, const char* name) {
    ASSERT_NE(e, nullptr) << name;
    EXPECT_TRUE(TrailHas(*e, name)) << e->Describe();
  };
  check(CatchKVT([&] { buffer >> b; }), "CTTBuffer::operator>>(BYTE)");
  check(CatchKVT([&] { buffer >> w; }), "CTTBuffer::operator>>(WORD)");
  check(CatchKVT([&] { buffer >> d; }), "CTTBuffer::operator>>(DWORD)");
  check(CatchKVT([&] { buffer >> t; }), "CTTBuffer::operator>>(KVTTIME)");
  check(CatchKVT([&] { buffer >> f; }), "CTTBuffer::operator>>(double)");
  check(CatchKVT([&] { buffer >> s; }), "CTTBuffer::operator>>(string)");
}

TEST(TTBuffer, ReadOfAFewBytesTooManyThrows) {
  CTTBuffer buffer(64);
  buffer << static_cast<WORD>(5) << static_cast<BYTE>(1);
  buffer.Reset();
  WORD w = 0;
  buffer >> w;
  EXPECT_EQ(w, 5);
  DWORD d = 0;
  EXPECT_NE(CatchKVT([&] { buffer >> d; }), nullptr);
}

TEST(TTBuffer, StringLengthLongerThanTheRestThrows) {
  CTTBuffer buffer(64);
  buffer << static_cast<DWORD>(100) << static_cast<BYTE>('a') << static_cast<BYTE>('b');
  buffer.Reset();
  std::string s;
  auto e = CatchKVT([&] { buffer >> s; });
  ASSERT_NE(e, nullptr);
  EXPECT_TRUE(TrailHas(*e, "CTTBuffer::operator>>(string)")) << e->Describe();
}

TEST(TTBuffer, StringThatFitsExactlyIsRead) {
  CTTBuffer buffer(64);
  buffer << static_cast<DWORD>(2) << static_cast<BYTE>('a') << static_cast<BYTE>('b');
  buffer.Reset();
  std::string s;
  buffer >> s;
  EXPECT_EQ(s, "ab");
}

TEST(TTBuffer, AssignedBytesAreReadAndNotMore) {
  const BYTE received[] = {0x34, 0x12, 0x78, 0x56};
  CTTBuffer buffer(2);
  buffer.Assign(received, sizeof received);
  WORD a = 0;
  WORD b = 0;
  buffer >> a >> b;
  EXPECT_EQ(a, 0x1234);
  EXPECT_EQ(b, 0x5678);
  BYTE more = 0;
  EXPECT_NE(CatchKVT([&] { buffer >> more; }), nullptr);
}

TEST(TTBuffer, CopyIsIndependent) {
  CTTBuffer original(16);
  original << 42;
  CTTBuffer copy(original);
  original.Reset();
  original << 7;
  copy.Reset();
  int value = 0;
  copy >> value;
  EXPECT_EQ(value, 42);
}

TEST(TTBuffer, WithoutAutoGrowWritersDoNotGrowOrCount) {
  CTTBuffer buffer(8);
  buffer.SetAutoGrow(0);
  buffer << 1 << 2;
  EXPECT_EQ(buffer.GetCapacity(), 8u);
  EXPECT_EQ(buffer.GetSize(), 0u);  // only the growth rule counts Size
  EXPECT_EQ(buffer.GetFilled(), 8u);
  // A write past the block is refused rather than written into foreign memory.
  auto e = CatchKVT([&] { buffer << static_cast<BYTE>(3); });
  ASSERT_NE(e, nullptr);
  EXPECT_EQ(e->GetTrail().back(), "CTTBuffer::operator<<(BYTE)");
  EXPECT_EQ(buffer.GetPosition(), 8u);
}

TEST(TTBuffer, SetPositionBeyondTheBlockIsRefused) {
  CTTBuffer buffer(16);
  auto e = CatchKVT([&] { buffer.SetPosition(17); });
  ASSERT_NE(e, nullptr);
  EXPECT_EQ(e->GetTrail().back(), "CTTBuffer::SetPosition()");
  EXPECT_EQ(buffer.SetPosition(16), 0u);
}

TEST(TTBuffer, ReadAfterMovingPastTheWrittenBytesThrows) {
  CTTBuffer buffer(64);
  buffer << 1;
  buffer.SetPosition(8);
  int value = 0;
  EXPECT_NE(CatchKVT([&] { buffer >> value; }), nullptr);
}
