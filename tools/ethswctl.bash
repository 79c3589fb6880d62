# SPDX-License-Identifier: MIT
# Completion of ethswctl for bash.

_ethswctl() {
    COMPREPLY=()
    case $3 in
    -c) mapfile -t COMPREPLY < <(compgen -W wan -- "$2") ;;
    -i) mapfile -t COMPREPLY < <(compgen -W "$(ls /sys/class/net)" -- "$2") ;;
    -o) mapfile -t COMPREPLY < <(compgen -W 'enable disable' -- "$2") ;;
    *) mapfile -t COMPREPLY < <(compgen -W '-c -i -o --help' -- "$2") ;;
    esac
}
complete -F _ethswctl ethswctl
