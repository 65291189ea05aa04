# SPDX-License-Identifier: MIT

# fish completion for quobe-unlock, quobe-unlock-openocd and quobe-unlock-sim

function _quobe_unlock_families
  # script/commands writes: fish_families
  printf '%s\t%s\n' 'STM32F0xxxx' 1
  printf '%s\t%s\n' 'STM32F1xxxx' 2
  printf '%s\t%s\n' 'STM32F2xxxx' 3
  printf '%s\t%s\n' 'STM32F3xxxx' 4
  printf '%s\t%s\n' 'STM32F4xxxx' 5
  printf '%s\t%s\n' 'STM32F72xxx, STM32F73xxx' 6
  printf '%s\t%s\n' 'STM32F74xxx, STM32F75xxx' 7
  printf '%s\t%s\n' 'STM32F76xxx, STM32F77xxx' 8
  printf '%s\t%s\n' 'STM32H7xxxx' 9
  printf '%s\t%s\n' 'STM32L0xxxx' 10
  printf '%s\t%s\n' 'STM32L1xxxx' 11
  printf '%s\t%s\n' 'STM32L4x6xx' 12
  # end
end

for command in quobe-unlock quobe-unlock-openocd quobe-unlock-sim
  complete -c $command -f
  # script/commands writes: fish quobe-unlock
  complete -c $command -o IP -x -d 'Use the probe on Ethernet with this address or host name'
  complete -c $command -o SelectEmuBySN -x -d 'Use the probe on USB with this serial number'
  complete -c $command -o Speed -x -a 'auto adaptive' -d 'Interface speed in kHz'
  complete -c $command -o SetPowerTarget -x -a '0 1' -d 'Other than 0: the probe supplies the target until the tool ends'
  complete -c $command -o SetDeviceFamily -x -a '(_quobe_unlock_families)' -d 'The family, by number or by name'
  complete -c $command -o Exit -x -a '0 1' -d 'Other than 0: end without waiting for a key'
  # end
end
