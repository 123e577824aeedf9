# Shared by the scripts of this folder and by .ci/run; sourced, never run.
# shellcheck shell=bash

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"

section() { printf '\n== %s\n' "$*"; }

fail() {
    printf 'error: %s\n' "$*" >&2
    exit 1
}

# listed_packages library|tests|all|benchmarks|pictures: the names in packages.txt that it needs. `all`
# is what continuous integration needs; only the benchmarks need their peers.
listed_packages() {
    local part=library wanted line
    case "$1" in
        library) wanted='library' ;;
        tests) wanted='library|tests' ;;
        all) wanted='library|tests|continuous integration' ;;
        benchmarks) wanted='library|benchmarks' ;;
        pictures) wanted='pictures' ;;
    esac
    while read -r line; do
        [[ "$line" =~ ^'# ---- '(.*)' ----'$ ]] && part="${BASH_REMATCH[1]}"
        line="${line%%#*}"
        [[ -z "${line// /}" || ! "|$wanted|" == *"|$part|"* ]] || echo "${line// /}"
    done <"$root/packages.txt"
}

missing_packages() {
    local package
    for package in $(listed_packages "$1"); do
        [[ "$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null)" == installed ]] || echo "$package"
    done
}

as_root() {
    if ((EUID == 0)); then
        env DEBIAN_FRONTEND=noninteractive "$@"
    elif command -v sudo >/dev/null; then
        sudo env DEBIAN_FRONTEND=noninteractive "$@"
    else
        fail "installing packages needs root or sudo; as root, run: $*"
    fi
}

# Stops if apt could install the packages only by removing others.
refuse_removals() {
    local plan removed
    plan="$(LC_ALL=C apt-get install --simulate --no-install-recommends "$@" 2>&1)" ||
        fail "apt cannot install $* here:"$'\n'"$plan"
    removed="$(awk '$1 == "Remv" { print "  " $2 }' <<<"$plan")"
    [[ -z "$removed" ]] ||
        fail "apt would remove the packages below to install $*"$'\n'"$removed"$'\n'"Nothing was" \
            "changed. Remove them yourself, or build in a Debian 12 container."
}

# install_packages library|tests|all|benchmarks|pictures
install_packages() {
    command -v apt-get >/dev/null || 
        fail "apt-get not found; install the equivalents of packages.txt by hand"
    local missing
    mapfile -t missing < <(missing_packages "$1")
    ((${#missing[@]})) || return 0
    section "Installing ${missing[*]}"
    as_root apt-get -o DPkg::Lock::Timeout=120 --quiet update </dev/null ||
        echo "warning: apt-get update failed; using the package lists already here" >&2
    refuse_removals "${missing[@]}"
    as_root apt-get -o DPkg::Lock::Timeout=120 --quiet install --yes --no-remove \
        --no-install-recommends "${missing[@]}" </dev/null || fail "apt-get install failed"
}

# build_directory PRESET
build_directory() { echo "$root/build/$1"; }

# configure PRESET [CMAKE OPTION...]
configure() {
    section "Configuring $1"
    (cd "$root" && cmake --preset "$@" -Wno-dev) || fail "configuring $1 failed"
}

# compile PRESET [TARGET...]: everything, or the targets alone.
compile() {
    section "Building $1"
    cmake --build "$(build_directory "$1")" --parallel "$(nproc)" ${2:+--target "${@:2}"} ||
        fail "building $1 failed"
}

# build PRESET [CMAKE OPTION...]: configures and builds all of one of the presets.
build() {
    configure "$@"
    compile "$1"
}

# version: Kivo's, as the public header states it.
version() { sed -nE 's/^#define KIVO_VERSION_[A-Z]+ ([0-9]+)$/\1/p' "$root/include/kivo/Version.h" | paste -sd.; }
