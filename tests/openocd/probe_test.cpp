// SPDX-License-Identifier: MIT

// The 16 operations of the built library, opened as the tool opens it.

#include <dlfcn.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>

// Both headers declare the operations: a difference between the library and the tool does not compile.
#include "openocd/quobearm.h"
#include "probeapi/quobearm.h"
#include "tests/openocd/scripted.h"

namespace {

using Lines = std::vector<std::string>;

class OpenocdProbe : public Scripted {
 protected:
  OpenocdProbe() : hLibrary_(dlopen(QUOBE_OPENOCD_LIBRARY, RTLD_NOW | RTLD_LOCAL)) {
    EXPECT_NE(nullptr, hLibrary_) << dlerror();
    Find("QUOBEARM_IsOpen", &IsOpen);
    Find("QUOBEARM_SelectIP", &SelectIP);
    Find("QUOBEARM_EMU_SelectByUSBSN", &SelectByUSBSN);
    Find("QUOBEARM_Open", &Open);
    Find("QUOBEARM_Close", &Close);
    Find("QUOBEARM_ExecCommand", &ExecCommand);
    Find("QUOBEARM_TIF_Select", &TifSelect);
    Find("QUOBEARM_SetSpeed", &SetSpeed);
    Find("QUOBEARM_GetSpeed", &GetSpeed);
    Find("QUOBEARM_GetHWStatus", &GetHWStatus);
    Find("QUOBEARM_SetResetType", &SetResetType);
    Find("QUOBEARM_SetResetDelay", &SetResetDelay);
    Find("QUOBEARM_Reset", &Reset);
    Find("QUOBEARM_ReadMemU32", &ReadMemU32);
    Find("QUOBEARM_WriteU32", &WriteU32);
    Find("QUOBEARM_WriteU16", &WriteU16);
  }

  ~OpenocdProbe() override {
    Close();
    ExpectNothingLeft();
    dlclose(hLibrary_);
  }

  template <typename TYPE>
  void Find(const char* sName, TYPE* pOperation) {
    *pOperation = reinterpret_cast<TYPE>(dlsym(hLibrary_, sName));
    EXPECT_NE(nullptr, *pOperation) << sName;
  }

  // Open's text, "" when it succeeded.
  std::string OpenText() {
    const char* sText = Open();
    return sText != nullptr ? sText : "";
  }

  // Up to where the tool begins with its resets; the requests until then are taken as seen.
  void Connect(const std::string& sRules = "") {
    Rules(sRules);
    ASSERT_EQ("", OpenText());
    ASSERT_EQ(0, TifSelect(1));
    NewRequests();
  }

  uint32_t Voltage() {
    HWSTATUS Status = {};
    memset(&Status, 0xEE, sizeof(Status));
    const bool Good = GetHWStatus(&Status) == 0;
    for (const uint8_t Byte : Status.aFurther) {
      EXPECT_EQ(0xEE, Byte);
    }
    return Good ? Status.VTarget : 99999;
  }

  std::string Command(const char* sCommand) {
    char          acError[4000] = "#";
    const int32_t Result        = ExecCommand(sCommand, acError, sizeof(acError));
    EXPECT_EQ(acError[0] == '\0', Result == 0);
    return acError;
  }

  decltype(&QUOBEARM_IsOpen)            IsOpen        = nullptr;
  decltype(&QUOBEARM_SelectIP)          SelectIP      = nullptr;
  decltype(&QUOBEARM_EMU_SelectByUSBSN) SelectByUSBSN = nullptr;
  decltype(&QUOBEARM_Open)              Open          = nullptr;
  decltype(&QUOBEARM_Close)             Close         = nullptr;
  decltype(&QUOBEARM_ExecCommand)       ExecCommand   = nullptr;
  decltype(&QUOBEARM_TIF_Select)        TifSelect     = nullptr;
  decltype(&QUOBEARM_SetSpeed)          SetSpeed      = nullptr;
  decltype(&QUOBEARM_GetSpeed)          GetSpeed      = nullptr;
  decltype(&QUOBEARM_GetHWStatus)       GetHWStatus   = nullptr;
  decltype(&QUOBEARM_SetResetType)      SetResetType  = nullptr;
  decltype(&QUOBEARM_SetResetDelay)     SetResetDelay = nullptr;
  decltype(&QUOBEARM_Reset)             Reset         = nullptr;
  decltype(&QUOBEARM_ReadMemU32)        ReadMemU32    = nullptr;
  decltype(&QUOBEARM_WriteU32)          WriteU32      = nullptr;
  decltype(&QUOBEARM_WriteU16)          WriteU16      = nullptr;

 private:
  void* hLibrary_;
};

TEST_F(OpenocdProbe, the_library_exports_the_16_operations_and_nothing_else) {
#ifdef __APPLE__
  const char* sCommand = "nm -gUj '" QUOBE_OPENOCD_LIBRARY "' | sed 's/^_//' | LC_ALL=C sort";
#else
  const char* sCommand =
      "nm -D --defined-only --format=just-symbols '" QUOBE_OPENOCD_LIBRARY "' | LC_ALL=C sort";
#endif
  FILE* pNames = popen(sCommand, "r");
  ASSERT_NE(nullptr, pNames);
  std::string sNames;
  char        acLine[256];
  while (fgets(acLine, sizeof(acLine), pNames) != nullptr) {
    sNames += acLine;
  }
  pclose(pNames);
  EXPECT_EQ(
      "QUOBEARM_Close\nQUOBEARM_EMU_SelectByUSBSN\nQUOBEARM_ExecCommand\nQUOBEARM_GetHWStatus\n"
      "QUOBEARM_GetSpeed\nQUOBEARM_IsOpen\nQUOBEARM_Open\nQUOBEARM_ReadMemU32\nQUOBEARM_Reset\n"
      "QUOBEARM_SelectIP\nQUOBEARM_SetResetDelay\nQUOBEARM_SetResetType\nQUOBEARM_SetSpeed\n"
      "QUOBEARM_TIF_Select\nQUOBEARM_WriteU16\nQUOBEARM_WriteU32\n",
      sNames);
}

// -- Opening -------------------------------------------------------------------------------------

static const char sTransport[] =
    "if {[catch {transport select swd}]} {transport select dapdirect_swd}";
static const char sTarget[] =
    "source [find target/swj-dp.tcl]; swj_newdap stm32 cpu -irlen 4; dap create stm32.dap "
    "-chain-position stm32.cpu; target create stm32.mem mem_ap -dap stm32.dap -ap-num 0 "
    "-defer-examine";
static const char sInit[] = "set l [capture {set c [catch {init}]}]; list $c $l";

TEST_F(OpenocdProbe, open_sets_up_a_target_of_no_family_and_looks_at_debug_registers_only) {
  EXPECT_EQ("", OpenText());
  EXPECT_EQ(
      (Lines{"version", "adapter driver cmsis-dap", sTransport, "adapter speed 1000", sTarget,
             sInit, "adapter name", "stm32.dap dpreg 0x0", "stm32.dap dpreg 0x4",
             "stm32.dap apreg 0 0xFC", "stm32.mem arp_examine",
             "stm32.mem read_memory 0xE000ED00 32 1", "stm32.mem read_memory 0xE000EDF0 32 1"}),
      Requests());
  EXPECT_EQ(1u, IsOpen());
  EXPECT_EQ("", OpenText());
  EXPECT_EQ(1u, Programs().size());
}

TEST_F(OpenocdProbe, close_lets_the_core_run_and_leaves_no_process) {
  Connect();
  Close();
  EXPECT_EQ((Lines{"stm32.mem write_memory 0xE000EDFC 32 {0x0}",
                   "stm32.mem write_memory 0xE000EDF0 32 {0xA05F0000}"}),
            NewRequests());
  ExpectNothingLeft();
  EXPECT_EQ(0u, IsOpen());
  Close();
  EXPECT_EQ(Lines{}, NewRequests());
}

TEST_F(OpenocdProbe, without_a_driver_an_st_link_is_tried_and_then_cmsis_dap) {
  Configure("");
  RulesOfNext(1, "{init} 1 result {-4 {open failed\\n}}\ncommand 1 exit 255\n");
  EXPECT_EQ("", OpenText());
  const Lines All = Requests();
  EXPECT_EQ("adapter driver st-link", All[1]);
  EXPECT_EQ(sInit, All[5]);
  EXPECT_EQ("command mode", All[6]);
  EXPECT_EQ("adapter driver cmsis-dap", All[8]);
}

TEST_F(OpenocdProbe, an_interface_file_is_read) {
  Configure("driver = interface/my_adapter.cfg\nspeed = 480\n");
  EXPECT_EQ("", OpenText());
  EXPECT_EQ("source [find interface/my_adapter.cfg]", Requests()[1]);
  EXPECT_EQ("adapter speed 480", Requests()[3]);
}

TEST_F(OpenocdProbe, a_serial_number_is_the_text_of_the_configuration_or_the_number) {
  Configure("driver = cmsis-dap\nserial.7 = ABC/1\n");
  EXPECT_EQ(0, SelectByUSBSN(7));
  EXPECT_EQ("", OpenText());
  EXPECT_EQ("adapter serial ABC/1", Requests()[2]);
  Close();
  NewRequests();
  SelectByUSBSN(4000000000u);
  EXPECT_EQ("", OpenText());
  EXPECT_EQ("adapter serial 4000000000", NewRequests()[2]);
}

TEST_F(OpenocdProbe, a_connection_under_reset_halts_at_the_vector) {
  Configure("driver = cmsis-dap\nconnect = under-reset\n");
  EXPECT_EQ("", OpenText());
  const Lines All = Requests();
  EXPECT_EQ("reset_config srst_only srst_nogate connect_assert_srst", All[4]);
  const Lines Last(All.end() - 5, All.end());
  EXPECT_EQ((Lines{"stm32.mem read_memory 0xE000ED00 32 1",
                   "stm32.mem write_memory 0xE000EDF0 32 {0xA05F0001}",
                   "stm32.mem write_memory 0xE000EDFC 32 {0x1000001}", "adapter deassert srst",
                   "stm32.mem read_memory 0xE000EDF0 32 1"}),
            Last);
}

struct OpenRow {
  const char* sConfig;
  const char* sRules;
  const char* sText;  // "%C" stands for the configuration's path, "%P" for the program's
};

const OpenRow aOpenFailures[] = {
    {"driver = cmsis-dap\n", "* 1 exit 1\n", "OpenOCD has ended (%P)"},
    {"driver = cmsis-dap\nspeed = x\n", "", "%C:2: \"speed = x\": expected kHz from 1 to 100000"},
    {"driver = cmsis-dap\ntrace = /nonexistent/t\n", "",
     "%C: trace = /nonexistent/t: No such file or directory"},
    {"driver = cmsis-dap\nlog = /nonexistent/l\n", "",
     "log = /nonexistent/l: No such file or directory"},
    {"driver = no.cfg\n", "source 1 error {Can't find no.cfg}\n",
     "OpenOCD refuses \"source [find no.cfg]\": Can't find no.cfg"},
    {"driver = x.cfg\n",
     "transport 1 fail Debug adapter doesn't support 'dapdirect_swd' transport\n",
     "OpenOCD refuses \"if {[catch {transport select swd}]} {transport select dapdirect_swd}\": "
     "Debug "
     "adapter doesn't support 'dapdirect_swd' transport"},
    {"", "{init} 0 result {-4 {open failed\\n}}\ncommand 0 exit 255\n",
     "No ST-LINK or CMSIS-DAP adapter was found. Connect it by USB and check the cable; another "
     "kind "
     "of adapter is named in %C (driver = FILE.cfg)."},
    {"driver = st-link\n", "{init} 0 result {-4 {open failed\\n}}\ncommand 0 exit 255\n",
     "No ST-LINK was found. Connect it by USB and check the cable; another kind of adapter is "
     "named "
     "in %C (driver = FILE.cfg)."},
    {"driver = cmsis-dap\n",
     "{init} 0 result {-4 {unable to open CMSIS-DAP device 0x1:0x2\\nunable to find a matching "
     "CMSIS-DAP device\\n}}\ncommand 0 exit 255\n",
     "This user may not open the debug adapter (unable to open CMSIS-DAP device 0x1:0x2). On Linux "
     "put the line ATTRS{product}==\"*CMSIS-DAP*\", MODE=\"660\", TAG+=\"uaccess\" into "
     "/etc/udev/rules.d/60-debug-adapter.rules, run \"udevadm control --reload\" as root and plug "
     "the "
     "adapter in again."},
    {"driver = st-link\n",
     "{init} 0 result {-4 {libusb_claim_interface() failed with LIBUSB_ERROR_BUSY\\nopen "
     "failed\\n}}\ncommand 0 result config\n",
     "The debug adapter is in use (libusb_claim_interface() failed with LIBUSB_ERROR_BUSY). End "
     "the "
     "program that is connected to it."},
    {"driver = st-link\n",
     "{init} 0 result {-4 {init mode failed (unable to connect to the target)\\n}}\ncommand 0 exit "
     "255\n",
     "The ST-LINK finds no target (init mode failed (unable to connect to the target)). Check the "
     "wires SWDIO, SWCLK and GND, that the target has power, and that the device is not at "
     "protection "
     "level 2."},
    {"driver = x.cfg\n", "{init} 0 result {-4 {the moon is full\\n}}\ncommand 0 exit 255\n",
     "OpenOCD cannot open the debug adapter: the moon is full"},
    {"driver = cmsis-dap\n", "{init} 0 result {-4 {cannot read IDR\\n}}\ndpreg 0 error {}\n",
     "The debug port does not answer. Check the wires SWDIO, SWCLK and GND and that the target has "
     "power; with nRESET wired try \"connect = under-reset\". A device at protection level 2 does "
     "not "
     "answer either, and cannot be freed."},
    {"driver = cmsis-dap\n", "dpreg 2 result 0x00000000\n",
     "The debug port answers and the device behind it does not: its debug access is closed "
     "(protection "
     "level 2, which cannot be lifted) or the device has no power."},
    {"driver = cmsis-dap\n", "apreg 1 result 0x00000000\n",
     "The debug port answers and the device behind it does not: its debug access is closed "
     "(protection "
     "level 2, which cannot be lifted) or the device has no power."},
    {"driver = cmsis-dap\n", "0xE000ED00 1 error {read_memory: failed to read memory}\n",
     "The debug port answers and the device behind it does not: its debug access is closed "
     "(protection "
     "level 2, which cannot be lifted) or the device has no power."},
    {"driver = cmsis-dap\n", "0xE000EDF0 0 result 0x2010000\n",
     "The target is held in reset: nRESET stays low. Check the board's reset button and what else "
     "drives the line."},
    {"driver = cmsis-dap\nconnect = under-reset\n", "0xE000EDF0 0 result 0x10000\n",
     "The core does not stop after the reset by the pin. Check that nRESET is wired to the "
     "adapter."},
    {"driver = st-link\n",
     "{init} 0 result {-4 {cannot read IDR\\n}}\nname 0 result st-link\ndpreg 0 error {}\nst-link "
     "2 "
     "result {0x0 0x6 0x0 0x0 0x40 0x0 0x0 0x0}\n",
     "The target has no supply: the adapter measures 0.100 V. Switch the board on and check the "
     "wire "
     "from its supply to the adapter's VTref."},
    {"driver = cmsis-dap\n", "dpreg 1 exit 0\n",
     "OpenOCD has ended while it was connecting to the target."},
};

std::string Filled(std::string sText, const std::string& sConfig) {
  for (size_t i = sText.find('%'); i != std::string::npos; i = sText.find('%', i + 1)) {
    sText.replace(i, 2, sText[i + 1] == 'C' ? sConfig : SCRIPTED_OPENOCD);
  }
  return sText;
}

TEST_F(OpenocdProbe, a_failed_open_says_in_one_line_what_is_wrong_and_leaves_no_process) {
  for (const OpenRow& Row : aOpenFailures) {
    SCOPED_TRACE(Row.sRules);
    Configure(Row.sConfig);
    Rules(Row.sRules);
    EXPECT_EQ(Filled(Row.sText, Path("conf")), OpenText());
    EXPECT_EQ(0u, IsOpen());
    ExpectNothingLeft();
  }
  Configure("driver = cmsis-dap\n");
  Rules("");
  EXPECT_EQ("", OpenText());
}

TEST_F(OpenocdProbe, a_log_or_trace_that_is_a_pipe_is_refused_at_once) {
  const std::string sPipe = Path("pipe");
  ASSERT_EQ(0, mkfifo(sPipe.c_str(), 0600));
  Configure("driver = cmsis-dap\nlog = " + sPipe + "\n");
  EXPECT_EQ("log = " + sPipe + ": Invalid argument", OpenText());
  Configure("driver = cmsis-dap\ntrace = " + sPipe + "\n");
  EXPECT_EQ(Path("conf") + ": trace = " + sPipe + ": Invalid argument", OpenText());
  // The same while a reader has the pipe open: it may close it at any time.
  const int Reader = open(sPipe.c_str(), O_RDONLY | O_NONBLOCK);
  EXPECT_EQ(Path("conf") + ": trace = " + sPipe + ": Invalid argument", OpenText());
  close(Reader);
  Configure("driver = cmsis-dap\nlog = /dev/null\ntrace = /dev/null\n");
  EXPECT_EQ("", OpenText());
}

TEST_F(OpenocdProbe, an_st_link_that_cannot_be_opened_is_told_when_there_is_no_other_adapter) {
  Configure("");
  RulesOfNext(1,
              "{init} 0 result {-4 {libusb_open() failed with LIBUSB_ERROR_ACCESS\\nopen "
              "failed\\n}}\ncommand 0 exit 255\n");
  RulesOfNext(
      2,
      "{init} 0 result {-4 {unable to find a matching CMSIS-DAP device\\n}}\ncommand 0 exit "
      "255\n");
  EXPECT_EQ(
      "This user may not open the debug adapter (libusb_open() failed with LIBUSB_ERROR_ACCESS). "
      "On "
      "Linux put the line ATTRS{idVendor}==\"0483\", MODE=\"660\", TAG+=\"uaccess\" into "
      "/etc/udev/rules.d/60-debug-adapter.rules, run \"udevadm control --reload\" as root and plug "
      "the adapter in again.",
      OpenText());
}

TEST_F(OpenocdProbe, open_says_where_it_looked_for_openocd) {
  WriteFile("conf", "");
  setenv("PATH", "/nonexistent:", 1);
  EXPECT_EQ(
      "OpenOCD was not found (looked in PATH, /opt/homebrew/bin and /usr/local/bin). Install it "
      "(apt install openocd, brew install open-ocd) or set \"openocd = PATH\" in " +
          Path("conf") + ".",
      OpenText());
  WriteFile("conf", "openocd = /nonexistent/openocd\n");
  EXPECT_EQ("OpenOCD was not found: \"openocd = /nonexistent/openocd\" in " + Path("conf") +
                " names no program.",
            OpenText());
  std::filesystem::create_symlink(SCRIPTED_OPENOCD, Path("openocd"));
  WriteFile("conf", "");
  setenv("PATH", ("/nonexistent::" + Path("openocd").substr(0, Path("").size() - 1)).c_str(), 1);
  EXPECT_EQ("", OpenText());
}

TEST_F(OpenocdProbe, a_program_that_exits_at_any_request_is_told_and_leaves_nothing) {
  Connect();
  HWSTATUS Status = {};
  SetSpeed(4000);
  GetHWStatus(&Status);
  Reset();
  WriteU32(0x20000000, 1);
  Close();
  const int NumRequests = static_cast<int>(Requests().size());
  ASSERT_GT(NumRequests, 20);
  for (int k = 1; k <= NumRequests; k++) {
    SCOPED_TRACE(k);
    uint32_t Data = 0xEEEEEEEE;
    Rules("* " + std::to_string(k) + " exit 7\n");
    StartClock();
    const std::string sText = OpenText();
    EXPECT_EQ(sText.empty(), k > 13) << sText;
    TifSelect(1);
    SetSpeed(4000);
    GetHWStatus(&Status);
    Reset();
    const bool Read = ReadMemU32(0x20000000, 1, &Data, nullptr) >= 0;
    EXPECT_EQ(Read ? 0u : 0xEEEEEEEEu, Data);
    WriteU32(0x20000000, 1);
    Close();
    EXPECT_EQ(0u, IsOpen());
    EXPECT_LT(ElapsedMs(), 3000);
    ExpectNothingLeft();
  }
}

// -- Interface, speed, voltage, supply -----------------------------------------------------------

TEST_F(OpenocdProbe, zero_and_adaptive_become_a_fixed_speed_and_the_limit_holds) {
  Configure("driver = cmsis-dap\nspeed = 5000\n");
  Connect();
  for (const uint32_t Speed : {0u, 0xFFFFu, 1000u, 5001u}) {
    SetSpeed(Speed);
  }
  EXPECT_EQ((Lines{"adapter speed 4000", "adapter speed 4000", "adapter speed 1000",
                   "adapter speed 5000"}),
            NewRequests());
  EXPECT_EQ(5000u, GetSpeed());
}

TEST_F(OpenocdProbe, a_speed_beyond_all_adapters_is_the_highest_speed) {
  Connect();
  SetSpeed(0xFFFFFFFF);
  SetSpeed(4294968);  // in Hz it has more than 32 bits
  EXPECT_EQ((Lines{"adapter speed 100000", "adapter speed 100000"}), NewRequests());
}

TEST_F(OpenocdProbe, the_speed_is_the_one_that_the_adapter_took) {
  Connect("speed 2 result {adapter speed: 1800 kHz\\n}\n");
  SetSpeed(2000);
  EXPECT_EQ(1800u, GetSpeed());
}

TEST_F(OpenocdProbe, an_adapter_without_a_speed_is_no_failure) {
  Connect("speed 0 error {}\n");
  SetSpeed(2000);
  EXPECT_EQ(0u, GetSpeed());
  uint32_t Data = 0;
  EXPECT_EQ(0, ReadMemU32(0xE000ED00, 1, &Data, nullptr));
  EXPECT_EQ(1u, IsOpen());
}

TEST_F(OpenocdProbe, swd_is_the_one_interface) {
  EXPECT_EQ("", OpenText());
  uint32_t Data = 0;
  EXPECT_GT(0, ReadMemU32(0x20000000, 1, &Data, nullptr));
  EXPECT_EQ(-1, TifSelect(0));
  EXPECT_GT(0, ReadMemU32(0x20000000, 1, &Data, nullptr));
  EXPECT_EQ(0, TifSelect(1));
  EXPECT_EQ(0, ReadMemU32(0x20000000, 1, &Data, nullptr));
}

TEST_F(OpenocdProbe, a_powered_debug_port_stands_for_3300_mv) {
  Connect("dpreg 3 result 0x00000000\n");
  EXPECT_EQ(0u, Voltage());
  EXPECT_EQ(3300u, Voltage());
}

TEST_F(OpenocdProbe, a_configured_voltage_is_told_as_it_is) {
  Configure("driver = cmsis-dap\nvtarget = 1800\n");
  Connect();
  EXPECT_EQ(1800u, Voltage());
}

TEST_F(OpenocdProbe, an_st_link_measures_the_voltage) {
  Configure("driver = st-link\nvtarget = 1234\n");
  Connect(
      "name 0 result st-link\n"
      "st-link 2 result {0x54 0x06 0x00 0x00 0xda 0x08 0x00 0x00}\n"
      "st-link 3 result {0x01 0x00 0x00 0x00 0xff 0xff 0x00 0x00}\n"
      "st-link 4 result {0x00 0x00 0x00 0x00 0xff 0xff 0x00 0x00}\n"
      "st-link 5 result {0x54 0x06}\n"
      "st-link 6 error {}\n");
  EXPECT_EQ(3357u, Voltage());
  EXPECT_EQ("st-link cmd 8 0xf7 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0", NewRequests().at(0));
  for (int i = 0; i < 4; i++) {
    EXPECT_EQ(1234u, Voltage());
  }
}

TEST_F(OpenocdProbe, a_supply_without_a_hook_is_answered_with_a_text) {
  Connect();
  EXPECT_EQ("The adapter has no supply that can be switched: set \"power_on = TCL\" in " +
                Path("conf") + " to what switches it.",
            Command("SupplyPower = 1"));
  EXPECT_EQ("", Command("DisablePowerSupplyOnClose"));
  EXPECT_EQ(-1, ExecCommand("SupplyPower = 1", nullptr, 0));
  EXPECT_EQ(Lines{}, NewRequests());
}

TEST_F(OpenocdProbe, hooks_switch_the_supply) {
  Configure("driver = cmsis-dap\npower_on = relay {on}\npower_off = relay off\n");
  Connect();
  EXPECT_EQ("", Command("SupplyPower = 1"));
  EXPECT_EQ("", Command("DisablePowerSupplyOnClose"));
  EXPECT_EQ((Lines{"relay {on}"}), NewRequests());
  EXPECT_EQ("", Command(" supplypower=0 "));
  EXPECT_EQ((Lines{"relay off"}), NewRequests());
  Close();
  EXPECT_EQ("relay off", NewRequests().back());
}

TEST_F(OpenocdProbe, a_hook_that_fails_is_told) {
  Configure("driver = cmsis-dap\npower_on = relay on\n");
  Connect("relay 1 error {no relay}\n");
  EXPECT_EQ("power_on failed: no relay", Command("SupplyPower = 1"));
  Close();
  Connect("relay 1 error \"no relay\\nat all\"\nrelay 2 error {}\n");
  EXPECT_EQ("power_on failed: no relay at all", Command("SupplyPower = 1"));
  EXPECT_EQ("power_on failed", Command("SupplyPower = 1"));
}

TEST_F(OpenocdProbe, a_device_that_gets_its_power_later_is_connected_to_then) {
  Configure("driver = cmsis-dap\npower_on = relay on\n");
  Rules("{init} 0 result {-4 {cannot read IDR\\n}}\ndpreg 1 error {}\n");
  EXPECT_EQ("", OpenText());
  EXPECT_EQ(0u, Voltage());
  EXPECT_EQ("", Command("SupplyPower = 1"));
  EXPECT_EQ(0, TifSelect(1));
  EXPECT_EQ(3300u, Voltage());
}

TEST_F(OpenocdProbe, under_reset_the_pin_is_low_again_when_the_power_comes_later) {
  Configure("driver = cmsis-dap\nconnect = under-reset\npower_on = relay on\n");
  Rules("{init} 0 result {-4 {cannot read IDR\\n}}\ndpreg 1 error {}\n");
  EXPECT_EQ("", OpenText());
  EXPECT_EQ("adapter deassert srst", NewRequests().back());
  EXPECT_EQ("", Command("SupplyPower = 1"));
  EXPECT_EQ(0, TifSelect(1));
  const Lines All = NewRequests();
  EXPECT_EQ((Lines{"relay on", "adapter assert srst"}), Lines(All.begin(), All.begin() + 2));
  EXPECT_EQ((Lines{"adapter deassert srst", "stm32.mem read_memory 0xE000EDF0 32 1"}),
            Lines(All.end() - 2, All.end()));
  EXPECT_EQ(3300u, Voltage());
}

TEST_F(OpenocdProbe, commands_are_known_by_name) {
  EXPECT_EQ("Not connected to a probe", Command("device = Cortex-M4"));
  Connect();
  EXPECT_EQ("", Command("device = Cortex-M4"));
  EXPECT_EQ("Unknown command \"device\"", Command("device"));
  EXPECT_EQ("Unknown command \"SupplyPower = 2\"", Command("SupplyPower = 2"));
  EXPECT_EQ("Unknown command \"frobnicate = 1\"", Command("frobnicate = 1"));
  EXPECT_EQ("Unknown command \"\"", Command(""));
  char acError[8];
  memset(acError, '#', sizeof(acError));
  EXPECT_EQ(-1, ExecCommand("x", acError, 4));
  EXPECT_STREQ("Unk", acError);
  EXPECT_EQ('#', acError[4]);
}

// -- Accesses ------------------------------------------------------------------------------------

TEST_F(OpenocdProbe, one_access_is_one_request_of_its_size) {
  Connect();
  uint32_t aData[5] = {};
  EXPECT_EQ(0, WriteU32(0x40023C14, 0x0FFFAAED));
  EXPECT_EQ(0, WriteU16(0x1FFFF800, 0x5AA5));
  EXPECT_EQ(0, ReadMemU32(0x40023C0C, 1, aData, nullptr));
  EXPECT_EQ(0, ReadMemU32(0x40023C10, 5, aData, nullptr));
  EXPECT_EQ(
      (Lines{"stm32.mem write_memory 0x40023C14 32 {0xFFFAAED}",
             "stm32.mem write_memory 0x1FFFF800 16 {0x5AA5}",
             "stm32.mem read_memory 0x40023C0C 32 1", "stm32.mem read_memory 0x40023C10 32 5"}),
      NewRequests());
  EXPECT_EQ(0x0FFFAAEDu, aData[1]);
  EXPECT_EQ(0u, aData[0]);
}

TEST_F(OpenocdProbe, a_long_read_is_made_in_order_and_whole) {
  Connect();
  uint32_t aData[130];
  uint8_t  aStatus[130];
  memset(aStatus, 9, sizeof(aStatus));
  EXPECT_EQ(0, WriteU32(0x20000000 + 4 * 129, 0x12345678));
  EXPECT_EQ(0, ReadMemU32(0x20000000, 130, aData, aStatus));
  EXPECT_EQ(0x12345678u, aData[129]);
  EXPECT_EQ(0, aStatus[0] | aStatus[129]);
  EXPECT_EQ("stm32.mem read_memory 0x20000200 32 2", NewRequests().back());
}

TEST_F(OpenocdProbe, a_failed_read_is_negative_and_leaves_the_buffer) {
  static const char* const aRules[] = {
      "read_memory 3 error {read_memory: failed to read memory}\n",
      "read_memory 3 result {0x1 0x2}\n",
      "read_memory 3 result {0x1 0x2 0x3 0x4}\n",
      "read_memory 3 result {0x1 0x2 x}\n",
      "read_memory 3 result {}\n",
  };
  for (const char* sRules : aRules) {
    SCOPED_TRACE(sRules);
    uint32_t aData[3]   = {7, 8, 9};
    uint8_t  aStatus[3] = {5, 5, 5};
    Connect(sRules);
    EXPECT_GT(0, ReadMemU32(0x20000000, 3, aData, aStatus));
    EXPECT_EQ(7u, aData[0]);
    EXPECT_EQ(8u, aData[1]);
    EXPECT_EQ(9u, aData[2]);
    EXPECT_EQ(1, aStatus[0] & aStatus[1] & aStatus[2]);
    // The adapter and the debug port were asked, and both answered: the connection goes on.
    EXPECT_EQ((Lines{"stm32.mem read_memory 0x20000000 32 3", "adapter speed 1000",
                     "stm32.dap dpreg 0x0"}),
              NewRequests());
    EXPECT_EQ(1u, IsOpen());
    EXPECT_EQ(0, ReadMemU32(0x20000000, 3, aData, aStatus));
    EXPECT_EQ(0u, aData[0]);
    Close();
  }
}

TEST_F(OpenocdProbe, a_long_read_that_fails_late_leaves_the_buffer_too) {
  Connect("read_memory 4 error {read_memory: failed to read memory}\n");
  std::vector<uint32_t> Data(130, 7);
  std::vector<uint8_t>  Status(130, 5);
  EXPECT_GT(0, ReadMemU32(0x20000000, 130, Data.data(), Status.data()));
  EXPECT_EQ(std::vector<uint32_t>(130, 7), Data);
  EXPECT_EQ(std::vector<uint8_t>(130, 1), Status);
}

TEST_F(OpenocdProbe, a_write_that_fails_is_told_and_the_connection_goes_on) {
  Connect("write_memory 1 error {}\n");
  EXPECT_GT(0, WriteU32(0x20000000, 1));
  EXPECT_EQ(0, WriteU32(0x20000000, 1));
}

// -- Reset ---------------------------------------------------------------------------------------

TEST_F(OpenocdProbe, a_reset_by_the_core_halts_it_and_waits_for_that) {
  // Of the looks after the reset the first fails and the second finds the core still running.
  Connect("read_memory 4 error {}\nread_memory 5 result 0x02010003\n");
  EXPECT_EQ(0, SetResetType(0));
  SetResetDelay(0);
  EXPECT_EQ(0, Reset());
  EXPECT_EQ((Lines{"stm32.mem write_memory 0xE000EDF0 32 {0xA05F0003}",
                   "stm32.mem write_memory 0xE000EDFC 32 {0x1000001}",
                   "stm32.mem read_memory 0xE000EDF0 32 1",
                   "stm32.mem write_memory 0xE000ED0C 32 {0x5FA0004}",
                   "stm32.mem read_memory 0xE000EDF0 32 1", "stm32.mem read_memory 0xE000EDF0 32 1",
                   "stm32.mem read_memory 0xE000EDF0 32 1"}),
            NewRequests());
}

TEST_F(OpenocdProbe, a_reset_by_the_pin_pulls_it_and_lets_go) {
  Configure("driver = cmsis-dap\nreset = pin\n");
  Rules("");
  ASSERT_EQ("", OpenText());
  ASSERT_EQ(0, TifSelect(1));
  EXPECT_EQ("reset_config srst_only srst_nogate", NewRequests()[4]);
  EXPECT_EQ(0, Reset());
  EXPECT_EQ((Lines{"stm32.mem write_memory 0xE000EDF0 32 {0xA05F0003}",
                   "stm32.mem write_memory 0xE000EDFC 32 {0x1000001}", "adapter assert srst",
                   "adapter deassert srst", "stm32.mem read_memory 0xE000EDF0 32 1"}),
            NewRequests());
}

TEST_F(OpenocdProbe, a_reset_that_is_not_seen_is_made_once_more) {
  Connect("0xE000ED0C 1 error {}\n");
  EXPECT_EQ(0, Reset());
  const Lines All = NewRequests();
  EXPECT_EQ(2,
            std::count(All.begin(), All.end(), "stm32.mem write_memory 0xE000ED0C 32 {0x5FA0004}"));
}

TEST_F(OpenocdProbe, a_reset_that_does_not_halt_gives_up_after_200_ms_twice) {
  Connect("0xE000EDF0 0 result 0x10003\n");
  StartClock();
  EXPECT_GT(0, Reset());
  EXPECT_GE(ElapsedMs(), 398);  // both ends are whole milliseconds
  EXPECT_LT(ElapsedMs(), 2000);
  EXPECT_EQ(1u, IsOpen());
}

TEST_F(OpenocdProbe, what_holds_the_core_is_written_again_when_that_failed) {
  Connect("0xE000EDFC 1 error {}\n0xE000EDFC 3 error {}\n0xE000EDFC 4 error {}\n");
  EXPECT_EQ(0, Reset());
  NewRequests();
  Close();
  EXPECT_EQ((Lines{"stm32.mem write_memory 0xE000EDFC 32 {0x0}",
                   "stm32.mem write_memory 0xE000EDFC 32 {0x0}",
                   "stm32.mem write_memory 0xE000EDFC 32 {0x0}",
                   "stm32.mem write_memory 0xE000EDF0 32 {0xA05F0000}"}),
            NewRequests());
}

TEST_F(OpenocdProbe, the_delay_passes_after_the_reset) {
  Connect();
  SetResetDelay(150);
  StartClock();
  EXPECT_EQ(0, Reset());
  EXPECT_GE(ElapsedMs(), 149);
  SetResetDelay(-5);
  StartClock();
  EXPECT_EQ(0, Reset());
  EXPECT_LT(ElapsedMs(), 100);
}

// -- A connection that is lost -------------------------------------------------------------------

TEST_F(OpenocdProbe, a_lost_adapter_is_noticed_and_later_calls_return_at_once) {
  Connect("0x20000000 2 error {}\nspeed 2 error {}\n");
  uint32_t Data = 7;
  EXPECT_EQ(0, ReadMemU32(0x20000000, 1, &Data, nullptr));
  Data = 7;
  EXPECT_GT(0, ReadMemU32(0x20000000, 1, &Data, nullptr));
  EXPECT_EQ((Lines{"stm32.mem read_memory 0x20000000 32 1", "stm32.mem read_memory 0x20000000 32 1",
                   "adapter speed 1000"}),
            NewRequests());
  ExpectNothingLeft();
  StartClock();
  EXPECT_EQ(0u, IsOpen());
  EXPECT_GT(0, ReadMemU32(0x20000000, 1, &Data, nullptr));
  EXPECT_GT(0, WriteU32(0x20000000, 1));
  EXPECT_GT(0, WriteU16(0x20000000, 1));
  EXPECT_GT(0, Reset());
  EXPECT_EQ(99999u, Voltage());
  EXPECT_EQ(0u, GetSpeed());
  EXPECT_EQ("Not connected to a probe", Command("SupplyPower = 1"));
  SetSpeed(1000);
  EXPECT_EQ(0, TifSelect(1));
  EXPECT_LT(ElapsedMs(), 100);
  EXPECT_EQ(7u, Data);
  EXPECT_EQ(Lines{}, NewRequests());
  EXPECT_EQ("", OpenText());
}

TEST_F(OpenocdProbe, a_debug_port_that_stays_silent_is_a_lost_connection) {
  Connect();
  Close();
  Rules(
      "0x20000000 0 error {}\ndpreg 3 error {}\ndpreg 4 error {}\ndpreg 6 error {}\ndpreg 7 error "
      "{}\n");
  ASSERT_EQ("", OpenText());
  TifSelect(1);
  uint32_t Data = 0;
  // Silent twice, then there, then silent twice with more than two seconds between.
  for (int i = 0; i < 4; i++) {
    EXPECT_GT(0, ReadMemU32(0x20000000, 1, &Data, nullptr));
    EXPECT_EQ(1u, IsOpen());
  }
  usleep(2100000);
  EXPECT_GT(0, ReadMemU32(0x20000000, 1, &Data, nullptr));
  EXPECT_EQ(0u, IsOpen());
  ExpectNothingLeft();
}

TEST_F(OpenocdProbe, a_killed_program_is_noticed_between_calls) {
  Connect();
  kill(Programs().back(), SIGKILL);
  for (int i = 0; i < 1000 && IsOpen() != 0; i++) {
    usleep(1000);
  }
  EXPECT_EQ(0u, IsOpen());
  ExpectNothingLeft();
}

TEST_F(OpenocdProbe, a_program_that_no_longer_answers_is_given_up_after_8_seconds) {
  Connect("0x20000000 1 silent\n");
  uint32_t Data = 0;
  StartClock();
  EXPECT_GT(0, ReadMemU32(0x20000000, 1, &Data, nullptr));
  EXPECT_GE(ElapsedMs(), 7999);
  EXPECT_LT(ElapsedMs(), 9500);
  EXPECT_EQ(0u, IsOpen());
}

// -- Trace ---------------------------------------------------------------------------------------

// The trace's lines without their times.
std::string WithoutTimes(const std::string& sTrace) {
  std::istringstream Text(sTrace);
  std::string        sResult;
  for (std::string sLine; std::getline(Text, sLine);) {
    sResult += (sLine.size() > 13 ? sLine.substr(13) : sLine) + "\n";
  }
  return sResult;
}

TEST_F(OpenocdProbe, the_trace_has_the_form_and_the_words_of_the_simulated_bench) {
  Configure("driver = cmsis-dap\ntrace = " + Path("trace") + "\n");
  Rules("write_memory 4 error {}\n");
  SelectByUSBSN(5);
  OpenText();
  ExecCommand("device = Cortex-M4", nullptr, 0);
  TifSelect(1);
  SetSpeed(1000);
  GetSpeed();
  Voltage();
  SetResetType(0);
  SetResetDelay(0);
  Reset();
  uint32_t aData[2] = {};
  WriteU32(0x30000000, 0xAA55);
  WriteU16(0x30000002, 0xAA);
  ReadMemU32(0x30000000, 2, aData, nullptr);
  Close();
  IsOpen();
  EXPECT_EQ(
      "    1  EMU_SelectByUSBSN(5)\n"
      "    -    -- Open On-Chip Debugger 0.12.0, driver cmsis-dap\n"
      "    -    -- target: DPIDR 0x2BA01477, AP 0x24770011, CPUID 0x410FC241\n"
      "    2  Open: cmsis-dap\n"
      "    3  ExecCommand(\"device = Cortex-M4\")\n"
      "    4  TIF_Select(1)  SWD\n"
      "    5  SetSpeed(1000)  1000 kHz\n"
      "    6  GetSpeed = 1000\n"
      "    7  GetHWStatus  VTarget=3300 mV\n"
      "    8  SetResetType(0)\n"
      "    9  SetResetDelay(0)\n"
      "   10  Reset\n"
      "   11  WR  [0x30000000] = 0x0000AA55: failed\n"
      "   12  WR16 [0x30000002] = 0x00AA\n"
      "   13  RD  [0x30000000] = 0x00000000; [0x30000004] = 0x00000000\n"
      "   14  Close\n"
      "   15  IsOpen = 0\n",
      WithoutTimes(ReadFile("trace")));
  EXPECT_EQ(0u, ReadFile("trace").find("    0.000000     1  EMU"));
}

TEST_F(OpenocdProbe, an_operation_is_one_line_of_the_trace_whatever_it_was_given) {
  Configure("driver = cmsis-dap\ntrace = " + Path("trace") + "\n");
  SelectIP("a\nb", 0);
  SelectByUSBSN(5);
  Connect();
  ExecCommand("c\nd\033", nullptr, 0);
  uint32_t aData[17] = {};
  ReadMemU32(0x30000000, 17, aData, nullptr);
  const std::string sTrace = WithoutTimes(ReadFile("trace"));
  EXPECT_EQ(0u, sTrace.find("    1  SelectIP(\"a b\", 0) = 0\n"));
  EXPECT_NE(std::string::npos,
            sTrace.find("    5  ExecCommand(\"c d \"): Unknown command \"c d \"\n"));
  EXPECT_NE(std::string::npos, sTrace.find("; [0x3000003C] = 0x00000000; ... (17 words)\n"));
}

// -- Network -------------------------------------------------------------------------------------

TEST_F(OpenocdProbe, addresses_that_are_none_are_refused) {
  for (const char* sHost : {"", ":6666", "host:", "host:0", "host:65536", "host:x", "[::1",
                            "[::1]x", "[::1]:x", "[]:1"}) {
    EXPECT_EQ(1u, SelectIP(sHost, 0)) << sHost;
  }
  EXPECT_EQ(1u, SelectIP("host", -1));
  EXPECT_EQ(1u, SelectIP(nullptr, 0));
  for (const char* sHost : {"host", "host:1", "::1", "[::1]", "[::1]:65535", "10.0.0.1:6666"}) {
    EXPECT_EQ(0u, SelectIP(sHost, 0)) << sHost;
  }
}

TEST_F(OpenocdProbe, no_server_at_the_address_is_told) {
  EXPECT_EQ(0u, SelectIP("127.0.0.1:1", 0));
  EXPECT_EQ(
      "No OpenOCD server at 127.0.0.1, port 1: Connection refused. Start one there, or name its "
      "Tcl "
      "port: -IP HOST:PORT.",
      OpenText());
}

}  // namespace
