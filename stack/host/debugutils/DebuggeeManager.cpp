#include <debugutils/IDebuggee.h>
#include <host/Debuggees.h>
#include <zebcam/ThreadSafety.h>

#include <algorithm>
#include <atomic>
#include <utility>

namespace zebcam::host {

namespace {

/// Known by its address alone.
class Cookie final : public NSCam::IDebuggeeCookie {};

class DebuggeeManager final : public NSCam::IDebuggeeManager {
public:
    std::shared_ptr<NSCam::IDebuggeeCookie> attach(std::shared_ptr<NSCam::IDebuggee> debuggee,
                                                   int priority) override {
        if (!debuggee) {  // nothing could ever be printed, and every dump would have to ask
            return nullptr;
        }
        auto cookie = std::make_shared<Cookie>();
        LockGuard const lock(mLock);
        // Behind those of the same priority: they print in the order of their attachment.
        auto const place =
            std::upper_bound(mEntries.begin(), mEntries.end(), priority,
                             [](int p, Entry const& entry) { return p < entry.priority; });
        mEntries.insert(place, {std::move(debuggee), priority, cookie});
        return cookie;
    }

    void detach(std::shared_ptr<NSCam::IDebuggeeCookie> cookie) override {
        // Let go of outside the lock: a debuggee's end may detach another one.
        std::shared_ptr<NSCam::IDebuggee> detached;
        LockGuard const lock(mLock);
        auto const it = std::find_if(mEntries.begin(), mEntries.end(),
                                     [&](Entry const& entry) { return entry.cookie == cookie; });
        if (it != mEntries.end()) {
            detached = std::move(it->debuggee);
            mEntries.erase(it);
        }
    }

    /// Copies, so that a debuggee prints without the manager's lock and lives until it has.
    std::vector<std::shared_ptr<NSCam::IDebuggee>> debuggees() const {
        LockGuard const lock(mLock);
        std::vector<std::shared_ptr<NSCam::IDebuggee>> result;
        result.reserve(mEntries.size());
        for (auto const& entry : mEntries) {
            result.push_back(entry.debuggee);
        }
        return result;
    }

private:
    struct Entry {
        std::shared_ptr<NSCam::IDebuggee> debuggee;
        int priority;
        std::shared_ptr<NSCam::IDebuggeeCookie> cookie;
    };

    mutable Mutex mLock;
    std::vector<Entry> mEntries GUARDED_BY(mLock);  ///< by priority, then by time of attachment
};

/// Never destroyed: debuggees may detach until the last destructor of the process.
DebuggeeManager& manager() {
    static DebuggeeManager& instance = *new DebuggeeManager;
    return instance;
}

// A device's services can be gone when a late destructor runs; tests make them so.
std::atomic<bool> gIsAvailable{true};

}  // namespace

void setDebuggeeManagerAvailable(bool available) {
    gIsAvailable = available;
}

std::vector<std::string> debuggeeNames() {
    std::vector<std::string> names;
    for (auto const& debuggee : manager().debuggees()) {
        names.push_back(debuggee->debuggeeName());
    }
    return names;
}

void dumpDebuggees(android::Printer& printer, std::vector<std::string> const& options) {
    for (auto const& debuggee : manager().debuggees()) {
        printer.printLine(debuggee->debuggeeName().c_str());
        debuggee->debug(printer, options);
    }
}

}  // namespace zebcam::host

NSCam::IDebuggeeManager* NSCam::IDebuggeeManager::get() {
    return zebcam::host::gIsAvailable ? &zebcam::host::manager() : nullptr;
}
