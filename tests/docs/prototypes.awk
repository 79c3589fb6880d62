# SPDX-License-Identifier: MIT
# Walks the prototypes of the headers and prints what a doc block leaves open:
#
# - each function and each exported variable has a block of its own, or shares one within @{ and @};
# - each parameter is named in it, or bears one of the names that docs/api-defaults.md explains for
#   all functions, or is explained by the function that the block refers to ("As f()");
# - a result is told by @return or, where the block's first words are no verb ("Reads ...") but the
#   thing itself ("The mask of ...", "Whether ..."), by them; or by the function referred to.
#
# usage: awk -f prototypes.awk docs/api-defaults.md HEADER...    ends with 1 when it printed something
FNR == 1 { doc = ""; in_doc = 0; prototype = ""; group = 0 }

FILENAME ~ /\.md$/ {
    if (/^\*\*Parameter names\.\*\*/) in_names = 1
    else if (/^\*\*/) in_names = 0
    if (in_names && /^\| `/) {
        split($0, cell, "|")
        count = split(cell[2], quoted, "`")
        for (i = 2; i <= count; i += 2) common[quoted[i]] = 1
    }
    next
}

/^\/\*\* @\{ \*\/$/ { group = 1; doc = ""; next }
/^\/\*\* @\} \*\/$/ { group = 0; doc = ""; next }
/^ *\/\*\*/ { in_doc = 1; doc = "" }
in_doc {
    line = $0
    gsub(/^ *\/?\*+\/?|\*\/ *$/, " ", line)
    doc = doc " " line
    if (/\*\//) in_doc = 0
    next
}
/^ *#/ { next }
prototype == "" && /^(PROD_API|PLATFORM_API)/ { prototype = " "; where = FILENAME ":" FNR }
prototype != "" {
    prototype = prototype " " $0
    if (/;/) {
        note(prototype, doc, where)
        prototype = ""
        if (!group) doc = ""
    }
    next
}
/;|^}/ { if (!group) doc = "" }

function note(text, block, place,   name, params) {
    gsub(/[ \t]+/, " ", text)
    sub(/^ *(PROD_API|PLATFORM_API) /, "", text)
    name = text
    if (text !~ /\(/) {
        sub(/ *[\[;=].*/, "", name)
        sub(/.*[ *]/, "", name)
        params = "-"
    } else {
        sub(/ *\(.*/, "", name)
        sub(/.*[ *]/, "", name)
        has_result[name] = text !~ /^void [a-zA-Z_0-9]+\(/
        params = text
        sub(/^[^(]*\(/, "", params)
    }
    order[++total] = name
    places[name] = place
    docs[name] = block
    parameters[name] = params
}

# The function that a block leaves the rest to, or nothing.
function referred(block,   at) {
    if (!match(block, /([Aa]s|same as|like|[Aa]s with|[Aa]s by) [A-Za-z_0-9]+\(\)/) &&
        !match(block, /[a-z_0-9]+\(\) (under|for|of) /)) return ""
    at = substr(block, RSTART, RLENGTH)
    sub(/\(\).*/, "", at)
    sub(/.* /, "", at)
    return at
}

function names(block, word) {
    return block ~ ("(^|[^A-Za-z_0-9])" word "([^A-Za-z_0-9]|$)")
}

function covers(name, word, depth,   next_one) {
    if (names(docs[name], word)) return 1
    next_one = referred(docs[name])
    return depth < 3 && next_one != "" && next_one in docs && covers(next_one, word, depth + 1)
}

function tells_result(name, depth,   block, first, next_one) {
    block = docs[name]
    if (block ~ /@return|@retval/) return 1
    first = block
    sub(/^[ ]+/, "", first)
    sub(/ .*/, "", first)
    if (first !~ /^[A-Z][a-z]+s$/ || first ~ /^(As|Milliseconds|Seconds|Microseconds)$/) {
        if (first != "As" && first != "The" || block !~ /^ *(As|The same as) [A-Za-z_0-9]+\(\)/) return 1
    }
    next_one = referred(block)
    return depth < 3 && next_one != "" && next_one in docs && tells_result(next_one, depth + 1)
}

function complain(name, text) {
    print places[name] ": " name ": " text
    failed = 1
}

function check(name,   params, i, c, depth, one, count, list) {
    if (docs[name] == "") {
        complain(name, "has no doc block")
        return
    }
    params = parameters[name]
    if (params == "-") return
    if (has_result[name] && !tells_result(name, 0)) complain(name, "its result is not told")
    count = 0
    depth = 1
    one = ""
    for (i = 1; i <= length(params) && depth > 0; ++i) {
        c = substr(params, i, 1)
        depth += (c == "(") - (c == ")")
        if (depth == 0 || (c == "," && depth == 1)) {
            list[++count] = one
            one = ""
        } else one = one c
    }
    for (i = 1; i <= count; ++i) {
        one = list[i]
        if (one ~ /^ *void *$/ || one ~ /\.\.\./) continue
        if (one ~ /\(\*/) {
            sub(/.*\(\* */, "", one)
            sub(/\).*/, "", one)
        } else {
            sub(/ *\[.*/, "", one)
            sub(/ *$/, "", one)
            sub(/.*[ *]/, "", one)
        }
        if (!(one in common) && !covers(name, one, 0)) complain(name, "parameter " one " is not explained")
    }
}

END {
    for (at = 1; at <= total; ++at) check(order[at])
    if (total < 300) {
        print "only " total " prototypes were found"
        failed = 1
    }
    if (!failed) print total " prototypes are documented"
    exit failed
}
