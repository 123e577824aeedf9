# Installs three components: `runtime`, the shared library; `dev`, what a host is built with; `tools`, kivo-dev.

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(packageDirectory "${CMAKE_INSTALL_LIBDIR}/cmake/Kivo")

function(kivo_install_library target export)
    install(TARGETS ${target} EXPORT ${export}
        LIBRARY COMPONENT runtime NAMELINK_COMPONENT dev
        ARCHIVE COMPONENT dev
        FILE_SET HEADERS DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" COMPONENT dev)
    install(EXPORT ${export} NAMESPACE Kivo:: DESTINATION "${packageDirectory}" COMPONENT dev)
endfunction()

kivo_install_library(kivo KivoTargets)
kivo_install_library(kivo-static KivoStaticTargets)

configure_package_config_file("${CMAKE_CURRENT_LIST_DIR}/KivoConfig.cmake.in"
    "${PROJECT_BINARY_DIR}/KivoConfig.cmake" INSTALL_DESTINATION "${packageDirectory}")
write_basic_package_version_file("${PROJECT_BINARY_DIR}/KivoConfigVersion.cmake"
    COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_BINARY_DIR}/KivoConfig.cmake" "${PROJECT_BINARY_DIR}/KivoConfigVersion.cmake"
    "${CMAKE_CURRENT_LIST_DIR}/FindIdn2.cmake" "${CMAKE_CURRENT_LIST_DIR}/KivoDevTest.cmake"
    DESTINATION "${packageDirectory}" COMPONENT dev)

set(standardLibrary stdc++)
if("c++" IN_LIST CMAKE_CXX_IMPLICIT_LINK_LIBRARIES)
    set(standardLibrary c++)
endif()

# Written when it is installed, since only then the prefix is known. The prefix stands there in full: pkg-config
# would not recognise a path relative to the file as one of the system's folders, and pass it to the compiler.
# Written straight into place, so that two installations of one build at the same time do not mix their prefixes.
function(kivo_install_pkg_config name)
    set(template "${CMAKE_CURRENT_FUNCTION_LIST_DIR}/${name}.pc.in")
    set(directory "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
    install(CODE "
        set(includedir \"${CMAKE_INSTALL_INCLUDEDIR}\")
        set(libdir \"${CMAKE_INSTALL_LIBDIR}\")
        set(version \"${PROJECT_VERSION}\")
        set(standardLibrary \"${standardLibrary}\")
        set(file \"\${CMAKE_INSTALL_PREFIX}/${directory}/${name}.pc\")
        message(STATUS \"Installing: \$ENV{DESTDIR}\${file}\")
        configure_file(\"${template}\" \"\$ENV{DESTDIR}\${file}\" @ONLY NO_SOURCE_PERMISSIONS)
        list(APPEND CMAKE_INSTALL_MANIFEST_FILES \"\${file}\")"
        COMPONENT dev)
endfunction()

kivo_install_pkg_config(kivo)
kivo_install_pkg_config(kivo-static)

if(TARGET kivo-dev)
    install(TARGETS kivo-dev RUNTIME COMPONENT tools)
    install(DIRECTORY "${PROJECT_SOURCE_DIR}/examples/ci" "${PROJECT_SOURCE_DIR}/docs/openapi"
        DESTINATION "${CMAKE_INSTALL_DATADIR}/kivo" COMPONENT tools USE_SOURCE_PERMISSIONS)
endif()
if(TARGET kivo-dev-pages)
    get_target_property(pages kivo-dev-pages BINARY_DIR)
    install(FILES "${pages}/kivo-dev.1" DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT tools)
    install(FILES "${pages}/kivo-dev.bash" RENAME kivo-dev
        DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions" COMPONENT tools)
endif()
