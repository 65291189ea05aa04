// SPDX-License-Identifier: MIT

#include "openocd/target.h"

#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "openocd/answer.h"
#include "openocd/text.h"

static const uint32_t DP_DPIDR     = 0x0;
static const uint32_t DP_CTRL_STAT = 0x4;
static const uint32_t CDBGPWRUPACK = 1u << 29;
static const uint32_t CSYSPWRUPACK = 1u << 31;
static const uint32_t AP_IDR       = 0xFC;

static const uint32_t CPUID         = 0xE000ED00;
static const uint32_t AIRCR         = 0xE000ED0C;
static const uint32_t DHCSR         = 0xE000EDF0;
static const uint32_t DEMCR         = 0xE000EDFC;
static const uint32_t AIRCR_VECTKEY = 0x05FA0000;
static const uint32_t SYSRESETREQ   = 1u << 2;
static const uint32_t DHCSR_DBGKEY  = 0xA05F0000;
static const uint32_t C_DEBUGEN     = 1u << 0;
static const uint32_t C_HALT        = 1u << 1;
static const uint32_t S_HALT        = 1u << 17;
static const uint32_t S_RESET_ST    = 1u << 25;
static const uint32_t VC_CORERESET  = 1u << 0;
static const uint32_t TRCENA        = 1u << 24;

// OpenOCD gives an adapter 6 s for an answer; one late answer is a failed access and no lost adapter.
static const int      ACCESS_DEADLINE_MS = 8000;
static const int      PORT_DEADLINE_MS   = 4000;
static const int      HALT_TIMEOUT_MS    = 200;
static const int      PIN_LOW_MS         = 20;
static const int      CORE_ATTEMPTS      = 3;
static const int      RESET_ATTEMPTS     = 2;
static const uint32_t WORDS_AT_ONCE      = 64;

static TARGET_RESULT ResultOf(SERVER_RESULT Result) {
  return Result == SERVER_OK ? TARGET_OK : Result == SERVER_REFUSED ? TARGET_FAILED : TARGET_GONE;
}

// -- Accesses ------------------------------------------------------------------------------------

static TARGET_RESULT ReadBlock(ADAPTER* pAdapter, uint32_t Address, uint32_t Count,
                               uint32_t* pData) {
  char                acAnswer[SERVER_MAX_ANSWER];
  uint32_t            aWords[WORDS_AT_ONCE];
  const SERVER_RESULT Result =
      SERVER_Request(&pAdapter->Server, ACCESS_DEADLINE_MS, acAnswer, sizeof(acAnswer),
                     "%s read_memory 0x%08X 32 %u", pAdapter->acTarget, Address, Count);
  if (Result != SERVER_OK) {
    return ResultOf(Result);
  }
  if (!ANSWER_Numbers(acAnswer, aWords, Count)) {
    return TARGET_FAILED;
  }
  memcpy(pData, aWords, Count * sizeof(aWords[0]));
  return TARGET_OK;
}

static TARGET_RESULT ReadBlocks(ADAPTER* pAdapter, uint32_t Address, uint32_t Count,
                                uint32_t* pData) {
  TARGET_RESULT Result = TARGET_OK;
  for (uint32_t Done = 0; Done < Count && Result == TARGET_OK; Done += WORDS_AT_ONCE) {
    const uint32_t Left = Count - Done;
    Result = ReadBlock(pAdapter, Address + 4 * Done, Left < WORDS_AT_ONCE ? Left : WORDS_AT_ONCE,
                       pData + Done);
  }
  return Result;
}

TARGET_RESULT TARGET_Read(ADAPTER* pAdapter, uint32_t Address, uint32_t Count, uint32_t* pData) {
  if (Count <= WORDS_AT_ONCE) {
    return ReadBlocks(pAdapter, Address, Count, pData);
  }
  // A later block may fail, and then the caller's buffer has to be as it was.
  uint32_t* pWords = static_cast<uint32_t*>(calloc(Count, sizeof(*pWords)));
  if (pWords == NULL) {
    return TARGET_FAILED;
  }
  const TARGET_RESULT Result = ReadBlocks(pAdapter, Address, Count, pWords);
  if (Result == TARGET_OK) {
    memcpy(pData, pWords, Count * sizeof(*pWords));
  }
  free(pWords);
  return Result;
}

TARGET_RESULT TARGET_Write(ADAPTER* pAdapter, uint32_t Address, uint32_t Bits, uint32_t Value) {
  char acAnswer[SERVER_MAX_ANSWER];
  return ResultOf(SERVER_Request(&pAdapter->Server, ACCESS_DEADLINE_MS, acAnswer, sizeof(acAnswer),
                                 "%s write_memory 0x%08X %u {0x%X}", pAdapter->acTarget, Address,
                                 Bits, Value));
}

static TARGET_RESULT ReadDebugPort(ADAPTER* pAdapter, const char* sWhat, uint32_t Register,
                                   uint32_t* pValue) {
  char                acAnswer[SERVER_MAX_ANSWER];
  const SERVER_RESULT Result =
      SERVER_Request(&pAdapter->Server, PORT_DEADLINE_MS, acAnswer, sizeof(acAnswer), "%s %s 0x%X",
                     pAdapter->acDap, sWhat, Register);
  if (Result == SERVER_OK && !ANSWER_Numbers(acAnswer, pValue, 1)) {
    return TARGET_FAILED;
  }
  return ResultOf(Result);
}

bool TARGET_PortAnswers(ADAPTER* pAdapter) {
  uint32_t Value = 0;
  if (pAdapter->acDap[0] == '\0') {
    return TARGET_Read(pAdapter, CPUID, 1, &Value) == TARGET_OK;
  }
  return ReadDebugPort(pAdapter, "dpreg", DP_DPIDR, &Value) == TARGET_OK;
}

bool TARGET_IsPowered(ADAPTER* pAdapter) {
  uint32_t Value = 0;
  if (pAdapter->acDap[0] == '\0') {
    return TARGET_PortAnswers(pAdapter);
  }
  return ReadDebugPort(pAdapter, "dpreg", DP_CTRL_STAT, &Value) == TARGET_OK &&
         (Value & CDBGPWRUPACK) != 0 && (Value & CSYSPWRUPACK) != 0;
}

// -- Reset ---------------------------------------------------------------------------------------

// Writes a register of the core. Unlike an access to the chip it may be made again when it failed: one
// error on the wires shall leave no core halted and no trap set.
static TARGET_RESULT WriteCore(ADAPTER* pAdapter, uint32_t Register, uint32_t Value) {
  TARGET_RESULT Result = TARGET_FAILED;
  for (int i = 0; i < CORE_ATTEMPTS && Result == TARGET_FAILED; i++) {
    Result = TARGET_Write(pAdapter, Register, 32, Value);
  }
  return Result;
}

// Waits until the core has stopped, and a reset has been seen if one is expected: S_RESET_ST tells of
// it until it is read. Somebody else's server may read it before us.
static TARGET_RESULT WaitForHalt(ADAPTER* pAdapter) {
  const int64_t EndMs    = TEXT_NowMs() + HALT_TIMEOUT_MS;
  bool          WasReset = !pAdapter->Server.IsChild;
  do {
    uint32_t Status = 0;
    // A read may fail while the chip is in reset.
    if (TARGET_Read(pAdapter, DHCSR, 1, &Status) == TARGET_GONE) {
      return TARGET_GONE;
    }
    WasReset = WasReset || (Status & S_RESET_ST) != 0;
    if (WasReset && (Status & S_HALT) != 0) {
      return TARGET_OK;
    }
  } while (TEXT_NowMs() < EndMs);
  return TARGET_FAILED;
}

static TARGET_RESULT SetPin(ADAPTER* pAdapter, const char* sState) {
  char acAnswer[SERVER_MAX_ANSWER];
  return ResultOf(SERVER_Request(&pAdapter->Server, PORT_DEADLINE_MS, acAnswer, sizeof(acAnswer),
                                 "adapter %s srst", sState));
}

// The trap for the reset: the core stops at its first instruction.
static TARGET_RESULT SetTrap(ADAPTER* pAdapter, uint32_t Control) {
  const TARGET_RESULT Result = WriteCore(pAdapter, DHCSR, DHCSR_DBGKEY | Control);
  return Result == TARGET_OK ? WriteCore(pAdapter, DEMCR, TRCENA | VC_CORERESET) : Result;
}

static TARGET_RESULT ResetByPin(ADAPTER* pAdapter) {
  // Stopped until the pin is low: the program may take the debug pins for itself.
  TARGET_RESULT Result = SetTrap(pAdapter, C_DEBUGEN | C_HALT);
  if (Result != TARGET_OK) {
    return Result;
  }
  Result = SetPin(pAdapter, "assert");
  usleep(PIN_LOW_MS * 1000);
  const TARGET_RESULT Released = SetPin(pAdapter, "deassert");
  Result                       = Result == TARGET_OK ? Released : Result;
  return Result == TARGET_OK ? WaitForHalt(pAdapter) : Result;
}

static TARGET_RESULT ResetByCore(ADAPTER* pAdapter) {
  uint32_t      Status = 0;
  TARGET_RESULT Result = SetTrap(pAdapter, C_DEBUGEN | C_HALT);
  if (Result != TARGET_OK) {
    return Result;
  }
  // Forgets the resets before this one.
  TARGET_Read(pAdapter, DHCSR, 1, &Status);
  // The chip may be in reset before it can acknowledge this, so its failure says nothing.
  Result = TARGET_Write(pAdapter, AIRCR, 32, AIRCR_VECTKEY | SYSRESETREQ);
  return Result == TARGET_GONE ? Result : WaitForHalt(pAdapter);
}

TARGET_RESULT TARGET_Reset(ADAPTER* pAdapter, bool ByPin, uint32_t Delayms) {
  TARGET_RESULT Result = TARGET_FAILED;
  for (int i = 0; i < RESET_ATTEMPTS && Result == TARGET_FAILED; i++) {
    Result = ByPin ? ResetByPin(pAdapter) : ResetByCore(pAdapter);
  }
  if (Delayms > 0) {
    usleep(Delayms * 1000);
  }
  return Result;
}

void TARGET_Resume(ADAPTER* pAdapter) {
  if (WriteCore(pAdapter, DEMCR, 0) != TARGET_GONE) {
    WriteCore(pAdapter, DHCSR, DHCSR_DBGKEY);
  }
}

// -- Attach --------------------------------------------------------------------------------------

static void TellSilent(ADAPTER* pAdapter, char* pError, size_t ErrorSize) {
  static const uint32_t NO_SUPPLY_MV = 500;
  uint32_t              Millivolts   = 0;
  if (ADAPTER_MeasureVoltage(pAdapter, &Millivolts) && Millivolts < NO_SUPPLY_MV) {
    TEXT_Format(pError, ErrorSize,
                "The target has no supply: the adapter measures %u.%03u V. Switch the board on and "
                "check the wire from its supply to the adapter's VTref.",
                Millivolts / 1000, Millivolts % 1000);
    return;
  }
  TEXT_Format(pError, ErrorSize,
              "The debug port does not answer. Check the wires SWDIO, SWCLK and GND and that the "
              "target has power; with nRESET wired try \"connect = under-reset\". A device at "
              "protection level 2 does not answer either, and cannot be freed.");
}

// Halts the core at its reset vector while nRESET is let go.
static TARGET_RESULT LeaveReset(ADAPTER* pAdapter) {
  TARGET_RESULT       Result   = SetTrap(pAdapter, C_DEBUGEN);
  const TARGET_RESULT Released = SetPin(pAdapter, "deassert");
  if (Result == TARGET_OK) {
    Result = Released == TARGET_OK ? WaitForHalt(pAdapter) : Released;
  }
  return Result;
}

// S_RESET_ST is cleared by reading, unless the reset lasts.
static bool IsHeldInReset(ADAPTER* pAdapter) {
  uint32_t Status = S_RESET_ST;
  for (int i = 0; i < 2 && (Status & S_RESET_ST) != 0; i++) {
    if (TARGET_Read(pAdapter, DHCSR, 1, &Status) != TARGET_OK) {
      return false;
    }
  }
  return (Status & S_RESET_ST) != 0;
}

static bool Examine(ADAPTER* pAdapter, TARGET_FACTS* pFacts, char* pError, size_t ErrorSize) {
  static const char sClosed[] =
      "The debug port answers and the device behind it does not: its debug access is closed "
      "(protection level 2, which cannot be lifted) or the device has no power.";
  char acAnswer[SERVER_MAX_ANSWER];
  if (pAdapter->acDap[0] != '\0') {
    if (ReadDebugPort(pAdapter, "dpreg", DP_DPIDR, &pFacts->DpIdr) != TARGET_OK) {
      TellSilent(pAdapter, pError, ErrorSize);
      return false;
    }
    if (!TARGET_IsPowered(pAdapter) ||
        ReadDebugPort(pAdapter, "apreg 0", AP_IDR, &pFacts->ApIdr) != TARGET_OK ||
        pFacts->ApIdr == 0) {
      TEXT_Format(pError, ErrorSize, "%s", sClosed);
      return false;
    }
  }
  // Of a running server this is the owner's business; it fails there when it has been done.
  SERVER_Request(&pAdapter->Server, PORT_DEADLINE_MS, acAnswer, sizeof(acAnswer), "%s arp_examine",
                 pAdapter->acTarget);
  if (TARGET_Read(pAdapter, CPUID, 1, &pFacts->Cpuid) != TARGET_OK) {
    TEXT_Format(pError, ErrorSize, "%s", sClosed);
    return false;
  }
  return true;
}

bool TARGET_Attach(ADAPTER* pAdapter, const CONFIG* pConfig, TARGET_FACTS* pFacts, char* pError,
                   size_t ErrorSize) {
  static const char sHeld[] =
      "The target is held in reset: nRESET stays low. Check the board's reset button and what else "
      "drives the line.";
  static const char sNoHalt[] =
      "The core does not stop after the reset by the pin. Check that nRESET is wired to the "
      "adapter.";
  const bool UnderReset = pConfig->ConnectUnderReset && pAdapter->Server.IsChild;
  bool       Good       = false;
  *pFacts               = TARGET_FACTS{};
  if (UnderReset) {
    // Since "init" it is low, unless this is not the first attempt.
    SetPin(pAdapter, "assert");
  }
  if (!Examine(pAdapter, pFacts, pError, ErrorSize)) {
    if (UnderReset) {
      SetPin(pAdapter, "deassert");
    }
  } else if (UnderReset) {
    Good = LeaveReset(pAdapter) == TARGET_OK;
    TEXT_Format(pError, ErrorSize, "%s", Good ? "" : IsHeldInReset(pAdapter) ? sHeld : sNoHalt);
    if (!Good) {
      TARGET_Resume(pAdapter);
    }
  } else {
    Good = !IsHeldInReset(pAdapter);
    TEXT_Format(pError, ErrorSize, "%s", Good ? "" : sHeld);
  }
  if (!pAdapter->Server.IsOpen) {
    TEXT_Format(pError, ErrorSize, "%s while it was connecting to the target.",
                pAdapter->Server.acReason);
    return false;
  }
  return Good;
}
