// quobe-bench as its users meet it, and the bench's files.

#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include "sim/bench.h"

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
    FILE* pPipe = popen((QUOBE_BENCH_TOOL " " + sArguments + " 2>&1").c_str(), "r");
    sOutput_.clear();
    char acLine[512];
    while (fgets(acLine, sizeof(acLine), pPipe) != nullptr) {
      sOutput_ += acLine;
    }
    const int Status = pclose(pPipe);  // has to have an address: macOS's macro takes it
    return WEXITSTATUS(Status);
  }
  bool Says(const char* sText) const { return sOutput_.find(sText) != std::string::npos; }

  std::string sDirectory_, sOutput_;
};

TEST_F(SimBench, ADeliveredDeviceOfEveryKindIsAtFactoryState) {
  for (const sim::DEVICE_ROW* pRow : sim::AllDevices()) {
    EXPECT_EQ(0, Run(std::string("create ") + pRow->sName)) << sOutput_;
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
      {"create L476 --wrp 1,3", "one area"},
      {"--probe zero list", "serial number"},
      {"set vtarget=99999", "no value for vtarget"},
      {"set wings=2", "no setting"},
      {"set fault=\"lost\"", "lost OPERATION"},
      {"set fault=\"lost 0\"", "lost OPERATION"},
      {"show --all", "unknown argument"},
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
  EXPECT_EQ(0, Run("create F103 --flash " + sImage));
  sim::Bench                   Where(sDirectory_);
  sim::PROBE                   Probe;
  std::unique_ptr<sim::Device> pDevice;
  sim::LINK                    Link;
  std::string                  sError;
  ASSERT_TRUE(Where.FindDefault(&Probe, &sError)) << sError;
  ASSERT_TRUE(Where.LoadDevice(Probe, &pDevice, &Link, &sError)) << sError;
  EXPECT_EQ(0x04030201u, pDevice->FindMemory(sim::MAIN_FLASH)->WordAt(0x08000000));
  EXPECT_EQ(0xFFFFFF05u, pDevice->FindMemory(sim::MAIN_FLASH)->WordAt(0x08000004));
}

TEST_F(SimBench, EveryDeviceComesBackFromItsFileAsItWas) {
  for (const sim::DEVICE_ROW* pRow : sim::AllDevices()) {
    sim::Device Before(*pRow);
    sim::FillFlash(&Before, 3000);
    Before.FindMemory(sim::MAIN_FLASH)->WordAt(pRow->aMemories[0].Base + 0x1000) = 0xCAFEBABE;
    Before.PowerOn();
    sim::KeyFile First, Second;
    Before.SaveTo(&First);
    sim::Device After(*pRow);
    std::string sError;
    ASSERT_TRUE(After.LoadFrom(First, &sError)) << sError;
    After.SaveTo(&Second);
    EXPECT_EQ(First.Lines(), Second.Lines()) << pRow->sName;
  }
}

TEST_F(SimBench, APowerCycleLoadsWhatAResetDoesNot) {
  EXPECT_EQ(0, Run("create L073 --rdp 1"));
  EXPECT_EQ(0, Run("power-cycle"));
  sim::Bench                   Where(sDirectory_);
  sim::PROBE                   Probe;
  std::unique_ptr<sim::Device> pDevice;
  sim::LINK                    Link;
  std::string                  sError;
  ASSERT_TRUE(Where.FindDefault(&Probe, &sError)) << sError;
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
