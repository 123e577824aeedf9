# Finds libidn2, which brings no CMake package of its own, as the target Idn2::idn2.

find_path(Idn2_INCLUDE_DIR idn2.h)
find_library(Idn2_LIBRARY idn2)
mark_as_advanced(Idn2_INCLUDE_DIR Idn2_LIBRARY)

if(Idn2_INCLUDE_DIR)
    file(STRINGS "${Idn2_INCLUDE_DIR}/idn2.h" version REGEX "^#[ \t]*define[ \t]+IDN2_VERSION[ \t]")
    string(REGEX MATCH "[0-9.]+[0-9]" Idn2_VERSION "${version}")
endif()

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(Idn2
    REQUIRED_VARS Idn2_LIBRARY Idn2_INCLUDE_DIR VERSION_VAR Idn2_VERSION)

if(Idn2_FOUND AND NOT TARGET Idn2::idn2)
    add_library(Idn2::idn2 UNKNOWN IMPORTED)
    set_target_properties(Idn2::idn2 PROPERTIES
        IMPORTED_LOCATION "${Idn2_LIBRARY}" INTERFACE_INCLUDE_DIRECTORIES "${Idn2_INCLUDE_DIR}")
endif()
