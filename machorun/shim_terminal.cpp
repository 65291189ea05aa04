// SPDX-License-Identifier: MIT

// Terminals: the settings record bit by bit, and the requests of ioctl().
//
// A flag that this system lacks is kept here for each terminal, so that the program reads back what
// it has set. Settings are traced in Darwin's values.
//
// MACHORUN_TERMINAL_FLAGS (0x...) is what tcgetattr() returns in each of the four flag words: a run
// with all ones and one with all zeros show what the program clears, sets and leaves.

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <termios.h>

#include <map>
#include <mutex>

#include "machorun/darwin_abi.h"
#include "machorun/shim.h"

namespace {

constexpr FlagPair InputFlags[] = {
    {darwin::IN_IGNBRK, IGNBRK},   {darwin::IN_BRKINT, BRKINT}, {darwin::IN_IGNPAR, IGNPAR},
    {darwin::IN_PARMRK, PARMRK},   {darwin::IN_INPCK, INPCK},   {darwin::IN_ISTRIP, ISTRIP},
    {darwin::IN_INLCR, INLCR},     {darwin::IN_IGNCR, IGNCR},   {darwin::IN_ICRNL, ICRNL},
    {darwin::IN_IXON, IXON},       {darwin::IN_IXOFF, IXOFF},   {darwin::IN_IXANY, IXANY},
    {darwin::IN_IMAXBEL, IMAXBEL}, {darwin::IN_IUTF8, IUTF8},
};

constexpr FlagPair OutputFlags[] = {
    {darwin::OUT_OPOST, OPOST}, {darwin::OUT_ONLCR, ONLCR}, {darwin::OUT_OXTABS, XTABS},
    {darwin::OUT_OCRNL, OCRNL}, {darwin::OUT_ONOCR, ONOCR}, {darwin::OUT_ONLRET, ONLRET},
};

// The character size is a number of two bits on both systems, one position apart from each other;
// hardware flow control is one bit here.
constexpr FlagPair ControlFlags[] = {
    {darwin::CTL_CS6, CS6},
    {darwin::CTL_CS7, CS7},
    {darwin::CTL_CSTOPB, CSTOPB},
    {darwin::CTL_CREAD, CREAD},
    {darwin::CTL_PARENB, PARENB},
    {darwin::CTL_PARODD, PARODD},
    {darwin::CTL_HUPCL, HUPCL},
    {darwin::CTL_CLOCAL, CLOCAL},
    {darwin::CTL_CCTS_OFLOW, CRTSCTS},
    {darwin::CTL_CRTS_IFLOW, CRTSCTS},
};

constexpr FlagPair LocalFlags[] = {
    {darwin::LOC_ECHOKE, ECHOKE},   {darwin::LOC_ECHOE, ECHOE},   {darwin::LOC_ECHOK, ECHOK},
    {darwin::LOC_ECHO, ECHO},       {darwin::LOC_ECHONL, ECHONL}, {darwin::LOC_ECHOPRT, ECHOPRT},
    {darwin::LOC_ECHOCTL, ECHOCTL}, {darwin::LOC_ISIG, ISIG},     {darwin::LOC_ICANON, ICANON},
    {darwin::LOC_IEXTEN, IEXTEN},   {darwin::LOC_TOSTOP, TOSTOP}, {darwin::LOC_NOFLSH, NOFLSH},
};

struct CharPair {
  int Darwin, Host;
};

constexpr CharPair ControlChars[] = {
    {darwin::CHAR_VEOF, VEOF},         {darwin::CHAR_VEOL, VEOL},
    {darwin::CHAR_VEOL2, VEOL2},       {darwin::CHAR_VERASE, VERASE},
    {darwin::CHAR_VWERASE, VWERASE},   {darwin::CHAR_VKILL, VKILL},
    {darwin::CHAR_VREPRINT, VREPRINT}, {darwin::CHAR_VINTR, VINTR},
    {darwin::CHAR_VQUIT, VQUIT},       {darwin::CHAR_VSUSP, VSUSP},
    {darwin::CHAR_VSTART, VSTART},     {darwin::CHAR_VSTOP, VSTOP},
    {darwin::CHAR_VLNEXT, VLNEXT},     {darwin::CHAR_VDISCARD, VDISCARD},
    {darwin::CHAR_VMIN, VMIN},         {darwin::CHAR_VTIME, VTIME},
};

struct SpeedPair {
  uint32_t Rate;
  speed_t  Host;
};

constexpr SpeedPair Speeds[] = {
    {300, B300},       {600, B600},       {1200, B1200},     {2400, B2400},   {4800, B4800},
    {9600, B9600},     {19200, B19200},   {38400, B38400},   {57600, B57600}, {115200, B115200},
    {230400, B230400}, {460800, B460800}, {921600, B921600},
};

// Darwin's flags of one terminal that the host's record cannot hold.
struct Leftover {
  uint64_t Input = 0, Output = 0, Control = 0, Local = 0;
};

std::mutex                LeftoverLock;
std::map<dev_t, Leftover> Leftovers;

dev_t TerminalOf(int Descriptor) {
  struct stat Status;
  return fstat(Descriptor, &Status) == 0 ? Status.st_rdev : 0;
}

uint64_t Known(std::span<const FlagPair> Table) {
  uint64_t Flags = 0;
  for (const FlagPair& Row : Table) {
    Flags |= Row.Darwin;
  }
  return Flags;
}

tcflag_t ToHost(uint64_t Flags, std::span<const FlagPair> Table) {
  return static_cast<tcflag_t>(FlagsToHost(Flags & Known(Table), Table, ""));
}

// The two that are numbers, not characters.
bool IsCount(int HostIndex) {
  return HostIndex == VMIN || HostIndex == VTIME;
}

uint64_t SpeedOf(const struct termios& Host) {
  for (const SpeedPair& Row : Speeds) {
    if (Row.Host == cfgetospeed(&Host)) {
      return Row.Rate;
    }
  }
  return 0;
}

int GetAttributes(int Descriptor, darwin::Termios* pSettings) {
  struct termios Host;
  if (tcgetattr(Descriptor, &Host) != 0) {
    return -1;
  }
  const std::lock_guard<std::mutex> Guard(LeftoverLock);
  const Leftover                    Kept = Leftovers[TerminalOf(Descriptor)];
  memset(pSettings, 0, sizeof(*pSettings));
  pSettings->InputFlags   = FlagsToDarwin(Host.c_iflag, InputFlags) | Kept.Input;
  pSettings->OutputFlags  = FlagsToDarwin(Host.c_oflag, OutputFlags) | Kept.Output;
  pSettings->ControlFlags = FlagsToDarwin(Host.c_cflag, ControlFlags) | Kept.Control;
  pSettings->LocalFlags   = FlagsToDarwin(Host.c_lflag, LocalFlags) | Kept.Local;
  if (const char* sFlags = getenv("MACHORUN_TERMINAL_FLAGS")) {
    const uint64_t Flags    = strtoull(sFlags, nullptr, 16);
    pSettings->InputFlags   = Flags;
    pSettings->OutputFlags  = Flags;
    pSettings->ControlFlags = Flags;
    pSettings->LocalFlags   = Flags;
  }
  for (const CharPair& Row : ControlChars) {
    const uint8_t Char                  = Host.c_cc[Row.Host];
    pSettings->ControlChars[Row.Darwin] = Char;
    if (Char == 0 && !IsCount(Row.Host)) {
      pSettings->ControlChars[Row.Darwin] = darwin::CHAR_NONE;
    }
  }
  pSettings->ControlChars[darwin::CHAR_VDSUSP]  = darwin::CHAR_NONE;
  pSettings->ControlChars[darwin::CHAR_VSTATUS] = darwin::CHAR_NONE;
  pSettings->InputSpeed = pSettings->OutputSpeed = SpeedOf(Host);
  return 0;
}

int SetAttributes(int Descriptor, int When, const darwin::Termios* pSettings) {
  struct termios Host;
  if (When < darwin::SET_NOW || When > darwin::SET_FLUSH) {
    Unknown("tcsetattr action %d", When);
  }
  if (tcgetattr(Descriptor, &Host) != 0) {
    return -1;
  }
  Trace("tcsetattr(%d, in 0x%lx, out 0x%lx, ctl 0x%lx, loc 0x%lx, min %u, time %u)", When,
        static_cast<unsigned long>(pSettings->InputFlags),
        static_cast<unsigned long>(pSettings->OutputFlags),
        static_cast<unsigned long>(pSettings->ControlFlags),
        static_cast<unsigned long>(pSettings->LocalFlags),
        pSettings->ControlChars[darwin::CHAR_VMIN], pSettings->ControlChars[darwin::CHAR_VTIME]);
  if (pSettings->InputSpeed != SpeedOf(Host) || pSettings->OutputSpeed != SpeedOf(Host)) {
    Unknown("tcsetattr with another line speed");
  }
  constexpr uint64_t FlowControl = darwin::CTL_CCTS_OFLOW | darwin::CTL_CRTS_IFLOW;
  if ((pSettings->ControlFlags & FlowControl) != 0 &&
      (pSettings->ControlFlags & FlowControl) != FlowControl) {
    Unknown("hardware flow control in one direction");
  }
  Host.c_iflag = ToHost(pSettings->InputFlags, InputFlags);
  Host.c_oflag = ToHost(pSettings->OutputFlags, OutputFlags);
  Host.c_cflag = (Host.c_cflag & CBAUD) | ToHost(pSettings->ControlFlags, ControlFlags);
  Host.c_lflag = ToHost(pSettings->LocalFlags, LocalFlags);
  for (const CharPair& Row : ControlChars) {
    const uint8_t Char  = pSettings->ControlChars[Row.Darwin];
    Host.c_cc[Row.Host] = Char == darwin::CHAR_NONE && !IsCount(Row.Host) ? 0 : Char;
  }
  const std::lock_guard<std::mutex> Guard(LeftoverLock);
  Leftovers[TerminalOf(Descriptor)] = {
      pSettings->InputFlags & ~Known(InputFlags), pSettings->OutputFlags & ~Known(OutputFlags),
      pSettings->ControlFlags & ~Known(ControlFlags), pSettings->LocalFlags & ~Known(LocalFlags)};
  return tcsetattr(Descriptor, When, &Host);  // the actions have the same numbers
}

int Flush(int Descriptor, int Queue) {
  Trace("tcflush(%d)", Queue);
  switch (Queue) {
    case darwin::FLUSH_IN:
      return tcflush(Descriptor, TCIFLUSH);
    case darwin::FLUSH_OUT:
      return tcflush(Descriptor, TCOFLUSH);
    case darwin::FLUSH_BOTH:
      return tcflush(Descriptor, TCIOFLUSH);
    default:
      Unknown("tcflush queue %d", Queue);
  }
}

// The driver of a USB serial port refuses a rate that it cannot make. Here the refused rates are
// those that this system has no number for.
int SetSpeed(int Descriptor, uint32_t Rate) {
  struct termios Host;
  if (tcgetattr(Descriptor, &Host) != 0) {
    return -1;
  }
  for (const SpeedPair& Row : Speeds) {
    if (Row.Rate == Rate) {
      cfsetspeed(&Host, Row.Host);
      return tcsetattr(Descriptor, TCSANOW, &Host);
    }
  }
  errno = EINVAL;
  return -1;
}

int Request(int Descriptor, uint64_t Number, void* pArgument) {
  switch (Number) {
    case darwin::REQUEST_FIONREAD:
      return ioctl(Descriptor, FIONREAD, pArgument);
    case darwin::REQUEST_FIONBIO:
      return ioctl(Descriptor, FIONBIO, pArgument);
    case darwin::REQUEST_EXCL:
      Trace("ioctl(TIOCEXCL)");
      return ioctl(Descriptor, TIOCEXCL);
    case darwin::REQUEST_NXCL:
      return ioctl(Descriptor, TIOCNXCL);
    case darwin::REQUEST_SERIAL_SPEED: {
      uint32_t Rate;
      memcpy(&Rate, pArgument, sizeof(Rate));
      Trace("ioctl(serial speed, %u)", Rate);
      return SetSpeed(Descriptor, Rate);
    }
    default:
      Unknown("ioctl request 0x%lx", static_cast<unsigned long>(Number));
  }
}

const Shim Table[] = {
    Bound("_tcgetattr", &GetAttributes),
    Bound("_tcsetattr", &SetAttributes),
    Bound("_tcflush", &Flush),
    Bound("_ioctl", &Request),
};

}  // namespace

std::span<const Shim> TerminalShims() {
  return Table;
}
