# SPDX-License-Identifier: MIT
# Completion of cfm for bash. The keys come from the working copy.

_cfm() {
    COMPREPLY=()
    case $COMP_CWORD:${COMP_WORDS[1]} in
    1:*) mapfile -t COMPREPLY < <(compgen -W 'show get set unset commit restore Upload --help' -- "$2") ;;
    2:get | 2:set | 2:unset)
        local key
        # A key is compared and offered as it is: it may hold what the shell would expand.
        while IFS= read -r key; do
            if [[ $key == "$2"* ]]; then
                COMPREPLY+=("$(printf '%q' "$key")")
            fi
        done < <("$1" show 2>/dev/null | cut -d= -f1)
        ;;
    2:show | 2:Upload)
        mapfile -t COMPREPLY < <(compgen -f -- "$2")
        compopt -o filenames 2>/dev/null
        ;;
    esac
}
complete -F _cfm cfm
