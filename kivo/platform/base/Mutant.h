#pragma once
#include <cstdlib>
inline bool kivoMutant(int number) {
    static const int chosen = getenv("KIVO_MUTANT") ? atoi(getenv("KIVO_MUTANT")) : 0;
    return chosen == number;
}
