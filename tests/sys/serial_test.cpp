// SPDX-License-Identifier: MIT

#include "sys/serial.h"

#include <dirent.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>

#include <string>

#include "tests/sys/support/closed_stdin.h"
#include "tests/sys/support/faults.h"
#include "tests/sys/support/high_descriptors.h"
#include "tests/sys/support/measure.h"
#include "tests/sys/support/pty.h"

unsigned GetLineSpeed(int hLine);

// ---- Finding ports ------------------------------------------------------------------------------

static const char ThreeAndABluetoothPort[] =
    "/dev/cu.usbmodem14101:/dev/cu.Bluetooth-Incoming-Port:/dev/cu.usbserial-A50285BI:"
    "/dev/cu.usbmodem000123456789";

// Runs the search and checks that it released every object it got: each service, and the iterator
// if there was one.
static uint32_t Enumerate(const char* sDevices, SYS_SERIAL_NAME* paNames, uint32_t Capacity,
                          std::string* psOutput) {
  if (sDevices != nullptr) {
    setenv("HOST_CALLOUT_DEVICES", sDevices, 1);
  } else {
    unsetenv("HOST_CALLOUT_DEVICES");
  }
  testing::internal::CaptureStdout();
  uint32_t NumFound;
  uint32_t NumAsked;
  uint32_t NumReleased;
  {
    const CALL_COUNTER Next("IOIteratorNext");
    const CALL_COUNTER Release("IOObjectRelease");
    NumFound    = SYS_SERIAL_Enumerate(paNames, Capacity);
    NumAsked    = Next.GetNumCalls();  // the number of services plus 1
    NumReleased = Release.GetNumCalls();
  }
  *psOutput = testing::internal::GetCapturedStdout();
  EXPECT_EQ(NumAsked, NumReleased);
  return NumFound;
}

TEST(SysSerialEnumerate, PrintsAllThreeFillsTwoAndReturnsThree) {
  SYS_SERIAL_NAME aNames[3];
  memset(aNames, '#', sizeof(aNames));
  std::string sOutput;
  EXPECT_EQ(3u, Enumerate(ThreeAndABluetoothPort, aNames, 2, &sOutput));
  EXPECT_EQ(
      "Modem at path: /dev/cu.usbmodem14101\n"
      "Modem at path: /dev/cu.usbserial-A50285BI\n"
      "Modem at path: /dev/cu.usbmodem000123456789\n",
      sOutput);
  EXPECT_STREQ("cu.usbmodem14101", aNames[0].ac);
  EXPECT_STREQ("cu.usbserial-A50285BI", aNames[1].ac);
  EXPECT_EQ('#', aNames[2].ac[0]);
}

TEST(SysSerialEnumerate, OtherCalloutDevicesAreNeitherPrintedNorCounted) {
  SYS_SERIAL_NAME aNames[2];
  std::string     sOutput;
  EXPECT_EQ(0u, Enumerate("/dev/cu.Bluetooth-Incoming-Port:/dev/tty.usbmodem1:/dev/cu.us", aNames,
                          2, &sOutput));
  EXPECT_EQ("", sOutput);
  EXPECT_EQ(1u, Enumerate("/dev/cu.Bluetooth-Incoming-Port:/dev/cu.usb", aNames, 2, &sOutput));
  EXPECT_STREQ("cu.usb", aNames[0].ac);
}

TEST(SysSerialEnumerate, NoRoomAtAllStillCounts) {
  std::string sOutput;
  EXPECT_EQ(3u, Enumerate(ThreeAndABluetoothPort, nullptr, 0, &sOutput));
  EXPECT_NE(std::string::npos, sOutput.find("usbserial-A50285BI"));
}

TEST(SysSerialEnumerate, EntriesAre64CharactersAndLongNamesAreCut) {
  struct {
    SYS_SERIAL_NAME Name;
    char            cCanary;
  } Room;
  Room.cCanary = '#';
  ASSERT_EQ(64u, sizeof(Room.Name));
  const std::string sPath = "/dev/cu.usb" + std::string(100, 'x');
  std::string       sOutput;
  EXPECT_EQ(1u, Enumerate(sPath.c_str(), &Room.Name, 1, &sOutput));
  EXPECT_EQ(sPath.substr(5, 63), Room.Name.ac);
  EXPECT_EQ('#', Room.cCanary);
  EXPECT_EQ("Modem at path: " + sPath + "\n", sOutput) << "printed in full";
}

TEST(SysSerialEnumerate, PathsBeyond511CharactersAndServicesWithoutPathArePassedOver) {
  const std::string sLong = "/dev/cu.usb" + std::string(501, 'x');
  const std::string sFits = "/dev/cu.usb" + std::string(500, 'x');
  std::string       sOutput;
  EXPECT_EQ(2u, Enumerate(("/dev/cu.usb1:" + sLong + "::" + sFits).c_str(), nullptr, 0, &sOutput));
  EXPECT_EQ("Modem at path: /dev/cu.usb1\nModem at path: " + sFits + "\n", sOutput);
}

TEST(SysSerialEnumerate, NothingThereIsZero) {
  std::string sOutput;
  EXPECT_EQ(0u, Enumerate("", nullptr, 0, &sOutput));
  EXPECT_EQ("", sOutput);
}

// The machine's own USB serial devices, if it has any.
TEST(SysSerialEnumerate, FindsTheMachinesUsbSerialDevices) {
  uint32_t NumExpected = 0;
  DIR*     pDir        = opendir("/sys/class/tty");
  if (pDir == nullptr) {
    GTEST_SKIP() << "this machine shows no /sys";
  }
  for (const dirent* p = readdir(pDir); p != nullptr; p = readdir(pDir)) {
    NumExpected += strncmp(p->d_name, "ttyUSB", 6) == 0 || strncmp(p->d_name, "ttyACM", 6) == 0;
  }
  closedir(pDir);
  std::string sOutput;
  EXPECT_EQ(NumExpected, Enumerate(nullptr, nullptr, 0, &sOutput));
}

TEST(SysSerialEnumerate, FailuresOfTheSearchAreZero) {
  SYS_SERIAL_NAME Name;
  std::string     sOutput;
  uint32_t        NumFound;
  {
    const FAULT Fault("IOServiceMatching", ENOMEM);
    NumFound = SYS_SERIAL_Enumerate(&Name, 1);
  }
  EXPECT_EQ(0u, NumFound);
  uint32_t NumReleased;
  {
    setenv("HOST_CALLOUT_DEVICES", ThreeAndABluetoothPort, 1);
    const FAULT        Fault("IOServiceGetMatchingServices", 5);
    const CALL_COUNTER Release("IOObjectRelease");
    NumFound    = SYS_SERIAL_Enumerate(&Name, 1);
    NumReleased = Release.GetNumCalls();
  }
  EXPECT_EQ(0u, NumFound);
  EXPECT_EQ(1u, NumReleased) << "an iterator that comes with an error";
  {
    setenv("HOST_CALLOUT_DEVICES", "", 1);
    const FAULT        Fault("IOServiceGetMatchingServices", 5);
    const CALL_COUNTER Release("IOObjectRelease");
    NumFound    = SYS_SERIAL_Enumerate(&Name, 1);
    NumReleased = Release.GetNumCalls();
  }
  EXPECT_EQ(0u, NumFound);
  EXPECT_EQ(0u, NumReleased);
}

TEST(SysSerialEnumerate, NamesFoundCanBeOpened) {
  PTY Pty;
  PTY_Open(&Pty);
  ASSERT_GE(Pty.hKeep, 0) << "no pseudo-terminal available";
  const std::string sPath   = "/dev/cu.usbQuobeTest" + std::to_string(getpid());
  const std::string sTarget = std::string("/dev/") + Pty.acName;
  if (symlink(sTarget.c_str(), sPath.c_str()) != 0) {
    PTY_Close(&Pty);
    GTEST_SKIP() << "SKIPPED, no link can be made in /dev";
  }
  SYS_SERIAL_NAME Name = {};
  std::string     sOutput;
  EXPECT_EQ(1u, Enumerate(sPath.c_str(), &Name, 1, &sOutput));
  SYS_SERIAL_PORT* pPort = SYS_SERIAL_Open(Name.ac, 115200);
  unlink(sPath.c_str());
  ASSERT_NE(nullptr, pPort);
  char c = 0;
  EXPECT_EQ(1, write(Pty.hMaster, "x", 1));
  EXPECT_EQ(1, SYS_SERIAL_Read(pPort, &c, 1, 10000));
  EXPECT_EQ('x', c);
  EXPECT_EQ(1, SYS_SERIAL_Write(pPort, "y", 1));
  EXPECT_EQ(1, read(Pty.hMaster, &c, 1));
  EXPECT_EQ('y', c);
  SYS_SERIAL_Close(pPort);
  PTY_Close(&Pty);
}

// ---- Opening ------------------------------------------------------------------------------------

class SysSerialPort : public testing::Test {
 protected:
  void SetUp() override {
    PTY_Open(&m_Pty);
    ASSERT_GE(m_Pty.hKeep, 0) << "no pseudo-terminal available";
  }
  void TearDown() override {
    if (m_pPort != nullptr) {
      SYS_SERIAL_Close(m_pPort);
    }
    PTY_Close(&m_Pty);
  }
  void Open(uint32_t BaudRate = 115200) {
    m_pPort = SYS_SERIAL_Open(m_Pty.acName, BaudRate);
    ASSERT_NE(nullptr, m_pPort);
  }
  struct termios GetLine() {
    struct termios Line;
    EXPECT_EQ(0, tcgetattr(m_Pty.hKeep, &Line));
    return Line;
  }
  void SetLine(const struct termios& Line) { EXPECT_EQ(0, tcsetattr(m_Pty.hKeep, TCSANOW, &Line)); }

  PTY              m_Pty;
  SYS_SERIAL_PORT* m_pPort = nullptr;
};

static const tcflag_t InputCleared =
    IGNPAR | PARMRK | INPCK | ISTRIP | INLCR | IGNCR | ICRNL | IXON | IXOFF | IMAXBEL;
static const tcflag_t LocalCleared =
    ECHOKE | ECHOE | ECHOK | ECHO | ECHONL | ECHOPRT | ECHOCTL | ISIG | ICANON | IEXTEN;

TEST_F(SysSerialPort, ClearsWhatIsSetAndLeavesBrkintAndIxany) {
  struct termios Line = GetLine();
  Line.c_iflag        = InputCleared | BRKINT | IXANY;
  Line.c_oflag        = OPOST | ONLCR | OCRNL | ONOCR | ONLRET | XTABS;
  Line.c_cflag |= CSTOPB | PARENB | CRTSCTS | HUPCL;
  Line.c_lflag = LocalCleared | NOFLSH | TOSTOP;
  SetLine(Line);
  Open();
  const struct termios After = GetLine();
  EXPECT_EQ((tcflag_t)(BRKINT | IXANY | IGNBRK), After.c_iflag);
  EXPECT_EQ((tcflag_t)(OPOST | XTABS), After.c_oflag);
  EXPECT_EQ((tcflag_t)(CS8 | CREAD | CLOCAL | HUPCL),
            After.c_cflag & ~(tcflag_t)(CBAUD | CIBAUD | CBAUDEX));
  EXPECT_EQ((tcflag_t)(NOFLSH | TOSTOP), After.c_lflag);
  EXPECT_EQ(0, After.c_cc[VMIN]);
  EXPECT_EQ(1, After.c_cc[VTIME]);
}

TEST_F(SysSerialPort, SetsWhatIsClearAndNothingElse) {
  struct termios Line = GetLine();
  Line.c_iflag        = 0;
  Line.c_oflag        = 0;
  Line.c_cflag        = (Line.c_cflag & ~(tcflag_t)(CSIZE | CREAD | CLOCAL | HUPCL)) | CS7;
  Line.c_lflag        = 0;
  Line.c_cc[VMIN]     = 9;
  Line.c_cc[VTIME]    = 9;
  SetLine(Line);
  Open();
  const struct termios After = GetLine();
  EXPECT_EQ((tcflag_t)IGNBRK, After.c_iflag);
  EXPECT_EQ(0u, After.c_oflag);
  EXPECT_EQ((tcflag_t)(CS8 | CREAD | CLOCAL),
            After.c_cflag & ~(tcflag_t)(CBAUD | CIBAUD | CBAUDEX));
  EXPECT_EQ(0u, After.c_lflag);
  EXPECT_EQ(0, After.c_cc[VMIN]);
  EXPECT_EQ(1, After.c_cc[VTIME]);
}

// Checks what is requested: a pseudo-terminal always has 8 bits and a receiver.
TEST_F(SysSerialPort, AsksFor8BitsAndAReceiverAtOnce) {
  struct termios Line = GetLine();
  Line.c_cflag        = (Line.c_cflag & ~(tcflag_t)(CSIZE | CREAD)) | CS6 | CSTOPB | PARENB;
  SetLine(Line);
  LastLine     = {};
  LastLineWhen = -1;
  Open();
  EXPECT_EQ((tcflag_t)(CS8 | CREAD | CLOCAL),
            LastLine.c_cflag & (CSIZE | CREAD | CLOCAL | CSTOPB | PARENB | CRTSCTS));
  EXPECT_EQ(TCSANOW, LastLineWhen);
}

TEST_F(SysSerialPort, TakesTheLineForItselfAndClosesOnExec) {
  Open();
  EXPECT_EQ(O_RDWR | O_NOCTTY | O_CLOEXEC, LastOpenFlags);
  const int hPort       = SYS_SERIAL_GetDescriptor(m_pPort);
  int       IsExclusive = 0;
  EXPECT_EQ(0, ioctl(hPort, TIOCGEXCL, &IsExclusive));
  EXPECT_EQ(1, IsExclusive);
  EXPECT_NE(0, fcntl(hPort, F_GETFD) & FD_CLOEXEC);
  EXPECT_EQ(O_RDWR, fcntl(hPort, F_GETFL) & O_ACCMODE);
}

TEST_F(SysSerialPort, SpeedIsAnyRateAndCanBeChanged) {
  Open(250000);
  EXPECT_EQ(250000u, GetLineSpeed(m_Pty.hKeep));
  const int hPort = SYS_SERIAL_GetDescriptor(m_pPort);
  EXPECT_EQ(0, SYS_SERIAL_SetSpeed(hPort, 9600));
  EXPECT_EQ(9600u, GetLineSpeed(m_Pty.hKeep));
  EXPECT_EQ(-1, SYS_SERIAL_SetSpeed(hPort, 0));
  EXPECT_EQ(9600u, GetLineSpeed(m_Pty.hKeep));
  EXPECT_EQ(-1, SYS_SERIAL_SetSpeed(-1, 9600));
}

TEST_F(SysSerialPort, UnsupportedRateIsReportedAndLeavesNoDescriptor) {
  const int NumBefore = CountDescriptors();
  testing::internal::CaptureStdout();
  SYS_SERIAL_PORT* pPort = SYS_SERIAL_Open(m_Pty.acName, 0);
  EXPECT_EQ("ERROR while writing port settings.\n", testing::internal::GetCapturedStdout());
  EXPECT_EQ(nullptr, pPort);
  EXPECT_EQ(NumBefore, CountDescriptors());
}

TEST(SysSerialOpen, DeviceThatIsNotALineIsReported) {
  const int NumBefore = CountDescriptors();
  testing::internal::CaptureStdout();
  EXPECT_EQ(nullptr, SYS_SERIAL_Open("null", 115200));
  EXPECT_EQ("ERROR while writing port settings.\n", testing::internal::GetCapturedStdout());
  EXPECT_EQ(NumBefore, CountDescriptors());
}

TEST(SysSerialOpen, MissingDeviceIsNullAndSilent) {
  testing::internal::CaptureStdout();
  EXPECT_EQ(nullptr, SYS_SERIAL_Open("cu.usbNoSuchThing", 115200));
  EXPECT_EQ("", testing::internal::GetCapturedStdout());
}

// The longest name possible, and one with another character: cut, it would be that line.
TEST_F(SysSerialPort, NamesOf122CharactersOpenAndLongerOnesNeverAnother) {
  const std::string sName  = m_Pty.acName;
  std::string       sSpace = "./";
  sSpace += std::string(122 - sSpace.size() - sName.size(), '/');
  const std::string sLongest = sSpace + sName;
  ASSERT_EQ(122u, sLongest.size());
  m_pPort = SYS_SERIAL_Open(sLongest.c_str(), 115200);
  EXPECT_NE(nullptr, m_pPort);
  SYS_SERIAL_PORT* pOther;
  uint32_t         NumOpened;
  testing::internal::CaptureStdout();
  {
    const CALL_COUNTER Opened("open");
    pOther    = SYS_SERIAL_Open((sLongest + "0").c_str(), 115200);
    NumOpened = Opened.GetNumCalls();
  }
  EXPECT_EQ("", testing::internal::GetCapturedStdout());
  EXPECT_EQ(nullptr, pOther);
  EXPECT_EQ(0u, NumOpened);
}

TEST_F(SysSerialPort, DescriptorThatReadsCannotWaitForIsRefusedSilently) {
  testing::internal::CaptureStdout();  // needs descriptors too
  bool             AreThere;
  SYS_SERIAL_PORT* pPort = nullptr;
  uint32_t         NumOpened;
  int              NumLeft;
  {
    const HIGH_DESCRIPTORS High;
    AreThere            = High.AreThere();
    const int NumBefore = CountDescriptors();
    {
      const CALL_COUNTER Opened("open");
      pPort     = AreThere ? SYS_SERIAL_Open(m_Pty.acName, 115200) : nullptr;
      NumOpened = Opened.GetNumCalls();
    }
    NumLeft = CountDescriptors() - NumBefore;
  }
  EXPECT_EQ("", testing::internal::GetCapturedStdout());
  if (!AreThere) {
    GTEST_SKIP() << "SKIPPED, 2048 descriptors not available";
  }
  EXPECT_EQ(nullptr, pPort);
  EXPECT_EQ(1u, NumOpened);
  EXPECT_EQ(0, NumLeft);
}

TEST_F(SysSerialPort, DescriptorZeroIsOneLikeAnyOther) {
  const CLOSED_STDIN Stdin;
  Open();
  EXPECT_EQ(0, SYS_SERIAL_GetDescriptor(m_pPort));
  char c = 0;
  ASSERT_EQ(1, write(m_Pty.hMaster, "x", 1));
  EXPECT_EQ(1, SYS_SERIAL_Read(m_pPort, &c, 1, 10000));
  SYS_SERIAL_Close(m_pPort);
  m_pPort = nullptr;
}

TEST_F(SysSerialPort, UnsupportedSettingsAreIgnored) {
  SYS_SERIAL_PORT* pPort;
  {
    const FAULT Exclusive("HOST_ioctl", ENOTTY);
    const FAULT Attributes("tcsetattr", EINVAL);
    pPort = SYS_SERIAL_Open(m_Pty.acName, 115200);
  }
  EXPECT_NE(nullptr, pPort);
  SYS_SERIAL_Close(pPort);
}

TEST_F(SysSerialPort, NoMemoryIsNullAndSilentAndLeavesNoDescriptor) {
  const int NumBefore = CountDescriptors();
  testing::internal::CaptureStdout();
  SYS_SERIAL_PORT* pPort;
  {
    const FAULT Fault("malloc", ENOMEM);
    pPort = SYS_SERIAL_Open(m_Pty.acName, 115200);
  }
  EXPECT_EQ("", testing::internal::GetCapturedStdout());
  EXPECT_EQ(nullptr, pPort);
  EXPECT_EQ(NumBefore, CountDescriptors());
}

// Checked for the incoming direction. Bytes sent to a pseudo-terminal may have reached its reader
// already, so for that direction the request is checked.
TEST_F(SysSerialPort, OpeningDropsWhatIsPendingInBothDirections) {
  struct termios Line = GetLine();
  cfmakeraw(&Line);
  SetLine(Line);
  ASSERT_EQ(3, write(m_Pty.hMaster, "old", 3));
  LastFlush = -1;
  Open();
  EXPECT_EQ(TCIOFLUSH, LastFlush);
  char acBuffer[8];
  EXPECT_EQ(0, SYS_SERIAL_Read(m_pPort, acBuffer, sizeof(acBuffer), 50));
  EXPECT_EQ(3, SYS_SERIAL_Write(m_pPort, "new", 3));
  ASSERT_EQ(3, read(m_Pty.hMaster, acBuffer, sizeof(acBuffer)));
  EXPECT_EQ(0, memcmp("new", acBuffer, 3));
}

TEST_F(SysSerialPort, ClosingGivesTheDescriptorBack) {
  const int NumBefore = CountDescriptors();
  Open();
  EXPECT_EQ(NumBefore + 1, CountDescriptors());
  SYS_SERIAL_Close(m_pPort);
  m_pPort = nullptr;
  EXPECT_EQ(NumBefore, CountDescriptors());
}

// ---- Transfer -----------------------------------------------------------------------------------

TEST_F(SysSerialPort, AllByteValuesPassUnchangedInBothDirections) {
  Open();
  uint8_t aSent[256];
  for (int i = 0; i < 256; i++) {
    aSent[i] = (uint8_t)i;
  }
  ASSERT_EQ(256, write(m_Pty.hMaster, aSent, 256));
  uint8_t aReceived[257];
  int32_t NumReceived = 0;
  aReceived[256]      = 0xAA;
  while (NumReceived < 256) {
    const int32_t NumRead =
        SYS_SERIAL_Read(m_pPort, aReceived + NumReceived, (uint32_t)(256 - NumReceived), 10000);
    ASSERT_GT(NumRead, 0);
    NumReceived += NumRead;
  }
  EXPECT_EQ(0, memcmp(aSent, aReceived, 256));
  EXPECT_EQ(0xAA, aReceived[256]);

  // Without output processing, so that a tab is not expanded.
  struct termios Line = GetLine();
  Line.c_oflag        = 0;
  SetLine(Line);
  ASSERT_EQ(256, SYS_SERIAL_Write(m_pPort, aSent, 256));
  ssize_t NumOut = 0;
  while (NumOut < 256) {
    struct pollfd Poll = {m_Pty.hMaster, POLLIN, 0};
    ASSERT_EQ(1, poll(&Poll, 1, 10000));
    const ssize_t NumRead = read(m_Pty.hMaster, aReceived + NumOut, (size_t)(256 - NumOut));
    ASSERT_GT(NumRead, 0);
    NumOut += NumRead;
  }
  EXPECT_EQ(0, memcmp(aSent, aReceived, 256));
}

TEST_F(SysSerialPort, ReadWithTimeOutZeroPolls) {
  Open();
  char          c     = 0;
  const int64_t Start = GetMs();
  EXPECT_EQ(0, SYS_SERIAL_Read(m_pPort, &c, 1, 0));
  EXPECT_LT(GetMs() - Start, 5000);
  ASSERT_EQ(1, write(m_Pty.hMaster, "x", 1));
  for (int i = 0; i < 10000; i++) {  // the byte may take a moment to arrive
    if (SYS_SERIAL_Read(m_pPort, &c, 1, 0) == 1) {
      break;
    }
    usleep(1000);
  }
  EXPECT_EQ('x', c);
}

TEST_F(SysSerialPort, ReadWaitsForItsTimeOutAndTakesNoMoreThanAskedFor) {
  Open();
  char          acBuffer[8] = "#######";
  const int64_t Start       = GetMs();
  EXPECT_EQ(0, SYS_SERIAL_Read(m_pPort, acBuffer, 8, 150));
  EXPECT_GE(GetMs() - Start, 149);
  ASSERT_EQ(5, write(m_Pty.hMaster, "abcde", 5));
  EXPECT_EQ(3, SYS_SERIAL_Read(m_pPort, acBuffer, 3, 10000));
  EXPECT_STREQ("abc####", acBuffer);
}

TEST_F(SysSerialPort, ReadWaitsForItsTimeOutAndNoLonger) {
  Open();
  const FAULT TimeIsUp("select", 0, 0, 3);
  for (const uint32_t Timeout : {0u, 50u, 12345u}) {
    char c;
    LastSelectTime = {-1, -1};
    EXPECT_EQ(0, SYS_SERIAL_Read(m_pPort, &c, 1, Timeout));
    EXPECT_EQ(Timeout, (uint32_t)(LastSelectTime.tv_sec * 1000 + LastSelectTime.tv_usec / 1000));
  }
}

TEST_F(SysSerialPort, ErrorsOfWaitingAndReadingAreMinus1) {
  Open();
  char    c;
  int32_t Result;
  {
    const FAULT Fault("select", EINTR);
    Result = SYS_SERIAL_Read(m_pPort, &c, 1, 1000);
  }
  EXPECT_EQ(-1, Result);
  ASSERT_EQ(1, write(m_Pty.hMaster, "x", 1));
  {
    const FAULT Fault("read", EIO);
    Result = SYS_SERIAL_Read(m_pPort, &c, 1, 10000);
  }
  EXPECT_EQ(-1, Result);
}

// 0 or -1 well before the time-out means that the device is gone. A USB device that is pulled out
// gives an error (ENXIO), a line that is hung up gives 0.
TEST_F(SysSerialPort, ReadingFromADeviceThatIsPulledOutIsMinus1) {
  Open();
  ASSERT_EQ(1, write(m_Pty.hMaster, "x", 1));
  char          c;
  const int64_t Start = GetMs();
  int32_t       Result;
  {
    const FAULT PulledOut("read", ENXIO);
    Result = SYS_SERIAL_Read(m_pPort, &c, 1, 20000);
  }
  EXPECT_EQ(-1, Result);
  EXPECT_LT(GetMs() - Start, 10000);
}

TEST_F(SysSerialPort, ReadingFromALineThatIsGoneDoesNotWait) {
  Open();
  close(m_Pty.hMaster);
  m_Pty.hMaster       = -1;
  char          c     = 0;
  const int64_t Start = GetMs();
  EXPECT_LE(SYS_SERIAL_Read(m_pPort, &c, 1, 20000), 0);
  EXPECT_LT(GetMs() - Start, 10000);
}

TEST_F(SysSerialPort, WritingToALineThatIsGoneIsMinus1) {
  Open();
  close(m_Pty.hMaster);
  m_Pty.hMaster = -1;
  EXPECT_EQ(-1, SYS_SERIAL_Write(m_pPort, "x", 1));
}
