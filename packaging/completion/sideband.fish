# SPDX-License-Identifier: Apache-2.0
# Completion for fish: sideband and sideband-sim say by themselves what fits. Nothing that they say is evaluated.

function __sideband_complete
    set -l words (commandline -opc)
    set -l typed (commandline -ct)
    set -l lines ($words[1] __complete $words[2..-1] "$typed" 2>/dev/null </dev/null)
    if test "$lines[1]" = files
        # The value of --option=VALUE is a part of the word.
        set -l option (string match -r '^--[^=]*=' -- "$typed")
        for path in (__fish_complete_path (string replace -r '^--[^=]*=' '' -- "$typed"))
            printf '%s%s\n' "$option" "$path"
        end
    end
    printf '%s\n' $lines[2..-1]
end

complete -c sideband -f -a '(__sideband_complete)'
complete -c sideband-sim -f -a '(__sideband_complete)'
