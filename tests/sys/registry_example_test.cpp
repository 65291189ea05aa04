// SPDX-License-Identifier: MIT

// Runs examples/registry as a program.

#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/wait.h>

#include <string>

#include "tests/sys/support/temp_dir.h"

// Runs the example with that HOME ("none": without HOME) and returns its output and exit status.
static std::string RunExample(const std::string& sHome, int* pStatus) {
  const std::string sSet  = sHome == "none" ? "env -u HOME " : "HOME='" + sHome + "' ";
  FILE*             pPipe = popen((sSet + "'" REGISTRY_EXAMPLE "' 2>&1").c_str(), "r");
  std::string       sOutput;
  for (int c = fgetc(pPipe); c != EOF; c = fgetc(pPipe)) {
    sOutput += (char)c;
  }
  const int Ended = pclose(pPipe);
  *pStatus        = WEXITSTATUS(Ended);
  return sOutput;
}

TEST(RegistryExample, SetsQueriesAndListsAndLeavesItAllInTheFile) {
  const TempDir Home;
  for (int Run = 0; Run < 2; Run++) {  // the second run finds the values of the first
    int Status;
    EXPECT_EQ(
        "Device: STM32L0xxxx (11 characters)\n"
        "Speed: 4000 kHz\n"
        "SerialNo: 123456789ABC\n"
        "Recent: board.txt\n"
        "Recent: bench.txt\n"
        "Missing: no such value\n"
        "SYS_REG_TYPE_SZ        Device     STM32L0xxxx\n"
        "SYS_REG_TYPE_DWORD     Speed      0x00000FA0\n"
        "SYS_REG_TYPE_QWORD     SerialNo   0x0000123456789ABC\n"
        "SYS_REG_TYPE_MULTI_SZ  Recent     board.txt\n",
        RunExample(Home.Path(), &Status));
    EXPECT_EQ(0, Status);
    EXPECT_EQ(
        "<Registry>\r\n"
        "  <Software>\r\n"
        "    <RegistryExample Device=\"STM32L0xxxx\" Device_OSTRELRegType=\"SYS_REG_TYPE_SZ\""
        " Speed=\"0x00000FA0\" Speed_OSTRELRegType=\"SYS_REG_TYPE_DWORD\""
        " SerialNo=\"0x0000123456789ABC\" SerialNo_OSTRELRegType=\"SYS_REG_TYPE_QWORD\""
        " Recent=\"board.txt\" Recent_OSTRELRegMltStr1=\"bench.txt\""
        " Recent_OSTRELRegType=\"SYS_REG_TYPE_MULTI_SZ\"/>\r\n"
        "  </Software>\r\n"
        "</Registry>\r\n",
        ReadFile(Home.Path("Library/Application Support/OSTREL") +
                 "/OSTREL_REG_HKEY_CURRENT_USER.xml"));
  }
}

TEST(RegistryExample, SaysSoWhenTheStoreCannotBeUsed) {
  int Status;
  EXPECT_EQ("The registry store cannot be used; is HOME set?\n", RunExample("none", &Status));
  EXPECT_EQ(1, Status);
}
