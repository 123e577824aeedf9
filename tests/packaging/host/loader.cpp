#include <dlfcn.h>

/// Runs the host inside a plug-in that knows Kivo, from a program that does not.
int main(int, char** arguments) {
    void* plugin = dlopen(arguments[1], RTLD_NOW | RTLD_LOCAL);
    if (plugin == nullptr) return 2;
    const auto runHost = reinterpret_cast<int (*)()>(dlsym(plugin, "runHost"));
    return runHost == nullptr ? 3 : runHost();
}
