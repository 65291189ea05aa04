// SPDX-License-Identifier: MIT

// The command line of the process; tests/app checks the values one by one.

#include <gtest/gtest.h>

#include "tests/support/tool_process.h"

static ToolResult RunWith(const std::vector<std::string>& Args) {
  ToolRun Run;
  Run.Args   = Args;
  Run.Script = "voltage 0\n";
  return RunTool(Run);
}

// A refused command line ends the line "Parsing command line..." with its message, waits 3 s, and
// makes one call: IsOpen.
static void ExpectRefused(const std::vector<std::string>& Args, const std::string& Message,
                          bool WaitsForKey = true) {
  const ToolResult Result = RunWith(Args);
  EXPECT_EQ("Parsing command line..." + Message + "\n<IsOpen()>" +
                (WaitsForKey ? "Press any key to exit.\n" : ""),
            AfterBanner(Result.Transcript));
  EXPECT_EQ("", Result.Error);
  EXPECT_EQ(255, Result.Status);
}

TEST(Options, MissingValueIsReportedWithTheTablesSpelling) {
  ExpectRefused({"-sPEED"}, "Missing command line parameter after command -Speed.");
}

TEST(Options, RefusedCommandLineStaysReadableForThreeSeconds) {
  const ToolResult Result = RunWith({"-Exit", "1", "-Speed"});
  EXPECT_GE(Result.ElapsedMs, 3000);
  EXPECT_LT(Result.ElapsedMs, 20000);
  EXPECT_EQ(255, Result.Status);
}

TEST(Options, RefusedSerialNumber) {
  ExpectRefused({"-SelectEmuBySN", "x"}, "ERROR while parsing value for -SelectEmuBySN.");
}

TEST(Options, RefusedSpeed) {
  ExpectRefused({"-Speed", "fast"}, "ERROR while parsing value for -speed.");
}

TEST(Options, RefusedPowerTarget) {
  ExpectRefused({"-SetPowerTarget", "-1"}, "ERROR while parsing value for -SetPowerTarget.");
}

TEST(Options, FamilyThirteenIsRefused) {
  ExpectRefused({"-SetDeviceFamily", "13"}, "ERROR while parsing value for -SetDeviceFamily.");
}

TEST(Options, FamilyZeroIsRefused) {
  ExpectRefused({"-SetDeviceFamily", "0"}, "ERROR while parsing value for -SetDeviceFamily.");
}

TEST(Options, FamilyExitIsRefused) {
  ExpectRefused({"-SetDeviceFamily", "Exit"}, "ERROR while parsing value for -SetDeviceFamily.");
}

TEST(Options, RefusedExitValue) {
  ExpectRefused({"-Exit", ""}, "ERROR while parsing value for -exit.");
}

TEST(Options, EarlierExitOptionCountsWhenALaterOptionIsRefused) {
  ExpectRefused({"-Exit", "1", "-Speed", "fast", "-SetPowerTarget"},
                "ERROR while parsing value for -speed.", false);
}

TEST(Options, LastOfAddressAndSerialNumberDecides) {
  const ToolResult Ethernet =
      RunWith({"-Exit", "1", "-SetDeviceFamily", "11", "-SelectEmuBySN", "123", "-ip", "10.0.0.7"});
  EXPECT_EQ("SelectIP(10.0.0.7, 0)", Ethernet.Calls.at(0));
  EXPECT_EQ("Open()", Ethernet.Calls.at(1));
  const ToolResult Usb =
      RunWith({"-Exit", "1", "-SetDeviceFamily", "11", "-IP", "10.0.0.7", "-SelectEmuBySN", "123"});
  EXPECT_EQ("EMU_SelectByUSBSN(123)", Usb.Calls.at(0));
}

TEST(Options, OptionTakesTheNextArgumentWhateverItLooksLike) {
  const ToolResult Result = RunWith({"-Exit", "1", "-SetDeviceFamily", "11", "-IP", "-Speed"});
  EXPECT_EQ("SelectIP(-Speed, 0)", Result.Calls.at(0));
}

TEST(Options, LongAddressIsKeptAsItsFirst127Characters) {
  const std::string Address = std::string(127, 'a');
  const ToolResult  Result =
      RunWith({"-Exit", "1", "-SetDeviceFamily", "11", "-IP", Address + std::string(73, 'b')});
  EXPECT_EQ("SelectIP(" + Address + ", 0)", Result.Calls.at(0));
}

TEST(Options, FamilyNameWithACommaIsOneArgument) {
  const ToolResult Result = RunWith({"-Exit", "1", "-SetDeviceFamily", "stm32f74xxx, stm32f75xxx"});
  EXPECT_NE(std::string::npos,
            Result.Output.find("Select device family: STM32F74xxx, STM32F75xxx\n"));
}
