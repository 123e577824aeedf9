#!/usr/bin/env bash
# A host outside the repository configures, builds and runs. The installed package is this build's; the
# subproject is built as the other kind of library, so that both shared and static are seen.
# usage: hosts.sh SOURCE_ROOT BUILD_DIRECTORY CMAKE installed|subproject

set -euo pipefail
# shellcheck source=tests/packaging/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"
source_root="$1"
build_directory="$2"
cmake="$3"
here="$source_root/tests/packaging"

cached() { sed -nE "s/^$1:[A-Z]+=(.*)/\1/p" "$build_directory/CMakeCache.txt"; }

# build_host NAME OPTION...: the host of the folder host/, in a build directory NAME.
build_host() {
    local name="$1"
    shift
    expect_success "$cmake" -G "$(cached CMAKE_GENERATOR)" -S "$here/host" -B "$scratch/$name" \
        -DCMAKE_BUILD_TYPE="$(cached CMAKE_BUILD_TYPE)" \
        -DCMAKE_CXX_COMPILER="$(cached CMAKE_CXX_COMPILER)" \
        -DKIVO_SOURCE_ROOT="$source_root" "$@"
    expect_success "$cmake" --build "$scratch/$name" --parallel 2
}

# No server answers the host. That it reports so proves the whole way from the call to the line.
run_host() {
    local output
    output="$(env -i HOME="$scratch/home" PATH="$PATH" https_proxy=http://127.0.0.1:1 \
        LD_LIBRARY_PATH="$scratch/prefix/lib" timeout 60 "$@" 2>&1)" || fail "$*: $output"
    grep -q '^Failed to initialize SDK: ' <<<"$output" || fail "no failure line from $*: $output"
    grep -qx 'Failed to retrieve image URL' <<<"$output" || fail "no message line from $*: $output"
}

# A host of the prefix. With a shared library it needs no development package.
serve_from_prefix() {
    local without=()
    [[ -e "$scratch/prefix/lib/libkivo.so" ]] &&
        without=(-DCMAKE_DISABLE_FIND_PACKAGE_{CURL,Idn2,SQLite3}"=ON")
    build_host installed -DCMAKE_PREFIX_PATH="$scratch/prefix" "${without[@]}"
    run_host "$scratch/installed/host"
    check_exports
}

# Only names of the public classes leave the shared library.
check_exports() {
    local library="$scratch/prefix/lib/libkivo.so" names foreign
    [[ -e "$library" ]] || return 0
    names="$(nm -D --defined-only --demangle "$library" | cut -d' ' -f3-)"
    grep -q '^kivo::KivoSDK::initialise(' <<<"$names" || fail "KivoSDK::initialise is not exported"
    foreign="$(grep -vxE -f "$here/exported-names.txt" <<<"$names")" || return 0
    fail "the shared library exports names that are not public:"$'\n'"$foreign"
}

install_into_prefix() {
    expect_success "$cmake" --install "$1" --prefix "$scratch/prefix"
    [[ ! -e "$scratch/prefix/lib64" ]] || ln -s lib64 "$scratch/prefix/lib"
}

other_kind() { if [[ "$(cached BUILD_SHARED_LIBS)" == ON ]]; then echo OFF; else echo ON; fi; }

mkdir "$scratch/home"
case "$4" in
    installed)
        install_into_prefix "$build_directory"
        serve_from_prefix
        ;;
    subproject)
        build_host subproject -DKIVO_AS_SUBPROJECT=ON -DKIVO_INSTALL=ON \
            -DCMAKE_INSTALL_INCLUDEDIR=headers/of/kivo -DBUILD_SHARED_LIBS="$(other_kind)"
        run_host "$scratch/subproject/host"
        install_into_prefix "$scratch/subproject"
        serve_from_prefix
        ;;
    *) fail "usage: hosts.sh SOURCE_ROOT BUILD_DIRECTORY CMAKE installed|subproject" ;;
esac
