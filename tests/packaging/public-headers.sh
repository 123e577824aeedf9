#!/usr/bin/env bash
# Each public header compiles alone with nothing but the public headers and the standard library, and the one
# for C as C too.
# usage: public-headers.sh SOURCE_ROOT COMPILER

set -euo pipefail
# shellcheck source=tests/packaging/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"
include="$1/include"
compiler="$2"
mapfile -t headers < <(cd "$include" && find . -name '*.h' -printf '%P\n')

# The name of a standard header has no folder and no extension.
refuse_foreign_includes() {
    local foreign
    foreign="$(grep -rnE '#[[:space:]]*include[[:space:]]*<[^>]*[./][^>]*>' "$include" |
        grep -vE 'kivo/kivo\.h:.*<std(bool|def)\.h>')" || return 0
    fail "public headers include more than the standard library:"$'\n'"$foreign"
}

compile_alone() {
    local unit="$scratch/unit.cpp"
    printf '#include "%s"\n#include "%s"\n' "$1" "$1" >"$unit"
    expect_success "$compiler" -std=c++20 -fsyntax-only -Wall -Wextra -Wpedantic -Wshadow -Werror \
        -I "$include" "$unit"
}

((${#headers[@]} > 0)) || fail "no header under $include"
refuse_foreign_includes
for header in "${headers[@]}"; do compile_alone "$header"; done
expect_success "$compiler" -x c -std=c99 -fsyntax-only -Wall -Wextra -Wpedantic -Wstrict-prototypes -Werror \
    -I "$include" "$include/kivo/kivo.h"
echo "${#headers[@]} headers stand alone"
