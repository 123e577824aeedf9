#pragma once

/// Marks what a host may link against; everything else stays hidden inside the library.
#define KIVO_EXPORT __attribute__((visibility("default")))

/// Takes a member of an exported class back.
#define KIVO_HIDDEN __attribute__((visibility("hidden")))
