#pragma once

#include <functional>
#include <string>
#include <vector>

#include "backend/admin/AdminContext.h"
#include "backend/desk/Desk.h"
#include "backend/run/CommonOptions.h"
#include "backend/run/Interception.h"
#include "backend/run/RunFolder.h"
#include "backend/tls/Authority.h"

namespace kivo::backend {

/// The backend as an https proxy: it answers for some hosts, with a certificate from an authority
/// of this process, whose key never leaves memory, and forwards connections to all others.
class ProxyRole {
public:
    /// Gets whole lines about hosts that are not answered here.
    using Report = std::function<void(const std::string& line)>;

    /// Writes a trust file into the folder: what programs trust already, `alsoTrusted`, and the
    /// authority. Throws std::invalid_argument or std::runtime_error, with a message for the user.
    ProxyRole(const CommonOptions& options, const RunFolder& folder, const std::string& alsoTrusted,
              Report report);

    /// A certificate for the hosts answered here.
    Identity identity() const;

    /// Sets which connections of the desk's clients are forwarded, and through which other proxy.
    void direct(DeskOptions& desk) const;

    /// What the admin port tells about a backend on that port.
    AdminInfo adminInfo(std::uint16_t port) const;

    const Interception& interception() const { return interception_; }
    const std::string& trustFile() const { return trustFile_; }

private:
    const Interception interception_;
    const Authority authority_;
    const std::string trustFile_;
    const Report report_;
};

}  // namespace kivo::backend
