// SPDX-License-Identifier: MIT

// quobe-bench as its users meet it, and the bench's files.

#include <gtest/gtest.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "sim/bench.h"
#include "sim/catalog.h"
#include "sim/request.h"

using sim::PROBE_SETTINGS;

class SimBench : public ::testing::Test {
 protected:
  void SetUp() override {
    sDirectory_ = ::testing::TempDir() + "quobe-bench-" + std::to_string(getpid()) + "-" +
                  ::testing::UnitTest::GetInstance()->current_test_info()->name();
    setenv("QUOBE_BENCH", sDirectory_.c_str(), 1);
  }
  void TearDown() override { EXPECT_EQ(0, system(("rm -rf '" + sDirectory_ + "'").c_str())); }
  // Exit status; both outputs together in sOutput_.
  int Run(const std::string& sArguments) {
    FILE* pPipe = popen(("'" QUOBE_BENCH_TOOL "' " + sArguments + " 2>&1").c_str(), "r");
    sOutput_.clear();
    char acLine[512];
    while (fgets(acLine, sizeof(acLine), pPipe) != nullptr) {
      sOutput_ += acLine;
    }
    const int Status = pclose(pPipe);  // has to have an address: macOS's macro takes it
    return WEXITSTATUS(Status);
  }
  static std::string Content(const std::string& sPath) {
    std::ifstream     File(sPath, std::ios::binary);
    std::stringstream Text;
    Text << File.rdbuf();
    return Text.str();
  }
  bool Says(const char* sText) const { return sOutput_.find(sText) != std::string::npos; }

  std::string sDirectory_, sOutput_;
};

TEST_F(SimBench, ADeliveredDeviceOfEveryKindIsAtFactoryState) {
  for (const sim::DEVICE_ROW* pRow : sim::AllDevices()) {
    EXPECT_EQ(0, Run(std::string("create ") + pRow->pFacts->sName)) << sOutput_;
    EXPECT_EQ(0, Run("show --expect-factory")) << sOutput_;
    EXPECT_TRUE(Says("At factory state.")) << sOutput_;
  }
}

TEST_F(SimBench, AnyDifferenceIsNotFactoryState) {
  for (const char* sState : {"--rdp 1", "--wrp 3", "--user 0x00", "--flash full", "--rdp 0x55"}) {
    EXPECT_EQ(0, Run(std::string("create STM32F407 ") + sState)) << sOutput_;
    EXPECT_EQ(1, Run("show --expect-factory")) << sState << sOutput_;
    EXPECT_TRUE(Says("Not at factory state")) << sOutput_;
    EXPECT_EQ(0, Run("show"));
  }
}

TEST_F(SimBench, ShowsFieldsWithFactoryValuesBesideThem) {
  EXPECT_EQ(0, Run("create F429 --rdp 1 --pcrop 0-3"));
  EXPECT_EQ(0, Run("show"));
  EXPECT_TRUE(Says("  RDP                      BB   factory AA   <-- differs")) << sOutput_;
  EXPECT_TRUE(Says("  SPRMOD                    1   factory 0   <-- differs")) << sOutput_;
  EXPECT_TRUE(Says("  BOR_LEV                   3   factory 3\n")) << sOutput_;
}

TEST_F(SimBench, WrongUseIsStatus2WithAReason) {
  const char* const aWrong[][2] = {
      {"", "usage:"},
      {"dance", "usage:"},
      {"create", "which device"},
      {"create Z80", "unknown device"},
      {"create F407 --rdp", "a value is missing"},
      {"create F407 --rdp 3", "no value for --rdp"},
      {"create F407 --wrp 12", "sectors 0 to 11"},
      {"create F407 --wrp 5-2", "no value for --wrp"},
      {"create F407 --pcrop 0", "no PCROP"},
      {"create F103 --rdp 2", "no level 2"},
      {"create F407 --flash /nowhere/image.bin", "No such file"},
      {"create F407 --wings 2", "unknown option"},
      {"create L476 --wrp 1,3,5", "one or two areas"},
      {"create F407 --option OPTCR=1", "OPTCR has several fields: name one, such as BOR_LEV"},
      {"create F407 --option user=1", "user has several fields: name one, such as BOR_LEV"},
      {"--probe zero list", "serial number"},
      {"set vtarget=99999", "no value for vtarget"},
      {"set wings=2", "no setting"},
      {"set fault=\"lost\"", "lost OPERATION"},
      {"set fault=\"lost 0\"", "lost OPERATION"},
      {"show --all", "unknown argument"},
      {"remove 2", "remove: unknown argument 2"},
      {"list all", "list: unknown argument all"},
      {"list --probe 1", "list: takes no --probe"},
      {"devices F407", "devices: unknown argument F407"},
      {"reset now", "reset: expected nothing more, or --after MS"},
      {"reset --after", "reset: expected nothing more, or --after MS"},
      {"power-cycle 2", "power-cycle: expected nothing more, or --after MS"},
      {"power-cycle --after soon", "power-cycle: expected nothing more, or --after MS"},
      {"set", "set: expected KEY=VALUE"},
      {"set reset_pin=perhaps", "no value for reset_pin"},
      {"create F407 --program stops", "there is none without --flash"},
      {"create F407 --flash full --program sleeps", "no value for --program"},
  };
  for (const auto& Wrong : aWrong) {
    EXPECT_EQ(2, Run(Wrong[0])) << Wrong[0];
    EXPECT_TRUE(Says(Wrong[1])) << Wrong[0] << ": " << sOutput_;
  }
}

TEST_F(SimBench, ABenchThatCannotBeReadIsStatus3) {
  EXPECT_EQ(0, Run("create F407"));
  EXPECT_EQ(3, Run("--probe 77 show"));
  EXPECT_TRUE(Says("77")) << sOutput_;
  std::ofstream(sDirectory_ + "/1.device", std::ios::app) << "option.NOTHING = 1\n";
  EXPECT_EQ(3, Run("show"));
  EXPECT_TRUE(Says("means nothing for a STM32F407")) << sOutput_;
  std::ofstream(sDirectory_ + "/1.device") << "device = Z80\n";
  EXPECT_EQ(3, Run("show"));
  std::ofstream(sDirectory_ + "/1.device") << "rubbish\n";
  EXPECT_EQ(3, Run("show"));
  EXPECT_TRUE(Says("1.device:1: expected")) << sOutput_;
}

TEST_F(SimBench, AnImageIsPutIntoTheFlash) {
  ASSERT_EQ(0, mkdir(sDirectory_.c_str(), 0755));
  const std::string sImage = sDirectory_ + "/image.bin";
  std::ofstream(sImage, std::ios::binary) << "\x01\x02\x03\x04\x05";
  EXPECT_EQ(0, Run("create F103 --flash '" + sImage + "'"));
  sim::Bench                   Where(sDirectory_);
  sim::PROBE_SETTINGS          Probe;
  std::unique_ptr<sim::Device> pDevice;
  sim::LINK                    Link;
  std::string                  sError;
  ASSERT_TRUE(Where.Find(0, "", &Probe, &sError)) << sError;
  ASSERT_TRUE(Where.LoadDevice(Probe, &pDevice, &Link, &sError)) << sError;
  EXPECT_EQ(0x04030201u, pDevice->Memories().Find(sim::MAIN_FLASH)->WordAt(0x08000000));
  EXPECT_EQ(0xFFFFFF05u, pDevice->Memories().Find(sim::MAIN_FLASH)->WordAt(0x08000004));
}

TEST_F(SimBench, EveryDeviceComesBackFromItsFileAsItWas) {
  for (const sim::DEVICE_ROW* pRow : sim::AllDevices()) {
    sim::Device Before(*pRow);
    sim::FillFlash(&Before, 3000);
    Before.Memories().Find(sim::MAIN_FLASH)->WordAt(pRow->pFacts->Memory[0].Base + 0x1000) =
        0xCAFEBABE;
    Before.PowerOn();
    sim::KeyFile First, Second;
    Before.SaveTo(&First);
    sim::Device After(*pRow);
    std::string sError;
    ASSERT_TRUE(After.LoadFrom(First, &sError)) << sError;
    After.SaveTo(&Second);
    EXPECT_EQ(First.Lines(), Second.Lines()) << pRow->pFacts->sName;
  }
}

TEST_F(SimBench, APowerCycleLoadsWhatAResetDoesNot) {
  EXPECT_EQ(0, Run("create L073 --rdp 1"));
  EXPECT_EQ(0, Run("power-cycle"));
  sim::Bench                   Where(sDirectory_);
  sim::PROBE_SETTINGS          Probe;
  std::unique_ptr<sim::Device> pDevice;
  sim::LINK                    Link;
  std::string                  sError;
  ASSERT_TRUE(Where.Find(0, "", &Probe, &sError)) << sError;
  ASSERT_TRUE(Where.LoadDevice(Probe, &pDevice, &Link, &sError)) << sError;
  ASSERT_TRUE(pDevice->Flash().LoadLine("option.OPTION_RDP", 0xFF5500AA));
  ASSERT_TRUE(Where.SaveDevice(Probe, *pDevice, Link, &sError)) << sError;
  EXPECT_EQ(0, Run("reset"));
  EXPECT_EQ(0, Run("show"));
  EXPECT_TRUE(Says("level 1 in force, level 0 stored")) << sOutput_;
  EXPECT_EQ(0, Run("power-cycle"));
  EXPECT_EQ(0, Run("show"));
  EXPECT_TRUE(Says("Read protection: level 0\n")) << sOutput_;
}

// -- Several probes, power

TEST_F(SimBench, SeveralProbesAreListedWithWhatIsOnThem) {
  EXPECT_EQ(0, Run("list"));
  EXPECT_TRUE(Says("No probes.")) << sOutput_;
  EXPECT_EQ(0, Run("--probe 1002 create F103 --rdp 1 --flash full"));
  EXPECT_EQ(0, Run("create --probe 7 L476"));
  EXPECT_EQ(0, Run("set --probe 7 ip=192.168.1.20 default=yes fault=\"lost 3\""));
  EXPECT_EQ(0, Run("list"));
  EXPECT_TRUE(
      Says("         7  192.168.1.20     STM32L476   level 0, flash erased, default, "
           "with faults\n"))
      << sOutput_;
  EXPECT_TRUE(Says("      1002  -                STM32F103   level 1, flash in use\n")) << sOutput_;
  EXPECT_LT(sOutput_.find("         7"), sOutput_.find("      1002"));
  EXPECT_EQ(0, Run("set --probe 7 fault=none"));
  EXPECT_EQ(0, Run("list"));
  EXPECT_FALSE(Says("with faults")) << sOutput_;
}

TEST_F(SimBench, WhoChoosesNoProbeMeansTheFirstDefaultOne) {
  for (const char* sSerial : {"5", "6", "7"}) {
    EXPECT_EQ(0, Run(std::string("create F103 --probe ") + sSerial));
  }
  EXPECT_EQ(0, Run("create F407"));  // none is the default: the lowest number
  EXPECT_EQ(0, Run("show --probe 5"));
  EXPECT_TRUE(Says("STM32F407")) << sOutput_;
  EXPECT_EQ(0, Run("set --probe 6 default=yes"));
  EXPECT_EQ(0, Run("set --probe 7 default=yes"));
  EXPECT_EQ(0, Run("create L053"));
  EXPECT_TRUE(Says("Probe 6: STM32L053")) << sOutput_;
  EXPECT_EQ(0, Run("show"));
  EXPECT_TRUE(Says("Probe 6: STM32L053")) << sOutput_;
}

TEST_F(SimBench, EverySettingIsKept) {
  EXPECT_EQ(0, Run("create F103"));
  EXPECT_EQ(0, Run("set ip=10.0.0.1 default=yes vtarget=1800 supply=5000 max_speed=4000 "
                   "reset_halts=no time=fast fault=\"busy 3 forever\" "
                   "'fault=open-fails \"Not today.\"' 'fault=stuck OPTCR 0x10 0'"));
  sim::Bench                  Where(sDirectory_);
  std::vector<PROBE_SETTINGS> Probes;
  std::string                 sError;
  ASSERT_TRUE(Where.List(&Probes, &sError)) << sError;
  ASSERT_EQ(1u, Probes.size());
  EXPECT_EQ("10.0.0.1", Probes[0].sIP);
  EXPECT_TRUE(Probes[0].IsDefault);
  EXPECT_EQ(1800u, Probes[0].VTarget);
  EXPECT_EQ(5000u, Probes[0].Supply);
  EXPECT_EQ(4000u, Probes[0].MaxSpeed);
  EXPECT_FALSE(Probes[0].ResetHalts);
  EXPECT_TRUE(Probes[0].IsFast);
  EXPECT_EQ(3u, Probes[0].Faults.size());
  EXPECT_EQ(0, Run("set default=no reset_halts=yes time=real"));
  ASSERT_TRUE(Where.List(&Probes, &sError)) << sError;
  EXPECT_FALSE(Probes[0].IsDefault);
  EXPECT_TRUE(Probes[0].ResetHalts);
  EXPECT_FALSE(Probes[0].IsFast);
  EXPECT_EQ("10.0.0.1", Probes[0].sIP);
}

TEST_F(SimBench, FaultsAreReadAsTheyAreWritten) {
  sim::FAULT  Fault;
  std::string sError;
  EXPECT_TRUE(sim::ParseFault("power-dip 0x10 450 3", &Fault, &sError));
  EXPECT_EQ(sim::POWER_DIP, Fault.Kind);
  EXPECT_EQ(16u, Fault.Operation);
  EXPECT_EQ(450u, Fault.First);
  EXPECT_EQ(3u, Fault.Second);
  EXPECT_TRUE(sim::ParseFault("busy 4 50", &Fault, &sError));
  EXPECT_EQ(50000u, Fault.First);
  EXPECT_TRUE(sim::ParseFault("busy 4 forever", &Fault, &sError));
  EXPECT_EQ(sim::FOREVER, Fault.First);
  EXPECT_TRUE(sim::ParseFault("stuck OPTCR 0xFF00 0xAA00", &Fault, &sError));
  EXPECT_EQ("OPTCR", Fault.sText);
  EXPECT_EQ(0xFF00u, Fault.First);
  EXPECT_EQ(0xAA00u, Fault.Second);
  for (const char* sWrong :
       {"", "dance", "lost", "lost x", "lost 1 2", "read-fails 0", "busy 1", "busy 1 never",
        "busy 1 4294967296", "power-dip 1 450", "power-dip 1 x 2", "power-dip 1 450 x",
        "stuck OPTCR 1", "stuck OPTCR 1 4294967296", "open-fails", "open-fails two words"}) {
    EXPECT_FALSE(sim::ParseFault(sWrong, &Fault, &sError)) << sWrong;
    EXPECT_FALSE(sError.empty());
    sError.clear();
  }
}

TEST_F(SimBench, APowerCycleGivesNoPowerThatTheBenchDoesNotHave) {
  EXPECT_EQ(0, Run("create F407 --rdp 1"));
  EXPECT_EQ(0, Run("power-cycle"));
  EXPECT_EQ(0, Run("show"));
  EXPECT_TRUE(Says(", powered")) << sOutput_;
  EXPECT_EQ(0, Run("set vtarget=1699"));
  for (const char* sCommand : {"reset", "power-cycle"}) {
    EXPECT_EQ(0, Run(sCommand));
    EXPECT_EQ(0, Run("show"));
    EXPECT_TRUE(Says(", not powered yet")) << sCommand << sOutput_;
  }
  EXPECT_EQ(0, Run("set vtarget=1700"));
  EXPECT_EQ(0, Run("power-cycle"));
  EXPECT_EQ(0, Run("show"));
  EXPECT_TRUE(Says(", powered")) << sOutput_;
}

TEST_F(SimBench, ShowTellsAnInterruptedConnectionAndMemoriesInUse) {
  EXPECT_EQ(0, Run("create F407 --eeprom full --flash erased"));
  std::ofstream(sDirectory_ + "/1.device", std::ios::app) << "probe.open = 1\n";
  EXPECT_EQ(0, Run("show"));
  EXPECT_TRUE(Says("ended without closing the connection")) << sOutput_;
  EXPECT_TRUE(Says("flash        erased (1048576 bytes)")) << sOutput_;
  EXPECT_TRUE(Says("backup_sram  4096 of 4096 bytes in use")) << sOutput_;
}

TEST_F(SimBench, RemoveTakesProbeAndDeviceOffTheBench) {
  EXPECT_EQ(0, Run("create F407"));
  EXPECT_EQ(0, Run("create F103 --probe 2"));
  EXPECT_EQ(0, Run("remove --probe 2"));
  EXPECT_EQ(3, Run("show --probe 2"));
  EXPECT_NE(0, access((sDirectory_ + "/2.device").c_str(), F_OK));
  EXPECT_EQ(0, Run("show --probe 1"));
}

TEST_F(SimBench, AProbeInUseIsLeftAlone) {
  EXPECT_EQ(0, Run("create F407"));
  sim::Bench     Where(sDirectory_);
  PROBE_SETTINGS Probe;
  Probe.SerialNo = 1;
  std::string sError;
  const int   Lock = Where.Lock(Probe, &sError);
  ASSERT_GE(Lock, 0);
  for (const char* sCommand : {"create F103", "reset", "power-cycle", "set time=fast", "remove"}) {
    EXPECT_EQ(3, Run(sCommand)) << sCommand;
    EXPECT_TRUE(Says("in use")) << sOutput_;
  }
  EXPECT_EQ(0, Run("show"));  // looking is free
  EXPECT_TRUE(Says("STM32F407")) << sOutput_;
  sim::Bench::Unlock(Lock);
  EXPECT_EQ(0, Run("create F103"));
}

// -- Files that somebody edited, damaged or left half done

TEST_F(SimBench, EditedFilesGiveAReasonAndAreNotTouched) {
  const char* const aLines[][2] = {
      {"option.NOTHING = 1", "means nothing"},
      {"option.OPTCR = 0x100000000", "means nothing"},
      {"option.OPTCR = lots", "means nothing"},
      {"option = 1", "means nothing"},
      {"register.FLASH_NOTHING = 1", "means nothing"},
      {"register.FLASH_CR = ", "means nothing"},
      {"state.nothing = 1", "means nothing"},
      {"state.level = 1", "means nothing"},  // the level follows from the options
      {"state.keys = 4", "means nothing"},
      {"variant.nothing = 1", "means nothing"},
      {"memory.flash.0x08000000 = XYZ", "means nothing"},
      {"memory.flash.0x08000000 =", "means nothing"},
      {"memory.flash.0x08000002 = 12345678", "means nothing"},
      {"memory.flash.0x08100000 = 12345678", "means nothing"},
      {"memory.flash.0x080FFFFC = 12345678 12345678", "means nothing"},
      {"memory.flash.0x080FFFFC = 2 x 12345678", "means nothing"},
      {"memory.flash.0x08000000 = 99999999999 x 12345678", "means nothing"},
      {"probe.open = perhaps", "means nothing"},
      {"probe.wings = 1", "means nothing"},
      {"memory.rom.0x08000000 = 12345678", "means nothing"},
      {"memory.flash = 12345678", "means nothing"},
      {"running.0.kind = 6", "means nothing"},
      {"running.0.argument = 6", "means nothing"},  // of what?
      {"running.0.dance = 6", "means nothing"},
      {"running.0.kind = 4\nrunning.0.argument = 0xFFFFFFF0", "programs an address"},
      {"running.0.kind = 4\nrunning.0.argument = 0", "programs an address"},
      {"running.0.kind = 4\nrunning.0.argument = 0x1FFFC000", "programs an address"},  // read only
      {"no equals sign", "expected \"key = value\""},
      {"= value", "expected \"key = value\""},
  };
  const std::string sPath = sDirectory_ + "/1.device";
  for (const auto& Line : aLines) {
    EXPECT_EQ(0, Run("create F407 --flash full"));
    std::ofstream(sPath, std::ios::app) << Line[0] << "\n";
    const std::string sBefore = Content(sPath);
    for (const char* sCommand : {"show", "reset", "power-cycle", "list"}) {
      EXPECT_EQ(3, Run(sCommand)) << Line[0];
      EXPECT_TRUE(Says(Line[1])) << Line[0] << ": " << sOutput_;
      EXPECT_TRUE(Says("1.device")) << sOutput_;
    }
    if (std::string(Line[1]) == "means nothing") {
      const auto NumLines = std::count(sBefore.begin(), sBefore.end(), '\n');
      EXPECT_EQ(3, Run("show"));
      EXPECT_TRUE(Says(("1.device:" + std::to_string(NumLines) + ": \"").c_str())) << sOutput_;
    }
    EXPECT_EQ(sBefore, Content(sPath)) << Line[0];
  }
}

TEST_F(SimBench, AnEditedProbeGivesAReasonToo) {
  EXPECT_EQ(0, Run("create F407"));
  const std::string sPath = sDirectory_ + "/1.probe";
  for (const char* sLine : {"wings = 2", "vtarget = -1", "vtarget = 65536", "supply = 65536",
                            "max_speed = 0", "serial = 2", "serial = 0", "time = soon",
                            "default = maybe", "reset_halts = 1", "fault = dance"}) {
    const std::string sGood = Content(sPath);
    std::ofstream(sPath, std::ios::app) << sLine << "\n";
    EXPECT_EQ(3, Run("list")) << sLine;
    const std::string sSerial = sLine;
    const bool        IsWhole = sSerial == "serial = 2";  // each line means something
    EXPECT_TRUE(Says(IsWhole ? "1.probe: holds serial number 2" : "1.probe:10: ")) << sOutput_;
    std::ofstream(sPath) << sGood;
  }
  EXPECT_EQ(0, Run("list"));
}

TEST_F(SimBench, ADamagedProbeSpoilsNoOther) {
  for (const char* sSerial : {"1", "2", "3"}) {
    EXPECT_EQ(0, Run(std::string("create F103 --probe ") + sSerial));
  }
  std::ofstream(sDirectory_ + "/2.probe", std::ios::app) << "wings = 2\n";
  std::ofstream(sDirectory_ + "/notes.probe") << "rubbish\n";
  std::ofstream(sDirectory_ + "/1.old.probe") << Content(sDirectory_ + "/1.probe");
  std::ofstream(sDirectory_ + "/001.probe") << Content(sDirectory_ + "/1.probe");
  EXPECT_EQ(3, Run("list"));
  EXPECT_TRUE(Says("2.probe:10: a probe has no setting \"wings\"\n")) << sOutput_;
  EXPECT_TRUE(Says("notes.probe:1: expected \"key = value\"\n")) << sOutput_;
  EXPECT_TRUE(Says("         1  -                STM32F103   level 0, flash erased\n")) << sOutput_;
  EXPECT_TRUE(Says("         3  -                STM32F103   level 0, flash erased\n")) << sOutput_;
  EXPECT_TRUE(Says("1.old.probe: holds serial number 1\n")) << sOutput_;
  EXPECT_TRUE(Says("001.probe: holds serial number 1\n")) << sOutput_;
  EXPECT_EQ(0, Run("show --probe 1"));  // a copy under another name does not count
  EXPECT_EQ(0, Run("show"));
  EXPECT_EQ(0, Run("show --probe 3"));
  EXPECT_EQ(0, Run("set --probe 3 default=yes"));
  EXPECT_EQ(0, Run("show"));
  EXPECT_TRUE(Says("Probe 3: STM32F103")) << sOutput_;
  std::ofstream(sDirectory_ + "/3.old.probe") << Content(sDirectory_ + "/3.probe");
  for (const char* sLine : {"wings = 3", "rubbish"}) {
    std::ofstream(sDirectory_ + "/3.probe", std::ios::app) << sLine << "\n";
    EXPECT_EQ(3, Run("show"));  // the default one, and no other in its place
    EXPECT_TRUE(Says("3.probe:1")) << sOutput_;
  }
  const std::string sBefore = Content(sDirectory_ + "/2.probe");
  for (const char* sCommand : {"show", "reset", "create F407", "set time=fast", "remove"}) {
    EXPECT_EQ(3, Run(std::string(sCommand) + " --probe 2")) << sCommand;
    EXPECT_TRUE(Says("2.probe:10: a probe has no setting")) << sOutput_;
  }
  EXPECT_EQ(sBefore, Content(sDirectory_ + "/2.probe"));
}

TEST_F(SimBench, OneDamagedDeviceDoesNotHideTheOthers) {
  EXPECT_EQ(0, Run("create F407 --probe 1"));
  EXPECT_EQ(0, Run("create F103 --probe 2"));
  std::ofstream(sDirectory_ + "/1.device") << "rubbish\n";
  EXPECT_EQ(3, Run("list"));
  EXPECT_TRUE(Says("STM32F103")) << sOutput_;
  EXPECT_EQ(0, unlink((sDirectory_ + "/1.device").c_str()));
  EXPECT_EQ(0, mkdir((sDirectory_ + "/1.device").c_str(), 0755));
  EXPECT_EQ(3, Run("show --probe 1"));
  EXPECT_TRUE(Says("Is a directory")) << sOutput_;
  EXPECT_EQ(3, Run("list"));
  EXPECT_EQ(0, rmdir((sDirectory_ + "/1.device").c_str()));
}

TEST_F(SimBench, WhatCannotBeReadAsAnImageIsNoImage) {
  EXPECT_EQ(2, Run("create F407 --flash /"));
  EXPECT_TRUE(Says("cannot be read")) << sOutput_;
  EXPECT_EQ(0, system(("mkdir -p '" + sDirectory_ + "' && truncate -s 1048577 '" + sDirectory_ +
                       "/large.bin'")
                          .c_str()));
  EXPECT_EQ(2, Run("create F407 --flash '" + sDirectory_ + "/large.bin'"));
  EXPECT_TRUE(Says("larger than the flash of 1048576 bytes")) << sOutput_;
}

TEST_F(SimBench, AValueStaysOnItsLine) {
  EXPECT_EQ(0, Run("create F407"));
  EXPECT_EQ(2, Run("set 'ip=1.2.3.4\nfault = lost 1'"));
  EXPECT_TRUE(Says("one line")) << sOutput_;
  EXPECT_EQ(0, Run("list"));
}

TEST_F(SimBench, AFileOfAbsurdSizeIsNotRead) {
  EXPECT_EQ(0, Run("create F407"));
  EXPECT_EQ(0, truncate((sDirectory_ + "/1.device").c_str(), 80 << 20));
  EXPECT_EQ(3, Run("show"));
  EXPECT_TRUE(Says("1.device: File too large")) << sOutput_;
}

// Whatever a file says, it is taken or refused, and what was taken works.
TEST_F(SimBench, DamagedFilesNeverHarm) {
  uint32_t Seed   = 1;
  auto     Random = [&Seed](uint32_t Limit) {
    Seed = Seed * 1664525 + 1013904223;
    return (Seed >> 8) % Limit;
  };
  ASSERT_EQ(0, mkdir(sDirectory_.c_str(), 0755));
  const std::string sPath = sDirectory_ + "/damaged";
  for (const sim::DEVICE_ROW* pRow : sim::AllDevices()) {
    sim::Device Good(*pRow);
    sim::FillFlash(&Good, 256);
    Good.PowerOn();
    sim::KeyFile File;
    Good.SaveTo(&File);
    File.Add("running.0.kind", "4");
    File.Add("running.0.argument", "0x08000000");
    File.Add("running.1.kind", "1");
    File.Add("running.1.argument", "0xFFFFFFFF");
    std::string sError;
    ASSERT_TRUE(sim::ReplaceFile(sPath, File.Text("damaged"), sim::UNTIL_EXIT, &sError)) << sError;
    const std::string sGood = Content(sPath);
    for (int i = 0; i < 25; i++) {
      std::string sText = sGood;
      for (uint32_t k = 0; k <= Random(3); k++) {
        const size_t At = Random(static_cast<uint32_t>(sText.size()));
        if (Random(4) == 0) {
          sText.resize(At + 1);
        } else {
          sText[At] = "0123456789ABCDEFx.=\n\" \xFF"[Random(22)];
        }
      }
      std::ofstream(sPath, std::ios::binary) << sText;
      sim::KeyFile Damaged;
      sim::Device  Target(*pRow);
      if (Damaged.Load(sPath, &sError) && Target.LoadFrom(Damaged, &sError)) {
        uint32_t Value = 0;
        Target.PowerOn();
        Target.AdvanceTo(Target.NowUs() + 1000000);
        Target.Read(pRow->pFacts->Memory[0].Base, 4, &Value);
        Target.Write(pRow->pFacts->Memory[0].Base, 4, 0);
        Target.SystemReset(true, "test");
        sim::KeyFile Again;
        Target.SaveTo(&Again);
      } else {
        EXPECT_FALSE(sError.empty());
      }
      sError.clear();
    }
  }
}

TEST_F(SimBench, AWriterThatIsKilledLeavesTheOldFileOrTheNewOne) {
  EXPECT_EQ(0, Run("create F429 --flash full"));
  sim::Bench     Where(sDirectory_);
  PROBE_SETTINGS Probe;
  Probe.SerialNo = 1;
  for (int i = 0; i < 20; i++) {
    const pid_t Writer = fork();
    if (Writer == 0) {
      sim::Device Target(*sim::FindDevice("STM32F429"));
      std::string sError;
      for (uint32_t Value = 0;; Value++) {
        for (uint32_t Word = 0; Word < 20000; Word++) {
          Target.Memories().Find(sim::MAIN_FLASH)->WordAt(0x08000000 + 4 * Word) = Value;
        }
        Target.Memories().Find(sim::MAIN_FLASH)->WordAt(0x0800FFFC) = ~Value;
        Where.SaveDevice(Probe, Target, sim::LINK(), &sError);
      }
    }
    usleep(static_cast<useconds_t>(3000 + 977 * i));
    ASSERT_EQ(0, kill(Writer, SIGKILL));
    ASSERT_EQ(Writer, waitpid(Writer, nullptr, 0));
    std::unique_ptr<sim::Device> pDevice;
    sim::LINK                    Link;
    std::string                  sError;
    ASSERT_TRUE(Where.LoadDevice(Probe, &pDevice, &Link, &sError)) << sError;
    sim::Memory* pFlash = pDevice->Memories().Find(sim::MAIN_FLASH);
    if (pFlash->WordAt(0x08000000) != 0x20001000) {  // not the one created
      EXPECT_EQ(pFlash->WordAt(0x08000000), ~pFlash->WordAt(0x0800FFFC));
    }
  }
  std::ofstream(sDirectory_ + "/1.device.12345.tmp") << "half a";
  std::ofstream(sDirectory_ + "/11.device.12345.tmp") << "another probe's";
  EXPECT_EQ(0, Run("reset"));
  EXPECT_NE(0, system(("ls '" + sDirectory_ + "' | grep -q '^1[.].*tmp'").c_str()));
  EXPECT_EQ(0, access((sDirectory_ + "/11.device.12345.tmp").c_str(), F_OK));
}

TEST_F(SimBench, ProcessesThatWriteAtOnceLoseNothing) {
  EXPECT_EQ(0, Run("create F407"));
  const std::string sCommand = "for i in 1 2 3 4 5 6 7 8 9 10 11 12; do ( '" QUOBE_BENCH_TOOL
                               "' set \"fault=lost $i\" 2>/dev/null && echo done $i ) & done; wait";
  FILE* pPipe = popen(sCommand.c_str(), "r");
  ASSERT_NE(nullptr, pPipe);
  size_t NumDone = 0;
  char   acLine[64];
  while (fgets(acLine, sizeof(acLine), pPipe) != nullptr) {
    NumDone++;
  }
  pclose(pPipe);
  EXPECT_GT(NumDone, 0u);
  std::vector<PROBE_SETTINGS> Probes;
  std::string                 sError;
  ASSERT_TRUE(sim::Bench(sDirectory_).List(&Probes, &sError)) << sError;
  ASSERT_EQ(1u, Probes.size());
  EXPECT_EQ(NumDone, Probes[0].Faults.size());  // who was told "done" was not overwritten
}

TEST_F(SimBench, AnEmptyBenchGetsOneDeviceHoweverManyAskForIt) {
  const std::string sCommand =
      "for i in 1 2 3 4 5 6; do '" QUOBE_BENCH_TOOL "' show >/dev/null 2>&1 & done; wait";
  EXPECT_EQ(0, system(sCommand.c_str()));
  EXPECT_EQ(0, Run("list"));
  EXPECT_TRUE(Says("STM32F407")) << sOutput_;
  EXPECT_FALSE(Says("No probes")) << sOutput_;
}
