// SPDX-License-Identifier: MIT

#include "sim/request.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>

#include "sim/device.h"
#include "sim/text.h"

namespace sim {

// -- Reading a request ---------------------------------------------------------------------------

static const uint32_t MAX_SECTOR = 4095;

static bool ParseSectors(const std::string& sText, SECTORS* pSectors) {
  *pSectors = {.All = sText == "all"};
  if (pSectors->All || sText == "none") {
    return true;
  }
  for (const std::string& sPart : Split(sText, ',')) {
    const std::vector<std::string> Ends  = Split(sPart, '-');
    uint32_t                       First = 0;
    uint32_t                       Last  = 0;
    if (Ends.size() > 2 || !ParseU32(Ends.front(), &First) || !ParseU32(Ends.back(), &Last) ||
        First > Last || Last > MAX_SECTOR) {
      return false;
    }
    for (uint32_t Sector = First; Sector <= Last; Sector++) {
      pSectors->List.push_back(Sector);
    }
  }
  return true;
}

// "NAME=NUMBER".
static bool ParsePair(const std::string&                             sText,
                      std::vector<std::pair<std::string, uint32_t>>* pPairs) {
  const std::vector<std::string> Parts  = Split(sText, '=');
  uint32_t                       Number = 0;
  if (Parts.size() != 2 || !ParseU32(Parts[1], &Number)) {
    return false;
  }
  pPairs->emplace_back(Parts[0], Number);
  return true;
}

static bool ParseLevel(const std::string& sText, CREATE_REQUEST* pRequest) {
  uint32_t   Number  = 0;
  const bool IsLevel = sText == "0" || sText == "1" || sText == "2";
  const bool Good    = ParseU32(sText, &Number) && Number <= 0xFF;
  pRequest->Level.reset();
  pRequest->Rdp.reset();
  (IsLevel ? pRequest->Level : pRequest->Rdp) = Number;
  return Good && (IsLevel || sText.compare(0, 2, "0x") == 0);
}

static bool ParseU32(const std::string& sText, uint32_t Max, std::optional<uint32_t>* pNumber) {
  uint32_t Number = 0;
  if (!ParseU32(sText, &Number) || Number > Max) {
    return false;
  }
  *pNumber = Number;
  return true;
}

static bool TakeOption(CREATE_REQUEST* pRequest, const std::string& sOption,
                       const std::string& sValue, std::string* psError) {
  bool Good = true;
  if (sOption == "--rdp") {
    Good = ParseLevel(sValue, pRequest);
  } else if (sOption == "--wrp") {
    Good = ParseSectors(sValue, &pRequest->Wrp);
  } else if (sOption == "--pcrop") {
    Good = ParseSectors(sValue, &pRequest->Pcrop);
  } else if (sOption == "--pcrop-rdp") {
    Good = ParseU32(sValue, 1, &pRequest->PcropRdp);
  } else if (sOption == "--secure") {
    pRequest->Secure = true;
  } else if (sOption == "--user") {
    Good = ParseU32(sValue, UINT32_MAX, &pRequest->User);
  } else if (sOption == "--option") {
    Good = ParsePair(sValue, &pRequest->Options);
  } else if (sOption == "--mismatch") {
    pRequest->Mismatches.push_back(sValue);
  } else if (sOption == "--flash") {
    pRequest->sFlash = sValue;
  } else if (sOption == "--eeprom") {
    Good                 = sValue == "full";
    pRequest->EepromFull = Good;
  } else if (sOption == "--program") {
    Good               = sValue == "takes-swd" || sValue == "stops";
    pRequest->sProgram = sValue;
  } else if (sOption == "--variant") {
    Good = ParsePair(sValue, &pRequest->Variants);
  } else {
    *psError = "unknown option " + sOption;
    return false;
  }
  if (!Good) {
    *psError = "\"" + sValue + "\" is no value for " + sOption;
  }
  return Good;
}

bool ParseRequest(std::span<const std::string> Words, CREATE_REQUEST* pRequest,
                  std::string* psError) {
  for (size_t i = 0; i < Words.size(); i++) {
    const std::string& sOption   = Words[i];
    const bool         TakesNone = sOption == "--secure";
    if (!TakesNone && i + 1 >= Words.size()) {
      *psError = sOption + ": a value is missing";
      return false;
    }
    if (!TakeOption(pRequest, sOption, TakesNone ? "" : Words[++i], psError)) {
      return false;
    }
  }
  return true;
}

bool SECTORS::Has(uint32_t Sector) const {
  return All || std::find(List.begin(), List.end(), Sector) != List.end();
}

uint32_t SECTORS::Mask(uint32_t NumSectors) const {
  if (All) {
    return NumSectors >= 32 ? ~0u : (1u << NumSectors) - 1;
  }
  uint32_t Bits = 0;
  for (const uint32_t Sector : List) {
    Bits |= 1u << Sector;
  }
  return Bits;
}

std::vector<SECTOR_AREA> SECTORS::AreasInBank(uint32_t FirstOfBank, uint32_t NumInBank) const {
  std::vector<SECTOR_AREA> Areas;
  for (uint32_t i = 0; i < NumInBank; i++) {
    if (Has(FirstOfBank + i)) {
      if (Areas.empty() || Areas.back().Last + 1 != i) {
        Areas.push_back({i, i});
      }
      Areas.back().Last = i;
    }
  }
  return Areas;
}

// -- Checking it against the device --------------------------------------------------------------

static bool CheckSectors(const SECTORS& Sectors, uint32_t NumSectors, std::string* psError) {
  for (const uint32_t Sector : Sectors.List) {
    if (Sector >= NumSectors) {
      *psError = Format("sector %u: this device has sectors 0 to %u", Sector, NumSectors - 1);
      return false;
    }
  }
  return true;
}

// "" when the device can be asked for that.
static std::string Refusal(const CREATE_REQUEST& Request, const CAPABILITIES& Can,
                           const silicon::FAMILY& Family) {
  std::string sError;
  const bool  Pcrop = !Request.Pcrop.IsEmpty();
  if (Request.Level == 2u && Family.Level2 == 0) {
    return "this device has no level 2";
  }
  if (Pcrop && Can.NumPcrop == 0) {
    return "this device has no PCROP";
  }
  if (Request.PcropRdp && !Can.HasPcropRdp) {
    return "this device has no PCROP_RDP bit";
  }
  if (Request.Secure && !Can.HasSecure) {
    return "this device has no secure area";
  }
  if (Pcrop && Can.OneOrOther && !Request.Wrp.IsEmpty()) {
    return "the sector bits are either write protection or PCROP, not both";
  }
  if (!CheckSectors(Request.Wrp, Can.NumWrp, &sError) ||
      !CheckSectors(Request.Pcrop, Can.NumPcrop, &sError)) {
    return sError;
  }
  return "";
}

// Where a name leads: "FIELD", "WORD.FIELD" or "WORD"; "rdp" and "user" are there on every device.
// "WORD" and "user" lead to the first of their fields, which need not be the only one.
struct PLACE {
  int                   Index  = -1;
  const silicon::FIELD* pField = nullptr;
  bool                  IsOne  = false;
};

static PLACE FindPlace(const Controller& Flash, int UserWord, const std::string& sName) {
  for (int i = 0; i < Flash.NumWords(); i++) {
    const silicon::OPTION_WORD& Word = Flash.Word(i);
    for (const silicon::FIELD& Field : Word.Fields) {
      const bool IsOne = sName == Field.sName ||
                         sName == std::string(Word.sName) + "." + Field.sName ||
                         (sName == "rdp" && Field.Kind == silicon::LEVEL);
      if (IsOne || sName == Word.sName ||
          (sName == "user" && i == UserWord && Field.Kind == silicon::USER)) {
        return {i, &Field, IsOne || Word.Fields.end() - Word.Fields.begin() == 1};
      }
    }
  }
  return {};
}

bool Controller::Configure(const CREATE_REQUEST& Request, std::string* psError) {
  const CAPABILITIES Allowed = Can();
  *psError                   = Refusal(Request, Allowed, *facts_.pFamily);
  if (!psError->empty()) {
    return false;
  }
  for (int i = 0; i < NumWords(); i++) {
    Store(i, Delivered(i));
  }
  if (Request.User) {
    const uint32_t User = *Request.User << Allowed.UserLow & Allowed.UserMask;
    Store(Allowed.UserWord,
          WithComplement(Allowed.UserWord, (Stored(Allowed.UserWord) & ~Allowed.UserMask) | User));
  }
  if (Request.Rdp || Request.Level) {
    const uint8_t  aBytes[] = {facts_.pFamily->Level0, Allowed.Level1, facts_.pFamily->Level2};
    const PLACE    Rdp      = FindPlace(*this, Allowed.UserWord, "rdp");
    const uint32_t Byte     = Request.Rdp ? *Request.Rdp : aBytes[*Request.Level];
    Store(Rdp.Index, WithComplement(Rdp.Index, Rdp.pField->Put(Stored(Rdp.Index), Byte)));
  }
  if (!Protect(Request, psError)) {
    return false;
  }
  for (const auto& [sName, Value] : Request.Options) {
    const PLACE Option = FindPlace(*this, Allowed.UserWord, sName);
    if (Option.Index >= 0 && !Option.IsOne) {
      *psError = sName + " has several fields: name one, such as " + Option.pField->sName;
      return false;
    }
    if (Option.Index < 0 || Option.pField->Get(Option.pField->Put(0, Value)) != Value) {
      *psError = Option.Index < 0 ? "this device has no option " + sName
                                  : Format("0x%X does not fit into %s", Value, sName.c_str());
      return false;
    }
    Store(Option.Index,
          WithComplement(Option.Index, Option.pField->Put(Stored(Option.Index), Value)));
  }
  for (const std::string& sName : Request.Mismatches) {
    const PLACE Option = FindPlace(*this, Allowed.UserWord, sName);
    if (Option.Index < 0 || !SpoilComplement(Option.Index, Option.pField->Low)) {
      *psError = Option.Index < 0 ? "this device has no option " + sName
                                  : "this device shows no complements of its option bytes";
      return false;
    }
  }
  return true;
}

// One bit of the complement that belongs to this bit of the word.
bool Controller::SpoilComplement(int Index, uint32_t Bit) {
  STORED& Each = stored_[AsSize(Index)];
  switch (Word(Index).Complement) {
    case silicon::IN_BYTES:
      Each.Value ^= 0x100u << (Bit & 16);
      return true;
    case silicon::IN_UPPER_HALF:
      Each.Value ^= 0x10000;
      return true;
    case silicon::IN_NEXT_WORD:
      Each.Complement ^= 1;
      return true;
    default:
      return false;
  }
}

// -- Making it so --------------------------------------------------------------------------------

void FillFlash(Device* pDevice, uint32_t Bytes) {
  Memory&        Flash = *pDevice->Memories().Find(MAIN_FLASH);
  const uint32_t Base  = Flash.Row().Base;
  for (uint32_t i = 0; i < Bytes && i < Flash.Row().Bytes; i += 4) {
    Flash.WordAt(Base + i) = 0xBF00BF00;  // two NOPs
  }
  Flash.WordAt(Base)     = 0x20001000;    // initial stack pointer
  Flash.WordAt(Base + 4) = Base + 0x101;  // reset handler
}

static bool LoadImage(Device* pDevice, const std::string& sPath, std::string* psError) {
  FILE* pFile = fopen(sPath.c_str(), "rb");
  if (pFile == nullptr) {
    *psError = sPath + ": " + strerror(errno);
    return false;
  }
  Memory&  Flash  = *pDevice->Memories().Find(MAIN_FLASH);
  uint32_t Offset = 0;
  uint8_t  abWord[4];
  size_t   NumBytes = 0;
  while (Offset < Flash.Row().Bytes && (NumBytes = fread(abWord, 1, sizeof(abWord), pFile)) > 0) {
    uint32_t& Word = Flash.WordAt(Flash.Row().Base + Offset);
    for (uint32_t i = 0; i < NumBytes; i++) {
      Word = Merge(Word, i, 1, abWord[i]);
    }
    Offset += 4;
  }
  const bool Fits    = Offset < Flash.Row().Bytes || fgetc(pFile) == EOF;
  const bool WasRead = ferror(pFile) == 0;
  fclose(pFile);
  if (!WasRead) {
    *psError = sPath + ": cannot be read";
  } else if (!Fits) {
    *psError = Format("%s: larger than the flash of %u bytes", sPath.c_str(), Flash.Row().Bytes);
  }
  return WasRead && Fits;
}

bool Prepare(Device* pDevice, const CREATE_REQUEST& Request, std::string* psError) {
  for (const auto& [sName, Value] : Request.Variants) {
    if (!pDevice->SetVariant(sName, Value)) {
      *psError = Format("\"%s=%u\" is no value for --variant", sName.c_str(), Value);
      return false;
    }
  }
  if (Request.EepromFull) {
    for (Memory& Each : pDevice->Memories()) {
      if (Each.Row().Kind == EEPROM || Each.Row().Kind == BACKUP) {
        Each.Fill(0x12345678);
      }
    }
  }
  if (Request.sFlash == "full") {
    FillFlash(pDevice, UINT32_MAX);
  } else if (Request.sFlash != "erased" && !LoadImage(pDevice, Request.sFlash, psError)) {
    return false;
  }
  if (!Request.sProgram.empty()) {
    if (pDevice->IsFlashErased()) {
      *psError = "--program: there is none without --flash";
      return false;
    }
    pDevice->SetProgram(Request.sProgram == "stops" ? PROGRAM_STOPS : PROGRAM_TAKES_SWD);
  }
  return pDevice->Flash().Configure(Request, psError);
}

}  // namespace sim
