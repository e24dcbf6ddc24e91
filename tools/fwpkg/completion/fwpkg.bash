# SPDX-License-Identifier: GPL-2.0-or-later
# bash completion for fwpkg

_fwpkg() {
    local word=$2 before=$3 command=${COMP_WORDS[1]}
    COMPREPLY=()
    if [ "$COMP_CWORD" -eq 1 ]; then
        mapfile -t COMPREPLY < <(compgen -W "make show check plan condition extract --help" -- "$word")
        return
    fi
    if [[ $word == -* ]]; then
        local options
        case $command in
        make) options="--output --key-file --device --help" ;;
        show) options="--key-file --json --help" ;;
        check) options="--key-file --device --json --help" ;;
        plan) options="--device --json --help" ;;
        extract) options="--key-file --help" ;;
        *) options="--help" ;;
        esac
        mapfile -t COMPREPLY < <(compgen -W "$options" -- "$word")
        return
    fi
    [ "$command" = condition ] && return
    # Manifests and devices are TOML; folders lead to them.
    if [ "$before" = --device ] || { [ "$command" = make ] && [[ $before != -* ]]; }; then
        mapfile -t COMPREPLY < <(compgen -f -X '!*.toml' -- "$word"; compgen -d -- "$word")
    else
        mapfile -t COMPREPLY < <(compgen -f -- "$word")
    fi
    compopt -o filenames 2>/dev/null
}
complete -F _fwpkg fwpkg
