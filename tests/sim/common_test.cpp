// What all devices share: registers and locks as tables, memories, time, power, watchdog, texts.

#include <algorithm>

#include "sim/clock.h"
#include "sim/registers.h"
#include "sim/trace.h"
#include "tests/sim/part.h"

// -- Registers

static const sim::REGISTER aTable[] = {
    {"REG_A", 0x40000000, 0x80000011, 0x0000FF00, 0x0000000F, 0x00000010, "FLAG 0, WIDE 11:4"},
    {"REG_B", 0x40000004, 0, 0xFFFFFFFF, 0, 0, "ALL 31:0"},
};

TEST(SimRegisters, AWriteDoesToEachBitWhatItsMaskSays) {
  sim::RegisterFile File(aTable);
  EXPECT_EQ(2, File.Count());
  EXPECT_EQ(0, File.Find(0x40000000));
  EXPECT_EQ(1, File.Find(0x40000004));
  EXPECT_EQ(-1, File.Find(0x40000008));
  EXPECT_EQ(0x80000011u, File[0]);
  File.Write(0, 0x0000A500);
  EXPECT_EQ(0x8000A511u, File[0]);  // what writing 1 clears or sets, writing 0 leaves alone
  File.Write(0, 0xFFFF5A01);
  EXPECT_EQ(0x80005A10u, File[0]);
  File[0] = 0;
  File.Write(0, 0x00000010);
  EXPECT_EQ(0x10u, File[0]);
  File.ResetAll();
  EXPECT_EQ(0x80000011u, File[0]);
}

TEST(SimRegisters, FieldsAreDecodedAsAPersonReadsThem) {
  const std::vector<sim::FIELD> Fields = sim::ParseFields("FLAG 0, WIDE 11:4, ALL 31:0");
  ASSERT_EQ(3u, Fields.size());
  EXPECT_EQ("WIDE", Fields[1].sName);
  EXPECT_EQ(4u, Fields[1].Lsb);
  EXPECT_EQ(8u, Fields[1].Width);
  EXPECT_EQ(0x00000FF0u, Fields[1].Mask());
  EXPECT_EQ(0xABu, Fields[1].Get(0xFFFFFABF));
  EXPECT_EQ(0xFFFFFFFFu, Fields[2].Mask());
  EXPECT_TRUE(sim::ParseFields("").empty());
  EXPECT_EQ("FLAG WIDE=AB", sim::DecodeFields("FLAG 0, WIDE 11:4", 0xAB1));
  EXPECT_EQ("WIDE=00", sim::DecodeFields("FLAG 0, WIDE 11:4", 0));
  EXPECT_EQ("ODD=1F", sim::DecodeFields("ODD 4:0", 0xFF));
  EXPECT_EQ("", sim::DecodeFields("FLAG 0", 2));
}

TEST(SimRegisters, TwoKeysInOrderOpenALockAndAnythingElseKillsIt) {
  sim::KeyLock Lock(1, 2);
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
  Lock.ThirdKeyKills = true;
  EXPECT_TRUE(Lock.WriteKey(1));
  EXPECT_TRUE(Lock.WriteKey(2));
  EXPECT_FALSE(Lock.WriteKey(1));
  EXPECT_FALSE(Lock.IsOpen());
}

// -- Memory

static const sim::MEMORY_ROW Rom = {"rom", 0x1000, 256, sim::MAIN_FLASH, 0xFFFFFFFF};

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
  const std::vector<std::pair<std::string, std::string>> Expected = {
      {"memory.rom.0x00001000", "00000001 00000002"},
      {"memory.rom.0x00001010", "8 x 0000ABCD"},
      {"memory.rom.0x00001040",
       "00000000 00000001 00000002 00000003 00000004 00000005 00000006 00000007"},
      {"memory.rom.0x00001060", "00000008"},
  };
  EXPECT_EQ(Expected, File.Lines());
  sim::Memory Again(Rom);
  for (const auto& [sKey, sValue] : File.Lines()) {
    EXPECT_TRUE(Again.LoadLine(sKey.substr(11), sValue));
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
                             "1234567890123456789", "0x12345678901234567"}) {
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

TEST(SimDevice, EventsComeAtTheirTimesWhateverTheSteps) {
  for (const uint64_t StepUs : {1ull, 777ull, 1000000ull, 100000000ull}) {
    Part                     Device("STM32F407", AtLevel(1));
    std::vector<std::string> Events;
    Device.Device.OnEvent = [&](const std::string& sText) { Events.push_back(sText); };
    Device.Write(0x40023C08, 0x08192A3B);
    Device.Write(0x40023C08, 0x4C5D6E7F);
    Device.Write(0x40023C14, 0x0FFFAAEE);
    const uint64_t Last = StepUs == 1 ? 3 : 16400000;  // a few of the smallest steps do
    while (Device.Device.NowUs() < Last) {
      Device.Device.AdvanceTo(Device.Device.NowUs() + StepUs);
    }
    if (StepUs == 1) {
      EXPECT_EQ(16000000u - 3, Device.Device.Flash().TimeLeftUs());
      continue;
    }
    const std::vector<std::string> Expected = {
        "mass erase starts, 16000 ms", "option bytes: erase starts, 250 ms",
        "option bytes: program starts, 150 ms", "option bytes: program done"};
    EXPECT_EQ(Expected, Events) << StepUs;
    EXPECT_EQ(sim::FOREVER, Device.Device.Flash().TimeLeftUs());
  }
}

TEST(SimDevice, StayingBusyComesBehindWhatRunsOrRunsNext) {
  for (const bool Before : {true, false}) {
    Part Device("STM32F407");
    Device.Write(0x40023C08, 0x08192A3B);
    Device.Write(0x40023C08, 0x4C5D6E7F);
    if (Before) {
      Device.Device.Flash().HoldBusy(30000);
      Device.Device.Flash().HoldBusy(50000);  // the longer one counts
      Device.Device.Flash().HoldBusy(20000);
    }
    Device.Write(0x40023C14, 0x0FF0AAEE);
    if (!Before) {
      Device.Wait(10);
      Device.Device.Flash().HoldBusy(50000);
    }
    Device.Device.AdvanceTo(400000);
    EXPECT_EQ(0x0FF0AAECu, Device.Stored(0));
    EXPECT_TRUE(Device.Device.Flash().Busy());
    Device.Device.AdvanceTo(449999);
    EXPECT_TRUE(Device.Device.Flash().Busy());
    Device.Device.AdvanceTo(450000);
    EXPECT_FALSE(Device.Device.Flash().Busy());
    Device.Write(0x40023C14, 0x0FFFAAEE);  // once is enough
    Device.Device.AdvanceTo(850000);
    EXPECT_FALSE(Device.Device.Flash().Busy());
  }
  Part Device("STM32F407");
  Device.Device.Flash().HoldBusy(50000);
  Device.PowerCycle();  // forgotten
  Device.Write(0x40023C08, 0x08192A3B);
  Device.Write(0x40023C08, 0x4C5D6E7F);
  Device.Write(0x40023C14, 0x0FF0AAEE);
  Device.Wait(400);
  EXPECT_FALSE(Device.Device.Flash().Busy());
}

// -- Watchdog

static sim::CREATE_REQUEST Watched(uint32_t Level) {
  sim::CREATE_REQUEST Request = AtLevel(Level);
  Request.User                = 0xCC;  // WDG_SW 0
  return Request;
}

TEST(SimDevice, AWatchdogThatNobodyFeedsResetsEvery512Milliseconds) {
  Part Device("STM32F407", Watched(1));
  Device.Wait(511);
  EXPECT_EQ(0, Device.Device.WatchdogResets());
  Device.Wait(1);
  EXPECT_EQ(1, Device.Device.WatchdogResets());
  Device.Wait(512 * 3);
  EXPECT_EQ(4, Device.Device.WatchdogResets());
  Device.Wait(500);
  Device.Device.SystemReset(false, "test");  // starts it anew
  Device.Wait(511);
  EXPECT_EQ(4, Device.Device.WatchdogResets());
  Device.Device.PowerOff();
  Device.Wait(5000);
  EXPECT_EQ(4, Device.Device.WatchdogResets());
}

TEST(SimDevice, AProgramThatRunsFeedsTheWatchdog) {
  Part Running("STM32F407", Watched(0));
  Running.Wait(5000);
  EXPECT_EQ(0, Running.Device.WatchdogResets());
  Part Empty("STM32F407", Watched(0), false);  // nothing to run
  Empty.Wait(5000);
  EXPECT_EQ(9, Empty.Device.WatchdogResets());
  Part Halted("STM32F407", Watched(0));  // not running
  Halted.Reset();
  EXPECT_TRUE(Halted.Device.CoreHalted());
  Halted.Wait(512);
  EXPECT_EQ(1, Halted.Device.WatchdogResets());
  EXPECT_FALSE(Halted.Device.CoreHalted());  // by that reset it runs
  Halted.Wait(5000);
  EXPECT_EQ(1, Halted.Device.WatchdogResets());
  Part Software("STM32F407");
  Software.Reset();
  Software.Wait(5000);
  EXPECT_EQ(0, Software.Device.WatchdogResets());
}

TEST(SimDevice, AFreezeBitStopsTheWatchdogOnlyWhileTheCoreIsHalted) {
  Part Device("STM32F407", Watched(1));
  Device.Write(0xE0042008, 1u << 12);
  Device.Wait(512);
  EXPECT_EQ(1, Device.Device.WatchdogResets());
  Device.Reset();
  Device.Wait(5000);
  EXPECT_EQ(1, Device.Device.WatchdogResets());
  Device.Write(0xE0042008, 1u << 11);  // the window watchdog's
  Device.Wait(512);
  EXPECT_EQ(2, Device.Device.WatchdogResets());
}

// -- Power and state

TEST(SimDevice, ADeviceWithoutPowerDoesNothing) {
  sim::Device Device(*sim::FindDevice("STM32F407"));
  uint32_t    Value = 0;
  EXPECT_FALSE(Device.Read(0xE0042000, 4, &Value));
  EXPECT_FALSE(Device.Write(0x20000000, 4, 1));
  Device.SystemReset(true, "test");
  EXPECT_FALSE(Device.CoreHalted());
  Device.AdvanceTo(1000);
  EXPECT_EQ(1000u, Device.NowUs());
  Device.PowerOn();
  EXPECT_TRUE(Device.Write(0x20000000, 4, 1));
  Device.PowerOn();  // it is on already
  EXPECT_TRUE(Device.Read(0x20000000, 4, &Value));
  EXPECT_EQ(1u, Value);
}

TEST(SimDevice, NothingIsAtOtherAddressesUnlessTheVariantSaysSo) {
  Part Device("STM32F407");
  EXPECT_FALSE(Device.CanRead(0x60000000));
  EXPECT_FALSE(Device.TryWrite(0x60000000, 1));
  EXPECT_TRUE(Device.Device.SetVariant("unassigned_faults", 0));
  EXPECT_EQ(0u, Device.Read(0x60000000));
  EXPECT_TRUE(Device.TryWrite(0x60000000, 1));
  EXPECT_EQ(0u, Device.Read(0x60000000));
  EXPECT_FALSE(Device.Device.SetVariant("no_such_variant", 0));
}

TEST(SimDevice, AllThatOutlivesAConnectionIsSaved) {
  Part Device("STM32F407", Watched(1));
  EXPECT_TRUE(Device.Device.SetVariant("timing_max", 1));
  Device.Write(0xE0042008, 0x1800);
  Device.Reset();
  Device.Write(0x40023C08, 0x08192A3B);
  Device.Write(0x40023C08, 0x4C5D6E7F);
  Device.Write(0x40023C14, 0x0FFF55EC);
  sim::KeyFile File;
  Device.Device.SaveTo(&File);
  sim::Device Again(*sim::FindDevice("STM32F407"));
  std::string sError;
  ASSERT_TRUE(Again.LoadFrom(File, &sError)) << sError;
  EXPECT_TRUE(Again.IsPowered());
  EXPECT_TRUE(Again.CoreHalted());
  EXPECT_EQ(1u, Again.Variant(sim::TIMING_MAX));
  uint32_t Value = 0;
  EXPECT_TRUE(Again.Read(0x40023C14, 4, &Value));
  EXPECT_EQ(0x0FFF55ECu, Value);
  EXPECT_TRUE(Again.Read(0xE0042008, 4, &Value));
  EXPECT_EQ(0x1800u, Value);
  Again.AdvanceTo(5000000);  // halted and frozen
  EXPECT_EQ(0, Again.WatchdogResets());
  EXPECT_TRUE(Again.Write(0xE0042008, 4, 0));
  Again.AdvanceTo(5512000);  // and the watchdog is there
  EXPECT_EQ(1, Again.WatchdogResets());
}

TEST(SimDevice, WhatRanIsFinishedWhenItIsLoadedUnlessPowerWasLost) {
  Part Device("STM32H743", {}, false);
  Device.Write(0x52002004, 0x45670123);
  Device.Write(0x52002004, 0xCDEF89AB);
  Device.Write(0x5200200C, 0x32);
  Device.Write(0x08000044, 0xCAFEBABE);
  Device.Write(0x5200200C, 0x72);
  sim::KeyFile Running, Off;
  Device.Device.SaveTo(&Running);
  Device.Device.PowerOff();
  Device.Device.SaveTo(&Off);
  for (const sim::KeyFile* pFile : {&Running, &Off}) {
    sim::Device Again(*sim::FindDevice("STM32H743"));
    std::string sError;
    ASSERT_TRUE(Again.LoadFrom(*pFile, &sError)) << sError;
    EXPECT_FALSE(Again.Flash().Busy());
    EXPECT_EQ(pFile == &Running ? 0xCAFEBABE : 0xFFFFFFFF,
              Again.FindMemory(sim::MAIN_FLASH)->WordAt(0x08000044));
    EXPECT_EQ(pFile == &Running, Again.IsPowered());
    uint32_t Control = 0;
    EXPECT_EQ(pFile == &Running, Again.Read(0x5200200C, 4, &Control));
    EXPECT_EQ(pFile == &Running ? 0x32u : 0u, Control);  // FW went when it was done
  }
}

TEST(SimDevice, IsFoundByItsNameInAnyCaseWithOrWithoutTheMakersPrefix) {
  for (const char* sName : {"STM32F407", "stm32f407", "F407", "f407"}) {
    ASSERT_NE(nullptr, sim::FindDevice(sName)) << sName;
    EXPECT_STREQ("STM32F407", sim::FindDevice(sName)->sName);
  }
  EXPECT_EQ(nullptr, sim::FindDevice("F40"));
  EXPECT_EQ(nullptr, sim::FindDevice(""));
  EXPECT_EQ(17u, sim::AllDevices().size());
}

TEST(SimDevice, SectorListsAreCheckedAndBecomeMasks) {
  std::string sError;
  EXPECT_TRUE(sim::CheckSectors({0, 11}, 12, &sError));
  EXPECT_FALSE(sim::CheckSectors({0, 12}, 12, &sError));
  EXPECT_EQ("sector 12: this device has sectors 0 to 11", sError);
  EXPECT_FALSE(sim::CheckSectors({0}, 0, &sError));
  EXPECT_EQ("this device has no such protection", sError);
  EXPECT_EQ(0x801u, sim::SectorMask({0, 11}, false, 12));
  EXPECT_EQ(0xFFFu, sim::SectorMask({}, true, 12));
  EXPECT_EQ(0xFFFFFFFFu, sim::SectorMask({}, true, 32));
}

// -- Trace

TEST(SimTrace, AccessesAreDescribedByNameValueAndFields) {
  Part Device("STM32F407");
  EXPECT_EQ(
      "FLASH_OPTCR = 0x0FFFAAEE  OPTSTRT BOR_LEV=3 WDG_SW nRST_STOP nRST_STDBY RDP=AA "
      "nWRP=FFF",
      sim::DescribeAccess(&Device.Device, 0x40023C14, 4, 0x0FFFAAEE));
  EXPECT_EQ("FLASH_OPTCR = 0xAAEE", sim::DescribeAccess(&Device.Device, 0x40023C14, 2, 0xAAEE));
  EXPECT_EQ("FLASH_KEYR = 0x45670123  KEY1",
            sim::DescribeAccess(&Device.Device, 0x40023C04, 4, 0x45670123));
  const struct {
    uint32_t    Key;
    const char* sName;
  } aKeys[] = {{0x45670123, "KEY1"},    {0xCDEF89AB, "KEY2"},   {0x08192A3B, "OPTKEY1"},
               {0x4C5D6E7F, "OPTKEY2"}, {0x89ABCDEF, "PEKEY1"}, {0x02030405, "PEKEY2"},
               {0xFBEAD9C8, "OPTKEY1"}, {0x24252627, "OPTKEY2"}};
  for (const auto& [Key, sName] : aKeys) {
    EXPECT_EQ(sim::Format("FLASH_OPTKEYR = 0x%08X  %s", Key, sName),
              sim::DescribeAccess(&Device.Device, 0x40023C08, 4, Key));
  }
  EXPECT_EQ("FLASH_KEYR = 0x00000000  a wrong key",
            sim::DescribeAccess(&Device.Device, 0x40023C04, 4, 0));
  EXPECT_EQ("[0x20000000] = 0x00000001", sim::DescribeAccess(&Device.Device, 0x20000000, 4, 1));
  EXPECT_EQ("[0x40023C14] = 0x00000001", sim::DescribeAccess(nullptr, 0x40023C14, 4, 1));
  EXPECT_EQ("DBGMCU_IDCODE", sim::NameOf(&Device.Device, 0xE0042000));
}
