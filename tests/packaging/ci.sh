#!/usr/bin/env bash
# The installed fixtures for a host's own tests work: the CTest function, the pytest fixture, the workflow and the
# shell script; and they fail where they should.
# usage: ci.sh BUILD_DIRECTORY CMAKE

set -euo pipefail
# shellcheck source=tests/packaging/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"
build_directory="$1"
cmake="$2"

# Each command of the workflow but the installation, as "name: command" with a null character behind it.
workflow_steps() {
    /usr/bin/python3 -c '
import sys, yaml
steps = yaml.safe_load(open(sys.argv[1]))["jobs"]["test"]["steps"]
for step in steps:
    if "run" in step and step["name"] != "Install Kivo":
        print(step["name"], step["run"], sep=": ", end="\0")
' "$1"
}

# expect_tests COUNT FILE: so many tests ran, and all passed.
expect_tests() {
    local attribute
    for attribute in "tests=\"$1\"" 'failures="0"' 'skipped="0"'; do
        grep -q "$attribute" "$2" || fail "no $attribute in $(<"$2")"
    done
}

run_workflow() {
    local step count=0
    while IFS= read -r -d '' step; do
        count=$((count + 1))
        expect_success sh -ec "${step#*: }"
    done < <(workflow_steps workflow.yml)
    ((count == 3)) || fail "the workflow has $count commands"
    expect_tests 4 build/results.xml
    expect_tests 5 build/pytest.xml
    [[ -s build/renewal.har ]] || fail "the tests left no report"
}

# expect_test_failure TEXT NAME ARGUMENT...: a further test of the application fails with that text.
expect_test_failure() {
    echo "kivo_dev_test(NAME $2 ${*:3})" >>CMakeLists.txt
    expect_success "$cmake" build
    expect_failure "$1" "$(dirname "$cmake")/ctest" --test-dir build --output-on-failure --no-tests=error -R "$2"
}

refuse_what_is_wrong() {
    local python="__import__('urllib.request').request.urlopen('https://localhost:8443/api/communication/x')"
    expect_test_failure 'there was none to that endpoint' unmet COMMAND app EXPECT '"user/unset status=200"'
    expect_test_failure 'not one of the contract' broken STRICT \
        COMMAND sh -c "\"/usr/bin/python3 -c \\\"$python\\\" || true\""
    cat >test_wrong.py <<'END'
def test_wrong(kivo_dev):
    assert kivo_dev("false").status == 0
END
    expect_failure '1 failed' /usr/bin/python3 -m pytest test_wrong.py
}

run_side_by_side() {
    local start=$SECONDS
    expect_success env REPORTS=reports ./side-by-side.sh user/update-device-token:{hang,delay=1m,drip=1s} -- build/app
    ((SECONDS - start < 55)) || fail "three hosts that wait took $((SECONDS - start)) s"
    [[ -s reports/3.har ]] || fail "there is no report"
    expect_failure '0 passed, 1 failed' ./side-by-side.sh user/authenticate:401 -- false
}

expect_success "$cmake" --install "$build_directory" --prefix "$scratch/prefix"
export PATH="$scratch/prefix/bin:/usr/bin:$PATH" HOME="$scratch" PYTHONDONTWRITEBYTECODE=1
export CMAKE_PREFIX_PATH="$scratch/prefix" LD_LIBRARY_PATH="$scratch/prefix/lib:$scratch/prefix/lib64"
cp -r "$scratch/prefix/share/kivo/ci" "$scratch/project"
cd "$scratch/project"
run_workflow
refuse_what_is_wrong
run_side_by_side
