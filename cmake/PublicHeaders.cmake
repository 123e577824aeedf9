# What a host may include. The list is closed: these headers include nothing of Kivo outside it.
set(KIVO_PUBLIC_HEADERS
    kivo/sdk/KivoSDK.h
    kivo/sdk/KivoConfig.h
    kivo/sdk/RemoteMessage.h
    kivo/sdk/KivoCommunicationPlugin.h
    kivo/sdk/KivoCommunication.h
    kivo/core/KivoCore.h
    kivo/api/CoreRepository.h
    kivo/api/WireModels.h
    kivo/platform/Bundle.h
    kivo/platform/Console.h
    kivo/platform/Export.h
    kivo/platform/Guarded.h
    kivo/platform/Record.h
    kivo/platform/Task.h
    kivo/platform/TaskPool.h)
