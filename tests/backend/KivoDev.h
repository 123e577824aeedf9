#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

namespace kivo::tests {

/// The program kivo-dev in a process of its own, which ends with this object at the latest.
class KivoDev {
public:
    /// What it prints, on either stream, goes into the output descriptor.
    KivoDev(const std::vector<std::string>& arguments, const std::filesystem::path& dataHome,
            int output);
    ~KivoDev();

    KivoDev(const KivoDev&) = delete;
    KivoDev& operator=(const KivoDev&) = delete;

    /// What it says to descriptor 3, up to the end.
    std::string readyText() const;

    void signal(int number) const;

    /// Its exit status; -1 when a signal killed it or it does not end in time.
    int wait();

private:
    pid_t process_ = -1;
    int ready_ = -1;
};

}  // namespace kivo::tests
