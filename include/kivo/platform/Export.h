#ifndef KIVO_PLATFORM_EXPORT_H
#define KIVO_PLATFORM_EXPORT_H

/// Marks what a host may link against; everything else stays hidden inside the library. A host of
/// the static library defines KIVO_STATIC, as `Kivo::static` and kivo-static.pc do: its own shared
/// objects then do not export Kivo's names.
#if defined(KIVO_STATIC)
#define KIVO_EXPORT
#else
#define KIVO_EXPORT __attribute__((visibility("default")))
#endif

#endif
