#pragma once

/// Everything public: the entry point, the plugin, the core, the repository with its records, the
/// host's bundle identifier and the console.
#include "kivo/api/CoreRepository.h"
#include "kivo/platform/Bundle.h"
#include "kivo/platform/Console.h"
#include "kivo/sdk/KivoCommunication.h"
#include "kivo/sdk/KivoSDK.h"
