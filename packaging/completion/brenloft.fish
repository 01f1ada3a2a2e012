# Completion of brenloft for fish: the tool itself says what may come next.
function __brenloft_complete
    set -l current (commandline -ct)
    for line in (brenloft __complete (commandline -opc)[2..] $current 2>/dev/null)
        set -l parts (string split \t -- $line)
        if test -n "$parts[1]"
            echo $line
        else
            # Names of folders or files, behind what stands in front of them
            set -l begun (string sub -s (math 1 + (string length -- $parts[3])) -- $current)
            if test $parts[2] = folder
                __fish_complete_directories $begun
            else
                __fish_complete_path $begun
            end | string replace -r '^' -- $parts[3]
        end
    end
end
complete -c brenloft -f -a '(__brenloft_complete)'
