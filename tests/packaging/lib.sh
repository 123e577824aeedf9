# Shared by the packaging tests; sourced.
# shellcheck shell=bash

fail() {
    printf 'FAILED: %s\n' "$*" >&2
    exit 1
}

# A folder that goes away with the script.
scratch="$(mktemp -d)"
trap 'rm -rf "$scratch"' EXIT

# expect_failure TEXT COMMAND...: the command fails and its output has the text, wherever lines break.
expect_failure() {
    local text="$1" output
    shift
    if output="$("$@" 2>&1)"; then fail "succeeded, though it should not: $*"; fi
    [[ "$(tr -s ' \n' ' ' <<<"$output")" == *"$text"* ]] || fail "expected \"$text\" in: $output"
}

expect_success() {
    local output
    output="$("$@" 2>&1)" || fail "$*"$'\n'"$output"
}
