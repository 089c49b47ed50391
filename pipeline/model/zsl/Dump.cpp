#include <utils/Printer.h>

#include "TextForms.h"

/// The processor as a debuggee: its registration and what it prints.
namespace NSCam::v3::pipeline::model {

/// Makes the processor dumpable without keeping it alive.
class ZslProcessor::MyDebuggee final : public IDebuggee {
public:
    explicit MyDebuggee(ZslProcessor* context) : mContext(context) {}

    std::string debuggeeName() const override { return mName; }
    void debug(android::Printer& printer, std::vector<std::string> const& options) override {
        if (auto const processor = mContext.promote(); processor != nullptr) {
            processor->debug(printer, options);
        }
    }

    std::shared_ptr<IDebuggeeCookie> mCookie;  ///< of the registration; empty without a manager

private:
    android::wp<ZslProcessor> mContext;
    static std::string const mName;
};

std::string const ZslProcessor::MyDebuggee::mName = "NSCam::v3::pipeline::model::IZslProcessor";

void ZslProcessor::onFirstRef() {
    // Not in the constructor: only now can a weak reference be made.
    mpDebuggee = std::make_shared<MyDebuggee>(this);
    if (IDebuggeeManager* const manager = IDebuggeeManager::get()) {
        mpDebuggee->mCookie = manager->attach(mpDebuggee, 0);
    }
}

void ZslProcessor::onLastStrongRef(void const* /*id*/) {
    // Not in the destructor: a dump that is under way must fail to promote, not find half an
    // object.
    if (mpDebuggee == nullptr) {
        return;
    }
    if (IDebuggeeManager* const manager = IDebuggeeManager::get()) {
        manager->detach(mpDebuggee->mCookie);
    }
    mpDebuggee.reset();
}

namespace {

void print(android::Printer& printer, ZslProcessor::ZslReqObject const& req) {
    printer.printFormatLine("%s", toString(req).c_str());
}

}  // namespace

void ZslProcessor::debug(android::Printer& printer, std::vector<std::string> const& /*options*/) {
    // A dump is wanted most when a capture is stuck, so it must not hang behind it.
    if (!mLock.tryLockFor(std::chrono::milliseconds(100))) {
        printer.printLine("Timeout waiting for mLock");
        return;
    }
    AdoptedLock const lock(mLock);  // the attempt above took it
    printer.printLine(" *Pending Request*");
    android::PrefixPrinter prefixed(printer, "    ");
    for (ZslReqObject const& req : mPendingRequests) {
        printer.printFormatLine("  requestNo:%u", req.requestNo);
        print(prefixed, req);
    }
}

void ZslProcessor::dumpLockedMap(android::Printer& printer) const {
    for (auto const& [name, sets] : mLockedBuffersMap) {
        if (sets.empty()) {
            continue;  // a list stays once its selector was used, and most never lock anything
        }
        printer.printFormatLine("dump locked [%s]", name.c_str());
        for (HistoryBufferSet const& set : sets) {
            printer.printFormatLine("   %s", NSPipelineContext::toString(set).c_str());
        }
    }
}

}  // namespace NSCam::v3::pipeline::model
