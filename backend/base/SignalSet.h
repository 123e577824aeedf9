#pragma once

#include <csignal>
#include <initializer_list>

namespace kivo::backend {

/// The signals in the form that pthread_sigmask(3) and its kin take.
inline sigset_t signalSet(std::initializer_list<int> signals) {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : signals) sigaddset(&set, signal);
    return set;
}

}  // namespace kivo::backend
