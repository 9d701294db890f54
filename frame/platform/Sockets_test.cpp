#include "frame/platform/Sockets.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "frame/platform/SerialLine.h"

TEST(PlatformSockets, ConnectedPairCarriesBytesOnLoopback) {
  const int listener = platform::OpenTcpSocket();
  ASSERT_GE(listener, 0);
  ASSERT_TRUE(platform::BindAnyAddress(listener, 0));
  ASSERT_TRUE(platform::Listen(listener, 10));
  const std::uint16_t port = platform::LocalPort(listener);
  ASSERT_NE(port, 0);
  const int client = platform::TcpConnect("127.0.0.1", port);
  ASSERT_GE(client, 0);
  std::uint32_t peer = 0;
  const int served = platform::AcceptConnection(listener, peer);
  ASSERT_GE(served, 0);
  EXPECT_EQ(platform::DottedAddress(peer), "127.0.0.1");
  EXPECT_TRUE(platform::WaitWritable(served, 0));
  EXPECT_EQ(platform::SendSome(served, "hello", 5), 5);
  ASSERT_TRUE(platform::WaitReadable(client, 2000000));
  char text[8] = {0};
  EXPECT_EQ(platform::ReceiveSome(client, text, sizeof text), 5);
  EXPECT_STREQ(text, "hello");
  platform::ShutdownDrainClose(served);
  EXPECT_EQ(platform::ReceiveSome(client, text, sizeof text), 0);
  platform::CloseSocket(client);
  platform::CloseSocket(listener);
}

TEST(PlatformSockets, MulticastAddressesAreRecognised) {
  EXPECT_TRUE(platform::IsMulticastAddress("239.254.1.2"));
  EXPECT_TRUE(platform::IsMulticastAddress("224.0.0.1"));
  EXPECT_FALSE(platform::IsMulticastAddress("127.0.0.1"));
  EXPECT_FALSE(platform::IsMulticastAddress("not an address"));
}

TEST(PlatformSerialLine, PseudoTerminalCarriesRawBytesAtTheChosenRate) {
  int controller = -1, device = -1;
  std::string name;
  ASSERT_TRUE(platform::OpenPseudoTerminal(controller, device, name));
  const int writer = platform::OpenSerialForWriting(name);
  ASSERT_GE(writer, 0);
  ASSERT_TRUE(platform::ConfigureSerialLine(writer, 57600, 0, 8, 0));
  EXPECT_EQ(platform::SerialBaudRate(writer), 57600u);
  const unsigned char bytes[4] = {0x8E, 0x0A, 0x0D, 0xFF};
  EXPECT_EQ(platform::WriteSerial(writer, bytes, 4), 4);
  unsigned char got[4] = {0};
  long total = 0;
  while (total < 4) {
    const long n = platform::ReadSerial(controller, got + total, 4 - total, 2000);
    ASSERT_GT(n, 0);
    total += n;
  }
  EXPECT_EQ(std::memcmp(got, bytes, 4), 0);
  // Any rate the driver takes is set; a rate of 0 is no rate.
  EXPECT_FALSE(platform::ConfigureSerialLine(writer, 0, 0, 8, 0));
  platform::CloseSerial(writer);
  platform::CloseSerial(device);
  platform::CloseSerial(controller);
}
