// SPDX-License-Identifier: MIT

#include "options/identify.h"

#include <stddef.h>

#include "probeapi/quobearm.h"

static const uint32_t DEV_ID_MASK = 0xFFF;

int32_t IDENTIFY_ReadWord(uint32_t Address, uint32_t* pValue) {
  uint32_t Value = 0;
  if (QUOBEARM_ReadMemU32(Address, 1, &Value, NULL) < 0) {
    return -1;
  }
  *pValue = Value;
  return 0;
}

// -- Candidates ----------------------------------------------------------------------------------

static void AddCandidates(READING* pReading, uint32_t MenuRow, bool ByIdCode) {
  for (const silicon::DEVICE* pDevice : silicon::apDevices) {
    const bool IsOfFamily = MenuRow == 0 || pDevice->pFamily->MenuRow == MenuRow;
    const bool HasId      = !ByIdCode || ((pDevice->IdCode ^ pReading->IdCode) & DEV_ID_MASK) == 0;
    if (IsOfFamily && HasId && pReading->NumCandidates < MAX_CANDIDATES) {
      pReading->apCandidates[pReading->NumCandidates++] = pDevice;
    }
  }
}

static uint32_t SizeInKb(const silicon::DEVICE* pDevice) {
  return pDevice->Memory[0].Bytes / silicon::KB;
}

// Keeps the candidates that pfKeeps keeps, unless that is none.
static void Narrow(READING* pReading,
                   bool (*pfKeeps)(const READING* pReading, const silicon::DEVICE* pDevice)) {
  const silicon::DEVICE* apKept[MAX_CANDIDATES];
  uint32_t               NumKept = 0;
  for (uint32_t i = 0; i < pReading->NumCandidates; i++) {
    if (pfKeeps(pReading, pReading->apCandidates[i])) {
      apKept[NumKept++] = pReading->apCandidates[i];
    }
  }
  for (uint32_t i = 0; i < NumKept; i++) {
    pReading->apCandidates[i] = apKept[i];
  }
  pReading->NumCandidates = NumKept != 0 ? NumKept : pReading->NumCandidates;
}

static bool HasThisFlash(const READING* pReading, const silicon::DEVICE* pDevice) {
  return SizeInKb(pDevice) == pReading->FlashKb;
}

static bool HasRoomForFlash(const READING* pReading, const silicon::DEVICE* pDevice) {
  return SizeInKb(pDevice) >= pReading->FlashKb;
}

static const silicon::LAYOUT* LayoutOf(const silicon::DEVICE* pDevice) {
  for (const silicon::LAYOUT& Layout : silicon::aLayouts) {
    if (Layout.pDevice == pDevice) {
      return &Layout;
    }
  }
  return NULL;
}

static bool HasTellingRegister(const READING*, const silicon::DEVICE* pDevice) {
  return LayoutOf(pDevice)->TellBy != 0;
}

static bool HasNoTellingRegister(const READING*, const silicon::DEVICE* pDevice) {
  return LayoutOf(pDevice)->TellBy == 0;
}

static void NarrowByTellingRegister(READING* pReading) {
  for (uint32_t i = 0; i < pReading->NumCandidates; i++) {
    const uint32_t TellBy = LayoutOf(pReading->apCandidates[i])->TellBy;
    if (TellBy != 0 && pReading->NumCandidates > 1) {
      uint32_t Value = 0;
      IDENTIFY_ReadWord(TellBy, &Value);
      Narrow(pReading, Value != 0 ? HasTellingRegister : HasNoTellingRegister);
      return;
    }
  }
}

// The size register holds the size in KB, or the code of a size. It is a half-word, and this reads
// the word that it is in.
static void ReadFlashSize(READING* pReading) {
  const uint32_t Address = pReading->apCandidates[0]->pFamily->FlashSize;
  uint32_t       Word;
  if (IDENTIFY_ReadWord(Address & ~3u, &Word) < 0) {
    return;
  }
  const uint32_t Size    = Word >> 8 * (Address & 3) & 0xFFFF;
  bool           HasCode = false;
  for (uint32_t i = 0; i < pReading->NumCandidates && !pReading->HasFlashKb; i++) {
    const silicon::DEVICE* pDevice = pReading->apCandidates[i];
    HasCode                        = HasCode || pDevice->SizeCode != silicon::SIZE_IN_KB;
    pReading->HasFlashKb           = pDevice->SizeCode == Size;
    pReading->FlashKb              = SizeInKb(pDevice);
  }
  if (HasCode) {
    return;
  }
  // An erased or missing register says nothing.
  pReading->HasFlashKb = Size != 0 && Size != 0xFFFF;
  pReading->FlashKb    = Size;
}

static uint32_t NumFieldBits(const silicon::DEVICE* pDevice) {
  uint32_t NumBits = 0;
  for (const silicon::OPTION_WORD& Word : pDevice->Options) {
    for (const silicon::FIELD& Field : Word.Fields) {
      NumBits += Field.Width();
    }
  }
  return NumBits;
}

// The one with most fields comes first: its rows are the ones to read.
static void PutWidestFirst(READING* pReading) {
  for (uint32_t i = 1; i < pReading->NumCandidates; i++) {
    const silicon::DEVICE* pDevice = pReading->apCandidates[i];
    if (NumFieldBits(pDevice) > NumFieldBits(pReading->apCandidates[0])) {
      pReading->apCandidates[i] = pReading->apCandidates[0];
      pReading->apCandidates[0] = pDevice;
    }
  }
}

// -- Identity ------------------------------------------------------------------------------------

static const silicon::FAMILY_STATUS* StatusOf(uint32_t MenuRow) {
  for (const silicon::FAMILY_STATUS& Row : silicon::aFamilyStatus) {
    if (Row.MenuRow == MenuRow) {
      return &Row;
    }
  }
  return NULL;
}

static const silicon::FAMILY* FamilyOf(uint32_t MenuRow) {
  for (const silicon::DEVICE* pDevice : silicon::apDevices) {
    if (pDevice->pFamily->MenuRow == MenuRow) {
      return pDevice->pFamily;
    }
  }
  return NULL;
}

static void SetFamily(READING* pReading, uint32_t MenuRow, FOUND_BY FoundBy) {
  pReading->pFamily       = FamilyOf(MenuRow);
  pReading->pFamilyStatus = StatusOf(MenuRow);
  pReading->FoundBy       = FoundBy;
}

// Reads DBGMCU_IDCODE where this family has it. True: a described device answered.
static bool IdentifyAt(READING* pReading, uint32_t Address) {
  uint32_t IdCode;
  if (IDENTIFY_ReadWord(Address, &IdCode) < 0 || (IdCode & DEV_ID_MASK) == 0) {
    return false;
  }
  const bool     HadIdCode = pReading->HasIdCode;
  const uint32_t OldIdCode = pReading->IdCode;
  pReading->HasIdCode      = true;
  pReading->IdCode         = IdCode;
  AddCandidates(pReading, 0, true);
  // The same number at another family's address means nothing.
  if (pReading->NumCandidates != 0 && pReading->apCandidates[0]->pFamily->IdCode != Address) {
    pReading->NumCandidates = 0;
    pReading->HasIdCode     = HadIdCode;
    pReading->IdCode        = OldIdCode;
  }
  return pReading->NumCandidates != 0;
}

// The families that hide their identity are recognised by their first option word: it is readable at
// level 0 and 1, and no other family has a memory there that answers. Value and complement may differ.
static uint32_t FamilyByOptionWord(void) {
  for (const silicon::FAMILY_STATUS& Row : silicon::aFamilyStatus) {
    uint32_t Word = 0;
    if (Row.HidesIdentity) {
      for (const silicon::DEVICE* pDevice : silicon::apDevices) {
        if (pDevice->pFamily->MenuRow == Row.MenuRow &&
            IDENTIFY_ReadWord(pDevice->Options[0].Stored, &Word) == 0 && Word != 0) {
          return Row.MenuRow;
        }
      }
    }
  }
  return 0;
}

static constexpr uint32_t IdCodeAddresses[] = {0xE0042000, 0x40015800, 0x5C001000};

static constexpr bool HasAddressOfEachFamily(void) {
  for (const silicon::DEVICE* pDevice : silicon::apDevices) {
    bool HasAddress = false;
    for (const uint32_t Address : IdCodeAddresses) {
      HasAddress = HasAddress || Address == pDevice->pFamily->IdCode;
    }
    if (!HasAddress) {
      return false;
    }
  }
  return true;
}
static_assert(HasAddressOfEachFamily(), "each family is found without -SetDeviceFamily");

static bool IdentifyByIdCode(uint32_t MenuRow, READING* pReading) {
  if (MenuRow != 0 && IdentifyAt(pReading, FamilyOf(MenuRow)->IdCode)) {
    return true;
  }
  const uint32_t LastAddress = MenuRow != 0 ? FamilyOf(MenuRow)->IdCode : 0;
  for (const uint32_t Address : IdCodeAddresses) {
    if (Address != LastAddress && IdentifyAt(pReading, Address)) {
      return true;
    }
  }
  return false;
}

void IDENTIFY_Device(uint32_t MenuRow, READING* pReading) {
  pReading->IsKnown = IdentifyByIdCode(MenuRow, pReading);
  if (pReading->IsKnown) {
    const uint32_t Own      = pReading->apCandidates[0]->pFamily->MenuRow;
    pReading->IsOtherFamily = MenuRow != 0 && Own != MenuRow;
    SetFamily(pReading, Own, Own == MenuRow ? FOUND_BY_OPTION : FOUND_BY_DEVICE);
  } else {
    const uint32_t Row = MenuRow != 0 || pReading->HasIdCode ? MenuRow : FamilyByOptionWord();
    if (Row == 0) {
      return;
    }
    SetFamily(pReading, Row, Row == MenuRow ? FOUND_BY_OPTION : FOUND_BY_DEVICE);
    if (pReading->HasIdCode || !pReading->pFamilyStatus->HidesIdentity) {
      return;
    }
    AddCandidates(pReading, Row, false);
  }
  ReadFlashSize(pReading);
  if (pReading->HasFlashKb) {
    if (pReading->HasIdCode) {
      Narrow(pReading, HasThisFlash);
    }
    Narrow(pReading, HasRoomForFlash);
  }
  NarrowByTellingRegister(pReading);
  PutWidestFirst(pReading);
  pReading->pFamily = pReading->apCandidates[0]->pFamily;
  pReading->pLayout = LayoutOf(pReading->apCandidates[0]);
}
