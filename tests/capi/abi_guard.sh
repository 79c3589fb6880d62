#!/bin/sh
# SPDX-License-Identifier: MIT
# The guard over the ABI lets the library pass, and none with a field more or a function less.
# usage: abi_guard.sh SOURCE_DIR BUILD_DIR CXX
set -eu
source_dir=$1
build_dir=$2
cxx=$3
objects=$build_dir/src/CMakeFiles/prod_common.dir

work=$(mktemp -d "$build_dir/abi-test.XXXXXX")
trap 'rm -rf "$work"' EXIT
mkdir "$work/include" "$work/lib"
cp "$build_dir/CMakeCache.txt" "$work/"

# usage: link RBTREE-OBJECT MAP    a library of the build's units but one, with that version script
link() {
    find "$objects" -name '*.o' ! -name 'rbtree.cpp.o' -exec \
        "$cxx" -shared -o "$work/lib/libprod_common.so" "$1" \
        -Wl,-soname,libprod_common.so.1 -Wl,--wrap=SetValue -Wl,--version-script="$2" \
        -static-libstdc++ -static-libgcc -Wl,--exclude-libs,ALL \
        -L"$build_dir/lib" -lprod_platform -lcjson -lsqlite3 -lz {} +
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
link "$objects/rbtree.cpp.o" "$map"
"$source_dir/script/check-abi" "$work"

sed 's/^typedef struct rb_node {/&\n    int another;/' "$source_dir/include/rbtree.h" >"$work/include/rbtree.h"
! cmp -s "$source_dir/include/rbtree.h" "$work/include/rbtree.h"
"$cxx" -std=c++20 -O1 -g -fPIC -fvisibility=hidden -fno-exceptions -fno-rtti \
    -I"$work/include" -I"$source_dir/include" -I"$source_dir/platform/include" -I"$source_dir/src" \
    -c "$source_dir/src/rbtree.cpp" -o "$work/rbtree.o"
link "$work/rbtree.o" "$map"
expect_failure "a field more" "int another"

grep -v '^ *rb_first;' "$map" >"$work/map"
! cmp -s "$map" "$work/map"
link "$objects/rbtree.cpp.o" "$work/map"
expect_failure "a function less" "1 Removed"
