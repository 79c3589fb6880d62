# SPDX-License-Identifier: MIT
# Completion of discovery-dhcp for bash.

_discovery_dhcp() {
    COMPREPLY=()
    case $3 in
    -i) mapfile -t COMPREPLY < <(compgen -W "$(ls /sys/class/net)" -- "$2") ;;
    -t) ;;
    *) mapfile -t COMPREPLY < <(compgen -W '-i -t -p --help' -- "$2") ;;
    esac
}
complete -F _discovery_dhcp discovery-dhcp
