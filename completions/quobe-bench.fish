# SPDX-License-Identifier: MIT

# fish completion for quobe-bench

for command in quobe-bench
  complete -c $command -f
  complete -c $command -n '__fish_seen_subcommand_from create' -a '(quobe-bench devices 2>/dev/null | string replace -r " +" \t)'
  # script/commands writes: fish quobe-bench
  complete -c $command -l probe -x -d 'The probe that is meant'
  complete -c $command -l expect-factory -d 'With show: end with status 1 unless the device is at factory state'
  complete -c $command -l after -x -d 'With reset and power-cycle: so many milliseconds later'
  complete -c $command -l help -d 'List commands and options'
  complete -c $command -l version -d 'Print the version'
  complete -c $command -l rdp -x -a '0 1 2' -n '__fish_seen_subcommand_from create' -d 'Read protection level, or the byte itself'
  complete -c $command -l wrp -x -a 'all none' -n '__fish_seen_subcommand_from create' -d 'Write-protected sectors, such as 0-3,7'
  complete -c $command -l pcrop -x -a 'all' -n '__fish_seen_subcommand_from create' -d 'Execute-only sectors'
  complete -c $command -l pcrop-rdp -x -a '0 1' -n '__fish_seen_subcommand_from create' -d 'Whether unprotecting wipes them'
  complete -c $command -l secure -n '__fish_seen_subcommand_from create' -d 'A secure area'
  complete -c $command -l user -x -n '__fish_seen_subcommand_from create' -d 'User options, in their place in the option word'
  complete -c $command -l option -x -n '__fish_seen_subcommand_from create' -d 'Any option field, by the name that show gives it'
  complete -c $command -l mismatch -x -a 'rdp user' -n '__fish_seen_subcommand_from create' -d 'A wrong complement'
  complete -c $command -l flash -r -F -a 'erased full' -n '__fish_seen_subcommand_from create' -d 'Content of the flash'
  complete -c $command -l eeprom -x -a 'full' -n '__fish_seen_subcommand_from create' -d 'Data EEPROM, and memories on the backup supply, in use'
  complete -c $command -l program -x -a 'takes-swd stops' -n '__fish_seen_subcommand_from create' -d 'The program uses the debug pins, or puts the core into Stop mode'
  complete -c $command -l variant -x -n '__fish_seen_subcommand_from create' -d 'How an open question of the manuals is answered'
  complete -c $command -n __fish_use_subcommand -a list -d 'The probes, and the device on each'
  complete -c $command -n __fish_use_subcommand -a devices -d 'The devices there are'
  complete -c $command -n __fish_use_subcommand -a create -d 'Put a device on the probe, as delivered unless an option of a state says otherwise'
  complete -c $command -n __fish_use_subcommand -a show -d 'Option bytes beside their factory values, flash, protection'
  complete -c $command -n __fish_use_subcommand -a reset -d 'Reset the device; this cuts short what runs in it'
  complete -c $command -n __fish_use_subcommand -a power-cycle -d 'Power the device off and on; this cuts short what runs in it'
  complete -c $command -n __fish_use_subcommand -a set -d 'Change settings of the probe'
  complete -c $command -n __fish_use_subcommand -a remove -d 'Take probe and device off the bench'
  complete -c $command -n __fish_use_subcommand -a help -d 'List commands and options'
  complete -c $command -n '__fish_seen_subcommand_from set' -a 'ip=' -d 'The address by which the probe is chosen over the network'
  complete -c $command -n '__fish_seen_subcommand_from set' -a 'default=yes' -d 'Whether this is the probe that is meant where none is named'
  complete -c $command -n '__fish_seen_subcommand_from set' -a 'default=no' -d 'Whether this is the probe that is meant where none is named'
  complete -c $command -n '__fish_seen_subcommand_from set' -a 'vtarget=' -d 'Millivolts of the board'\''s own supply; 0 for none'
  complete -c $command -n '__fish_seen_subcommand_from set' -a 'supply=' -d 'Millivolts that the probe gives when it is told to supply the target'
  complete -c $command -n '__fish_seen_subcommand_from set' -a 'max_speed=' -d 'The highest speed of the interface'
  complete -c $command -n '__fish_seen_subcommand_from set' -a 'reset_halts=yes' -d 'Whether the core is halted after the probe'\''s reset'
  complete -c $command -n '__fish_seen_subcommand_from set' -a 'reset_halts=no' -d 'Whether the core is halted after the probe'\''s reset'
  complete -c $command -n '__fish_seen_subcommand_from set' -a 'reset_pin=yes' -d 'Whether the device'\''s reset pin is connected'
  complete -c $command -n '__fish_seen_subcommand_from set' -a 'reset_pin=no' -d 'Whether the device'\''s reset pin is connected'
  complete -c $command -n '__fish_seen_subcommand_from set' -a 'time=real' -d 'Whether operations of the flash take their time'
  complete -c $command -n '__fish_seen_subcommand_from set' -a 'time=fast' -d 'Whether operations of the flash take their time'
  complete -c $command -n '__fish_seen_subcommand_from set' -a 'fault=none' -d 'A fault to show; none removes all'
  # end
end
