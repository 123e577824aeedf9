# KIVO_VERSION, as include/kivo/Version.h states it.

file(STRINGS "${CMAKE_CURRENT_LIST_DIR}/../include/kivo/Version.h" numbers REGEX "^#define KIVO_VERSION_[A-Z]+ [0-9]")
string(REGEX REPLACE "[^0-9;]" "" numbers "${numbers}")
string(REPLACE ";" "." KIVO_VERSION "${numbers}")
