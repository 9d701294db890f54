// The ports' own parts of the main page: settings fields, the Apply rule and the
// statistics rows.
#include <gtest/gtest.h>

#include <string>

#include "distribution/MulticastServer.h"
#include "distribution/SerialPort.h"
#include "distribution/TCPIPServer.h"
#include "testing/LogCapture.h"
#include "web/WebPage.h"

namespace {

// A package in which no COM number leads to a device.
struct NoComPorts {
  NoComPorts() {
    for (int i = 1; i <= CZOLSerialPort::kHighestComPort; ++i) Package.ComPorts[i] = "/nonexistent/zol-tty" + std::to_string(i);
  }
  LogCapturePackage Package;
};

CKVTHttpRequest Form(const std::map<std::string, std::string>& fields) {
  CKVTHttpRequest request;
  request.Method = CKVTHttpRequest::kMethodPost;
  request.Form = fields;
  return request;
}

}  // namespace

TEST(PortForms, WithNoFreeComPortTheSelectShowsOneEntryNoneWithValueZero) {
  NoComPorts none;
  InstalledPackage scope(&none.Package);
  CZOLSerialPort port(1);
  EXPECT_EQ(port.GetSettingsAsHTML(),
            "<TABLE><TR><TD>Connect using:</TD><TD><SELECT name='comport'><OPTION VALUE='0'>None</SELECT></TD></TR>\n"
            "<TR><TD>Baudrate:</TD><TD><SELECT name='baudrate'><OPTION VALUE='9600'>9600<OPTION VALUE='19200'>19200"
            "<OPTION VALUE='38400'>38400<OPTION VALUE='57600'>57600<OPTION VALUE='115200' SELECTED>115200"
            "<OPTION VALUE='230400'>230400</SELECT></TD></TR></TABLE>\n");
}

TEST(PortForms, SerialApplyStoresTheValuesRebuildsTheListAndAStartThatFailsLeavesItStopped) {
  NoComPorts none;
  InstalledPackage scope(&none.Package);
  CZOLSerialPort port(1);
  CKVTHttpRequest request = Form({{"comport", "4"}, {"baudrate", "9600"}, {"portactive", "on"}});
  EXPECT_EQ(port.ProcessPost(request), TRUE);
  EXPECT_EQ(port.GetComPort(), 4u);
  EXPECT_EQ(port.GetBaudRate(), 9600u);
  EXPECT_EQ(port.GetComPortOptions(), "<OPTION VALUE='4' SELECTED>COM4 (/nonexistent/zol-tty4)")
      << "the port's own number is always listed, with its device";
  EXPECT_EQ(port.IsRunning(), 0) << "COM 4 leads nowhere";
  EXPECT_EQ(port.GetFailureReason(), "cannot open /nonexistent/zol-tty4 (COM4): no such device");
  // The same values again: nothing changed, nothing done.
  EXPECT_EQ(port.ProcessPost(request), TRUE) << "the port is not running, so the active flag differs";
  CKVTHttpRequest stopped = Form({{"comport", "4"}, {"baudrate", "9600"}});
  EXPECT_EQ(port.ProcessPost(stopped), FALSE);
}

TEST(PortForms, TcpPortFieldOutsideOneTo65535IsRefusedAndChangesNothing) {
  LogCapturePackage package;
  InstalledPackage scope(&package);
  CZOLTCPIPServer port(2);
  for (const char* value : {"", "0", "65536", "99999", "abc", "-1", " 80"}) {
    CKVTHttpRequest request = Form({{"tcpipport", value}});
    EXPECT_EQ(port.CheckPost(request), std::string("The port number must be a whole number from 1 to 65535, not '") +
                                           value + "'.");
    EXPECT_EQ(port.ProcessPost(request), FALSE) << value;
    EXPECT_EQ(port.GetPort(), 51000u) << value;
  }
  EXPECT_TRUE(package.GetLines().empty()) << "no stop, no start";
  CKVTHttpRequest valid = Form({{"tcpipport", "65535"}});
  EXPECT_EQ(port.CheckPost(valid), "");
  EXPECT_EQ(port.ProcessPost(valid), TRUE);
  EXPECT_EQ(port.GetPort(), 65535u);
}

TEST(PortForms, SerialRateNotInTheListAndMulticastAddressOutsideTheGroupsAreRefused) {
  NoComPorts none;
  InstalledPackage scope(&none.Package);
  CZOLSerialPort serial(1);
  CKVTHttpRequest oddRate = Form({{"comport", "4"}, {"baudrate", "12345"}});
  EXPECT_NE(serial.CheckPost(oddRate), "");
  EXPECT_EQ(serial.ProcessPost(oddRate), FALSE);
  EXPECT_EQ(serial.GetBaudRate(), 115200u);
  EXPECT_NE(serial.CheckPost(Form({{"comport", "16"}, {"baudrate", "9600"}})), "");
  EXPECT_EQ(serial.CheckPost(Form({{"comport", "4"}, {"baudrate", "9600"}})), "");
  CZOLMulticastServer multicast(3);
  EXPECT_NE(multicast.CheckPost(Form({{"multicastaddress", "10.1.2.3"}, {"multicastport", "7125"}})), "");
  EXPECT_NE(multicast.CheckPost(Form({{"multicastaddress", "240.0.0.1"}, {"multicastport", "7125"}})), "");
  EXPECT_NE(multicast.CheckPost(Form({{"multicastaddress", "239.1.1.1"}, {"multicastport", "65536"}})), "");
  EXPECT_EQ(multicast.CheckPost(Form({{"multicastaddress", "239.1.1.1"}, {"multicastport", "65535"}})), "");
}

TEST(PortForms, MulticastApplyWithoutAChangeTouchesNothing) {
  LogCapturePackage package;
  InstalledPackage scope(&package);
  CZOLMulticastServer port(3);
  CKVTHttpRequest same = Form({{"multicastaddress", "239.254.1.2"}, {"multicastport", "7125"}});
  EXPECT_EQ(port.ProcessPost(same), FALSE);
  EXPECT_TRUE(package.GetLines().empty()) << "no stop, no start";
  CKVTHttpRequest other = Form({{"multicastaddress", "239.254.1.3"}, {"multicastport", "7126"}});
  EXPECT_EQ(port.ProcessPost(other), TRUE);
  EXPECT_EQ(port.GetAddress(), "239.254.1.3");
  EXPECT_EQ(port.GetPort(), 7126u);
  EXPECT_EQ(port.IsRunning(), 0) << "Active was not checked";
}

TEST(PortForms, AStoppedPortsStatisticsRowShowsNoHandle) {
  LogCapturePackage package;
  InstalledPackage scope(&package);
  CZOLMulticastServer port(3);
  EXPECT_EQ(port.GetStatisticsAsHTML(),
            "<TR><TD>Network (multicast)</TD><TD>0k</TD><TD>0k</TD><TD>0 (0.00 KB/sec)</TD><TD>-</TD></TR>\n");
}
