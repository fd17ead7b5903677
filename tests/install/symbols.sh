#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# What the shared libraries export, beside what the list says: whoever changes it, changes what applications link to.
# usage: symbols.sh [--update] LIST LIBRARY...
set -euo pipefail
update=
[[ $1 == --update ]] && { update=1; shift; }
list=$1
shift

# Inline functions are weak, and differ from compiler to compiler: only what the library itself defines counts.
exported() {
    local library
    for library in "$@"; do
        nm --dynamic --defined-only --demangle "$library" | sed -nE "s/^[0-9a-f]+ [TDBR] /$(basename "${library%%.so*}"): /p"
    done | LC_ALL=C sort -u
}

if [[ $update ]]; then
    exported "$@" >"$list"
    exit
fi
[[ $(exported "$@" | wc -l) -gt 100 ]] || { echo "no symbols found in $*" >&2; exit 1; }
diff -u "$list" <(exported "$@") || {
    echo "The exported symbols are not those of $list. Where that is meant, update it:" >&2
    echo "  $0 --update $list $*" >&2
    exit 1
}
