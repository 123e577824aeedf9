#!/usr/bin/env bash
# The drawing of the folders holds the arrows that the includes make today.
# usage: picture.sh SOURCE_ROOT

set -euo pipefail
# shellcheck source=tests/packaging/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

diff <(sed '1,/^<!-- arrows$/d; /^-->$/,$d' "$1/docs/architecture.svg") <("$1/scripts/check-layers" --arrows "$1") ||
    fail "docs/architecture.svg is stale (< drawn, > included); run scripts/picture"
