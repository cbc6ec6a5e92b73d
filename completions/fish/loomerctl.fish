# Completes loomerctl's commands, options, clients and numbers of sessions.
#
# The program itself says what it understands, in the user's language: its help lists the commands, and a command's own help
# the options, each with what it is for. In English that begins with a line such as "usage: loomerctl undo [--force] SESSION".

# __loomerctl_values COMMAND KEY: what stands under the key in the command's JSON.
function __loomerctl_values
    loomerctl $argv[1] --json 2>/dev/null | string replace -rf '^ *"'$argv[2]'": "?([^",]+)"?,?$' '$1'
end

# __loomerctl_argument KIND: what can stand where the help says KIND.
function __loomerctl_argument
    switch "$argv[1]"
        case CLIENT
            __loomerctl_values clients identifier
        case SESSION
            __loomerctl_values sessions session
        case FILE
            __fish_complete_path (commandline -ct)
        case PLACE
            __fish_complete_directories (commandline -ct) ''
        case BROWSER
            printf '%s\n' chromium firefox
    end
end

function __loomerctl_complete
    set -l word (commandline -ct)
    set -l option
    set -l given
    # The words before the one that is completed, without options.
    for each in (commandline -opc)[2..-1]
        if set -q option[1]
            set option
        else if contains -- $each --session --record --limit
            set option $each
        else if not string match -q -- '-*' $each
            set -a given $each
        end
    end

    # Each with what it does.
    set -l commands (loomerctl --help 2>/dev/null |
        string replace -rf '^  ([a-z-]+(?: [a-z-]+)?)(?: \[?[A-Z]+\]?(?:\.\.\.)?)?  +(.*)$' '$1\t$2')
    set -l command
    for each in $commands
        set -l name (string split -f 1 \t -- $each)
        if test "$name" = "$given[1]"; or test "$name" = "$given[1..2]"
            set command $name
        end
    end
    set -l usage
    if set -q command[1]
        set usage (LC_ALL=C loomerctl (string split ' ' -- $command) --help 2>/dev/null | string replace -rf '^usage: ' '')
    end

    if test "$option" = --session
        __loomerctl_argument SESSION
    else if set -q option[1]
        return
    else if set -q command[1]; and string match -q -- '--session=*' $word
        __loomerctl_values sessions session | string replace -r -- '^' --session=
    else if set -q command[1]; and string match -q -- '-*' $word
        loomerctl (string split ' ' -- $command) --help 2>/dev/null |
            string replace -rf '^  (--[a-z-]+)(?: [A-Z]+)?  +(.*)$' '$1\t$2'
    else if set -q command[1]; and test "$given" = "$command"
        __loomerctl_argument (string match -rg -- ' \[?([A-Z]+)\]?(?:\.\.\.)?$' $usage)
    else if set -q command[1]; and string match -rq -- '\.\.\.$' $usage
        __loomerctl_argument (string match -rg -- ' \[?([A-Z]+)\]?\.\.\.$' $usage)
    else if test (count $given) -eq 0; and string match -q -- '-*' $word
        printf '%s\n' --help --version
    else if test (count $given) -eq 0
        # A group of commands stands there once, without any one's explanation.
        string replace -r '^([a-z-]+) .*$' '$1' -- $commands | sort -u
    else if test (count $given) -eq 1
        string replace -rf '^'$given[1]' ' '' -- $commands
    end
end

complete -c loomerctl -f -a '(__loomerctl_complete)'
