#pragma once

/// Marks what a host may link against; everything else stays hidden inside the library.
#define KIVO_EXPORT __attribute__((visibility("default")))
