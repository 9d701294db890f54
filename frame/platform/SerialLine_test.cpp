#include "frame/platform/SerialLine.h"

#include <gtest/gtest.h>

#include <string>

#include "frame/platform/SerialRate.h"

namespace {

struct PseudoLine {
  PseudoLine() {
    Ok = platform::OpenPseudoTerminal(Controller, Device, Name);
    if (Ok) Writer = platform::OpenSerialForWriting(Name);
  }
  ~PseudoLine() {
    platform::CloseSerial(Writer);
    platform::CloseSerial(Device);
    platform::CloseSerial(Controller);
  }
  PseudoLine(const PseudoLine&) = delete;
  PseudoLine& operator=(const PseudoLine&) = delete;
  bool Ok = false;
  int Controller = -1, Device = -1, Writer = -1;
  std::string Name;
};

}  // namespace

TEST(PlatformSerialLine, ARateWithoutATermiosConstantIsSetAsANumberAndKept) {
  PseudoLine line;
  ASSERT_TRUE(line.Ok);
  ASSERT_GE(line.Writer, 0);
  for (std::uint32_t rate : {250000u, 31250u, 57600u, 250000u, 115200u}) {
    ASSERT_TRUE(platform::ConfigureSerialLine(line.Writer, rate, 0, 8, 0)) << rate;
    // Read back through the kernel's own termios, which holds the rate as a number.
    EXPECT_EQ(platform::ReadSerialRate(line.Writer), rate);
    EXPECT_EQ(platform::SerialBaudRate(line.Writer), rate);
  }
}

TEST(PlatformSerialLine, ARateOfZeroIsRefusedAndTheLineKeepsItsRate) {
  PseudoLine line;
  ASSERT_TRUE(line.Ok);
  ASSERT_TRUE(platform::ConfigureSerialLine(line.Writer, 250000, 0, 8, 0));
  EXPECT_FALSE(platform::ConfigureSerialLine(line.Writer, 0, 0, 8, 0));
  EXPECT_FALSE(platform::SetSerialRateExactly(line.Writer, 0));
  EXPECT_EQ(platform::SerialBaudRate(line.Writer), 250000u);
}

TEST(PlatformSerialLine, APseudoTerminalHoldsNothingInItsOutputQueue) {
  PseudoLine line;
  ASSERT_TRUE(line.Ok);
  const unsigned char bytes[3] = {1, 2, 3};
  ASSERT_EQ(platform::WriteSerial(line.Writer, bytes, 3), 3);
  // It hands its bytes on at once; the line's time is what the sender waits for.
  EXPECT_EQ(platform::SerialOutputQueued(line.Writer), 0);
  EXPECT_EQ(platform::SerialOutputQueued(-1), -1);
}
