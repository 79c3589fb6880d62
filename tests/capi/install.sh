#!/bin/sh
# SPDX-License-Identifier: MIT
# Installs the library to a folder of its own, builds the README's program against it as a user
# would, and runs it on a device.
# usage: install.sh SOURCE_DIR BUILD_DIR DEVICE_ROOT [CC MULTIARCH SYSROOT TOOLCHAIN_FILE]
#
# With the last four for another processor, into a copy of its sysroot.
set -eu
source_dir=$1
build_dir=$2
root=$3
cc=${4:-cc}
multiarch=${5:-}
sysroot=${6:-}
toolchain=${7:-}

work=$(mktemp -d "$build_dir/install-test.XXXXXX")
trap 'rm -rf "$work"' EXIT
set --
if [ -n "$sysroot" ]; then
    cp -a "$sysroot/." "$work"
    cc="$cc --sysroot=$work"
    set -- "-DCMAKE_TOOLCHAIN_FILE=$toolchain" "-DPROD_SYSROOT=$work"
    export PKG_CONFIG_SYSROOT_DIR="$work" PKG_CONFIG_LIBDIR="$work/usr/lib/$multiarch/pkgconfig"
fi
cmake --install "$build_dir" --prefix "$work/usr" >/dev/null

sed -n '/^```c wan1.c$/,/^```$/p' "$source_dir/README.md" | grep -v '^```' >"$work/wan1.c"
export PKG_CONFIG_PATH="$work/usr/lib/pkgconfig"
mkdir "$work/bin"
# shellcheck disable=SC2046,SC2086
$cc -Wall -Wextra -Werror -pedantic "$work/wan1.c" -o "$work/bin/wan1" $(pkg-config --cflags --libs prod_common)

lines=$(grep -c . "$work/wan1.c")
[ "$lines" -le 17 ] || { echo "the README's program has $lines lines" >&2; exit 1; }
said=$("$source_dir/device/launch" --root "$root" --bind "$work" -- "$work/bin/wan1")
[ "$said" = "WAN 1 is not connected" ] || { echo "it said: $said" >&2; exit 1; }

mkdir "$work/cmake"
cat >"$work/cmake/CMakeLists.txt" <<'END'
cmake_minimum_required(VERSION 3.25)
project(user C)
find_package(prod_common 1 REQUIRED)
add_executable(wan1 ../wan1.c)
target_link_libraries(wan1 prod_common::prod_common prod_common::prod_platform)
END
cmake -S "$work/cmake" -B "$work/cmake/build" -DCMAKE_PREFIX_PATH="$work/usr" "$@" >/dev/null
cmake --build "$work/cmake/build" >/dev/null
