# SPDX-License-Identifier: MIT
# Completion of prodctl for bash. The words come from prodctl itself.

_prodctl() {
    local line
    COMPREPLY=()
    while IFS= read -r line; do
        if [ "$line" = @files ]; then
            mapfile -t -O "${#COMPREPLY[@]}" COMPREPLY < <(compgen -f -- "$2")
            compopt -o filenames 2>/dev/null
        else
            COMPREPLY+=("$line")
        fi
    done < <("$1" --complete "${COMP_WORDS[@]:1:COMP_CWORD}" 2>/dev/null)
}
complete -F _prodctl prodctl
