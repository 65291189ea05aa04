# SPDX-License-Identifier: MIT

# fish completion for quobe-line, quobe-line-openocd and quobe-line-sim

for command in quobe-line quobe-line-openocd quobe-line-sim
  # script/commands writes: fish quobe-line
  complete -c $command -l jobs -x -d 'Units at a time on each host'
  complete -c $command -l hosts -r -F -d 'Other stations: host,ssh,tools'
  complete -c $command -l retries -x -d 'Further attempts: again, slower, after a power cycle'
  complete -c $command -l log -r -F -d 'A new folder for all that is recorded'
  complete -c $command -l resume -d 'Do what the run of --log has left'
  complete -c $command -l report -x -a 'html' -d 'Write report.html into the log; without a list and --resume that is all'
  complete -c $command -l tools -r -F -d 'Folder of quobe-unlock, quobe-options and the probe library on this host'
  complete -c $command -l time-limit -x -d 'Seconds for the tool in place of its family'\''s limit'
  complete -c $command -l load -r -F -d 'Puts a unit on its probe; gets the names of both as arguments, on the probe'\''s host'
  complete -c $command -l help -d 'List the options'
  # end
end
