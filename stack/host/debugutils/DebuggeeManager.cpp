#include <debugutils/IDebuggee.h>
#include <host/Debuggees.h>
#include <zebcam/ThreadSafety.h>

#include <algorithm>
#include <atomic>
#include <map>
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
        mEntries.emplace(priority, std::pair(cookie, std::move(debuggee)));
        return cookie;
    }

    void detach(std::shared_ptr<NSCam::IDebuggeeCookie> cookie) override {
        // Let go of outside the lock: a debuggee's end may detach another one.
        std::shared_ptr<NSCam::IDebuggee> detached;
        LockGuard const lock(mLock);
        auto const it = std::find_if(mEntries.begin(), mEntries.end(), [&](auto const& entry) {
            return entry.second.first == cookie;
        });
        if (it != mEntries.end()) {
            detached = std::move(it->second.second);
            mEntries.erase(it);
        }
    }

    /// Copies, so that a debuggee prints without the manager's lock and lives until it has.
    std::vector<std::shared_ptr<NSCam::IDebuggee>> debuggees() const {
        LockGuard const lock(mLock);
        std::vector<std::shared_ptr<NSCam::IDebuggee>> result;
        result.reserve(mEntries.size());
        for (auto const& [priority, entry] : mEntries) {
            result.push_back(entry.second);
        }
        return result;
    }

private:
    mutable Mutex mLock;
    /// With their cookies, by priority; those of one priority stay in the order of attachment.
    std::multimap<int, std::pair<std::shared_ptr<Cookie>, std::shared_ptr<NSCam::IDebuggee>>>
        mEntries GUARDED_BY(mLock);
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
