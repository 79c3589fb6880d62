#!/bin/sh
# SPDX-License-Identifier: MIT
# The guard over the ABI lets the library pass, and none with a field more or a function less.
# usage: abi_guard.sh SOURCE_DIR BUILD_DIR CXX OBJECT...    the objects of the library
set -eu
source_dir=$1
build_dir=$2
cxx=$3
shift 3
for object; do
    shift
    case $object in
    */rbtree.cpp.o) rbtree=$object ;;
    *) set -- "$@" "$object" ;;
    esac
done

work=$(mktemp -d "$build_dir/abi-test.XXXXXX")
trap 'rm -rf "$work"' EXIT
mkdir "$work/include" "$work/lib"
cp "$build_dir/CMakeCache.txt" "$work/"

# usage: link MAP OBJECT...    a library with that version script
link() {
    script=$1
    shift
    "$cxx" -shared -o "$work/lib/libprod_common.so" "$@" \
        -Wl,-soname,libprod_common.so.1 -Wl,--wrap=SetValue -Wl,--version-script="$script" \
        -static-libstdc++ -static-libgcc -Wl,--exclude-libs,ALL \
        -L"$build_dir/lib" -lprod_platform -lcjson -lsqlite3 -lz
}

# usage: must_differ FILE FILE    or what is tried here tries nothing
must_differ() {
    if cmp -s "$1" "$2"; then
        echo "$2 is what it was" >&2
        exit 1
    fi
}

# usage: expect_failure WHAT WORDS
expect_failure() {
    if "$source_dir/script/check-abi" "$work" >"$work/said" 2>&1; then
        echo "$1 went through the guard" >&2
        exit 1
    fi
    grep -q "$2" "$work/said" || { echo "$1: nothing said of $2"; cat "$work/said"; exit 1; } >&2
}

map=$source_dir/abi/prod_common.map
link "$map" "$rbtree" "$@"
"$source_dir/script/check-abi" "$work"

sed 's/^typedef struct rb_node {/&\n    int another;/' "$source_dir/include/rbtree.h" >"$work/include/rbtree.h"
must_differ "$source_dir/include/rbtree.h" "$work/include/rbtree.h"
"$cxx" -std=c++20 -O1 -g -fPIC -fvisibility=hidden -fno-exceptions -fno-rtti \
    -I"$work/include" -I"$source_dir/include" -I"$source_dir/platform/include" -I"$source_dir/src" \
    -c "$source_dir/src/rbtree.cpp" -o "$work/rbtree.o"
link "$map" "$work/rbtree.o" "$@"
expect_failure "a field more" "int another"

grep -v '^ *rb_first;' "$map" >"$work/map"
must_differ "$map" "$work/map"
link "$work/map" "$rbtree" "$@"
expect_failure "a function less" "1 Removed"
