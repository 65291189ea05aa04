// SPDX-License-Identifier: MIT

// Any bytes as the configuration.
#include "fuzz/fuzz_input.h"
#include "openocd/config.h"
#include "openocd/text.h"

static int Depth(const char* sTcl) {
  int Braces = 0;
  for (; *sTcl != '\0'; sTcl++) {
    FUZZ_EXPECT(*sTcl != '\x1A' && *sTcl != '\n');
    if (*sTcl == '\\') {
      sTcl++;
    } else {
      Braces += (*sTcl == '{') - (*sTcl == '}');
      FUZZ_EXPECT(Braces >= 0);
    }
  }
  return Braces;
}

// What is accepted may go into a Tcl command; what is refused is told with file and line.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t NumBytes) {
  static CONFIG Config;
  char          acError[300];
  FUZZ_BLOCK    Bytes(NumBytes);
  memcpy(Bytes.Get(), pData, NumBytes);
  Config = CONFIG{};
  TEXT_Format(Config.acPath, sizeof(Config.acPath), "x");
  if (!CONFIG_Parse(&Config, Bytes.Get(), NumBytes, acError, sizeof(acError))) {
    FUZZ_EXPECT(strncmp(acError, "x:", 2) == 0 && acError[2] >= '1' && acError[2] <= '9');
    FUZZ_EXPECT(strlen(acError) > strlen("x:1: "));
    return 0;
  }
  FUZZ_EXPECT(acError[0] == '\0');
  FUZZ_EXPECT((Config.Driver == CONFIG_DRIVER_FILE) == TEXT_IsPlain(Config.acDriverFile));
  FUZZ_EXPECT(Config.NumSerials >= 0 && Config.NumSerials <= CONFIG_MAX_SERIALS);
  for (int i = 0; i < Config.NumSerials; i++) {
    char acText[CONFIG_MAX_SERIAL];
    FUZZ_EXPECT(TEXT_IsPlain(Config.aSerials[i].acText));
    CONFIG_SerialText(&Config, Config.aSerials[i].Number, acText, sizeof(acText));
    FUZZ_EXPECT(strcmp(acText, Config.aSerials[i].acText) == 0);
  }
  FUZZ_EXPECT(Config.VTargetmV >= -1 && Config.VTargetmV <= 65535);
  FUZZ_EXPECT(Config.SpeedLimit <= 100000);
  FUZZ_EXPECT(Depth(Config.acPowerOn) == 0 && Depth(Config.acPowerOff) == 0);
  return 0;
}
