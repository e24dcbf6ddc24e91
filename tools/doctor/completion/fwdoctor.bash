# SPDX-License-Identifier: GPL-2.0-or-later
# bash completion for fwdoctor

_fwdoctor() {
    local word=$2 command=${COMP_WORDS[1]}
    COMPREPLY=()
    if [ "$COMP_CWORD" -eq 1 ]; then
        mapfile -t COMPREPLY < <(compgen -W "log flash --help --version" -- "$word")
        return
    fi
    if [[ $word == -* ]]; then
        local options
        case $command in
        log) options="--json --redact --help" ;;
        flash) options="--package --key-file --json --help" ;;
        *) options="--help" ;;
        esac
        mapfile -t COMPREPLY < <(compgen -W "$options" -- "$word")
        return
    fi
    mapfile -t COMPREPLY < <(compgen -f -- "$word")
    compopt -o filenames 2>/dev/null
}
complete -F _fwdoctor fwdoctor
