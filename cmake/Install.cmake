# Installs the library, its public headers and the CMake package `Kivo`.

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(packageDirectory "${CMAKE_INSTALL_LIBDIR}/cmake/Kivo")

install(TARGETS kivo EXPORT KivoTargets FILE_SET HEADERS DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")
install(EXPORT KivoTargets NAMESPACE Kivo:: DESTINATION "${packageDirectory}")

# A target that links a static Kivo also links its dependencies; a shared Kivo loads its own.
get_target_property(KIVO_LIBRARY_TYPE kivo TYPE)
configure_package_config_file("${CMAKE_CURRENT_LIST_DIR}/KivoConfig.cmake.in"
    "${PROJECT_BINARY_DIR}/KivoConfig.cmake" INSTALL_DESTINATION "${packageDirectory}")
write_basic_package_version_file("${PROJECT_BINARY_DIR}/KivoConfigVersion.cmake"
    COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_BINARY_DIR}/KivoConfig.cmake" "${PROJECT_BINARY_DIR}/KivoConfigVersion.cmake"
    "${CMAKE_CURRENT_LIST_DIR}/FindIdn2.cmake"
    DESTINATION "${packageDirectory}")
