#!/bin/sh
# SPDX-License-Identifier: MIT
# Installs the packages of a build into a clean root by dpkg, builds the consumers against it, runs
# them there, and puts a vendor's port in the default one's place.
# usage: consumers.sh SOURCE_DIR BUILD_DIR
set -eu
source_dir=$1
build_dir=$2
here=$source_dir/tests/packages

work=$(mktemp -d "$build_dir/packages-test.XXXXXX")
trap 'rm -rf "$work"' EXIT
root=$work/root

fail() {
    printf '%s\n' "$*" >&2
    exit 1
}

# usage: expect WHAT WANTED COMMAND...
expect() {
    what=$1
    wanted=$2
    shift 2
    said=$("$@") || fail "$what: exit status $?"
    [ "$said" = "$wanted" ] || fail "$what: it said: $said"
}

# dpkg thinks that it is root; what it writes is the caller's.
in_root() {
    bwrap --unshare-user --uid 0 --gid 0 --dev-bind / / --setenv PATH "$PATH:/usr/sbin:/sbin" \
        dpkg --root="$root" --force-not-root "$@" >>"$work/dpkg.log" 2>&1 || {
        cat "$work/dpkg.log" >&2
        fail "dpkg $*"
    }
}
refused_in_root() {
    if (in_root "$@") 2>/dev/null; then
        fail "dpkg $* went through"
    fi
}

# usage: on_device COMMAND...    with nothing but the packages in /usr, and this machine's C library
multiarch=$(cc -print-multiarch)
on_device() {
    bwrap --unshare-all --die-with-parent --clearenv --tmpfs / --dir /etc --dir /var/run --dir /tmp \
        --ro-bind "$root/usr" /usr --ro-bind "/usr/lib/$multiarch" "/lib/$multiarch" \
        --ro-bind-try /usr/lib64 /lib64 --ro-bind "$work/bin" /opt --proc /proc --dev /dev -- "$@"
}

# A root that has what Debian has, but for these packages.
mkdir -p "$root/var/lib/dpkg/updates" "$root/var/lib/dpkg/info" "$root/var/lib/dpkg/triggers" "$work/bin"
dpkg-query -W -f '${Package} ${db:Status-Status} ${Version} ${Architecture}\n' \
    libc6 libc6-dev libcjson1 libcjson-dev liblmdb0 libnl-3-200 libnl-genl-3-200 libsqlite3-0 zlib1g |
    while read -r package status version architecture; do
        [ "$status" = installed ] || continue
        printf 'Package: %s\nStatus: install ok installed\nVersion: %s\nArchitecture: %s\nMaintainer: x <x@localhost>\nDescription: x\n\n' \
            "$package" "$version" "$architecture"
    done >"$root/var/lib/dpkg/status"

"$source_dir/script/package" --from "$build_dir" --out "$work/packages" 2>"$work/log" ||
    { cat "$work/log" >&2; fail "script/package"; }
package() {
    echo "$work/packages/$1"_*.deb
}
refused_in_root -i "$(package libprod-common1)" # needs a port
in_root -i "$work"/packages/*.deb

# C, by pkg-config.
libdir=$(dirname "$(find "$root/usr/lib" -name libprod_common.so)")
export PKG_CONFIG_PATH="$libdir/pkgconfig"
# shellcheck disable=SC2046
cc -std=c99 -Wall -Wextra -Werror -pedantic "$here/c/board.c" -o "$work/bin/board-c" \
    $(pkg-config --cflags --libs prod_common)
expect "C" "board: no name" on_device /opt/board-c

# C++, by CMake.
cmake -S "$here/cpp" -B "$work/cpp" -DCMAKE_PREFIX_PATH="$root/usr" >"$work/log" ||
    { cat "$work/log" >&2; fail "find_package"; }
cmake --build "$work/cpp" >"$work/log" || { cat "$work/log" >&2; fail "the C++ consumer"; }
cp "$work/cpp/board" "$work/bin/board-cpp"
expect "C++" "board: no name" on_device /opt/board-cpp

# The tools, their manual pages and completions.
on_device /usr/bin/prodctl --version >/dev/null || fail "prodctl does not start"
for tool in cfm discovery-dhcp ethswctl prodctl upgrade; do
    [ -x "$root/usr/bin/$tool" ] || fail "no $tool"
    [ -s "$root/usr/share/man/man1/$tool.1" ] || fail "no manual page of $tool"
done
[ -s "$root/usr/share/bash-completion/completions/prodctl" ] || fail "no completion"

# A vendor's port, by its package.
sed -n '/^global:/,/^local:/s/^ *\([A-Za-z_][A-Za-z_0-9]*\);$/\1/p' "$source_dir/abi/prod_platform.map" |
    grep -vx GetValue | sed 's/.*/int &(void); int &(void) { return 0; }/' >"$work/rest.c"
port=$work/acme$(dirname "${libdir#"$root"}")/$(basename "$libdir")
mkdir -p "$port" "$work/acme/DEBIAN"
cc -shared -fPIC -fno-builtin -o "$port/libprod_platform.so.1" "$here/port/port.c" "$work/rest.c" \
    -Wl,-soname,libprod_platform.so.1
cat >"$work/acme/DEBIAN/control" <<END
Package: acme-platform1
Version: 3
Architecture: $(dpkg --print-architecture)
Maintainer: Acme <acme@localhost>
Provides: prod-platform-1
Conflicts: prod-platform-1
Replaces: prod-platform-1
Description: Platform functions of an Acme board
END
dpkg-deb --root-owner-group --build "$work/acme" "$work/acme.deb" >/dev/null
refused_in_root -i "$work/acme.deb" # not beside the default one
refused_in_root --remove libprod-platform1 # nor can there be none
# The two steps that apt makes of an exchange.
in_root --force-depends --remove libprod-platform1
in_root -i "$work/acme.deb"
expect "C on the vendor's port" "board: acme one" on_device /opt/board-c
expect "C++ on the vendor's port" "board: acme one" on_device /opt/board-cpp
refused_in_root --remove acme-platform1 # the library needs it now
