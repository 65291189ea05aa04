// SPDX-License-Identifier: MIT

#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/IOKitLib.h>
#include <IOKit/pwr_mgt/IOPMLib.h>
#include <IOKit/serial/IOSerialKeys.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <mach/mach_time.h>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/sysctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <filesystem>
#include <set>
#include <string>
#include <utility>

#include "tests/support/own_namespace.h"

// ---- Sockets ------------------------------------------------------------------------------------

// Sends on a pair whose other end is closed; SIGPIPE ends the process unless Set.
static void SendOnBrokenPair(int Set) {
  signal(SIGPIPE, SIG_DFL);
  int aSockets[2];
  socketpair(AF_UNIX, SOCK_STREAM, 0, aSockets);
  setsockopt(aSockets[1], SOL_SOCKET, SO_NOSIGPIPE, &Set, sizeof(Set));
  close(aSockets[0]);
  const bool IsPipeError = send(aSockets[1], "x", 1, 0) == -1 && errno == EPIPE;
  exit(IsPipeError ? 0 : 1);
}

TEST(HostSocketDeathTest, NoSigPipeCanBeSwitchedOnAndOff) {
  EXPECT_EXIT(SendOnBrokenPair(1), testing::ExitedWithCode(0), "");
  EXPECT_EXIT(SendOnBrokenPair(0), testing::KilledBySignal(SIGPIPE), "");
}

static void ReuseDescriptorOfASilencedSocket() {
  signal(SIGPIPE, SIG_DFL);
  const int hFirst = socket(AF_INET, SOCK_STREAM, 0);
  const int One    = 1;
  setsockopt(hFirst, SOL_SOCKET, SO_NOSIGPIPE, &One, sizeof(One));
  close(hFirst);
  const int hSecond = socket(AF_INET, SOCK_STREAM, 0);
  if (hSecond == hFirst) {
    send(hSecond, "x", 1, 0);
  }
  exit(0);
}

TEST(HostSocketDeathTest, NewSocketStartsWithoutNoSigPipe) {
  EXPECT_EXIT(ReuseDescriptorOfASilencedSocket(), testing::KilledBySignal(SIGPIPE), "");
}

TEST(HostSocket, NoSigPipeTakesAnIntOfASocket) {
  const int   hSocket = socket(AF_INET, SOCK_STREAM, 0);
  const short Short   = 1;
  const int   One     = 1;
  EXPECT_EQ(-1, setsockopt(hSocket, SOL_SOCKET, SO_NOSIGPIPE, &Short, sizeof(Short)));
  EXPECT_EQ(EINVAL, errno);
  EXPECT_EQ(-1, setsockopt(0, SOL_SOCKET, SO_NOSIGPIPE, &One, sizeof(One)));
  EXPECT_EQ(-1, setsockopt(-1, SOL_SOCKET, SO_NOSIGPIPE, &One, sizeof(One)));
  EXPECT_EQ(EBADF, errno);
  EXPECT_EQ(0, setsockopt(hSocket, SOL_SOCKET, SO_NOSIGPIPE, &One, sizeof(One)));
  EXPECT_EQ(0, setsockopt(hSocket, SOL_SOCKET, SO_KEEPALIVE, &One, sizeof(One)));
  close(hSocket);
}

static int GetLingerTime(int hSocket, int Name) {
  struct linger Linger = {0, -1};
  socklen_t     Length = sizeof(Linger);
  EXPECT_EQ(0, getsockopt(hSocket, SOL_SOCKET, Name, &Linger, &Length));
  return Linger.l_linger;
}

TEST(HostSocket, LingerCountsInTicksOrInSecondsByItsName) {
  const int           hSocket = socket(AF_INET, SOCK_STREAM, 0);
  const struct linger Ticks   = {1, 201};
  const struct linger Seconds = {1, 7};
  EXPECT_EQ(0, setsockopt(hSocket, SOL_SOCKET, SO_LINGER, &Ticks, sizeof(Ticks)));
  EXPECT_EQ(3, GetLingerTime(hSocket, SO_LINGER_SEC)) << "a part of a second is a whole one";
  EXPECT_EQ(300, GetLingerTime(hSocket, SO_LINGER));
  EXPECT_EQ(0, setsockopt(hSocket, SOL_SOCKET, SO_LINGER_SEC, &Seconds, sizeof(Seconds)));
  EXPECT_EQ(7, GetLingerTime(hSocket, SO_LINGER_SEC));
  EXPECT_EQ(-1, setsockopt(hSocket, SOL_SOCKET, SO_LINGER, &Ticks, sizeof(int)));
  close(hSocket);
}

static int SelectWritable(int hSocket) {
  fd_set Set;
  FD_ZERO(&Set);
  FD_SET(hSocket, &Set);
  struct timeval Time = {0, 1000};
  return select(hSocket + 1, nullptr, &Set, nullptr, &Time);
}

// Nobody connects to 224.0.0.1: the call fails before anything is sent.
TEST(HostSocket, AStreamSocketWhoseConnectFailedAtOnceIsNotReportedWritable) {
  struct sockaddr_in Addr = {};
  Addr.sin_family         = AF_INET;
  Addr.sin_port           = htons(5000);
  Addr.sin_addr.s_addr    = htonl(0xE0000001);
  const int hStream       = socket(AF_INET, SOCK_STREAM, 0);
  EXPECT_EQ(1, SelectWritable(hStream));
  EXPECT_EQ(-1, connect(hStream, (const struct sockaddr*)&Addr, sizeof(Addr)));
  EXPECT_EQ(0, SelectWritable(hStream));
  close(hStream);
  const int hNext = socket(AF_INET, SOCK_STREAM, 0);
  EXPECT_EQ(hStream, hNext);
  EXPECT_EQ(1, SelectWritable(hNext)) << "another socket with the same descriptor";
  close(hNext);

  const int hDatagram = socket(AF_INET, SOCK_DGRAM, 0);
  Addr.sin_family     = AF_UNIX;
  EXPECT_EQ(-1, connect(hDatagram, (const struct sockaddr*)&Addr, sizeof(Addr)));
  EXPECT_EQ(1, SelectWritable(hDatagram)) << "has no connection to fail";
  close(hDatagram);
}

// ---- Lines --------------------------------------------------------------------------------------

TEST(HostIoctl, SpeedRequestIsForLinesAndOtherRequestsPass) {
  const uint32_t Rate = 9600;
  int            aPipe[2];
  ASSERT_EQ(0, pipe(aPipe));
  EXPECT_EQ(-1, ioctl(aPipe[0], _IOW('T', 2, uint32_t), &Rate));
  EXPECT_EQ(ENOTTY, errno);
  ASSERT_EQ(3, write(aPipe[1], "abc", 3));
  int NumBytes = 0;
  EXPECT_EQ(0, ioctl(aPipe[0], FIONREAD, &NumBytes));
  EXPECT_EQ(3, NumBytes);
  close(aPipe[0]);
  close(aPipe[1]);
}

extern unsigned DriversRate;

TEST(HostIoctl, RateMayBeTwoPercentOffAsADriversDividerMakesIt) {
  const struct {
    uint32_t Wanted;
    uint32_t Made;
    int      Error;
  } Cases[]         = {{115200, 115384, 0}, {115200, 112896, 0},      {115200, 112895, EINVAL},
                       {115200, 117504, 0}, {115200, 117505, EINVAL}, {115200, 9600, EINVAL},
                       {40, 40, 0},         {40, 41, EINVAL},         {0, 0, EINVAL}};
  const int hMaster = posix_openpt(O_RDWR | O_NOCTTY);
  ASSERT_GE(hMaster, 0) << "no pseudo-terminal to be had";
  for (const auto& Case : Cases) {
    DriversRate      = Case.Made;
    errno            = 0;
    const int Result = ioctl(hMaster, _IOW('T', 2, uint32_t), &Case.Wanted);
    DriversRate      = 0;
    EXPECT_EQ(Case.Error, errno) << Case.Made;
    EXPECT_EQ(Case.Error == 0 ? 0 : -1, Result) << Case.Made;
  }
  close(hMaster);
}

// ---- Processes and the machine ------------------------------------------------------------------

static int CountInChild(short Flags, const posix_spawn_file_actions_t* pActions, int* pResult) {
  posix_spawnattr_t Attr;
  EXPECT_EQ(0, posix_spawnattr_init(&Attr));
  EXPECT_EQ(0, posix_spawnattr_setflags(&Attr, Flags));
  char        acPath[]   = FD_COUNT;
  char* const asArgs[]   = {acPath, nullptr};
  char* const asEnv[]    = {nullptr};
  pid_t       Pid        = -1;
  int         Status     = -1;
  const int   hInherited = dup(0);
  *pResult               = posix_spawn(&Pid, FD_COUNT, pActions, &Attr, asArgs, asEnv);
  close(hInherited);
  posix_spawnattr_destroy(&Attr);
  if (*pResult == 0) {
    EXPECT_EQ(Pid, waitpid(Pid, &Status, 0));
  }
  return WEXITSTATUS(Status);
}

TEST(HostSpawn, FlagClosesAllDescriptorsAndWithoutItTheyAreInherited) {
  int Result = -1;
  EXPECT_EQ(0, CountInChild(POSIX_SPAWN_CLOEXEC_DEFAULT, nullptr, &Result));
  EXPECT_EQ(0, Result);
  EXPECT_GE(CountInChild(0, nullptr, &Result), 4);
  EXPECT_EQ(0, Result);
  EXPECT_EQ(0, CountInChild(POSIX_SPAWN_CLOEXEC_DEFAULT | POSIX_SPAWN_SETPGROUP, nullptr, &Result));
  EXPECT_EQ(0, Result);
}

TEST(HostSpawn, FileActionsBesideTheFlagAreNotSupported) {
  posix_spawn_file_actions_t Actions;
  int                        Result = 0;
  ASSERT_EQ(0, posix_spawn_file_actions_init(&Actions));
  CountInChild(POSIX_SPAWN_CLOEXEC_DEFAULT, &Actions, &Result);
  EXPECT_EQ(ENOTSUP, Result);
  EXPECT_GE(CountInChild(0, &Actions, &Result), 4);
  EXPECT_EQ(0, Result);
  posix_spawn_file_actions_destroy(&Actions);
}

TEST(HostSpawn, UnknownFlagIsRefused) {
  posix_spawnattr_t Attr;
  ASSERT_EQ(0, posix_spawnattr_init(&Attr));
  EXPECT_EQ(EINVAL, posix_spawnattr_setflags(&Attr, 0x2000));
  posix_spawnattr_destroy(&Attr);
}

TEST(HostSysctl, AnswersOneNameAndSetsNothing) {
  int32_t Count = 0;
  size_t  Size  = sizeof(Count);
  EXPECT_EQ(0, sysctlbyname("hw.logicalcpu", &Count, &Size, nullptr, 0));
  EXPECT_GE(Count, 1);
  EXPECT_EQ(4u, Size);
  EXPECT_EQ(-1, sysctlbyname("hw.unknown", &Count, &Size, nullptr, 0));
  EXPECT_EQ(ENOENT, errno);
  EXPECT_EQ(-1, sysctlbyname("hw.logicalcpu", nullptr, nullptr, &Count, sizeof(Count)));
  EXPECT_EQ(EPERM, errno);
  Size = 2;
  EXPECT_EQ(-1, sysctlbyname("hw.logicalcpu", &Count, &Size, nullptr, 0));
  EXPECT_EQ(ENOMEM, errno);
}

TEST(HostMachTime, TicksAreNanoseconds) {
  mach_timebase_info_data_t Ratio = {0, 0};
  EXPECT_EQ(0, mach_timebase_info(&Ratio));
  EXPECT_EQ(1u, Ratio.numer);
  EXPECT_EQ(1u, Ratio.denom);
  const uint64_t Start = mach_absolute_time();
  usleep(2000);
  EXPECT_GE(mach_absolute_time() - Start, 2000000u);
}

TEST(HostPower, AnAssertionIsReleasedOnce) {
  IOPMAssertionID Id = 0;
  EXPECT_EQ(kIOReturnSuccess,
            IOPMAssertionCreate(kIOPMAssertionTypeNoIdleSleep, kIOPMAssertionLevelOn, &Id));
  EXPECT_NE(0u, Id);
  EXPECT_EQ(kIOReturnSuccess, IOPMAssertionRelease(Id));
  EXPECT_EQ(kIOReturnBadArgument, IOPMAssertionRelease(Id));
  EXPECT_EQ(kIOReturnBadArgument, IOPMAssertionRelease(0));
  EXPECT_EQ(kIOReturnBadArgument, IOPMAssertionRelease(33));
  EXPECT_EQ(kIOReturnBadArgument, IOPMAssertionCreate(nullptr, kIOPMAssertionLevelOn, &Id));
}

// ---- IOKit and CoreFoundation -------------------------------------------------------------------

static io_iterator_t Search(const char* sClass, CFStringRef pKey, CFStringRef pValue) {
  CFMutableDictionaryRef pMatching = IOServiceMatching(sClass);
  CFDictionarySetValue(pMatching, pKey, pValue);
  io_iterator_t hIterator = 99;
  EXPECT_EQ(KERN_SUCCESS,
            IOServiceGetMatchingServices(kIOMasterPortDefault, pMatching, &hIterator));
  return hIterator;
}

TEST(HostIOKit, FindsSerialLinesOfEveryKindAndNothingElse) {
  setenv("HOST_CALLOUT_DEVICES", "/dev/cu.a:/dev/cu.b", 1);
  const CFStringRef pKey = CFSTR(kIOSerialBSDTypeKey);
  EXPECT_EQ(IO_OBJECT_NULL, Search("IOBlockDevice", pKey, CFSTR(kIOSerialBSDAllTypes)));
  EXPECT_EQ(IO_OBJECT_NULL, Search(kIOSerialBSDServiceValue, pKey, CFSTR("IOModemStream")));
  EXPECT_EQ(IO_OBJECT_NULL, Search(kIOSerialBSDServiceValue, CFSTR("Other"), CFSTR("x")));

  const io_iterator_t hIterator =
      Search(kIOSerialBSDServiceValue, pKey, CFSTR(kIOSerialBSDAllTypes));
  ASSERT_NE(IO_OBJECT_NULL, hIterator);
  const io_object_t hFirst  = IOIteratorNext(hIterator);
  const io_object_t hSecond = IOIteratorNext(hIterator);
  EXPECT_EQ(IO_OBJECT_NULL, IOIteratorNext(hIterator));
  EXPECT_EQ(IO_OBJECT_NULL, IOIteratorNext(0));
  EXPECT_EQ(nullptr, IORegistryEntryCreateCFProperty(hFirst, CFSTR("IODialinDevice"),
                                                     kCFAllocatorDefault, 0));
  EXPECT_EQ(nullptr, IORegistryEntryCreateCFProperty(
                         hFirst, CFSTR("a name longer than any there is"), kCFAllocatorDefault, 0));
  EXPECT_EQ(nullptr, IORegistryEntryCreateCFProperty(99, CFSTR(kIOCalloutDeviceKey),
                                                     kCFAllocatorDefault, 0));
  CFTypeRef pPath =
      IORegistryEntryCreateCFProperty(hSecond, CFSTR(kIOCalloutDeviceKey), kCFAllocatorDefault, 0);
  ASSERT_NE(nullptr, pPath);
  char acPath[10] = "#########";
  EXPECT_EQ(0, CFStringGetCString((CFStringRef)pPath, acPath, 9, kCFStringEncodingUTF8));
  EXPECT_EQ(0, CFStringGetCString((CFStringRef)pPath, acPath, 10, 0));
  EXPECT_EQ(1, CFStringGetCString((CFStringRef)pPath, acPath, 10, kCFStringEncodingUTF8));
  EXPECT_STREQ("/dev/cu.b", acPath);
  CFRelease(pPath);
  EXPECT_EQ(KERN_SUCCESS, IOObjectRelease(hFirst));
  EXPECT_EQ(KERN_SUCCESS, IOObjectRelease(hSecond));
  EXPECT_EQ(KERN_SUCCESS, IOObjectRelease(hIterator));
  EXPECT_EQ(KERN_INVALID_ARGUMENT, IOObjectRelease(hIterator));
  unsetenv("HOST_CALLOUT_DEVICES");
}

TEST(HostIOKit, HoldsFifteenServicesAtATime) {
  setenv("HOST_CALLOUT_DEVICES", "a:b:c:d:e:f:g:h:i:j:k:l:m:n:o:p", 1);
  const io_iterator_t hIterator =
      Search(kIOSerialBSDServiceValue, CFSTR(kIOSerialBSDTypeKey), CFSTR(kIOSerialBSDAllTypes));
  io_object_t ahServices[15];
  for (io_object_t& hService : ahServices) {
    hService = IOIteratorNext(hIterator);
    EXPECT_NE(IO_OBJECT_NULL, hService);
  }
  EXPECT_EQ(IO_OBJECT_NULL, IOIteratorNext(hIterator)) << "there is a 16th";
  for (const io_object_t hService : ahServices) {
    EXPECT_EQ(KERN_SUCCESS, IOObjectRelease(hService));
  }
  EXPECT_EQ(KERN_SUCCESS, IOObjectRelease(hIterator));
  unsetenv("HOST_CALLOUT_DEVICES");
}

// A machine of the test's own with a USB adapter, a USB modem, a plain port and a console.
static bool MakeMachine() {
  if (!EnterOwnNamespace(CLONE_NEWNS) ||
      mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      mount("none", "/sys", "tmpfs", 0, nullptr) != 0) {
    return false;
  }
  std::filesystem::create_directories("/sys/class/tty/tty0");
  for (const auto& [sTty, sBus] :
       {std::pair{"ttyUSB0", "usb-serial"}, {"ttyACM0", "usb"}, {"ttyS0", "platform"}}) {
    const std::string sDevice = std::string("/sys/class/tty/") + sTty + "/device";
    std::filesystem::create_directories(sDevice);
    std::filesystem::create_symlink(std::string("../../../../bus/") + sBus, sDevice + "/subsystem");
  }
  return true;
}

// Exit status 77: the process lacks the permission.
static void FindPortsOfAMachine() {
  unsetenv("HOST_CALLOUT_DEVICES");
  if (!MakeMachine()) {
    exit(77);
  }
  const io_iterator_t hIterator =
      Search(kIOSerialBSDServiceValue, CFSTR(kIOSerialBSDTypeKey), CFSTR(kIOSerialBSDAllTypes));
  std::set<std::string> Paths;
  for (io_object_t h = IOIteratorNext(hIterator); h != IO_OBJECT_NULL;
       h             = IOIteratorNext(hIterator)) {
    char      acPath[64] = "";
    CFTypeRef pPath =
        IORegistryEntryCreateCFProperty(h, CFSTR(kIOCalloutDeviceKey), kCFAllocatorDefault, 0);
    CFStringGetCString((CFStringRef)pPath, acPath, sizeof(acPath), kCFStringEncodingUTF8);
    Paths.insert(acPath);
    CFRelease(pPath);
    IOObjectRelease(h);
  }
  IOObjectRelease(hIterator);
  exit(Paths == std::set<std::string>{"/dev/cu.usb-ttyUSB0", "/dev/cu.usb-ttyACM0"} ? 0 : 1);
}

TEST(HostIOKit, FindsTheUsbSerialDevicesOfTheMachine) {
  const pid_t Child = fork();
  ASSERT_GE(Child, 0);
  if (Child == 0) {
    FindPortsOfAMachine();
  }
  int Status = -1;
  ASSERT_EQ(Child, waitpid(Child, &Status, 0));
  ASSERT_TRUE(WIFEXITED(Status));
  if (WEXITSTATUS(Status) == 77) {
    GTEST_SKIP() << "SKIPPED, no mount namespace to be had here";
  }
  EXPECT_EQ(0, WEXITSTATUS(Status));
}

TEST(HostCoreFoundation, SettingAKeyAgainReplacesItsValue) {
  setenv("HOST_CALLOUT_DEVICES", "/dev/cu.a", 1);
  CFMutableDictionaryRef pMatching = IOServiceMatching(kIOSerialBSDServiceValue);
  CFDictionarySetValue(pMatching, CFSTR(kIOSerialBSDTypeKey), CFSTR("IOModemStream"));
  CFDictionarySetValue(pMatching, CFSTR(kIOSerialBSDTypeKey), CFSTR(kIOSerialBSDAllTypes));
  io_iterator_t hIterator = 0;
  EXPECT_EQ(KERN_SUCCESS,
            IOServiceGetMatchingServices(kIOMasterPortDefault, pMatching, &hIterator));
  EXPECT_NE(IO_OBJECT_NULL, hIterator);
  IOObjectRelease(hIterator);
  unsetenv("HOST_CALLOUT_DEVICES");
}
