# SPDX-License-Identifier: MIT

# fish completion for quobe-options, quobe-options-openocd and quobe-options-sim

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

for command in quobe-options quobe-options-openocd quobe-options-sim
  complete -c $command -f
  # script/commands writes: fish quobe-options
  complete -c $command -o SetDeviceFamily -x -a '(_quobe_unlock_families)' -d 'The family, by number or by name of the unlock tool'\''s menu'
  complete -c $command -o SelectEmuBySN -x -d 'Use the probe on USB with this serial number'
  complete -c $command -o IP -x -d 'Use the probe on Ethernet with this address or host name'
  complete -c $command -o Speed -x -a 'auto adaptive' -d 'Interface speed in kHz'
  complete -c $command -o SetPowerTarget -x -a '0 1' -d '1: the probe supplies the target until the program ends'
  complete -c $command -l json -d 'Print one JSON object'
  complete -c $command -l expect -r -F -a 'factory' -d 'Compare with the factory values, or with an earlier output of --json'
  complete -c $command -l help -d 'List the options'
  complete -c $command -l version -d 'Print the version'
  # end
end
