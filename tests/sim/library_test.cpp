// SPDX-License-Identifier: MIT

// The probe library as its callers meet it: opened by name, driven through its 16 functions.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>

#include "sim/bench.h"
#include "sim/catalog.h"
#include "sim/clock.h"
#include "sim/request.h"
#include "sim/text.h"

static const char* const aOperations[] = {
    "QUOBEARM_IsOpen",      "QUOBEARM_SelectIP",     "QUOBEARM_EMU_SelectByUSBSN",
    "QUOBEARM_Open",        "QUOBEARM_Close",        "QUOBEARM_ExecCommand",
    "QUOBEARM_TIF_Select",  "QUOBEARM_SetSpeed",     "QUOBEARM_GetSpeed",
    "QUOBEARM_GetHWStatus", "QUOBEARM_SetResetType", "QUOBEARM_SetResetDelay",
    "QUOBEARM_Reset",       "QUOBEARM_ReadMemU32",   "QUOBEARM_WriteU32",
    "QUOBEARM_WriteU16"};

class SimLibrary : public ::testing::Test {
 protected:
  void SetUp() override {
    sDirectory_ = ::testing::TempDir() + "quobe-sim-" + std::to_string(getpid()) + "-" +
                  ::testing::UnitTest::GetInstance()->current_test_info()->name();
    setenv("QUOBE_BENCH", sDirectory_.c_str(), 1);
    setenv("QUOBE_BENCH_TIME", "fast", 1);
    setenv("QUOBE_BENCH_TRACE", (sDirectory_ + ".trace").c_str(), 1);
    bench_.reset(new sim::Bench);
    pLibrary_ = dlopen(QUOBE_SIM_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(nullptr, pLibrary_) << dlerror();
  }
  void TearDown() override {
    if (pLibrary_ != nullptr) {
      Call<void (*)()>("QUOBEARM_Close")();
      dlclose(pLibrary_);
    }
    const std::string sCommand = "rm -rf '" + sDirectory_ + "' '" + sDirectory_ + ".trace'";
    EXPECT_EQ(0, system(sCommand.c_str()));
  }

  template <typename FUNCTION>
  FUNCTION Call(const char* sName) {
    return reinterpret_cast<FUNCTION>(dlsym(pLibrary_, sName));
  }

  const char* Open() { return Call<const char* (*)()>("QUOBEARM_Open")(); }
  uint32_t    IsOpen() { return Call<uint32_t (*)()>("QUOBEARM_IsOpen")(); }
  void        Close() { Call<void (*)()>("QUOBEARM_Close")(); }
  void        SelectSerial(uint32_t SerialNo) {
           Call<int32_t (*)(uint32_t)>("QUOBEARM_EMU_SelectByUSBSN")(SerialNo);
  }
  uint32_t SelectIP(const char* sHost) {
    return Call<uint32_t (*)(const char*, int32_t)>("QUOBEARM_SelectIP")(sHost, 0);
  }
  std::string Command(const char* sCommand, int32_t Size = 4000) {
    char acError[4001];
    memset(acError, '#', sizeof(acError));
    Call<int32_t (*)(const char*, char*, int32_t)>("QUOBEARM_ExecCommand")(sCommand, acError, Size);
    EXPECT_EQ('#', acError[Size]);
    return acError;
  }
  void     Swd() { Call<int32_t (*)(int32_t)>("QUOBEARM_TIF_Select")(1); }
  uint32_t Speed(uint32_t Wanted) {
    Call<void (*)(uint32_t)>("QUOBEARM_SetSpeed")(Wanted);
    return Call<uint32_t (*)()>("QUOBEARM_GetSpeed")();
  }
  uint32_t Voltage() {
    unsigned char abRecord[512] = {};
    Call<int32_t (*)(void*)>("QUOBEARM_GetHWStatus")(abRecord);
    return abRecord[0] | static_cast<uint32_t>(abRecord[1]) << 8;
  }
  int32_t Read(uint32_t Address, uint32_t* pValue) {
    return Call<int32_t (*)(uint32_t, uint32_t, uint32_t*, uint8_t*)>("QUOBEARM_ReadMemU32")(
        Address, 1, pValue, nullptr);
  }
  void Write(uint32_t Address, uint32_t Value) {
    Call<int32_t (*)(uint32_t, uint32_t)>("QUOBEARM_WriteU32")(Address, Value);
  }
  void Reset() { Call<int32_t (*)()>("QUOBEARM_Reset")(); }

  // On an F4: option keys, then the value; and until that is done, the number of polls.
  void StartOptions(uint32_t Optcr) {
    Write(0x40023C08, 0x08192A3B);
    Write(0x40023C08, 0x4C5D6E7F);
    Write(0x40023C14, Optcr);
  }
  int PollUntilReady() {
    uint32_t Status   = 0;
    int      NumPolls = 0;
    do {
      EXPECT_GE(Read(0x40023C0C, &Status), 0);
      NumPolls++;
    } while ((Status & 0x10000) && NumPolls < 100);
    EXPECT_LT(NumPolls, 100);
    return NumPolls;
  }

  // A probe with a device on it.
  void Put(const sim::PROBE_SETTINGS& Probe, const char* sDevice, const char* sState = "") {
    sim::Device         Target(*sim::FindDevice(sDevice));
    sim::CREATE_REQUEST Request;
    std::string         sError;
    ASSERT_TRUE(sim::ParseRequest(sim::SplitWords(sState), &Request, &sError)) << sError;
    ASSERT_TRUE(sim::Prepare(&Target, Request, &sError)) << sError;
    sim::FillFlash(&Target, 4096);
    ASSERT_TRUE(bench_->SaveProbe(Probe, &sError)) << sError;
    ASSERT_TRUE(bench_->SaveDevice(Probe, Target, sim::LINK(), &sError)) << sError;
  }
  static sim::PROBE_SETTINGS Probe(uint32_t SerialNo) {
    sim::PROBE_SETTINGS Each;
    Each.SerialNo = SerialNo;
    return Each;
  }
  static sim::PROBE_SETTINGS WithFault(const char* sFault) {
    sim::PROBE_SETTINGS Each = Probe(1);
    Each.Faults              = {sFault};
    return Each;
  }
  uint32_t IdCode() {
    uint32_t Value = 0;
    Swd();
    return Read(0xE0042000, &Value) < 0 ? 0 : Value & 0xFFF;
  }
  std::string TraceText() {
    std::ifstream     File(sDirectory_ + ".trace");
    std::stringstream Text;
    Text << File.rdbuf();
    return Text.str();
  }

  std::string                 sDirectory_;
  std::unique_ptr<sim::Bench> bench_;
  void*                       pLibrary_ = nullptr;
};

TEST_F(SimLibrary, HasThe16Operations) {
  for (const char* sName : aOperations) {
    EXPECT_NE(nullptr, dlsym(pLibrary_, sName)) << sName;
  }
}

TEST_F(SimLibrary, CallsWithoutAConnectionDoNoHarm) {
  uint32_t Value = 0x5A5A5A5A;
  EXPECT_EQ(0u, IsOpen());
  EXPECT_LT(Read(0xE0042000, &Value), 0);
  EXPECT_EQ(0x5A5A5A5Au, Value);
  Write(0x20000000, 1);
  Reset();
  EXPECT_EQ(0u, Voltage());
  EXPECT_EQ("Not connected to a probe", Command("device = Cortex-M4"));
  Close();
}

TEST_F(SimLibrary, AnEmptyBenchHasOneDefaultDevice) {
  EXPECT_EQ(nullptr, Open());
  EXPECT_EQ(1u, IsOpen());
  EXPECT_EQ(0x413u, IdCode());
  Close();
  EXPECT_EQ(0u, IsOpen());
}

TEST_F(SimLibrary, TheProbeIsChosenBySerialNumberByAddressOrByDefault) {
  sim::PROBE_SETTINGS First = Probe(11), Second = Probe(22), Third = Probe(33);
  First.sIP       = "192.168.0.11";
  Third.IsDefault = true;
  Put(First, "STM32F103");
  Put(Second, "STM32F407");
  Put(Third, "STM32F429");
  EXPECT_EQ(nullptr, Open());
  EXPECT_EQ(0x419u, IdCode());
  Close();
  SelectSerial(22);
  EXPECT_EQ(nullptr, Open());
  EXPECT_EQ(0x413u, IdCode());
  Close();
  EXPECT_NE(0u, SelectIP("192.168.0.99"));
  EXPECT_EQ(0u, SelectIP("192.168.0.11"));
  EXPECT_EQ(nullptr, Open());
  EXPECT_EQ(0x410u, IdCode());
}

TEST_F(SimLibrary, ASerialNumberThatIsNotThereShowsWhenOpening) {
  Put(Probe(11), "STM32F103");
  SelectSerial(12);
  const char* sError = Open();
  ASSERT_NE(nullptr, sError);
  EXPECT_NE(std::string::npos, std::string(sError).find("12"));
  EXPECT_EQ(0u, IsOpen());
}

TEST_F(SimLibrary, AProbeInUseCannotBeOpenedAgain) {
  Put(Probe(1), "STM32F103");
  int aReady[2], aDone[2];
  ASSERT_EQ(0, pipe(aReady));
  ASSERT_EQ(0, pipe(aDone));
  const pid_t Other = fork();
  if (Other == 0) {
    close(aDone[1]);  // so that it ends with the test, however that ends
    std::string sError;
    char        Byte = bench_->Lock(Probe(1), &sError) >= 0 ? 'y' : 'n';
    const bool  Told = write(aReady[1], &Byte, 1) == 1 && read(aDone[0], &Byte, 1) == 1;
    _exit(Told ? 0 : 1);
  }
  char Byte = 'n';
  ASSERT_EQ(1, read(aReady[0], &Byte, 1));
  EXPECT_EQ('y', Byte);
  const char* sText = Open();
  ASSERT_NE(nullptr, sText);
  EXPECT_NE(std::string::npos, std::string(sText).find("in use"));
  ASSERT_EQ(1, write(aDone[1], &Byte, 1));
  int Status = -1;
  ASSERT_EQ(Other, waitpid(Other, &Status, 0));
  EXPECT_EQ(0, Status);
  EXPECT_EQ(nullptr, Open());
  for (const int File : {aReady[0], aReady[1], aDone[0], aDone[1]}) {
    close(File);
  }
}

TEST_F(SimLibrary, SpeedIsLimitedByTheProbe) {
  sim::PROBE_SETTINGS Slow = Probe(1);
  Slow.MaxSpeed            = 2000;
  Put(Slow, "STM32F103");
  EXPECT_EQ(nullptr, Open());
  EXPECT_EQ(1000u, Speed(1000));
  EXPECT_EQ(2000u, Speed(50000));
  EXPECT_EQ(2000u, Speed(0));
  EXPECT_EQ(2000u, Speed(0xFFFF));
}

TEST_F(SimLibrary, UnknownCommandsAreAnsweredWithATextThatFitsTheBuffer) {
  Put(Probe(1), "STM32F103");
  EXPECT_EQ(nullptr, Open());
  EXPECT_EQ("", Command("device = Cortex-M3"));
  EXPECT_EQ("Unknown device \"Z80\"", Command("device = Z80"));
  EXPECT_EQ("Unknown command \"Dance\"", Command("Dance"));
  EXPECT_EQ("Unknown c", Command("Dance", 10));
  EXPECT_EQ("", Command("Dance", 1));
}

TEST_F(SimLibrary, AnUnpoweredTargetReadsNoVoltsUntilTheProbeSuppliesIt) {
  sim::PROBE_SETTINGS Unpowered = Probe(1);
  Unpowered.VTarget             = 0;
  Put(Unpowered, "STM32F103");
  EXPECT_EQ(nullptr, Open());
  EXPECT_EQ(0u, Voltage());
  EXPECT_EQ(0u, IdCode());
  EXPECT_EQ("", Command("SupplyPower = 1"));
  EXPECT_EQ(3300u, Voltage());
  EXPECT_EQ(0x410u, IdCode());
  Close();
  // Nobody asked for it to go off.
  EXPECT_EQ(nullptr, Open());
  EXPECT_EQ(3300u, Voltage());
  EXPECT_EQ("", Command("DisablePowerSupplyOnClose"));
  Close();
  EXPECT_EQ(nullptr, Open());
  EXPECT_EQ(0u, Voltage());
  // And that was for one connection.
  EXPECT_EQ("", Command("SupplyPower = 1"));
  Close();
  EXPECT_EQ(nullptr, Open());
  EXPECT_EQ(3300u, Voltage());
}

TEST_F(SimLibrary, ADeviceBelowItsSupplyRangeDoesNotAnswer) {
  sim::PROBE_SETTINGS Weak = Probe(1);
  Weak.VTarget             = 600;
  Put(Weak, "STM32F103");
  EXPECT_EQ(nullptr, Open());
  EXPECT_EQ(600u, Voltage());
  EXPECT_EQ(0u, IdCode());
}

TEST_F(SimLibrary, TheDeviceIsFoundAsItWasLeft) {
  Put(Probe(1), "STM32F407");
  EXPECT_EQ(nullptr, Open());
  Swd();
  StartOptions(0x0FF0AAEE);
  PollUntilReady();
  Close();
  EXPECT_EQ(nullptr, Open());
  uint32_t Value = 0;
  Swd();
  EXPECT_GE(Read(0x40023C14, &Value), 0);
  EXPECT_EQ(0x0FF0AAECu, Value);  // still unlocked: nobody reset it
}

TEST_F(SimLibrary, AResetIsKeptEvenIfTheProgramEndsThere) {
  Put(Probe(1), "STM32F407");
  EXPECT_EQ(nullptr, Open());
  Swd();
  StartOptions(0x0FF0AAEE);
  Reset();  // cuts the option write short
  std::unique_ptr<sim::Device> pDevice;
  sim::LINK                    Link;
  std::string                  sError;
  ASSERT_TRUE(bench_->LoadDevice(Probe(1), &pDevice, &Link, &sError)) << sError;
  uint32_t Value = 0;
  EXPECT_TRUE(pDevice->Read(0x40023C14, 4, &Value));
  EXPECT_EQ(0x0FFFFFEDu, Value);
  EXPECT_FALSE(pDevice->Flash().Busy());
}

TEST_F(SimLibrary, BackupMemoryIsKeptAtOnce) {
  Put(Probe(1), "STM32F407");
  EXPECT_EQ(nullptr, Open());
  Swd();
  Write(0x40024010, 0xCAFEBABE);
  std::unique_ptr<sim::Device> pDevice;
  sim::LINK                    Link;
  std::string                  sError;
  ASSERT_TRUE(bench_->LoadDevice(Probe(1), &pDevice, &Link, &sError)) << sError;
  EXPECT_EQ(0xCAFEBABEu, pDevice->Memories().Find(sim::BACKUP)->WordAt(0x40024010));
}

TEST_F(SimLibrary, WhatRunsWhenTheConnectionEndsIsDoneByTheNext) {
  Put(Probe(1), "STM32F407");
  EXPECT_EQ(nullptr, Open());
  Swd();
  StartOptions(0x0FF0AAEE);
  Close();
  EXPECT_EQ(nullptr, Open());
  uint32_t Value = 0;
  Swd();
  EXPECT_GE(Read(0x40023C0C, &Value), 0);
  EXPECT_EQ(0u, Value);
  EXPECT_GE(Read(0x40023C14, &Value), 0);
  EXPECT_EQ(0x0FF0AAECu, Value);
}

TEST_F(SimLibrary, FastTimeIsBusyForAFewPolls) {
  Put(Probe(1), "STM32F407", "--rdp 1");
  EXPECT_EQ(nullptr, Open());
  Swd();
  StartOptions(0x0FFFAAEE);
  const int NumPolls = PollUntilReady();
  EXPECT_GT(NumPolls, 1);
  EXPECT_LT(NumPolls, 20);
}

TEST_F(SimLibrary, RealTimeIsBusyForAsLongAsTheDataSheetSays) {
  Put(Probe(1), "STM32F407");
  setenv("QUOBE_BENCH_TIME", "real", 1);
  EXPECT_EQ(nullptr, Open());
  Swd();
  const uint64_t Start = sim::WallUs();
  StartOptions(0x0FF0AAEE);
  uint32_t Status = 0;
  do {
    ASSERT_GE(Read(0x40023C0C, &Status), 0);
  } while ((Status & 0x10000) && sim::WallUs() - Start < 60000000);
  EXPECT_GE(sim::WallUs() - Start, 400000u);
  EXPECT_EQ(0u, Status);
}

TEST_F(SimLibrary, TheEnvironmentOverrulesTheProbesTime) {
  sim::PROBE_SETTINGS Each = Probe(1);
  Each.IsFast              = false;
  Put(Each, "STM32F407", "--rdp 1");
  EXPECT_EQ(nullptr, Open());
  Swd();
  StartOptions(0x0FFFAAEE);  // 16 s of the device
  EXPECT_LT(PollUntilReady(), 20);
  Close();
  Each.IsFast = true;
  Put(Each, "STM32F407", "--rdp 1");
  unsetenv("QUOBE_BENCH_TIME");
  EXPECT_EQ(nullptr, Open());
  Swd();
  StartOptions(0x0FFFAAEE);
  EXPECT_LT(PollUntilReady(), 20);
}

// -- Faults

TEST_F(SimLibrary, FaultOpenFailsWithItsText) {
  Put(WithFault("open-fails \"The cable is loose.\""), "STM32F103");
  EXPECT_STREQ("The cable is loose.", Open());
  EXPECT_EQ(0u, IsOpen());
}

TEST_F(SimLibrary, FaultLostEndsTheConnectionAtThatOperation) {
  Put(WithFault("lost 5"), "STM32F103");
  uint32_t Value = 0;
  EXPECT_EQ(nullptr, Open());              // 1
  Swd();                                   // 2
  EXPECT_GE(Read(0xE0042000, &Value), 0);  // 3
  EXPECT_EQ(1u, IsOpen());                 // 4
  EXPECT_LT(Read(0xE0042000, &Value), 0);  // 5
  EXPECT_EQ(0u, IsOpen());
  EXPECT_LT(Read(0xE0042000, &Value), 0);
}

TEST_F(SimLibrary, FaultReadFailsOnceOnly) {
  Put(WithFault("read-fails 3"), "STM32F103");
  uint32_t Value = 0;
  EXPECT_EQ(nullptr, Open());
  Swd();
  EXPECT_LT(Read(0xE0042000, &Value), 0);
  EXPECT_GE(Read(0xE0042000, &Value), 0);
}

TEST_F(SimLibrary, FaultWriteDroppedOnceOnly) {
  Put(WithFault("write-dropped 3"), "STM32F103");
  uint32_t Value = 0;
  EXPECT_EQ(nullptr, Open());
  Swd();
  Write(0x20000000, 0x11111111);
  Write(0x20000004, 0x22222222);
  EXPECT_GE(Read(0x20000000, &Value), 0);
  EXPECT_EQ(0u, Value);
  EXPECT_GE(Read(0x20000004, &Value), 0);
  EXPECT_EQ(0x22222222u, Value);
}

TEST_F(SimLibrary, FaultPowerDipIsSeenAndRestartsTheDevice) {
  Put(WithFault("power-dip 4 450 2"), "STM32F103");
  uint32_t Value = 0;
  EXPECT_EQ(nullptr, Open());              // 1
  Swd();                                   // 2
  Write(0xE0042004, 0x300);                // 3
  EXPECT_EQ(450u, Voltage());              // 4
  EXPECT_LT(Read(0xE0042004, &Value), 0);  // 5
  EXPECT_EQ(3300u, Voltage());             // 6
  EXPECT_GE(Read(0xE0042004, &Value), 0);
  EXPECT_EQ(0u, Value);
}

TEST_F(SimLibrary, FaultBusyHoldsTheNextOperation) {
  Put(WithFault("busy 3 forever"), "STM32F407");
  uint32_t Status = 0;
  EXPECT_EQ(nullptr, Open());
  Swd();
  StartOptions(0x0FFFAAEE);
  for (int i = 0; i < 50; i++) {
    EXPECT_GE(Read(0x40023C0C, &Status), 0);
    EXPECT_EQ(0x10000u, Status & 0x10000);
  }
  Reset();
  EXPECT_GE(Read(0x40023C0C, &Status), 0);
  EXPECT_EQ(0u, Status & 0x10000);
}

TEST_F(SimLibrary, FaultStuckBitsDoNotProgram) {
  Put(WithFault("stuck OPTCR 0x00010000 0"), "STM32F407");
  EXPECT_EQ(nullptr, Open());
  Swd();
  StartOptions(0x0FFFAAEE);
  uint32_t Status = 0;
  PollUntilReady();
  EXPECT_GE(Read(0x40023C14, &Status), 0);
  EXPECT_EQ(0x0FFEAAECu, Status);
}

// -- Trace

TEST_F(SimLibrary, TheTraceNamesRegistersAndBits) {
  Put(Probe(1), "STM32F407");
  EXPECT_EQ(nullptr, Open());
  Swd();
  StartOptions(0x0FFFAAEE);
  Close();
  const std::string sText = TraceText();
  for (const char* sLine :
       {"Open: probe 1, STM32F407", "WR  FLASH_OPTKEYR = 0x08192A3B  OPTKEY1",
        "WR  FLASH_OPTKEYR = 0x4C5D6E7F  OPTKEY2",
        "WR  FLASH_OPTCR = 0x0FFFAAEE  OPTSTRT BOR_LEV=3 WDG_SW nRST_STOP nRST_STDBY RDP=AA "
        "nWRP=FFF",
        "-- option bytes: erase starts, 250 ms", "Close"}) {
    EXPECT_NE(std::string::npos, sText.find(sLine)) << sLine << "\nnot in\n" << sText;
  }
}

// -- Connections

TEST_F(SimLibrary, AConnectionStartsWithNothingOfTheOneBefore) {
  sim::PROBE_SETTINGS Fast = Probe(1), Slow = Probe(2);
  Slow.MaxSpeed = 500;
  Put(Fast, "STM32F407");
  Put(Slow, "STM32F407");
  uint32_t Value = 0;
  EXPECT_EQ(nullptr, Open());
  EXPECT_LT(Read(0xE0042000, &Value), 0);  // no interface is chosen yet
  Swd();
  EXPECT_EQ(9000u, Speed(9000));
  EXPECT_GE(Read(0xE0042000, &Value), 0);
  Close();
  SelectSerial(2);
  EXPECT_EQ(nullptr, Open());
  EXPECT_EQ(0u, Call<uint32_t (*)()>("QUOBEARM_GetSpeed")());
  EXPECT_LT(Read(0xE0042000, &Value), 0);
  Swd();
  EXPECT_GE(Read(0xE0042000, &Value), 0);
}

TEST_F(SimLibrary, OnlySwdIsThere) {
  Put(Probe(1), "STM32F407");
  EXPECT_EQ(nullptr, Open());
  EXPECT_EQ(0, Call<int32_t (*)(int32_t)>("QUOBEARM_TIF_Select")(1));
  EXPECT_LT(Call<int32_t (*)(int32_t)>("QUOBEARM_TIF_Select")(0), 0);
  uint32_t Value = 0;
  EXPECT_LT(Read(0xE0042000, &Value), 0);
}

TEST_F(SimLibrary, OpeningTwiceIsOpeningOnce) {
  Put(Probe(1), "STM32F407");
  EXPECT_EQ(nullptr, Open());
  Write(0x20000000, 1);
  EXPECT_EQ(nullptr, Open());
  EXPECT_EQ(0x413u, IdCode());
}

TEST_F(SimLibrary, AfterAProbeWasLostOpeningTellsTheTruth) {
  Put(WithFault("lost 2"), "STM32F407");
  EXPECT_EQ(nullptr, Open());
  EXPECT_EQ(0u, IsOpen());
  EXPECT_EQ(nullptr, Open());  // plugged in again
  EXPECT_EQ(1u, IsOpen());
  EXPECT_EQ(0x413u, IdCode());
  Close();
  Put(WithFault("lost 9"), "STM32F407");
  EXPECT_EQ(nullptr, Open());
  EXPECT_EQ(0u, IsOpen());
  std::ofstream(sDirectory_ + "/1.device") << "rubbish\n";
  EXPECT_NE(nullptr, Open());
  EXPECT_EQ(0u, IsOpen());
}

TEST_F(SimLibrary, AFileThatMeansNothingIsToldWhenOpeningAndLeftAlone) {
  Put(Probe(1), "STM32F407");
  const std::string sPath = sDirectory_ + "/1.device";
  std::ofstream(sPath, std::ios::app) << "option.NOTHING = 1\n";
  std::ifstream     File(sPath);
  std::stringstream Before, After;
  Before << File.rdbuf();
  const char* sError = Open();
  ASSERT_NE(nullptr, sError);
  EXPECT_NE(std::string::npos, std::string(sError).find("option.NOTHING")) << sError;
  Close();
  std::ifstream Again(sPath);
  After << Again.rdbuf();
  EXPECT_EQ(Before.str(), After.str());
}

TEST_F(SimLibrary, ATextForEveryCommandThatIsNotQuiteOne) {
  Put(Probe(1), "STM32F103");
  EXPECT_EQ(nullptr, Open());
  for (const char* sCommand :
       {"", "device", "SupplyPower", "SupplyPower = 2", "SupplyPower = 1 = 1",
        "device = Cortex-M4 = x", "DisablePowerSupplyOnClose = 1"}) {
    EXPECT_EQ("Unknown command \"" + std::string(sCommand) + "\"", Command(sCommand));
  }
  for (const char* sCommand : {"supplypower=1", "DEVICE = cortex-m0", "device = Cortex-M4",
                               "device = Cortex-M7", "device = STM32F407"}) {
    EXPECT_EQ("", Command(sCommand)) << sCommand;
  }
  // Without room for a text it is at least no harm.
  EXPECT_NE(0, (Call<int32_t (*)(const char*, char*, int32_t)>("QUOBEARM_ExecCommand")(
                   "Dance", nullptr, 0)));
}

TEST_F(SimLibrary, SupplyPower0TakesThePowerAway) {
  sim::PROBE_SETTINGS Unpowered = Probe(1);
  Unpowered.VTarget             = 0;
  Unpowered.Supply              = 1700;
  Put(Unpowered, "STM32F103");
  EXPECT_EQ(nullptr, Open());
  EXPECT_EQ("", Command("SupplyPower = 1"));
  EXPECT_EQ(1700u, Voltage());
  EXPECT_EQ(0x410u, IdCode());
  EXPECT_EQ("", Command("SupplyPower = 0"));
  EXPECT_EQ(0u, Voltage());
  EXPECT_EQ(0u, IdCode());
}

TEST_F(SimLibrary, ADeviceAt1699MillivoltsDoesNotAnswer) {
  for (const uint32_t VTarget : {1699u, 1700u}) {
    sim::PROBE_SETTINGS Weak = Probe(1);
    Weak.VTarget             = VTarget;
    Put(Weak, "STM32F407");
    EXPECT_EQ(nullptr, Open());
    EXPECT_EQ(VTarget == 1700 ? 0x413u : 0u, IdCode());
    Close();
  }
}

TEST_F(SimLibrary, SpeedsAbove16BitsAreReportedWhole) {
  sim::PROBE_SETTINGS Fast = Probe(1);
  Fast.MaxSpeed            = 100000;
  Put(Fast, "STM32F407");
  EXPECT_EQ(nullptr, Open());
  EXPECT_EQ(70000u, Speed(70000));
  EXPECT_EQ(4000u, Speed(0));
}

TEST_F(SimLibrary, StatusBytesTellWhichWordsWereRead) {
  Put(Probe(1), "STM32F407");
  EXPECT_EQ(nullptr, Open());
  Swd();
  uint32_t aWords[3] = {1, 1, 1};
  uint8_t  abDone[3] = {9, 9, 9};
  EXPECT_LT((Call<int32_t (*)(uint32_t, uint32_t, uint32_t*, uint8_t*)>("QUOBEARM_ReadMemU32")(
                0x080FFFFC, 3, aWords, abDone)),
            0);
  EXPECT_EQ(0xFFFFFFFFu, aWords[0]);
  EXPECT_EQ(1u, aWords[1]);
  EXPECT_EQ(0, abDone[0]);
  EXPECT_EQ(1, abDone[1]);
  EXPECT_EQ(9, abDone[2]);
  EXPECT_EQ(0, (Call<int32_t (*)(uint32_t, uint32_t, uint32_t*, uint8_t*)>("QUOBEARM_ReadMemU32")(
                   0x08000000, 0, aWords, nullptr)));
}

TEST_F(SimLibrary, HalfWordsAreWritten) {
  Put(Probe(1), "STM32F407");
  EXPECT_EQ(nullptr, Open());
  Swd();
  uint32_t Value = 0;
  Call<int32_t (*)(uint32_t, uint16_t)>("QUOBEARM_WriteU16")(0x20000002, 0xABCD);
  EXPECT_GE(Read(0x20000000, &Value), 0);
  EXPECT_EQ(0xABCD0000u, Value);
}

TEST_F(SimLibrary, AResetThatDoesNotHaltLeavesAWatchdogRunning) {
  for (const bool Halts : {true, false}) {
    sim::PROBE_SETTINGS Each = Probe(1);
    Each.ResetHalts          = Halts;
    Put(Each, "STM32F407", "--rdp 1 --user 0xCC");
    EXPECT_EQ(nullptr, Open());
    Swd();
    Write(0xE0042008, 0x1000);
    Reset();
    StartOptions(0x0FFFAAEE);
    uint32_t Status = 0;
    PollUntilReady();
    EXPECT_GE(Read(0x40023C14, &Status), 0);
    EXPECT_EQ(Halts ? 0xAAu : 0xBBu, Status >> 8 & 0xFF);
    Close();
  }
}

// -- Level 2

TEST_F(SimLibrary, ALevel2DeviceAnswersNothingAndIsNotChanged) {
  for (const char* sDevice : {"STM32F407", "STM32F723", "STM32H743"}) {
    Put(Probe(1), sDevice, "--rdp 2");
    EXPECT_EQ(nullptr, Open());
    Swd();
    const uint32_t Base    = sDevice[5] == 'H' ? 0x52002000 : 0x40023C00;
    uint32_t       Value   = 0;
    const uint32_t aKeys[] = {0x08192A3B, 0x4C5D6E7F};
    for (int i = 0; i < 2; i++) {
      for (const uint32_t Key : aKeys) {
        Write(Base + 8, Key);
      }
      Write(Base + 0x14, 0x0FFFAAEE);
      Write(Base + 0x18, 2);
      Reset();
    }
    for (const uint32_t Address :
         {Base + 0x14, Base + 0x1C, 0x08000000u, 0x20000000u, 0xE0042000u, 0x5C001000u}) {
      EXPECT_LT(Read(Address, &Value), 0) << sDevice;
    }
    EXPECT_EQ(3300u, Voltage());
    Close();
    std::unique_ptr<sim::Device> pDevice;
    sim::LINK                    Link;
    std::string                  sError;
    ASSERT_TRUE(bench_->LoadDevice(Probe(1), &pDevice, &Link, &sError)) << sError;
    EXPECT_EQ(2, pDevice->Flash().StoredLevel());
    EXPECT_FALSE(pDevice->IsFlashErased());
  }
}

// -- Faults, further

TEST_F(SimLibrary, FaultWriteDroppedLosesResetsAndCommandsToo) {
  sim::PROBE_SETTINGS Each = Probe(1);
  Each.VTarget             = 0;
  Each.Faults              = {"write-dropped 2", "write-dropped 6"};
  Put(Each, "STM32F407");
  EXPECT_EQ(nullptr, Open());                 // 1
  EXPECT_EQ("", Command("SupplyPower = 1"));  // 2
  EXPECT_EQ(0u, Voltage());                   // 3
  EXPECT_EQ("", Command("SupplyPower = 1"));  // 4
  Swd();                                      // 5
  Reset();                                    // 6
  EXPECT_EQ(std::string::npos, TraceText().find("system reset"));
  Reset();
  EXPECT_NE(std::string::npos, TraceText().find("system reset (by the probe)"));
}

TEST_F(SimLibrary, FaultBusyForAWhileIsOverThen) {
  Put(WithFault("busy 3 50"), "STM32F407");
  EXPECT_EQ(nullptr, Open());
  Swd();
  StartOptions(0x0FFFAAEE);
  PollUntilReady();
  const std::string sText = TraceText();
  EXPECT_NE(std::string::npos, sText.find("busy with nothing starts, 50 ms")) << sText;
  EXPECT_NE(std::string::npos, sText.find("busy with nothing done")) << sText;
}

TEST_F(SimLibrary, FaultLostTakesTheSupplyAlong) {
  sim::PROBE_SETTINGS Each = WithFault("lost 4");
  Each.VTarget             = 0;
  Put(Each, "STM32F407");
  EXPECT_EQ(nullptr, Open());
  EXPECT_EQ("", Command("SupplyPower = 1"));
  EXPECT_EQ(3300u, Voltage());
  EXPECT_EQ(0u, Voltage());  // 4: nothing is told any more
  EXPECT_EQ("Not connected to a probe", Command("DisablePowerSupplyOnClose"));
  std::unique_ptr<sim::Device> pDevice;
  sim::LINK                    Link;
  std::string                  sError;
  ASSERT_TRUE(bench_->LoadDevice(Each, &pDevice, &Link, &sError)) << sError;
  EXPECT_FALSE(Link.SupplyOn);
  EXPECT_FALSE(Link.IsOpen);
  EXPECT_FALSE(pDevice->IsPowered());
}

TEST_F(SimLibrary, SeveralStuckBitsOfOneWordStayStuck) {
  sim::PROBE_SETTINGS Each = WithFault("stuck OPTCR 0x00010000 0");
  Each.Faults.push_back("stuck OPTCR 0x00000010 0x10");
  Each.Faults.push_back("stuck OPTCR 0x00020000 0");
  Put(Each, "STM32F407");
  EXPECT_EQ(nullptr, Open());
  Swd();
  StartOptions(0x0FFFAAEE);
  uint32_t Status = 0;
  PollUntilReady();
  EXPECT_GE(Read(0x40023C14, &Status), 0);
  EXPECT_EQ(0x0FFCAAFCu, Status);
}

TEST_F(SimLibrary, AFaultInAWordThatTheDeviceDoesNotHaveIsTold) {
  Put(WithFault("stuck OPTCR2 1 0"), "STM32F407");
  const char* sError = Open();
  ASSERT_NE(nullptr, sError);
  EXPECT_NE(std::string::npos, std::string(sError).find("has no such option word")) << sError;
  EXPECT_EQ(0u, IsOpen());
}

// -- Trace, further

TEST_F(SimLibrary, TheTraceTellsWhatFailedAndWhatHasNoName) {
  Put(WithFault("write-dropped 4"), "STM32H743");
  uint32_t Value = 0;
  EXPECT_EQ(nullptr, Open());     // 1
  Swd();                          // 2
  Write(0xE0042008, 0x1800);      // 3
  Write(0x52002008, 0x08192A3B);  // 4
  Write(0x52002008, 0x12345678);  // 5
  EXPECT_LT(Read(0x10000000, &Value), 0);
  Call<int32_t (*)(uint32_t, uint16_t)>("QUOBEARM_WriteU16")(0x20000000, 0xABCD);
  Close();
  const std::string sText = TraceText();
  for (const char* sLine :
       {"     1  Open: probe 1, STM32H743\n", "-- there is nothing at this address\n",
        "     3  WR  [0xE0042008] = 0x00001800: failed\n",
        "     4  WR  FLASH_OPTKEYR = 0x08192A3B  OPTKEY1: dropped\n",
        "     5  WR  FLASH_OPTKEYR = 0x12345678  a wrong key: failed\n",
        "     6  RD  [0x10000000]: failed\n", "     7  WR16 [0x20000000] = 0xABCD\n",
        "     8  Close\n"}) {
    EXPECT_NE(std::string::npos, sText.find(sLine)) << sLine << "\nnot in\n" << sText;
  }
}

TEST_F(SimLibrary, TheTraceIsStampedWithATimeThatGrows) {
  Put(Probe(1), "STM32F407");
  EXPECT_EQ(nullptr, Open());
  Swd();
  StartOptions(0x0FFFAAEE);
  PollUntilReady();
  Close();
  std::istringstream Lines(TraceText());
  std::string        sLine;
  double             Last   = 0;
  double             Start  = 0;
  double             Finish = 0;
  while (std::getline(Lines, sLine)) {
    const double Now = atof(sLine.c_str());
    EXPECT_GE(Now, Last) << sLine;
    Last = Now;
    if (sLine.find("erase starts") != std::string::npos) {
      Start = Now;
    }
    if (sLine.find("program done") != std::string::npos) {
      Finish = Now;
    }
  }
  // 0.4 s of the device, however short it was for the caller.
  EXPECT_GT(Finish - Start, 0.39);
  EXPECT_LT(Finish - Start, 1.0);
}
