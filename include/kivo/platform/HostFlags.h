#pragma once

// Compiler flags with which a C++ host links and then crashes. Public headers that pass the
// standard library's types between host and library include this.

#if defined(_GLIBCXX_DEBUG) && !defined(KIVO_BUILT_WITH_GLIBCXX_DEBUG)
#error \
    "Kivo: -D_GLIBCXX_DEBUG changes the layout of std::map, which the host passes to the \
library. Compile without it (-D_GLIBCXX_ASSERTIONS is fine), use the C interface kivo/kivo.h, or \
build Kivo itself with both -D_GLIBCXX_DEBUG and -DKIVO_BUILT_WITH_GLIBCXX_DEBUG."
#endif

#if !defined(__cpp_rtti)
#error \
    "Kivo: -fno-rtti hides from the library what a std::any of a RemoteMessage holds. Compile \
the files that include Kivo's C++ headers with -frtti, or use the C interface kivo/kivo.h."
#endif
