#pragma once

#include <string>

#include "platform/hostlink/HostLinkPhysicalLayer.h"

/// A link as the command line names it: unix:PATH, tcp:HOST:PORT, serial:DEVICE[?baud=N&parity=P&stop=N],
/// i2c:DEVICE (module only), emulated, native (module only). All but native take faults behind the question
/// mark, as in unix:PATH?drop=0.001&delay=5 (see FaultSettings); a seed that is not among them is drawn and
/// said on standard error.
struct LinkUrl {
    enum class Side { Module, Host }; ///< the module listens on emulated lines, the host connects

    std::string text; ///< the URL with its defaults and the seed filled in, as `ready link=` prints it
    std::string type; ///< physical layer type; empty for native, the worker's own fixed link
    HostLinkPhysicalLayer::Properties properties;

    /// Throws CLI::ValidationError, saying what a URL looks like, for anything else.
    static LinkUrl parse(const std::string& url, Side side);
};

/// A file of this user: NAME in the user's run-time directory ($XDG_RUNTIME_DIR/hostlink), or in
/// /tmp/hostlink-UID where there is none. The directory is created, for its owner only.
std::string userFile(const std::string& name);
