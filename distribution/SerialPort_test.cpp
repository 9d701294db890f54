#include "distribution/SerialPort.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "distribution/OutputPage.h"
#include "frame/IniFile.h"
#include "frame/platform/SerialLine.h"
#include "testing/LogCapture.h"
#include "testing/PacketSizeScope.h"
#include "testing/PageReassembler.h"

namespace {

// A pseudo-terminal standing in for COM `number`; every other COM number leads nowhere.
class PseudoComPort {
 public:
  explicit PseudoComPort(int number) {
    Ok = platform::OpenPseudoTerminal(Controller, Device, Name);
    for (int i = 1; i <= CZOLSerialPort::kHighestComPort; ++i) {
      Package.ComPorts[i] = i == number ? Name : "/nonexistent/zol-tty" + std::to_string(i);
    }
  }
  ~PseudoComPort() {
    platform::CloseSerial(Controller);
    platform::CloseSerial(Device);
  }
  // Reads what arrives until `enough` says so or five seconds pass.
  template <class Enough>
  std::vector<BYTE> ReadUntil(Enough enough) {
    std::vector<BYTE> got;
    BYTE buffer[4096];
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (!enough(got) && std::chrono::steady_clock::now() < deadline) {
      const long n = platform::ReadSerial(Controller, buffer, sizeof buffer, 50);
      if (n > 0) got.insert(got.end(), buffer, buffer + n);
    }
    return got;
  }
  bool Ok = false;
  int Controller = -1, Device = -1;
  std::string Name;
  LogCapturePackage Package;
};

}  // namespace

TEST(SerialPortThread, APacketGoesThroughThePseudoTerminalByteForByte) {
  PacketSizeScope size(128);
  PseudoComPort com(7);
  ASSERT_TRUE(com.Ok);
  InstalledPackage scope(&com.Package);
  CZOLSerialPort port(1);
  port.SetComPort(7);
  port.Start();
  ASSERT_EQ(port.IsRunning(), 1);
  EXPECT_EQ(port.GetInfoLine1(), "COM 7 (" + com.Name + ")");
  EXPECT_EQ(port.GetInfoLine2(), "Baudrate: 115200");
  EXPECT_TRUE(com.Package.HasLine("Starting serial server (Port: COM7, Baudrate: 115200)."));
  EXPECT_EQ(platform::SerialBaudRate(port.GetHandle()), 115200u);

  // One-packet pages, one at a time: nothing follows a packet whose output could be purged.
  for (int n = 0; n < 3; ++n) {
    COutputPage page(1, 10 + n, 0, 10, "", "s" + std::to_string(n) + ".txt");
    page.SetData(std::vector<BYTE>(20 + n, static_cast<BYTE>('a' + n)));
    page.BuildPackets();
    ASSERT_EQ(page.GetPackets().size(), 1u);
    port.UpdatePage(page.GetPageKey(), page.GetSequenceLow(), page.GetPackets());
    const std::vector<BYTE> got = com.ReadUntil([](const std::vector<BYTE>& bytes) { return bytes.size() >= 128; });
    ASSERT_EQ(got.size(), 128u);
    EXPECT_EQ(std::memcmp(got.data(), page.GetPackets()[0], 128), 0);
    CTestReassembler receiver(128);
    receiver.FeedStream(got.data(), got.size());
    ASSERT_EQ(receiver.Completed.size(), 1u);
    EXPECT_EQ(receiver.Completed[0].Data, page.GetData());
  }
  port.Stop();
  EXPECT_EQ(port.IsRunning(), 0);
  EXPECT_EQ(port.GetHandle(), -1);
}

// The purge before each packet drops what the line has not taken yet, so on a slow
// reader whole packets may go, but what arrives is always whole packets, and the last
// packet of a burst, which nothing follows, always arrives.
TEST(SerialPortThread, APurgedLineLosesWholePacketsNeverHalfOfOne) {
  PacketSizeScope size(128, 50);
  PseudoComPort com(2);
  ASSERT_TRUE(com.Ok);
  InstalledPackage scope(&com.Package);
  CZOLSerialPort port(1);
  port.SetComPort(2);
  port.Start();
  ASSERT_EQ(port.IsRunning(), 1);
  COutputPage page(1, 3, 0, 10, "", "many.bin");
  std::vector<BYTE> data(1500);
  for (std::size_t i = 0; i < data.size(); ++i) data[i] = static_cast<BYTE>(i * 131 + 7);
  page.SetData(data);
  page.BuildPackets();
  const std::size_t packets = page.GetPackets().size();
  ASSERT_GE(packets, 3u);
  ASSERT_LE(packets, 20u);  // one burst
  port.UpdatePage(page.GetPageKey(), page.GetSequenceLow(), page.GetPackets());
  const BYTE* last = page.GetPackets().back();
  const std::vector<BYTE> got = com.ReadUntil([&](const std::vector<BYTE>& bytes) {
    return bytes.size() >= 128 && std::memcmp(bytes.data() + bytes.size() - 128, last, 128) == 0;
  });
  ASSERT_GE(got.size(), 128u);
  ASSERT_EQ(got.size() % 128, 0u);
  for (std::size_t at = 0; at < got.size(); at += 128) {
    bool matches = false;
    for (const BYTE* block : page.GetPackets()) matches |= std::memcmp(got.data() + at, block, 128) == 0;
    EXPECT_TRUE(matches) << "block at " << at;
  }
  EXPECT_EQ(std::memcmp(got.data() + got.size() - 128, last, 128), 0);
}

TEST(SerialPort, TheBaudRateGoesToTheDeviceAsItStands) {
  PseudoComPort com(4);
  ASSERT_TRUE(com.Ok);
  InstalledPackage scope(&com.Package);
  for (DWORD rate : {9600u, 57600u, 230400u}) {
    CIniFile ini("/nonexistent/none.ini");
    ini.Write("port0", "port", 4);
    ini.Write("port0", "baudrate", static_cast<int>(rate));
    CZOLSerialPort port(1);
    port.LoadSettings(ini, "port0");
    EXPECT_EQ(port.GetBaudRate(), rate);
    port.Start();
    ASSERT_EQ(port.IsRunning(), 1);
    EXPECT_EQ(platform::SerialBaudRate(port.GetHandle()), rate);
    port.Stop();
  }
  // A rate of 0 would hang the line up: the open fails and the port stays stopped.
  CZOLSerialPort none(2);
  none.SetComPort(4);
  none.SetBaudRate(0);
  none.Start();
  EXPECT_EQ(none.IsRunning(), 0);
}

// Rates without a termios constant of their own (a DMX line, a MIDI line, an odd one)
// go to the driver as numbers, and the driver keeps them.
TEST(SerialPort, RatesWithoutAConstantOfTheirOwnGoToTheDriverAsTheyStand) {
  PseudoComPort com(4);
  ASSERT_TRUE(com.Ok);
  InstalledPackage scope(&com.Package);
  for (DWORD rate : {250000u, 31250u, 12345u, 115200u}) {
    CZOLSerialPort port(1);
    port.SetComPort(4);
    port.SetBaudRate(rate);
    port.Start();
    ASSERT_EQ(port.IsRunning(), 1) << rate;
    EXPECT_EQ(port.GetInfoLine2(), "Baudrate: " + std::to_string(rate));
    EXPECT_EQ(platform::SerialBaudRate(port.GetHandle()), rate);
    EXPECT_TRUE(com.Package.HasLine("Starting serial server (Port: COM4, Baudrate: " + std::to_string(rate) + ")."));
    port.Stop();
  }
}

// A write hands the bytes to the driver at once; the port goes on only when the line
// has had the time for them, so packets leave no faster than the rate carries them.
TEST(SerialPortThread, PacketsLeaveNoFasterThanTheLineRateCarriesThem) {
  PacketSizeScope size(128, 1);
  PseudoComPort com(5);
  ASSERT_TRUE(com.Ok);
  InstalledPackage scope(&com.Package);
  CZOLSerialPort port(1);
  port.SetComPort(5);
  port.SetBaudRate(9600);
  port.Start();
  ASSERT_EQ(port.IsRunning(), 1);
  const auto lineTime = std::chrono::microseconds(133333);  // 128 bytes of ten bits at 9600 baud
  COutputPage page(1, 3, 0, 10, "", "four.bin");
  std::vector<BYTE> data(500);
  unsigned state = 7;
  for (BYTE& byte : data) {
    state = state * 1103515245u + 12345u;
    byte = static_cast<BYTE>(state >> 16);  // does not compress
  }
  page.SetData(data);
  page.BuildPackets();
  const std::size_t packets = page.GetPackets().size();
  ASSERT_GE(packets, 4u);
  ASSERT_LE(packets, 20u);  // one burst
  const auto handedOn = std::chrono::steady_clock::now();
  port.UpdatePage(page.GetPageKey(), page.GetSequenceLow(), page.GetPackets());
  const std::vector<BYTE> got =
      com.ReadUntil([&](const std::vector<BYTE>& bytes) { return bytes.size() >= packets * 128; });
  const auto spread = std::chrono::steady_clock::now() - handedOn;
  port.Stop();
  // Nothing was purged: every packet came, whole and in order.
  ASSERT_EQ(got.size(), packets * 128);
  for (std::size_t n = 0; n < packets; ++n) {
    EXPECT_EQ(std::memcmp(got.data() + n * 128, page.GetPackets()[n], 128), 0) << "packet " << n;
  }
  // The last packet could not be written before the line had carried the ones before.
  EXPECT_GE(spread, (packets - 1) * lineTime);
}

// Waiting for a line that nobody drains never holds up Stop.
TEST(SerialPortThread, StopEndsTheThreadAtOnceWhileALineTakesItsTime) {
  PacketSizeScope size(128, 1);
  PseudoComPort com(8);
  ASSERT_TRUE(com.Ok);
  InstalledPackage scope(&com.Package);
  CZOLSerialPort port(1);
  port.SetComPort(8);
  port.SetBaudRate(300);  // one packet takes more than four seconds
  port.Start();
  ASSERT_EQ(port.IsRunning(), 1);
  COutputPage page(1, 3, 0, 10, "", "slow.bin");
  page.SetData(std::vector<BYTE>(1000, 'x'));
  page.BuildPackets();
  port.UpdatePage(page.GetPageKey(), page.GetSequenceLow(), page.GetPackets());
  // The first packet is written: the thread now waits for the line.
  const std::vector<BYTE> got = com.ReadUntil([](const std::vector<BYTE>& bytes) { return bytes.size() >= 128; });
  ASSERT_EQ(got.size(), 128u);
  const auto before = std::chrono::steady_clock::now();
  port.Stop();
  EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(2));
  EXPECT_EQ(port.IsRunning(), 0);
  EXPECT_EQ(port.GetHandle(), -1);
}

TEST(SerialPort, PortNumberZeroFailsTheStartAndThePortStaysStopped) {
  PseudoComPort com(1);
  InstalledPackage scope(&com.Package);
  CZOLSerialPort port(1);
  EXPECT_EQ(port.GetComPort(), 0u);
  port.Start();
  EXPECT_EQ(port.IsRunning(), 0);
  EXPECT_EQ(port.GetHandle(), -1);
  CZOLSerialPort missing(2);
  missing.SetComPort(9);  // mapped to a path that does not exist
  missing.Start();
  EXPECT_EQ(missing.IsRunning(), 0);
}

TEST(SerialPort, ComPortOptionsListPresentPortsAndMarkTheChosenOne) {
  PseudoComPort com(3);
  ASSERT_TRUE(com.Ok);
  InstalledPackage scope(&com.Package);
  CZOLSerialPort port(1);
  // Each entry shows the device beside the COM number.
  const std::string com3 = "COM3 (" + com.Name + ")";
  EXPECT_EQ(port.GetComPortOptions(), "<OPTION VALUE='3'>" + com3);
  port.SetComPort(3);
  port.GetCOMPorts();
  EXPECT_EQ(port.GetComPortOptions(), "<OPTION VALUE='3' SELECTED>" + com3);
  port.SetComPort(5);  // listed unseen, as an open port can't be opened twice
  port.GetCOMPorts();
  EXPECT_EQ(port.GetComPortOptions(), "<OPTION VALUE='3'>" + com3 + "<OPTION VALUE='5' SELECTED>COM5 (/nonexistent/zol-tty5)");
  PseudoComPort none(0);
  InstalledPackage inner(&none.Package);
  CZOLSerialPort lonely(2);
  EXPECT_EQ(lonely.GetComPortOptions(), "<OPTION VALUE='0'>None");
}

TEST(SerialPort, SettingsHaveTheirDefaultsAndAreWrittenInOrder) {
  CIniFile ini("/nonexistent/none.ini");
  CZOLSerialPort port(8);
  port.LoadSettings(ini, "port0");
  EXPECT_EQ(port.GetComPort(), 1u);
  EXPECT_EQ(port.GetBaudRate(), 115200u);
  EXPECT_EQ(port.GetParity(), 0);
  EXPECT_EQ(port.GetDataBits(), 8);
  EXPECT_EQ(port.GetStopBits(), 0);
  EXPECT_EQ(port.GetPacketsPerBurst(), 20);
  EXPECT_EQ(port.GetTypeName(), "Serial");
  CIniFile out("/nonexistent/out.ini");
  port.SaveSettings(out, "port0");
  DWORD id = 0, com = 0, baud = 0;
  out.Read("port0", "ID", id, 0);
  out.Read("port0", "port", com, 0);
  out.Read("port0", "baudrate", baud, 0);
  EXPECT_EQ(id, 8u);
  EXPECT_EQ(com, 1u);
  EXPECT_EQ(baud, 115200u);
}
