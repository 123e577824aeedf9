#!/usr/bin/env bash
# The example host of a language goes through every operation against kivo-dev.
# usage: languages.sh SOURCE_ROOT BUILD_DIRECTORY c|python|python-exits|rust

set -euo pipefail
# shellcheck source=tests/packaging/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"
examples="$1/examples"
build_directory="$2"
library="$build_directory/kivo/libkivo.so"

# run_host OPTION... -- PROGRAM...: under kivo-dev; sets `output`.
run_host() {
    output="$(HOME="$scratch" LD_LIBRARY_PATH="$build_directory/kivo" PYTHONDONTWRITEBYTECODE=1 \
        timeout 250 "$build_directory/backend/kivo-dev" run --strict "$@" 2>&1)" || fail "$*: $output"
}

expect_every_operation() {
    local outcome
    run_host -- "$@"
    for outcome in 'SDK Initialized' setUser updateDeviceToken updateNotificationPermission unsetUser; do
        grep -q "$outcome successfully: " <<<"$output" || fail "no outcome of $outcome in: $output"
    done
    grep -q ' 0 requests that broke the contract' <<<"$output" || fail "$output"
}

# Python ends 20 times amid 300 operations, whose lines are on their way to it, and a forked child ends too.
exit_amid_operations() {
    cat >"$scratch/abrupt.py" <<'PYTHON'
import multiprocessing, sys
sys.path.insert(0, sys.argv[1])
from kivo import Kivo

kivo = Kivo("com.example.python", "key", on_line=print, library=sys.argv[2])
kivo.set_user(name="Ana")
for token in range(300):
    kivo.update_device_token(token)
child = multiprocessing.get_context("fork").Process(target=lambda: (kivo.unset_user(), kivo.wait(1)))
child.start()
child.join()
sys.exit(child.exitcode)
PYTHON
    # shellcheck disable=SC2016  # The inner shell expands them.
    run_host -- bash -c 'for ((i = 0; i < 20; i++)); do "$@" || exit; done' - \
        python3 "$scratch/abrupt.py" "$examples/python" "$library"
}

case "$3" in
    c) expect_every_operation "$build_directory/examples/kivo-c-host" ;;
    python) expect_every_operation python3 "$examples/python/host.py" "$library" ;;
    python-exits) exit_amid_operations ;;
    rust)
        rustc --edition 2021 -L "$build_directory/kivo" -l kivo -o "$scratch/host" "$examples/rust/host.rs"
        expect_every_operation "$scratch/host"
        ;;
    *) fail "usage: languages.sh SOURCE_ROOT BUILD_DIRECTORY c|python|python-exits|rust" ;;
esac
