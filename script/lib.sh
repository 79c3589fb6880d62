# SPDX-License-Identifier: MIT
# What the scripts share: where things are, how they are built, how they tell about it.
# shellcheck shell=bash
set -euo pipefail

tree=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd -P)
script=$(basename "$0")
jobs=$(nproc)

say() {
    printf '==> %s\n' "$*" >&2
}

fail() {
    printf '%s: %s\n' "$script" "$*" >&2
    exit 2
}

# Prints the comment at the head of the calling script, which is its manual.
show_help() {
    sed -n '3,/^[^#]/{s/^# \{0,1\}//p}' "$0"
}

# usage: option_value OPTION [VALUE]    the value, or the end of the script when there is none
option_value() {
    [ $# -ge 2 ] || fail "$1 wants a value (--help tells more)"
    printf '%s' "$2"
}

# usage: number_value OPTION [VALUE]    the value, which must be a whole number above 0
number_value() {
    local value
    value=$(option_value "$@") || exit
    [[ $value =~ ^[1-9][0-9]*$ ]] || fail "$1: $value is no number above 0"
    printf '%s' "$value"
}

# usage: folder_value OPTION [VALUE]    the full path of the value, which must be a folder
folder_value() {
    local value
    value=$(option_value "$@") || exit
    (cd "$value" 2>/dev/null && pwd) || fail "$1: there is no folder $value"
}

# usage: preset_value OPTION [VALUE]    the value, which must be a build of CMakePresets.json
preset_value() {
    local value
    value=$(option_value "$@") || exit
    grep -qF "\"name\": \"$value\"" "$tree/CMakePresets.json" || fail "$1: there is no build $value (--help tells more)"
    printf '%s' "$value"
}

may_write() {
    local path=$1
    while [ ! -e "$path" ]; do
        path=$(dirname "$path")
    done
    [ -w "$path" ]
}

# usage: build_dir NAME    the build folder: in the tree, or in the user's cache when the tree is
# somebody else's
build_dir() {
    local dir=$tree/build/$1
    if ! may_write "$dir"; then
        dir=${XDG_CACHE_HOME:-${HOME:?}/.cache}/prod-common/$(printf '%s' "$tree" | sha256sum | cut -c1-12)/$1
    fi
    printf '%s' "$dir"
}

# usage: build NAME PRESET TARGET [CMAKE-ARGUMENT]...
# Brings a target up to date, one caller at a time; for another processor with what that needs, and
# anew when that changed. Everything it prints is progress, so that a script's own output stays clean.
build() {
    local dir name=$1 preset=$2 target=$3 sysroot=
    shift 3
    case $preset in
    armhf | i386)
        "$tree/script/sysroot" "$preset"
        sysroot=$(build_dir "sysroot-$preset")
        set -- "$@" "-DPROD_SYSROOT=$sysroot" ;;
    esac
    dir=$(build_dir "$name")
    mkdir -p "$dir"
    (
        exec 8<"$dir"
        if ! flock --nonblock 8; then
            say "Waiting for another build in $dir"
            flock 8
        fi
        cd "$tree"
        if ! grep -qsxF "CMAKE_HOME_DIRECTORY:INTERNAL=$tree" "$dir/CMakeCache.txt" || [ ! -e "$dir/build.ninja" ] ||
            [ "${sysroot:+$sysroot/packages}" -nt "$dir/build.ninja" ]; then
            say "Configuring $dir"
            cmake --fresh --preset "$preset" -B "$dir" "$@" 8<&-
        fi
        cmake --build "$dir" --target "$target" --parallel "$jobs" 8<&- |
            sed -u -e '/^ninja: no work to do/d' -e '/Re-checking globbed directories/d'
    ) >&2
}

# usage: is_wanted NAME [PART]...    whether the name contains one of the parts; without parts, always
is_wanted() {
    local name=$1 part
    shift
    [ $# -gt 0 ] || return 0
    for part in "$@"; do
        case $name in
        *"$part"*) return 0 ;;
        esac
    done
    return 1
}

# Sets "dir" from a checking script's arguments: a build folder made earlier, or the host build,
# brought up to date.
use_build() {
    [ $# -le 1 ] || fail "takes one build folder (--help tells more)"
    case ${1-} in
    -h | --help) show_help; exit ;;
    -*) fail "unknown option $1 (--help tells more)" ;;
    '')
        "$tree/script/bootstrap"
        build host host layout # links the library, and tells its records
        dir=$(build_dir host) ;;
    *) dir=$(cd "$1" 2>/dev/null && pwd) || fail "there is no build folder $1" ;;
    esac
}
