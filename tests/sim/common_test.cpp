// SPDX-License-Identifier: MIT

// What all devices share: registers and locks as rows, memories, time, power, watchdog, texts.

#include <algorithm>

#include "silicon/catalog.h"
#include "sim/catalog.h"
#include "sim/clock.h"
#include "sim/request.h"
#include "sim/text.h"
#include "sim/trace.h"
#include "sim/verdict.h"
#include "tests/sim/steps.h"

// -- Registers

static const sim::REGISTER aTable[] = {
    {.sName      = "REG_A",
     .Address    = 0x40000000,
     .Reset      = 0x80000011,
     .Writable   = 0x0000FF00,
     .ClearByOne = 0x0000000F,
     .SetOnly    = 0x00000010,
     .Fields     = {silicon::Bit("FLAG", 0), silicon::Bits("WIDE", 11, 4)}},
    {.sName = "REG_B", .Address = 0x40000004, .Writable = 0xFFFFFFFF},
};

TEST(SimRegisters, AWriteDoesToEachBitWhatItsMaskSays) {
  sim::RegisterFile File(0x40000000, aTable);
  EXPECT_EQ(&aTable[0], File.RowAt(0x40000000));
  EXPECT_EQ(&aTable[1], File.RowAt(0x40000004));
  EXPECT_EQ(nullptr, File.RowAt(0x40000008));
  EXPECT_TRUE(File.Has(4));
  EXPECT_FALSE(File.Has(8));
  EXPECT_EQ(0x80000011u, File[0]);
  File.Write(0, 0x0000A500);
  EXPECT_EQ(0x8000A511u, File[0]);  // what writing 1 clears or sets, writing 0 leaves alone
  File.Write(0, 0xFFFF5A01);
  EXPECT_EQ(0x80005A10u, File[0]);
  File[0] = 0;
  File.Write(0, 0x00000010);
  EXPECT_EQ(0x10u, File[0]);
  File.Write(4, 0x12345678);
  EXPECT_EQ(0x12345678u, File[4]);
  File.ResetAll();
  EXPECT_EQ(0x80000011u, File[0]);
  EXPECT_EQ(0u, File[4]);
  EXPECT_DEATH(File[8] = 0, "");
}

TEST(SimRegisters, FieldsAreDecodedAsAPersonReadsThem) {
  const silicon::FIELDS Fields = {silicon::Bit("FLAG", 0), silicon::Bits("WIDE", 11, 4)};
  EXPECT_EQ(2, Fields.end() - Fields.begin());
  const silicon::FIELD& Wide = Fields.begin()[1];
  EXPECT_EQ(8u, Wide.Width());
  EXPECT_EQ(0x00000FF0u, Wide.Mask());
  EXPECT_EQ(0xABu, Wide.Get(0xFFFFFABF));
  EXPECT_EQ(0xFFFFFABFu, Wide.Put(0xFFFFF00F, 0xFAB));
  EXPECT_EQ(0xFFFFFFFFu, silicon::Bits("ALL", 31, 0).Mask());
  EXPECT_EQ("FLAG WIDE=AB", sim::DecodeFields(Fields, 0xAB1));
  EXPECT_EQ("WIDE=00", sim::DecodeFields(Fields, 0));
  EXPECT_EQ("ODD=1F", sim::DecodeFields({silicon::Bits("ODD", 4, 0)}, 0xFF));
  EXPECT_EQ("", sim::DecodeFields({silicon::Bit("FLAG", 0)}, 2));
  EXPECT_EQ("", sim::DecodeFields({}, 2));
}

TEST(SimRegisters, ANarrowWriteChangesItsBytes) {
  EXPECT_EQ(0x12345678u, sim::Merge(0, 0, 4, 0x12345678));
  EXPECT_EQ(0x5678FFFFu, sim::Merge(0xFFFFFFFF, 2, 2, 0x12345678));
  EXPECT_EQ(0xFFFF78FFu, sim::Merge(0xFFFFFFFF, 1, 1, 0x12345678));
}

static const sim::LOCK_ROW TwoKeys = {.First = {1, "ONE"}, .Second = {2, "TWO"}};
static const sim::LOCK_ROW NoThird = {
    .First = {1, "ONE"}, .Second = {2, "TWO"}, .ThirdKeyKills = true};

TEST(SimLock, TwoKeysInOrderOpenItAndAnythingElseKillsIt) {
  sim::KeyLock Lock(TwoKeys);
  EXPECT_TRUE(Lock.WriteKey(1));
  EXPECT_FALSE(Lock.IsOpen());
  EXPECT_TRUE(Lock.WriteKey(2));
  EXPECT_TRUE(Lock.IsOpen());
  EXPECT_TRUE(Lock.WriteKey(7));  // ignored
  EXPECT_TRUE(Lock.IsOpen());
  Lock.Interrupt();
  EXPECT_TRUE(Lock.IsOpen());
  Lock.Close();
  EXPECT_FALSE(Lock.WriteKey(2));
  EXPECT_FALSE(Lock.WriteKey(1));
  EXPECT_FALSE(Lock.WriteKey(2));
  Lock.Close();
  EXPECT_FALSE(Lock.WriteKey(1));  // closing revives nothing
  Lock.Reset();
  EXPECT_TRUE(Lock.WriteKey(1));
  EXPECT_FALSE(Lock.WriteKey(1));  // the first key twice
  Lock.Reset();
  EXPECT_TRUE(Lock.WriteKey(1));
  Lock.Interrupt();
  EXPECT_FALSE(Lock.WriteKey(2));
  Lock.Reset();
  Lock.Interrupt();  // nothing was begun
  EXPECT_TRUE(Lock.WriteKey(1));
}

TEST(SimLock, AThirdKeyKillsItWhereTheRowSaysSo) {
  sim::KeyLock Lock(NoThird);
  EXPECT_TRUE(Lock.WriteKey(1));
  EXPECT_TRUE(Lock.WriteKey(2));
  EXPECT_FALSE(Lock.WriteKey(1));
  EXPECT_FALSE(Lock.IsOpen());
}

TEST(SimLock, KnowsItsKeysByName) {
  const sim::KeyLock Lock(TwoKeys);
  EXPECT_STREQ("ONE", Lock.NameOf(1));
  EXPECT_STREQ("TWO", Lock.NameOf(2));
  EXPECT_STREQ("a wrong key", Lock.NameOf(3));
}

// -- Memory

static const silicon::MEMORY Rom = {"rom", 0x1000, 256, sim::MAIN_FLASH, 0xFFFFFFFF};

TEST(SimMemory, ErasesWhatItIsToldWithinItself) {
  sim::Memory Memory(Rom);
  EXPECT_TRUE(Memory.IsErased());
  Memory.Fill(0x12345678);
  EXPECT_EQ(256u, Memory.BytesInUse());
  EXPECT_FALSE(Memory.Contains(0xFFF));
  EXPECT_TRUE(Memory.Contains(0x1000));
  EXPECT_TRUE(Memory.Contains(0x10FF));
  EXPECT_FALSE(Memory.Contains(0x1100));
  Memory.EraseRange(0x1010, 8);
  EXPECT_EQ(248u, Memory.BytesInUse());
  EXPECT_EQ(0x12345678u, Memory.WordAt(0x100C));
  EXPECT_EQ(0xFFFFFFFFu, Memory.WordAt(0x1010));
  EXPECT_EQ(0xFFFFFFFFu, Memory.WordAt(0x1017));
  EXPECT_EQ(0x12345678u, Memory.WordAt(0x1018));
  Memory.EraseRange(0x10F0, 0x1000);  // beyond its end, and beside it
  Memory.EraseRange(0x8000, 0x1000);
  EXPECT_EQ(232u, Memory.BytesInUse());
  Memory.Erase();
  EXPECT_TRUE(Memory.IsErased());
}

TEST(SimMemory, AnEraseThatIsCutShortLeavesCellsThatAreNeither) {
  sim::Memory Memory(Rom);
  Memory.Fill(0x12345678);
  Memory.EraseUntil(0x1000, 256, 250);
  EXPECT_EQ(0xFFFFFFFFu, Memory.WordAt(0x103C));
  EXPECT_EQ(0xBABEFEFAu, Memory.WordAt(0x1040));
  EXPECT_EQ(0xBABEFEFAu, Memory.WordAt(0x10BC));
  EXPECT_EQ(0x12345678u, Memory.WordAt(0x10C0));
  Memory.EraseUntil(0x1080, 4096, 0);  // no farther than its end
  EXPECT_EQ(0xBABEFEFAu, Memory.WordAt(0x10FC));
  Memory.EraseUntil(0x1000, 256, 1000);
  EXPECT_TRUE(Memory.IsErased());
  EXPECT_EQ(0x10145450u, sim::HalfErased(0x12345678, 0));
}

TEST(SimMemory, IsWrittenInShortLinesAndReadBack) {
  sim::Memory Memory(Rom);
  Memory.WordAt(0x1000) = 1;
  Memory.WordAt(0x1004) = 2;
  for (uint32_t i = 0; i < 8; i++) {
    Memory.WordAt(0x1010 + 4 * i) = 0xABCD;  // just enough to be a run
  }
  for (uint32_t i = 0; i < 9; i++) {
    Memory.WordAt(0x1040 + 4 * i) = i;  // one more than a line holds
  }
  sim::KeyFile File;
  Memory.SaveTo(&File);
  const std::vector<sim::KEY_LINE> Expected = {
      {"memory.rom.0x00001000", "00000001 00000002"},
      {"memory.rom.0x00001010", "8 x 0000ABCD"},
      {"memory.rom.0x00001040",
       "00000000 00000001 00000002 00000003 00000004 00000005 00000006 00000007"},
      {"memory.rom.0x00001060", "00000008"},
  };
  EXPECT_EQ(Expected, File.Lines());
  sim::Memory Again(Rom);
  for (const sim::KEY_LINE& Line : File.Lines()) {
    EXPECT_TRUE(Again.LoadLine(Line.sKey.substr(11), Line.sValue));
  }
  for (uint32_t Address = 0x1000; Address < 0x1100; Address += 4) {
    EXPECT_EQ(Memory.WordAt(Address), Again.WordAt(Address));
  }
  EXPECT_TRUE(Again.LoadLine("0x10FC", "1 x 00000001"));
  EXPECT_FALSE(Again.LoadLine("0x10FC", "2 x 00000001"));
  EXPECT_TRUE(Again.LoadLine("0x10FC", "00000001"));
  EXPECT_FALSE(Again.LoadLine("0x10FC", "00000001 00000001"));
  EXPECT_FALSE(Again.LoadLine("0x10FE", "00000001"));
  EXPECT_FALSE(Again.LoadLine("0x1100", "00000001"));
  EXPECT_FALSE(Again.LoadLine("rom", "00000001"));
  EXPECT_FALSE(Again.LoadLine("0x1000", ""));
  EXPECT_FALSE(Again.LoadLine("0x1000", "1 y 00000001"));
}

// -- Texts

TEST(SimText, NumbersAreWholeOrNone) {
  uint64_t Value = 7;
  for (const char* sWrong : {"", "0x", "x", "-1", "+1", " 1", "1 ", "12a", "0xG", "1.0",
                             "18446744073709551616", "0x12345678901234567"}) {
    EXPECT_FALSE(sim::ParseNumber(sWrong, &Value)) << sWrong;
    EXPECT_EQ(7u, Value);
  }
  EXPECT_TRUE(sim::ParseNumber("0", &Value));
  EXPECT_EQ(0u, Value);
  EXPECT_TRUE(sim::ParseNumber("999999999999999999", &Value));
  EXPECT_EQ(999999999999999999u, Value);
  EXPECT_TRUE(sim::ParseNumber("0XfFfFfFfFfFfFfFfF", &Value));
  EXPECT_EQ(UINT64_MAX, Value);
  uint32_t Small = 7;
  EXPECT_TRUE(sim::ParseU32("4294967295", &Small));
  EXPECT_EQ(UINT32_MAX, Small);
  Small = 7;
  EXPECT_FALSE(sim::ParseU32("4294967296", &Small));
  EXPECT_EQ(7u, Small);
}

TEST(SimText, WordsPartsAndCase) {
  const std::vector<std::string> Words = {"one", "two words", "", "open end "};
  EXPECT_EQ(Words, sim::SplitWords("  one\t\"two words\" \"\" \"open end "));
  const std::vector<std::string> Parts = {"a", "b c", "", ""};
  EXPECT_EQ(Parts, sim::Split(" a ; b c;;", ';'));
  EXPECT_EQ("a b", sim::Trim("\t a b \r\n"));
  EXPECT_EQ("", sim::Trim(" \n"));
  EXPECT_TRUE(sim::EqualNoCase("aBc", "AbC"));
  EXPECT_FALSE(sim::EqualNoCase("aBc", "AbCd"));
  EXPECT_FALSE(sim::EqualNoCase("aBc", "aBd"));
  EXPECT_EQ("7 x", sim::Format("%d %s", 7, "x"));
}

// -- Time

static uint64_t Wall = 0;

static uint64_t FakeWall() {
  return Wall;
}

TEST(SimClock, FastTimeCountsTheCallersWaitsAndNotTheSimulatorsOwn) {
  Wall = 1000;
  sim::Clock Clock(sim::Clock::FAST, FakeWall);
  EXPECT_TRUE(Clock.IsFast());
  Wall = 1500;  // the caller slept
  Clock.Begin();
  EXPECT_EQ(500u, Clock.NowUs());
  Wall = 1600;  // the simulator worked
  Clock.Spend(16000000);
  Clock.End();
  EXPECT_EQ(16000500u, Clock.NowUs());
  Wall = 1700;
  Clock.Begin();
  EXPECT_EQ(16000600u, Clock.NowUs());
}

TEST(SimClock, RealTimeIsThatOfTheWall) {
  Wall = 1000;
  sim::Clock Clock(sim::Clock::REAL, FakeWall);
  EXPECT_FALSE(Clock.IsFast());
  Wall = 1500;
  Clock.Begin();
  Wall = 1600;
  Clock.End();
  EXPECT_EQ(600u, Clock.NowUs());
  Clock.Spend(1);  // sleeps; the fake wall does not notice
  EXPECT_EQ(600u, Clock.NowUs());
  const uint64_t Before = sim::WallUs();
  sim::SleepUs(2000);
  EXPECT_GE(sim::WallUs() - Before, 2000u);
}

TEST(SimClock, WithoutAWallOnlyWhatIsSpentPasses) {
  sim::Clock Clock(sim::Clock::REAL);
  Clock.Begin();
  Clock.Spend(70);
  Clock.End();
  EXPECT_EQ(70u, Clock.NowUs());
}

// -- A device

static std::unique_ptr<sim::Device> MakeDevice(const char* sName, const char* sState) {
  auto                pDevice = std::make_unique<sim::Device>(*sim::FindDevice(sName));
  sim::CREATE_REQUEST Request;
  std::string         sError;
  EXPECT_TRUE(sim::ParseRequest(sim::SplitWords(sState), &Request, &sError)) << sError;
  EXPECT_TRUE(sim::Prepare(pDevice.get(), Request, &sError)) << sError;
  pDevice->PowerOn();
  return pDevice;
}

static void StartOptionErase(sim::Device* pDevice) {
  for (const uint32_t KeyRegister : {0x40022004u, 0x40022008u}) {
    EXPECT_TRUE(pDevice->Write(KeyRegister, 4, 0x45670123));
    EXPECT_TRUE(pDevice->Write(KeyRegister, 4, 0xCDEF89AB));
  }
  EXPECT_TRUE(pDevice->Write(0x40022010, 4, 0x220));
  EXPECT_TRUE(pDevice->Write(0x40022010, 4, 0x260));
}

TEST(SimDevice, EventsComeAtTheirTimesWhateverTheSteps) {
  for (const uint64_t StepUs : {7ull, 777ull, 1000000ull}) {
    const auto               pDevice = MakeDevice("F103", "--rdp 1 --flash full");
    std::vector<std::string> Events;
    pDevice->OnEvent = [&](uint64_t AtUs, const std::string& sText) {
      Events.push_back(std::to_string(AtUs) + " " + sText);
    };
    StartOptionErase(pDevice.get());
    while (pDevice->NowUs() < 20000) {
      pDevice->AdvanceTo(std::min<uint64_t>(pDevice->NowUs() + StepUs, 20000));
    }
    EXPECT_TRUE(pDevice->Write(0x40022010, 4, 0x210));
    EXPECT_TRUE(pDevice->Write(0x1FFFF800, 2, 0xA5));
    while (pDevice->NowUs() < 50000) {
      pDevice->AdvanceTo(pDevice->NowUs() + StepUs);
    }
    const std::vector<std::string> Expected = {
        "0 option bytes: erase starts, 20 ms", "20000 option bytes: erase done",
        "20000 mass erase starts, 20 ms", "40000 program word starts, 53 us",
        "40053 program word done"};
    EXPECT_EQ(Expected, Events) << StepUs;
    EXPECT_EQ(sim::FOREVER, pDevice->Flash().TimeLeftUs());
  }
}

TEST(SimDevice, TheBusSaysHowLongAnAccessWaits) {
  const auto pDevice = MakeDevice("F103", "--flash full");
  EXPECT_EQ(0u, pDevice->StallUs(0x08000000, false));
  StartOptionErase(pDevice.get());
  pDevice->AdvanceTo(5000);
  EXPECT_EQ(15000u, pDevice->StallUs(0x08000002, false));
  EXPECT_EQ(15000u, pDevice->StallUs(0x1FFFF800, true));
  EXPECT_EQ(0u, pDevice->StallUs(0x4002200C, false));  // the status register
  EXPECT_EQ(0u, pDevice->StallUs(0x20000000, true));
  EXPECT_EQ(0u, pDevice->StallUs(0xE0042000, false));
  EXPECT_EQ(0u, pDevice->StallUs(0x60000000, false));
  EXPECT_EQ(5000u, pDevice->NowUs());  // asking costs no time
  uint32_t Value = 0;
  EXPECT_TRUE(pDevice->Read(0x08000000, 4, &Value));
  EXPECT_EQ(20000u, pDevice->NowUs());
  EXPECT_EQ(15000u, pDevice->TakeStalledUs());
  EXPECT_EQ(0u, pDevice->TakeStalledUs());
  pDevice->Flash().HoldBusy(sim::FOREVER);
  EXPECT_TRUE(pDevice->Write(0x40022010, 4, 0x260));
  pDevice->AdvanceTo(60000);
  EXPECT_EQ(sim::FOREVER, pDevice->StallUs(0x08000000, false));
  EXPECT_FALSE(pDevice->Read(0x08000000, 4, &Value));
}

TEST(SimDevice, WhileResetIsHeldNothingRunsAndNothingAnswers) {
  const auto pDevice = MakeDevice("F103", "--rdp 1 --user 0xFE");  // WDG_SW 0
  uint32_t   Value   = 0;
  pDevice->HaltCore();
  EXPECT_EQ(sim::CORE_HALTED, pDevice->Core());
  pDevice->HoldReset("test");
  EXPECT_TRUE(pDevice->IsInReset());
  EXPECT_FALSE(pDevice->CoreHalted());
  EXPECT_TRUE(pDevice->DebugPortAnswers());
  EXPECT_FALSE(pDevice->Read(0x20000000, 4, &Value));
  EXPECT_FALSE(pDevice->Write(0x20000000, 4, 1));
  pDevice->AdvanceTo(5000000);
  EXPECT_EQ(0, pDevice->WatchdogResets());
  pDevice->ReleaseReset(true);
  EXPECT_FALSE(pDevice->IsInReset());
  EXPECT_TRUE(pDevice->CoreHalted());
  EXPECT_TRUE(pDevice->Read(0x20000000, 4, &Value));
  pDevice->AdvanceTo(5409999);
  EXPECT_EQ(0, pDevice->WatchdogResets());
  pDevice->AdvanceTo(5410000);
  EXPECT_EQ(1, pDevice->WatchdogResets());
  EXPECT_FALSE(pDevice->CoreHalted());
}

TEST(SimDevice, ACoreWithoutAProgramLocksUp) {
  EXPECT_EQ(sim::CORE_LOCKED_UP, MakeDevice("F103", "")->Core());
  EXPECT_EQ(sim::CORE_LOCKED_UP, MakeDevice("F103", "--rdp 1 --flash full")->Core());
  EXPECT_EQ(sim::CORE_RUNNING, MakeDevice("F103", "--flash full")->Core());
}

TEST(SimDevice, RunsAboveTheVoltageAtWhichItResets) {
  sim::Device Device(*sim::FindDevice("F103"));
  Device.SetVoltage(1699);
  EXPECT_FALSE(Device.IsPowered());
  Device.SetVoltage(1700);
  EXPECT_TRUE(Device.IsPowered());
  Device.SetVoltage(1699);
  EXPECT_FALSE(Device.IsPowered());
}

TEST(SimDevice, ADeviceWithoutPowerDoesNothing) {
  sim::Device Device(*sim::FindDevice("F103"));
  uint32_t    Value = 0;
  EXPECT_FALSE(Device.Read(0xE0042000, 4, &Value));
  EXPECT_FALSE(Device.Write(0x20000000, 4, 1));
  Device.SystemReset(true, "test");
  Device.HoldReset("test");
  Device.HaltCore();
  EXPECT_FALSE(Device.CoreHalted());
  EXPECT_FALSE(Device.IsInReset());
  Device.AdvanceTo(1000);
  EXPECT_EQ(1000u, Device.NowUs());
  Device.PowerOn();
  EXPECT_TRUE(Device.Write(0x20000000, 4, 1));
  Device.PowerOn();  // it is on already
  EXPECT_TRUE(Device.Read(0x20000000, 4, &Value));
  EXPECT_EQ(1u, Value);
}

// F103 with the watchdog started by its options: WDG_SW is bit 0 of the user byte.
static const STEPS_CASE aDeviceRules[] = {
    {"StayingBusyComesAfterWhatRunsOrRunsNext", "F103", "",
     "unlock hold:30000 hold:50000 hold:20000 CR=220 CR=260 wait:20ms OPTION_DATA:FFFFFFFF SR?1/1 "
     "wait:49999us SR?1/1 wait:1us SR?0/1 CR=260 wait:10ms hold:50000 wait:10ms SR?1/1 "
     "wait:49999us "
     "SR?1/1 wait:1us SR?0/1 CR=260 wait:20ms SR?0/1"},
    {"PowerOffForgetsToStayBusy", "F103", "",
     "hold:50000 power unlock CR=220 CR=260 wait:20ms SR?0/1"},
    {"AWatchdogThatNobodyFeedsResetsAgainAndAgain", "F103", "--rdp 1 --user 0xFE",
     "wait:409999us resets?0 wait:1us resets?1 wait:1230ms resets?4 wait:400ms run wait:409ms "
     "resets?4 wait:1ms resets?5"},
    {"AProgramThatRunsFeedsTheWatchdog", "F103", "--user 0xFE", "wait:5000ms resets?0"},
    {"ADeviceWithoutAProgramDoesNotFeedIt", "F103", "empty --user 0xFE", "wait:5000ms resets?12"},
    {"AHaltedCoreDoesNotFeedItAndRunsAfterItsReset", "F103", "--user 0xFE",
     "reset halted?1 wait:410ms resets?1 halted?0 wait:5000ms resets?1"},
    {"NothingIsAtOtherAddresses", "F103", "", "@60000000?! @60000000=1!"},
    {"EmptyAddressesAnswerWhereThatVariantIsChosen", "F103", "--variant unassigned_faults=0",
     "@60000000?0 @60000000=1 @60000000?0"},
    {"AnAddressBesideItsSizeFails", "F103", "",
     "@20000001?! @20000002=1! @20000001.2=1! @20000002.2=1"},
    {"AllThatOutlivesAConnectionIsSaved", "F103", "--rdp 1 --user 0xFE --variant timing_max=1",
     "DBGMCU_CR=100 reset unlock CR=230 save halted?1 CR?230 DBGMCU_CR?100 wait:5000ms resets?0 "
     "DBGMCU_CR=0 wait:410ms resets?1 unlock CR=220 CR=260 wait:39999us SR?1 wait:1us SR?20"},
    {"WhatRanIsGoneWhenPowerWasLost", "F103", "", "unlock CR=220 CR=260 wait:15ms power save SR?0"},
};
static const STEPS_WORDS DeviceWords = {
    {"unlock", "KEYR=45670123 KEYR=CDEF89AB OPTKEYR=45670123 OPTKEYR=CDEF89AB"}};
PLAY_CASES(SimDeviceRules, aDeviceRules, DeviceWords);

TEST(SimDevice, IsFoundByItsNameInAnyCaseWithOrWithoutTheMakersPrefix) {
  for (const char* sName : {"STM32F103", "stm32f103", "F103", "f103"}) {
    ASSERT_NE(nullptr, sim::FindDevice(sName)) << sName;
    EXPECT_STREQ("STM32F103", sim::FindDevice(sName)->pFacts->sName);
  }
  EXPECT_EQ(nullptr, sim::FindDevice("F10"));
  EXPECT_EQ(nullptr, sim::FindDevice(""));
  EXPECT_EQ(std::size(silicon::apDevices), sim::AllDevices().size());
}

// -- Verdict

TEST(SimVerdict, EveryDeviceIsDeliveredAtFactoryState) {
  for (const sim::DEVICE_ROW* pRow : sim::AllDevices()) {
    const auto pDevice = MakeDevice(pRow->pFacts->sName, "");
    EXPECT_EQ(std::vector<std::string>(), sim::Judge(*pDevice).Differences) << pDevice->Name();
    EXPECT_NE(0u, sim::Judge(*pDevice).Fields.size());
  }
}

TEST(SimVerdict, NamesWhatDiffers) {
  const struct {
    const char*              sState;
    std::vector<std::string> Differences;
  } aRows[] = {
      {"--rdp 1", {"OPTION_RDP_USER.RDP is 0, not A5", "protection level 1 in force"}},
      {"--wrp 3", {"OPTION_WRP01.WRP0 is F7, not FF"}},
      {"--user 0xFE --option DATA1=0x12",
       {"OPTION_RDP_USER.WDG_SW is 0, not 1", "OPTION_DATA.DATA1 is 12, not FF"}},
      {"--mismatch WRP2", {"OPTION_WRP23 has a wrong complement", "OPTERR is set"}},
      {"--flash full", {"flash in use"}},
  };
  for (const auto& [sState, Differences] : aRows) {
    EXPECT_EQ(Differences, sim::Judge(*MakeDevice("F103", sState)).Differences) << sState;
  }
}

TEST(SimVerdict, WhatIsStoredButNotInForceIsNotFactoryState) {
  const auto pDevice = MakeDevice("F051", "--wrp 0");
  StartOptionErase(pDevice.get());
  EXPECT_EQ((std::vector<std::string>{"OPTION_WRP01.WRP0 is FE, not FF",
                                      "option bytes: erase is running"}),
            sim::Judge(*pDevice).Differences);
  pDevice->AdvanceTo(20000);
  EXPECT_TRUE(pDevice->Write(0x40022010, 4, 0x210));
  EXPECT_TRUE(pDevice->Write(0x1FFFF800, 2, 0xAA));
  pDevice->AdvanceTo(30000);
  EXPECT_EQ(std::vector<std::string>{"OPTION_WRP01.WRP0 is FF and FE in force"},
            sim::Judge(*pDevice).Differences);
  pDevice->PowerOff();
  pDevice->PowerOn();
  EXPECT_TRUE(sim::Judge(*pDevice).AtFactory());
}

// -- Trace

TEST(SimTrace, AccessesAreDescribedByNameValueAndFields) {
  const auto pDevice  = MakeDevice("F303", "");
  const auto Describe = [&](uint32_t Address, uint32_t Size, uint32_t Value) {
    return sim::DescribeAccess(pDevice.get(), Address, Size, Value);
  };
  EXPECT_EQ("FLASH_CR = 0x00002260  OPTER STRT OPTWRE OBL_LAUNCH", Describe(0x40022010, 4, 0x2260));
  EXPECT_EQ("FLASH_CR = 0x2260", Describe(0x40022010, 2, 0x2260));
  EXPECT_EQ("OPTION_DATA = 0xED12FF00  DATA0=00 DATA1=12", Describe(0x1FFFF804, 4, 0xED12FF00));
  EXPECT_EQ("FLASH_KEYR = 0x45670123  KEY1", Describe(0x40022004, 4, 0x45670123));
  EXPECT_EQ("FLASH_OPTKEYR = 0xCDEF89AB  KEY2", Describe(0x40022008, 4, 0xCDEF89AB));
  EXPECT_EQ("FLASH_KEYR = 0x00000000  a wrong key", Describe(0x40022004, 4, 0));
  EXPECT_EQ("[0x20000000] = 0x00000001", Describe(0x20000000, 4, 1));
  EXPECT_EQ("[0x40022010] = 0x00000001", sim::DescribeAccess(nullptr, 0x40022010, 4, 1));
  EXPECT_EQ("DBGMCU_IDCODE", sim::NameOf(pDevice.get(), 0xE0042000));
}

// -- Requests

TEST(SimRequest, SectorsOfABankAreAreas) {
  using AREAS = std::vector<std::pair<uint32_t, uint32_t>>;
  const struct {
    sim::SECTORS Sectors;
    AREAS        Areas;
  } aRows[] = {{{.All = true}, {{0, 7}}},
               {{.List = {8}}, {{0, 0}}},
               {{.List = {10, 9, 15}}, {{1, 2}, {7, 7}}},
               {{.List = {9, 10, 3}}, {{1, 2}}},
               {{.List = {15, 14}}, {{6, 7}}},
               {{.List = {3, 16}}, {}}};
  for (const auto& [Sectors, Areas] : aRows) {
    AREAS Found;
    for (const sim::SECTOR_AREA& Area : Sectors.AreasInBank(8, 8)) {
      Found.emplace_back(Area.First, Area.Last);
    }
    EXPECT_EQ(Areas, Found);
  }
  EXPECT_EQ(0x801u, (sim::SECTORS{.List = {0, 11}}.Mask(12)));
  EXPECT_EQ(0xFFFu, sim::SECTORS{.All = true}.Mask(12));
  EXPECT_EQ(0xFFFFFFFFu, sim::SECTORS{.All = true}.Mask(32));
}

TEST(SimRequest, IsReadAsOnACommandLine) {
  sim::CREATE_REQUEST Request;
  std::string         sError;
  const std::string   sText = "--rdp 1 --wrp 0-2,7 --secure --user 0x10 --option A=2 --mismatch B";
  ASSERT_TRUE(sim::ParseRequest(sim::SplitWords(sText), &Request, &sError));
  EXPECT_EQ(1u, Request.Level);
  EXPECT_FALSE(Request.Rdp);
  EXPECT_EQ((std::vector<uint32_t>{0, 1, 2, 7}), Request.Wrp.List);
  EXPECT_TRUE(Request.Secure);
  EXPECT_EQ(0x10u, Request.User);
  EXPECT_EQ("A", Request.Options[0].first);
  EXPECT_EQ(2u, Request.Options[0].second);
  EXPECT_EQ(std::vector<std::string>{"B"}, Request.Mismatches);
  const std::string sAgain = "--rdp 0x55 --rdp 0 --wrp 3 --wrp none --pcrop all --pcrop 4";
  ASSERT_TRUE(
      sim::ParseRequest(sim::SplitWords(sAgain), &Request, &sError));  // the last one counts
  EXPECT_EQ(0u, Request.Level);
  EXPECT_FALSE(Request.Rdp);
  EXPECT_TRUE(Request.Wrp.IsEmpty());
  EXPECT_FALSE(Request.Pcrop.All);
  EXPECT_EQ(std::vector<uint32_t>{4}, Request.Pcrop.List);
  const char* const aWrong[][2] = {
      {"--rdp", "--rdp: a value is missing"},
      {"--rdp 3", "\"3\" is no value for --rdp"},
      {"--rdp 0x100", "\"0x100\" is no value for --rdp"},
      {"--wrp 5-2", "\"5-2\" is no value for --wrp"},
      {"--wrp 4096", "\"4096\" is no value for --wrp"},
      {"--pcrop-rdp 2", "\"2\" is no value for --pcrop-rdp"},
      {"--option A", "\"A\" is no value for --option"},
      {"--variant x=y", "\"x=y\" is no value for --variant"},
      {"--eeprom half", "\"half\" is no value for --eeprom"},
      {"--wings 2", "unknown option --wings"},
  };
  for (const auto& [sWrong, sExpected] : aWrong) {
    EXPECT_FALSE(sim::ParseRequest(sim::SplitWords(sWrong), &Request, &sError)) << sWrong;
    EXPECT_EQ(sExpected, sError);
  }
}
