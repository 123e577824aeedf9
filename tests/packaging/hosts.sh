#!/usr/bin/env bash
# A host outside the repository configures, builds and runs, shared and static, with CMake and with the compiler
# alone; and a host that would crash does not compile. The installed package is this build's.
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
        -DCMAKE_CXX_FLAGS="$(cached CMAKE_CXX_FLAGS)" \
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
    grep -qFx 'Invalid URL: http://[' <<<"$output" || fail "the library sees no std::string in an any of $*: $output"
}

# A host of the shared library needs no development package; a plug-in of the static one exports nothing of it.
serve_from_prefix() {
    build_host installed -DCMAKE_PREFIX_PATH="$scratch/prefix" \
        -DCMAKE_DISABLE_FIND_PACKAGE_{CURL,Idn2,SQLite3}"=ON"
    run_host "$scratch/installed/host"
    build_host static -DCMAKE_PREFIX_PATH="$scratch/prefix" -DKIVO_COMPONENTS=static
    refuse_names kivo "$scratch/static/libplugin.so"
}

# refuse_names PATTERN LIBRARY
refuse_names() {
    local names
    names="$(nm -D --defined-only --demangle "$2" | grep "$1")" || return 0
    fail "$2 exports Kivo's names:"$'\n'"$names"
}

# What the header declares, what the version script lists and what the library exports are the same C names;
# of C++ only names of the public classes leave it.
check_exports() {
    local library="$scratch/prefix/lib/libkivo.so" exported foreign
    exported="$(nm -D --defined-only --with-symbol-versions "$library" | sed -n 's/.* \(kivo_[a-z_]*\)@@KIVO_1\.0$/\1/p')"
    diff <(sort <<<"$exported") <(grep -oE '\bkivo_[a-z_]+;' "$source_root/kivo/exports.map" | tr -d ';' | sort) ||
        fail "the C names above are not the version script's (< exported, > listed)"
    diff <(sort <<<"$exported") <(sed -nE 's/^KIVO_EXPORT .*\b(kivo_[a-z_]+)\(.*/\1/p' "$source_root/include/kivo/kivo.h" | sort) ||
        fail "the C names above are not the header's (< exported, > declared)"
    foreign="$(nm -D --defined-only --demangle --without-symbol-versions "$library" | cut -d' ' -f3- |
        grep -vE '^(kivo_|KIVO_)' | grep -vxE -f "$here/exported-names.txt")" || return 0
    fail "the shared library exports names that are not public:"$'\n'"$foreign"
}

flags() { PKG_CONFIG_PATH="$scratch/prefix/lib/pkgconfig" pkg-config --cflags --libs "$1"; }

# compile_by_hand PACKAGE FLAG...: the host, with pkg-config alone.
compile_by_hand() {
    # shellcheck disable=SC2046  # Flags are words.
    "$(cached CMAKE_CXX_COMPILER)" $(cached CMAKE_CXX_FLAGS) -std=c++20 "${@:2}" "$here/host/host.cpp" \
        $(flags "$1") -o "$scratch/by-hand"
}

compile_without_cmake() {
    local package
    for package in kivo kivo-static; do
        expect_success compile_by_hand "$package"
        run_host "$scratch/by-hand"
    done
}

refuse_harmful_hosts() {
    expect_failure '-D_GLIBCXX_DEBUG changes the layout' compile_by_hand kivo -D_GLIBCXX_DEBUG
    expect_failure 'with -frtti' compile_by_hand kivo -fno-rtti
    expect_failure deleted compile_by_hand kivo -DWITH_A_REQUEST_WITHOUT_A_NAME
    expect_success compile_by_hand kivo -DWITH_A_REQUEST_WITH_A_NAME
}

install_into_prefix() {
    expect_success "$cmake" --install "$1" --prefix "$scratch/prefix"
    [[ ! -e "$scratch/prefix/lib64" ]] || ln -s lib64 "$scratch/prefix/lib"
}

mkdir "$scratch/home"
case "$4" in
    installed)
        install_into_prefix "$build_directory"
        serve_from_prefix
        check_exports
        compile_without_cmake
        refuse_harmful_hosts
        ;;
    subproject)
        build_host subproject -DKIVO_AS_SUBPROJECT=ON -DKIVO_INSTALL=ON \
            -DCMAKE_INSTALL_INCLUDEDIR=headers/of/kivo
        run_host "$scratch/subproject/host"
        refuse_names kivo "$scratch/subproject/libplugin.so"
        install_into_prefix "$scratch/subproject"
        serve_from_prefix
        ;;
    *) fail "usage: hosts.sh SOURCE_ROOT BUILD_DIRECTORY CMAKE installed|subproject" ;;
esac
