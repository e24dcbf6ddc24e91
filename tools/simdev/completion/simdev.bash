# SPDX-License-Identifier: GPL-2.0-or-later
# bash completion for simdev

_simdev() {
    local word=$2 before=$3 command=${COMP_WORDS[1]}
    COMPREPLY=()
    if [ "$COMP_CWORD" -eq 1 ]; then
        mapfile -t COMPREPLY < <(compgen -W "init status run sweep rehearse --help" -- "$word")
        return
    fi
    if [[ $word == -* ]]; then
        local options="--program --tftp-port --map-port --map-host --real-network --grace --json --help"
        case $command in
        init) options="--device --flash --help" ;;
        status) options="--package --key-file --json --help" ;;
        run) options+=" --fast --fault --receiver --seed --log --stdout --stderr" ;;
        sweep) options+=" --jobs --torn" ;;
        rehearse) options="--device --from --key-file --sweep --expect --https --junit --jobs --fast --fault --seed
            --program --grace --json --help" ;;
        esac
        mapfile -t COMPREPLY < <(compgen -W "$options" -- "$word")
        return
    fi
    case $before in
    --fault)
        mapfile -t COMPREPLY < <(compgen -W "cut@ write-error@ short-write@ bit-flip@ read-error@ open-error seek-error@ sync-slow gpio-refuse
            receiver-missing receiver-stuck script-hang closed:fd= watchdog:seconds= socket-error
            server-stall@ server-drip server-cut@" -- "$word")
        compopt -o nospace 2>/dev/null # a number follows, or may
        return
        ;;
    --tftp-port | --map-port | --map-host | --grace | --receiver | --flash | --seed | --jobs | --torn | --) return ;;
    --device) mapfile -t COMPREPLY < <(compgen -f -X '!*.toml' -- "$word"; compgen -d -- "$word") ;;
    --program | --package | --key-file | --from | --expect | --junit | --log | --stdout | --stderr) mapfile -t COMPREPLY < <(compgen -f -- "$word") ;;
    *) # a device is a folder
        if [ "$command" = rehearse ]; then
            mapfile -t COMPREPLY < <(compgen -f -- "$word")
        else
            mapfile -t COMPREPLY < <(compgen -d -- "$word")
        fi
        ;;
    esac
    compopt -o filenames 2>/dev/null
}
complete -F _simdev simdev
