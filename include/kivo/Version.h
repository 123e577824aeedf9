#ifndef KIVO_VERSION_H
#define KIVO_VERSION_H

/// The version of these headers, and the one place where it is written: the build and the packages
/// read it here. kivo_version() tells the version of the library that is loaded.
// NOLINTBEGIN(modernize-macro-to-enum): read by the preprocessor, too.
#define KIVO_VERSION_MAJOR 1
#define KIVO_VERSION_MINOR 0
#define KIVO_VERSION_PATCH 0
// NOLINTEND(modernize-macro-to-enum)

#endif
