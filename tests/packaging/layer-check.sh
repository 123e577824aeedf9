#!/usr/bin/env bash
# The layer check accepts a good tree and names each kind of fault in a bad one.
# usage: layer-check.sh SOURCE_ROOT

set -euo pipefail
# shellcheck source=tests/packaging/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"
check="$1/scripts/check-layers"

# write FILE INCLUDE: adds a file to the tree.
write() {
    mkdir -p "$scratch/$(dirname "$1")"
    printf '#include <string>\n#include %s\n' "$2" >"$scratch/$1"
}

refuses() {
    write "$1" "$2"
    expect_failure "$3" "$check" "$scratch"
    rm "$scratch/$1"
}

write include/kivo/core/KivoCore.h '"kivo/api/CoreRepository.h"'
write include/kivo/api/CoreRepository.h '"kivo/sdk/KivoConfig.h"'
write 'kivo/storage/CacheManager+ReAuth.cpp' '"kivo/api/CoreRepository.h"'
write kivo/platform/http/Network.cpp '<curl/curl.h>'
write backend/http/Server.cpp '"backend/tls/Certificate.h"'
write backend/http/Listeners.cpp '<sys/socket.h>'
expect_success "$check" "$scratch"

refuses kivo/platform/http/Extra.cpp '"kivo/platform/session/URLSession.h"' \
    'kivo/platform/http may not include kivo/platform/session/URLSession.h of kivo/platform/session'
refuses include/kivo/platform/Task.h '"kivo/sdk/KivoConfig.h"' 'kivo/platform/tasks may not include kivo/sdk/KivoConfig.h'
refuses kivo/core/KivoCore.cpp '"Task.h"' 'in no folder of the table'
refuses kivo/extras/Extra.h '"kivo/platform/Task.h"' 'kivo/extras is not a folder of the table'
refuses backend/journal/Tally.cpp '<kivo/sdk/KivoSDK.h>' 'backend/journal may not include kivo/sdk/KivoSDK.h'
refuses kivo/sdk/KivoSDK.cpp '<sqlite3.h>' 'may not include <sqlite3.h>'
refuses kivo/api/CoreRepository.cpp '<fmt/core.h>' 'of a library that the table does not name'
