// SPDX-License-Identifier: MIT

#include "app/connect.h"

#include <string.h>
#include <unistd.h>

#include "app/process.h"
#include "probeapi/quobearm.h"
#include "util/format.h"

// Results of the library that are not used here are ignored: a step that failed shows in the target
// voltage or in the read-back of the option bytes.

static const uint32_t   DEVICE_COMMAND_SIZE = 4000;
static const useconds_t POWER_ON_US         = 200 * 1000;  // for the supply to settle
static const uint32_t   SPEED_MASK          = 0xFFFF;      // of QUOBEARM_GetSpeed()

// The probe command that names the device. When it has been sent, the buffer receives the error
// texts of further commands. They are not printed: a supply that failed shows in the voltage.
static char DeviceCommand[DEVICE_COMMAND_SIZE];

int32_t SelectProbe(const UNLOCK_SETTINGS* pSettings) {
  if (pSettings->HostIF == HOST_IF_ETHERNET) {
    // A byte: the rest of the result may be rubbish (quobearm.h).
    return (uint8_t)QUOBEARM_SelectIP(pSettings->IPAddr, 0) != 0 ? -1 : 0;
  }
  if (pSettings->SerialNo != 0) {
    QUOBEARM_EMU_SelectByUSBSN(pSettings->SerialNo);
  }
  return 0;
}

const char* OpenProbe(void) {
  // From here on the run could be between an erase and the programming that follows it: losing the
  // terminal or the reader of the output must not end it there.
  IgnoreLostTerminal();
  return QUOBEARM_Open();
}

void SendDevice(const char* sCore) {
  UTIL_snprintf(DeviceCommand, DEVICE_COMMAND_SIZE, "device = %s", sCore);
  QUOBEARM_ExecCommand(DeviceCommand, NULL, 0);
}

void SupplyTarget(void) {
  QUOBEARM_ExecCommand("SupplyPower = 1", DeviceCommand, DEVICE_COMMAND_SIZE);
  usleep(POWER_ON_US);
}

uint32_t SelectSwd(uint32_t Speed) {
  QUOBEARM_TIF_Select(QUOBEARM_TIF_SWD);
  QUOBEARM_SetSpeed(Speed);
  // The probe takes the nearest speed that it has, so the one in use is asked for.
  return QUOBEARM_GetSpeed() & SPEED_MASK;
}

uint32_t TargetVoltage(void) {
  // Zeroed first: a probe that fills in nothing then reads as 0 V.
  HWSTATUS Status;
  memset(&Status, 0, sizeof(Status));
  QUOBEARM_GetHWStatus(&Status);
  return Status.VTarget;
}

void CloseProbe(const UNLOCK_SETTINGS* pSettings) {
  if ((uint8_t)QUOBEARM_IsOpen() == 0) {  // a byte, as above
    return;
  }
  if (pSettings->PowerTarget != 0) {
    // Only a request: the supply ends with the close below. A run that is killed before that leaves
    // the target powered.
    QUOBEARM_ExecCommand("DisablePowerSupplyOnClose", DeviceCommand, DEVICE_COMMAND_SIZE);
  }
  QUOBEARM_Close();
}
