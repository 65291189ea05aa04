// sim/request.h
// SPDX-License-Identifier: MIT
//
// The state that a new device is to be in, as quobe-bench create takes it, and the check of it
// against what a device can do. Everything else is as delivered.

#ifndef SIM_REQUEST_H
#define SIM_REQUEST_H

#include <stdint.h>

#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace sim {

class Device;

// Sectors First to Last; none where First is after Last.
struct SECTOR_AREA {
  uint32_t First = 1;
  uint32_t Last  = 0;

  bool IsEmpty() const { return First > Last; }
  bool Has(uint32_t Sector) const { return Sector >= First && Sector <= Last; }
};

// A list of sectors (pages, where the device protects pages).
struct SECTORS {
  bool                  All  = false;
  std::vector<uint32_t> List = {};

  bool     IsEmpty() const { return !All && List.empty(); }
  bool     Has(uint32_t Sector) const;
  uint32_t Mask(uint32_t NumSectors) const;  // of at most 32
  // Those of a bank of NumInBank sectors, in one piece each, counted from the bank's first sector.
  std::vector<SECTOR_AREA> AreasInBank(uint32_t FirstOfBank, uint32_t NumInBank) const;
};

struct CREATE_REQUEST {
  std::optional<uint32_t>                       Level;  // 0, 1 or 2
  std::optional<uint32_t>                       Rdp;    // or the byte itself
  SECTORS                                       Wrp;
  SECTORS                                       Pcrop;
  std::optional<uint32_t>                       PcropRdp;  // whether unprotecting wipes them
  bool                                          Secure = false;
  std::optional<uint32_t>                       User;        // user option bits, in their place
  std::vector<std::pair<std::string, uint32_t>> Options;     // an option field by name
  std::vector<std::string>                      Mismatches;  // fields or words
  std::vector<std::pair<std::string, uint32_t>> Variants;
  std::string                                   sFlash     = "erased";  // "full", or a file
  bool                                          EepromFull = false;
  std::string                                   sProgram;  // "takes-swd", "stops" or "" for neither
};

// What a device lets be asked for.
struct CAPABILITIES {
  uint32_t NumWrp      = 0;      // sectors that can be write-protected
  uint32_t NumPcrop    = 0;      // the same for PCROP; 0: none
  bool     OneOrOther  = false;  // the same bits are write protection or PCROP
  bool     HasPcropRdp = false;
  bool     HasSecure   = false;
  int      UserWord    = 0;     // the option word with the user options, ...
  uint32_t UserMask    = 0;     // ... these bits of it, ...
  uint32_t UserLow     = 0;     // ... given from this bit up
  uint8_t  Level1      = 0xBB;  // the byte that "level 1" stands for
};

// Reads options of quobe-bench create and their values, a word each. False with *psError when one is
// no good.
bool ParseRequest(std::span<const std::string> Words, CREATE_REQUEST* pRequest,
                  std::string* psError);

// Brings a new device, without power, into the state.
bool Prepare(Device* pDevice, const CREATE_REQUEST& Request, std::string* psError);

// Fills the flash with a recognisable program; the first words are a vector table.
void FillFlash(Device* pDevice, uint32_t Bytes);

}  // namespace sim

#endif
