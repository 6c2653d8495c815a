# bash completion for the programs of Vex. Options and commands are read from the program's own --help, so a new one is
# completed at once; only what their values are stands here.

# Options that the help of "$@" lists.
_vex_options() { "$@" --help 2>/dev/null | grep -oE '^ +(-[a-zA-Z], ?)?--?[a-z][a-z-]*' | grep -oE -- '-[a-z-]+$'; }

# Commands that the help of $1 lists.
_vex_commands() { "$1" --help 2>/dev/null | sed -n '/^Subcommands:/,$s/^  \([a-z][a-z-]*\) .*/\1/p'; }

# Names of the reports of "$@", vex-client gu or stat.
_vex_reports() { "$@" --list 2>/dev/null | awk 'NR > 1 { print $1 }'; }

# Values of option $1; files are left to bash.
_vex_values() {
    case $1 in
        --channel) echo lte-diag lte-data gu-cmd gu-data at ;;
        --direction) echo from-ue to-ue from-client to-client status event config ;;
        --gu-type) echo ASIC FPGA PC ;;
        --config | --check-config | --state | --log | --dir | --spool | --tap | --fifo | --pty | -w | \
            --cert | --key | --ca | --permissions) return 1 ;;
    esac
}

_vex() {
    local program=$1 word=$2 before=$3 command='' commands candidates=''
    COMPREPLY=()
    if [[ $before == -* ]]; then
        candidates=$(_vex_values "$before") || return 0
    fi
    commands=$(_vex_commands "$program")
    local i
    for ((i = 1; i < COMP_CWORD; ++i)); do
        if grep -qxF -e "${COMP_WORDS[i]}" <<<"$commands"; then
            command=${COMP_WORDS[i]}
            break
        fi
    done
    if [[ -z $candidates && $word == -* ]]; then
        candidates=$(_vex_options "$program"; [[ -z $command ]] || _vex_options "$program" "$command")
    elif [[ -z $candidates && $command == @(gu|stat) ]]; then
        candidates=$(_vex_reports "$program" "$command")
    elif [[ -z $candidates && -z $command ]]; then
        candidates=$commands
    fi
    mapfile -t COMPREPLY < <(compgen -W "$candidates" -- "$word")
}

complete -o default -F _vex vex-agent vex-client vex-uesim vex-capture vex-hotplug vex-fleet vex-forward
