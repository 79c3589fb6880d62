#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# script/check-port finds nothing wrong with the default port, and everything that is wrong with one
# that was spoiled on purpose.
# usage: check_port.sh SOURCE_DIR BUILD_DIR PORT WRONG_PORT
set -euo pipefail
source_dir=$1
build_dir=$2
check=("$source_dir/script/check-port" --build "$build_dir")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
    printf 'failed: %s\n' "$*" >&2
    cat "$work"/table* >&2 || true
    exit 1
}

# usage: row FUNCTION PATTERN    the row of a function in the last table
row() {
    grep -Eq "^[a-z]+\.h +$1 +$2\$" "$work/table" || fail "the row of $1 is not \"$2\""
}

status=0
"${check[@]}" --timeout 12 "$4" >"$work/table" || status=$?
[ "$status" -eq 1 ] || fail "exit status $status for the wrong port"
functions=$(cat "$source_dir"/platform/include/platform/*.h | grep -v '^ *#' | grep -c '^PLATFORM_API')
[ "$(grep -vc 'db_table\.' "$work/table")" -eq $((functions + 2)) ] || fail "not every function has a row"
row check_ip_is_same_net 'FAILED +SameNet\.UnderTheShorterMask SameNet\.TextThatIsNone'
row pav_wifi_get_osifname 'FAILED +pav_wifi_get_osifname\.ANetworkThatIsNotThere was ended by a crash'
row iof_eth_name_get 'FAILED +iof_eth_name_get\.NamesStayAsTheyAre'
row iof_mac_clone_set 'FAILED +iof_mac_clone_set\.OneThatIsKnownIsNoFailure' # asks for the names
row iof_vlan_set missing
row km_dns_redirect_del_rule 'FAILED +km_dns_redirect_del_rule\.OnceAndNoMore'
row string_str_trim 'FAILED +Trim\.WhiteSpaceAroundATextInPlace did not end within 12 s'
row do_file_cmd 'FAILED +FileCommand\.Failures'
row ApmibGetValue 'FAILED +ApmibGetValue\.AMissingSettingIsAnEmptyText ApmibGetValue\.TheBaseMacIsTheBoards'
row iof_gpio_set 'ok +[0-9]+ tests, 1 skipped'
[ "$(grep -c '\.h ' "$work/table")" -eq $(($(grep -c ' ok  ' "$work/table") + 9)) ] ||
    fail "a function that is right is blamed"

# The same functions of a port that is right.
mapfile -t blamed < <(grep -v ' ok  ' "$work/table" | grep '\.h ' | awk '{ print $2 }')
"${check[@]}" "$3" "${blamed[@]}" >"$work/table" || fail "the default port keeps the contract"
[ "$(tail -n 1 "$work/table")" = "9 of 9 functions keep the contract" ] || fail "the last line"

# Some functions only, and what their tests say.
"${check[@]}" "$4" GetValue SetValue >"$work/table" || fail "two functions that are right"
row GetValue 'ok +[0-9]+ tests'
row SetValue 'ok +[0-9]+ tests'
[ "$(tail -n 1 "$work/table")" = "2 of 2 functions keep the contract" ] || fail "the last line"
! "${check[@]}" --verbose "$4" check_ip_is_same_net >"$work/table" || fail "a wrong function passes"
grep -q '^    .*Failure' "$work/table" || fail "what the test says is missing"

# usage: refuses MESSAGE ARGUMENT...
refuses() {
    local message=$1 status=0
    shift
    "${check[@]}" "$@" >"$work/table" 2>&1 || status=$?
    [ "$status" -eq 2 ] || fail "exit status $status for $*"
    grep -q "$message" "$work/table" || fail "another message for $*"
}
refuses 'wants a port'
refuses 'cannot read' "$work/none.so"
refuses 'exports anything' "$0"
refuses 'no function fly' "$3" fly
