# Completes corvanetool's options and the clients that they take.

function __corvanetool_complete
    set -l words (commandline -opc)
    switch (count $words):"$words[-1]"
        case '1:*'
            # Called with nothing to do, it says on standard error what it understands.
            corvanetool 2>&1 | string replace -rf '^ +(--[a-z]+).*' '$1'
        case 2:--sync 2:--registersyncclient 2:--unregistersyncclient
            # The client that is there without being registered, and the registered ones.
            begin
                echo com.keldra.Corvane
                loomerctl clients --json 2>/dev/null | string replace -rf '^ *"identifier": "([^"]+)",?$' '$1'
            end | sort -u
        case '3:*'
            test $words[2] = --sync; and echo --entitynames
        case 4:--entitynames
            echo bookmarks
    end
end

complete -c corvanetool -f -a '(__corvanetool_complete)'
