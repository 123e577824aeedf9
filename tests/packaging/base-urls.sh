#!/usr/bin/env bash
# A base URL that nothing can be appended to stops the configuration and says why.
# usage: base-urls.sh SOURCE_ROOT CMAKE

set -euo pipefail
# shellcheck source=tests/packaging/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"
rules="$1/cmake/BaseURLs.cmake"
cmake="$2"

accepts() { expect_success "$cmake" "-DKIVO_PRODUCTION_BASE_URL=$1" -P "$rules"; }

refuses() { expect_failure "$2" "$cmake" "-DKIVO_${3:-PRODUCTION}_BASE_URL=$1" -P "$rules"; }

accepts 'https://api.kivo.example/'
accepts 'https://localhost:65535/'
accepts 'https://host.example/push/v1/'

refuses '' 'does not start with'
refuses '' 'A right one looks like'
refuses '' 'does not start with' DEVELOPMENT
refuses 'http://host.example/' 'does not start with'
refuses 'https:///api/' 'names no valid host'
refuses 'https://user@host.example/' 'names no valid host'
refuses 'https://host.example:/' 'names no valid host'
refuses 'https://host.example:65536/' 'port is not between'
refuses 'https://host.example/api' 'does not end in'
refuses 'https://host.example/?q=/' 'query'
refuses 'https://host.example/#/' 'fragment'
refuses 'https://host.example/"/' 'percent-encoded'
