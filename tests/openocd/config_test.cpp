// SPDX-License-Identifier: MIT

#include "openocd/config.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

namespace {

// Parses a text as the file "a.conf". The record is large, so there is one for all tests.
CONFIG      Config;
std::string sError;

bool Parse(const std::string& sText) {
  char acError[256] = "#";
  Config            = CONFIG{};
  strcpy(Config.acPath, "a.conf");
  const bool Good = CONFIG_Parse(&Config, sText.data(), sText.size(), acError, sizeof(acError));
  sError          = acError;
  return Good;
}

TEST(openocd_config, an_empty_file_gives_the_defaults) {
  for (const char* sText : {"", "\n", "# driver = x\n", "  \t\r\n\n"}) {
    ASSERT_TRUE(Parse(sText)) << sError;
    EXPECT_EQ("", sError);
    EXPECT_EQ(CONFIG_DRIVER_ANY, Config.Driver);
    EXPECT_EQ(-1, Config.VTargetmV);
    EXPECT_EQ(0u, Config.SpeedLimit);
    EXPECT_FALSE(Config.ResetByPin);
    EXPECT_FALSE(Config.ConnectUnderReset);
    EXPECT_EQ(0, Config.NumSerials);
    EXPECT_STREQ("", Config.acOpenocd);
    EXPECT_STREQ("", Config.acPowerOn);
    EXPECT_STREQ("", Config.acPowerOff);
    EXPECT_STREQ("", Config.acLog);
    EXPECT_STREQ("", Config.acTrace);
  }
}

TEST(openocd_config, each_key_is_taken) {
  ASSERT_TRUE(Parse("driver = interface/ftdi/x_y-1.cfg\r\n"
                    "openocd=/opt/my openocd/bin/openocd\n"
                    " serial.7 = 066BFF3 \n"
                    "serial.7\t=\tX\n"
                    "# comment\n") == false);
  ASSERT_TRUE(
      Parse("driver = interface/ftdi/x_y-1.cfg\r\n"
            "openocd=/opt/my openocd/bin/openocd\n"
            " serial.7 = 066BFF3 \n"
            "serial.4294967295\t=\tA:b/c.d_e-f\n"
            "vtarget = 1800\n"
            "reset = pin\n"
            "connect = under-reset\n"
            "speed = 240\n"
            "power_on = exec relay {on} [x]\n"
            "power_off = set a \\}\n"
            "log = /tmp/a b.log\n"
            "trace = trace.txt"))
      << sError;
  EXPECT_EQ(CONFIG_DRIVER_FILE, Config.Driver);
  EXPECT_STREQ("interface/ftdi/x_y-1.cfg", Config.acDriverFile);
  EXPECT_STREQ("/opt/my openocd/bin/openocd", Config.acOpenocd);
  ASSERT_EQ(2, Config.NumSerials);
  EXPECT_EQ(7u, Config.aSerials[0].Number);
  EXPECT_STREQ("066BFF3", Config.aSerials[0].acText);
  EXPECT_EQ(4294967295u, Config.aSerials[1].Number);
  EXPECT_STREQ("A:b/c.d_e-f", Config.aSerials[1].acText);
  EXPECT_EQ(1800, Config.VTargetmV);
  EXPECT_TRUE(Config.ResetByPin);
  EXPECT_TRUE(Config.ConnectUnderReset);
  EXPECT_EQ(240u, Config.SpeedLimit);
  EXPECT_STREQ("exec relay {on} [x]", Config.acPowerOn);
  EXPECT_STREQ("set a \\}", Config.acPowerOff);
  EXPECT_STREQ("/tmp/a b.log", Config.acLog);
  EXPECT_STREQ("trace.txt", Config.acTrace);
}

TEST(openocd_config, drivers_resets_and_connections_have_names) {
  ASSERT_TRUE(Parse("driver = st-link\nreset = core\nconnect = normal\n"));
  EXPECT_EQ(CONFIG_DRIVER_STLINK, Config.Driver);
  EXPECT_FALSE(Config.ResetByPin);
  EXPECT_FALSE(Config.ConnectUnderReset);
  ASSERT_TRUE(Parse("driver = cmsis-dap"));
  EXPECT_EQ(CONFIG_DRIVER_CMSIS_DAP, Config.Driver);
}

struct ErrorRow {
  const char* sText;
  const char* sError;
};

const ErrorRow aErrors[] = {
    {"\n\nfrobnicate = 1\n", "a.conf:3: unknown key \"frobnicate\""},
    {"Driver = st-link", "a.conf:1: unknown key \"Driver\""},
    {"driver\n", "a.conf:1: expected \"key = value\""},
    {"driver =\n", "a.conf:1: expected \"key = value\""},
    {"= st-link\n", "a.conf:1: expected \"key = value\""},
    {"speed = 1\nspeed = 1\n", "a.conf:2: \"speed\" is given twice"},
    {"driver = jtag\n",
     "a.conf:1: \"driver = jtag\": expected st-link, cmsis-dap or an OpenOCD interface file that "
     "ends in .cfg"},
    {"driver = .cfg\n",
     "a.conf:1: \"driver = .cfg\": expected st-link, cmsis-dap or an OpenOCD interface file that "
     "ends in .cfg"},
    {"driver = a]b.cfg\n",
     "a.conf:1: \"driver = a]b.cfg\": expected a file name of letters, digits and . _ : / - only"},
    {"driver = a b.cfg\n",
     "a.conf:1: \"driver = a b.cfg\": expected a file name of letters, digits and . _ : / - only"},
    {"serial.1 = a[exit]\n",
     "a.conf:1: \"serial.1 = a[exit]\": expected a serial number of letters, digits and . _ : / - "
     "only"},
    {"serial.1 = $x\n",
     "a.conf:1: \"serial.1 = $x\": expected a serial number of letters, digits and . _ : / - only"},
    {"serial. = x\n", "a.conf:1: \"serial. = x\": expected a decimal number after \"serial.\""},
    {"serial.0x1 = x\n",
     "a.conf:1: \"serial.0x1 = x\": expected a decimal number after \"serial.\""},
    {"serial.4294967296 = x\n",
     "a.conf:1: \"serial.4294967296 = x\": expected a decimal number after \"serial.\""},
    {"serial.1 = x\nserial.01 = y\n", "a.conf:2: \"serial.01 = y\": expected each number once"},
    {"vtarget = 3.3\n", "a.conf:1: \"vtarget = 3.3\": expected millivolts from 0 to 65535"},
    {"vtarget = 65536\n", "a.conf:1: \"vtarget = 65536\": expected millivolts from 0 to 65535"},
    {"vtarget = -1\n", "a.conf:1: \"vtarget = -1\": expected millivolts from 0 to 65535"},
    {"reset = Pin\n", "a.conf:1: \"reset = Pin\": expected core or pin"},
    {"connect = reset\n", "a.conf:1: \"connect = reset\": expected normal or under-reset"},
    {"speed = 0\n", "a.conf:1: \"speed = 0\": expected kHz from 1 to 100000"},
    {"speed = 100001\n", "a.conf:1: \"speed = 100001\": expected kHz from 1 to 100000"},
    {"speed = 4 MHz\n", "a.conf:1: \"speed = 4 MHz\": expected kHz from 1 to 100000"},
    {"power_on = a } b {\n",
     "a.conf:1: \"power_on = a } b {\": expected Tcl with as many closing braces as opening ones"},
    {"power_off = {\n",
     "a.conf:1: \"power_off = {\": expected Tcl with as many closing braces as opening ones"},
    {"power_off = a \\\n",
     "a.conf:1: \"power_off = a \\\": expected Tcl with as many closing braces as opening ones"},
    {"log = a\x1A\n", "a.conf:1: a control character"},
    {"log = a\x7F\n", "a.conf:1: a control character"},
};

TEST(openocd_config, what_is_wrong_is_told_with_file_and_line) {
  for (const ErrorRow& Row : aErrors) {
    EXPECT_FALSE(Parse(Row.sText)) << Row.sText;
    EXPECT_EQ(Row.sError, sError);
  }
  EXPECT_FALSE(Parse(std::string("log = a\0b\n", 10)));
  EXPECT_EQ("a.conf:1: a control character", sError);
}

TEST(openocd_config, a_value_at_the_limit_is_taken_and_one_beyond_it_is_refused) {
  EXPECT_TRUE(Parse("trace = " + std::string(CONFIG_MAX_PATH - 1, 'x')));
  EXPECT_EQ(size_t{CONFIG_MAX_PATH - 1}, strlen(Config.acTrace));
  EXPECT_FALSE(Parse("trace = " + std::string(CONFIG_MAX_PATH, 'x')));
  EXPECT_NE(std::string::npos, sError.find("a.conf:1: \"trace = xxx"));
  EXPECT_FALSE(Parse("\ntrace = " + std::string(3000, 'x')));
  EXPECT_EQ("a.conf:2: the line is too long", sError);
  std::string sMany;
  for (int i = 0; i < CONFIG_MAX_SERIALS; i++) {
    sMany += "serial." + std::to_string(i) + " = s\n";
  }
  EXPECT_TRUE(Parse(sMany));
  EXPECT_FALSE(Parse(sMany + "serial.9999 = s\n"));
  EXPECT_EQ("a.conf:65: \"serial.9999 = s\": expected at most 64 serial numbers", sError);
}

TEST(openocd_config, a_serial_number_without_a_row_is_its_decimal_text) {
  char acText[CONFIG_MAX_SERIAL];
  ASSERT_TRUE(Parse("serial.7 = ABC\n"));
  CONFIG_SerialText(&Config, 7, acText, sizeof(acText));
  EXPECT_STREQ("ABC", acText);
  CONFIG_SerialText(&Config, 4294967295u, acText, sizeof(acText));
  EXPECT_STREQ("4294967295", acText);
}

class OpenocdConfigFile : public testing::Test {
 protected:
  OpenocdConfigFile() {
    char acTemplate[] = "/tmp/openocd_config_XXXXXX";
    sHome_            = mkdtemp(acTemplate);
    setenv("HOME", sHome_.c_str(), 1);
    unsetenv("QUOBE_OPENOCD");
  }

  ~OpenocdConfigFile() override {
    unlink((sHome_ + "/.config/quobe/openocd.conf").c_str());
    rmdir((sHome_ + "/.config/quobe").c_str());
    rmdir((sHome_ + "/.config").c_str());
    rmdir(sHome_.c_str());
  }

  bool Load() {
    acError_[0] = '\0';
    return CONFIG_Load(&Config, acError_, sizeof(acError_));
  }

  void WriteDefault(const char* sText) {
    mkdir((sHome_ + "/.config").c_str(), 0755);
    mkdir((sHome_ + "/.config/quobe").c_str(), 0755);
    FILE* pFile = fopen((sHome_ + "/.config/quobe/openocd.conf").c_str(), "w");
    ASSERT_NE(nullptr, pFile);
    fputs(sText, pFile);
    fclose(pFile);
  }

  std::string sHome_;
  char        acError_[512] = "";
};

TEST_F(OpenocdConfigFile, no_file_is_needed) {
  EXPECT_TRUE(Load());
  EXPECT_EQ(sHome_ + "/.config/quobe/openocd.conf", Config.acPath);
}

TEST_F(OpenocdConfigFile, no_home_is_needed) {
  setenv("HOME", "/dev/null", 1);
  EXPECT_TRUE(Load()) << acError_;
  setenv("QUOBE_OPENOCD", "/dev/null", 1);
  EXPECT_TRUE(Load()) << acError_;
  EXPECT_STREQ("/dev/null", Config.acPath);
}

TEST_F(OpenocdConfigFile, a_pipe_is_refused_at_once) {
  const std::string sPipe = sHome_ + "/pipe";
  ASSERT_EQ(0, mkfifo(sPipe.c_str(), 0600));
  setenv("QUOBE_OPENOCD", sPipe.c_str(), 1);
  EXPECT_FALSE(Load());
  EXPECT_EQ(sPipe + ": Invalid argument", acError_);
  unlink(sPipe.c_str());
}

TEST_F(OpenocdConfigFile, the_one_in_the_home_directory_is_read) {
  WriteDefault("speed = 5\n");
  ASSERT_TRUE(Load()) << acError_;
  EXPECT_EQ(5u, Config.SpeedLimit);
}

TEST_F(OpenocdConfigFile, its_errors_name_it) {
  WriteDefault("speed = x\n");
  EXPECT_FALSE(Load());
  EXPECT_EQ(sHome_ + "/.config/quobe/openocd.conf:1: \"speed = x\": expected kHz from 1 to 100000",
            acError_);
}

TEST_F(OpenocdConfigFile, one_that_the_environment_names_must_be_there) {
  WriteDefault("speed = 5\n");
  setenv("QUOBE_OPENOCD", "/nonexistent/a.conf", 1);
  EXPECT_FALSE(Load());
  EXPECT_STREQ("/nonexistent/a.conf: No such file or directory", acError_);
  setenv("QUOBE_OPENOCD", sHome_.c_str(), 1);
  EXPECT_FALSE(Load());
  EXPECT_EQ(sHome_ + ": Is a directory", acError_);
}

TEST_F(OpenocdConfigFile, one_that_is_too_long_is_refused) {
  WriteDefault(std::string(CONFIG_MAX_BYTES + 1, '\n').c_str());
  EXPECT_FALSE(Load());
  EXPECT_EQ(sHome_ + "/.config/quobe/openocd.conf: File too large", acError_);
  WriteDefault(std::string(CONFIG_MAX_BYTES, '\n').c_str());
  EXPECT_TRUE(Load());
}

}  // namespace
