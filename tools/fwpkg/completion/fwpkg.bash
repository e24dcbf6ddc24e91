# SPDX-License-Identifier: GPL-2.0-or-later
# bash completion for fwpkg

_fwpkg() {
    local word=$2 before=$3 command=${COMP_WORDS[1]}
    COMPREPLY=()
    if [ "$COMP_CWORD" -eq 1 ]; then
        mapfile -t COMPREPLY < <(compgen -W "make show check plan diff condition extract --help" -- "$word")
        return
    fi
    if [[ $word == -* ]]; then
        local options
        case $command in
        make) options="--output --key-file --device --json --help" ;;
        show | extract) options="--key-file --json --help" ;;
        check) options="--key-file --device --strict --json --help" ;;
        plan) options="--device --details --expect --json --help" ;;
        diff) options="--key-file --key-file-after --device --json --help" ;;
        condition) options="--json --help" ;;
        *) options="--help" ;;
        esac
        mapfile -t COMPREPLY < <(compgen -W "$options" -- "$word")
        return
    fi
    [ "$command" = condition ] && return
    if [ "$before" = --expect ]; then
        mapfile -t COMPREPLY < <(compgen -W "upgraded refused" -- "$word")
        return
    fi
    # Manifests and devices are TOML; folders lead to them.
    if [ "$before" = --device ] || { [ "$command" = make ] && [[ $before != -* ]]; }; then
        mapfile -t COMPREPLY < <(compgen -f -X '!*.toml' -- "$word"; compgen -d -- "$word")
    else
        mapfile -t COMPREPLY < <(compgen -f -- "$word")
    fi
    compopt -o filenames 2>/dev/null
}
complete -F _fwpkg fwpkg
