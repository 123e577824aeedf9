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
    printf '#include <string>\n#include "%s"\n' "$2" >"$scratch/$1"
}

refuses() {
    write "$1" "$2"
    expect_failure "$3" "$check" "$scratch"
    rm "$scratch/$1"
}

write kivo/core/KivoCore.h kivo/api/CoreRepository.h
write kivo/api/CoreRepository.h kivo/sdk/KivoConfig.h
write 'kivo/storage/CacheManager+ReAuth.cpp' kivo/api/CoreRepository.h
write backend/Server.cpp backend/Server.h
expect_success "$check" "$scratch"

refuses kivo/platform/Task.h kivo/sdk/KivoConfig.h 'layer 0 includes kivo/sdk/KivoConfig.h of layer 1'
refuses kivo/storage/CacheManager.cpp kivo/network/NetworkClient.h 'layer 2 includes kivo/network/NetworkClient.h of layer 3'
refuses kivo/core/KivoCore.cpp Task.h 'which is no file of a layer'
refuses kivo/extras/Extra.h kivo/platform/Task.h 'belongs to no layer'
refuses backend/Service.cpp kivo/platform/JSON.h 'the backend includes kivo/platform/JSON.h'
