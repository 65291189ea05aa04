// SPDX-License-Identifier: MIT

#include "app/options.h"

#include <gtest/gtest.h>
#include <string.h>

#include <string>
#include <vector>

static int32_t Parse(UNLOCK_SETTINGS* pSettings, std::vector<const char*> Args,
                     std::string* pOutput = nullptr) {
  Args.insert(Args.begin(), "quobe-unlock");
  SetDefaultSettings(pSettings);
  testing::internal::CaptureStdout();
  const int32_t Result = ParseCommandLine(pSettings, static_cast<int>(Args.size()), Args.data());
  const std::string Output = testing::internal::GetCapturedStdout();
  if (pOutput != nullptr) {
    *pOutput = Output;
  }
  return Result;
}

TEST(AppOptions, DefaultsAreUsbAnyProbeAt1000kHz) {
  UNLOCK_SETTINGS Settings;
  memset(&Settings, 0xFF, sizeof(Settings));
  SetDefaultSettings(&Settings);
  EXPECT_EQ(1000u, Settings.Speed);
  EXPECT_EQ(0, Settings.IPAddr[0]);
  EXPECT_EQ(0, Settings.IPAddr[127]);
  EXPECT_EQ(0u, Settings.SerialNo);
  EXPECT_EQ(1u, Settings.HostIF);
  EXPECT_EQ(0u, Settings.PowerTarget);
  EXPECT_EQ(0u, Settings.FamilyIndex);
  EXPECT_EQ(0u, Settings.NoExitWait);
}

TEST(AppOptions, TableHoldsSixOptionsInOrderAndAnEnd) {
  static const char* const Names[] = {
      "-IP", "-SelectEmuBySN", "-Speed", "-SetPowerTarget", "-SetDeviceFamily", "-Exit"};
  for (int i = 0; i < 6; i++) {
    EXPECT_STREQ(Names[i], OptionTable[i].Option);
    EXPECT_NE(nullptr, OptionTable[i].Handler);
  }
  EXPECT_EQ(nullptr, OptionTable[6].Option);
  EXPECT_EQ(nullptr, OptionTable[6].Handler);
}

TEST(AppOptions, SpeedTakesKilohertzAutoAndAdaptive) {
  UNLOCK_SETTINGS Settings;
  const struct {
    const char* sValue;
    uint32_t    Speed;
  } Cases[] = {{"AUTO", 0},     {"auto", 0},       {"Adaptive", 0xFFFF},
               {" 4000", 4000}, {"4000kHz", 4000}, {"100000", 100000},
               {"0", 0}};
  for (const auto& Case : Cases) {
    EXPECT_EQ(0, Parse(&Settings, {"-Speed", Case.sValue})) << Case.sValue;
    EXPECT_EQ(Case.Speed, Settings.Speed) << Case.sValue;
  }
  std::string Output;
  EXPECT_EQ(-1, Parse(&Settings, {"-Speed", "fast"}, &Output));
  EXPECT_EQ("ERROR while parsing value for -speed.\n", Output);
  EXPECT_EQ(-1, Parse(&Settings, {"-Speed", "automatic"}));
}

TEST(AppOptions, AddressSelectsEthernetAndIsCutAt127Characters) {
  UNLOCK_SETTINGS   Settings;
  const std::string Long(200, 'x');
  EXPECT_EQ(0, Parse(&Settings, {"-ip", Long.c_str()}));
  EXPECT_EQ(std::string(127, 'x'), Settings.IPAddr);
  EXPECT_EQ(2u, Settings.HostIF);
  EXPECT_EQ(0u, Settings.SerialNo);  // the field after the text
}

TEST(AppOptions, LastOfAddressAndSerialNumberDecidesTheInterface) {
  UNLOCK_SETTINGS Settings;
  EXPECT_EQ(0, Parse(&Settings, {"-SelectEmuBySN", "123", "-IP", "a"}));
  EXPECT_EQ(2u, Settings.HostIF);
  EXPECT_EQ(123u, Settings.SerialNo);
  EXPECT_EQ(0, Parse(&Settings, {"-IP", "a", "-SelectEmuBySN", "123"}));
  EXPECT_EQ(1u, Settings.HostIF);
  EXPECT_STREQ("a", Settings.IPAddr);
}

TEST(AppOptions, RefusedSerialNumberLeavesTheInterface) {
  UNLOCK_SETTINGS Settings;
  EXPECT_EQ(-1, Parse(&Settings, {"-IP", "a", "-SelectEmuBySN", "x"}));
  EXPECT_EQ(2u, Settings.HostIF);
}

TEST(AppOptions, FamilyByNameInAnyCaseOrByNumber) {
  UNLOCK_SETTINGS Settings;
  EXPECT_EQ(0, Parse(&Settings, {"-SetDeviceFamily", "stm32l4x6xx"}));
  EXPECT_EQ(12u, Settings.FamilyIndex);
  EXPECT_EQ(0, Parse(&Settings, {"-SetDeviceFamily", "STM32F72xxx, STM32F73xxx"}));
  EXPECT_EQ(6u, Settings.FamilyIndex);
  for (uint32_t i = 1; i <= 12; i++) {
    EXPECT_EQ(0, Parse(&Settings, {"-SetDeviceFamily", std::to_string(i).c_str()}));
    EXPECT_EQ(i, Settings.FamilyIndex);
  }
}

TEST(AppOptions, AnythingThatIsNotAFamilyIsRefused) {
  UNLOCK_SETTINGS Settings;
  for (const char* sValue : {"13", "0", "Exit", "exit", "STM32", "", "4294967295"}) {
    std::string Output;
    EXPECT_EQ(-1, Parse(&Settings, {"-SetDeviceFamily", sValue}, &Output)) << sValue;
    EXPECT_EQ("ERROR while parsing value for -SetDeviceFamily.\n", Output) << sValue;
    EXPECT_EQ(0u, Settings.FamilyIndex);
  }
}

TEST(AppOptions, PowerTargetAndExitKeepAll32Bits) {
  UNLOCK_SETTINGS Settings;
  EXPECT_EQ(0, Parse(&Settings, {"-SetPowerTarget", "5", "-Exit", "7"}));
  EXPECT_EQ(5u, Settings.PowerTarget);
  EXPECT_EQ(7u, Settings.NoExitWait);
  EXPECT_EQ(0, Parse(&Settings, {"-SetPowerTarget", "256", "-Exit", "2147483648"}));
  EXPECT_EQ(256u, Settings.PowerTarget);
  EXPECT_EQ(2147483648u, Settings.NoExitWait);
}

TEST(AppOptions, UnknownArgumentsAreSkippedOneByOne) {
  UNLOCK_SETTINGS Settings;
  std::string     Output;
  EXPECT_EQ(0, Parse(&Settings, {"-Speedy", "-Speed", "4", "x"}, &Output));
  EXPECT_EQ(4u, Settings.Speed);
  EXPECT_EQ("", Output);
}

TEST(AppOptions, MissingValueEndsTheWalkAndKeepsEarlierSettings) {
  UNLOCK_SETTINGS Settings;
  std::string     Output;
  EXPECT_EQ(-1, Parse(&Settings, {"-Exit", "1", "-exit"}, &Output));
  EXPECT_EQ("Missing command line parameter after command -Exit.\n", Output);
  EXPECT_EQ(1u, Settings.NoExitWait);
}

TEST(AppOptions, LaterValueOfAnOptionOverwritesTheEarlier) {
  UNLOCK_SETTINGS Settings;
  EXPECT_EQ(0, Parse(&Settings, {"-Speed", "1", "-SPEED", "2"}));
  EXPECT_EQ(2u, Settings.Speed);
}
