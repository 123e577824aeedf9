#pragma once

/// All that a host needs: the entry, the plugin with its records, the host's own name, and where
/// the lines go.
#include "kivo/api/CoreRepository.h"
#include "kivo/platform/Bundle.h"
#include "kivo/platform/Console.h"
#include "kivo/sdk/KivoCommunication.h"
#include "kivo/sdk/KivoSDK.h"
