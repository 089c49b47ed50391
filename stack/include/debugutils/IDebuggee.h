#pragma once

#include <utils/Printer.h>

#include <memory>
#include <string>
#include <vector>

namespace NSCam {

/// Something whose state can be dumped.
class IDebuggee {
public:
    virtual ~IDebuggee() = default;

    virtual std::string debuggeeName() const = 0;

    /// Prints the state line by line. Called on the dumping thread at any time between attach and
    /// detach, so it must not wait long for a lock.
    virtual void debug(android::Printer& printer, std::vector<std::string> const& options) = 0;
};

/// Stands for one registration; opaque to its holder.
class IDebuggeeCookie {
public:
    virtual ~IDebuggeeCookie() = default;
};

/// The process's list of debuggees. Thread-safe.
class IDebuggeeManager {
public:
    virtual ~IDebuggeeManager() = default;

    /// The manager, or null when this process has none.
    static IDebuggeeManager* get();

    /// Registers a debuggee and returns the cookie that detach wants. The manager shares the
    /// ownership of the debuggee until then.
    virtual std::shared_ptr<IDebuggeeCookie> attach(std::shared_ptr<IDebuggee> debuggee,
                                                    int priority) = 0;

    /// Ends a registration. An unknown or null cookie is ignored.
    virtual void detach(std::shared_ptr<IDebuggeeCookie> cookie) = 0;
};

}  // namespace NSCam
