# SPDX-License-Identifier: GPL-2.0-or-later
# bash completion for upgrade-follow

_upgrade_follow() {
    local word=$2 before=$3
    COMPREPLY=()
    case $before in
    --socket | --state | --record | --replay)
        mapfile -t COMPREPLY < <(compgen -f -- "$word")
        compopt -o filenames 2>/dev/null
        return
        ;;
    --run)
        mapfile -t COMPREPLY < <(compgen -c -- "$word")
        return
        ;;
    --mode | --wait | --web | --linger | --speed) return ;;
    esac
    mapfile -t COMPREPLY < <(compgen -W "--socket --mode --wait --stay --json --quiet --state --run
        --web --linger --record --replay --speed --help --version" -- "$word")
}
complete -F _upgrade_follow upgrade-follow
