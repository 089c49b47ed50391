#include <utils/Printer.h>

#include "Debuggee.h"
#include "TextForms.h"

namespace NSCam::v3::pipeline::model {

std::string const ZslProcessor::MyDebuggee::mName = "NSCam::v3::pipeline::model::IZslProcessor";

void ZslProcessor::MyDebuggee::debug(android::Printer& printer,
                                     std::vector<std::string> const& options) {
    if (auto const processor = mContext.promote(); processor != nullptr) {
        processor->debug(printer, options);
    }
}

void ZslProcessor::debug(android::Printer& printer, std::vector<std::string> const& /*options*/) {
    // A dump is wanted most when a capture is stuck, so it must not hang behind it.
    if (!mLock.tryLockFor(std::chrono::milliseconds(100))) {
        printer.printLine("Timeout waiting for mLock");
        return;
    }
    AdoptedLock const lock(mLock);
    printer.printLine(" *Pending Request*");
    android::PrefixPrinter prefixed(printer, "    ");
    for (ZslReqObject const& req : mPendingRequests) {
        printer.printFormatLine("  requestNo:%u", req.requestNo);
        print(prefixed, req);
    }
}

void ZslProcessor::print(android::Printer& printer, ZslReqObject const& req) {
    printer.printFormatLine("%s", toString(req).c_str());
}

std::string ZslProcessor::dumpPendingToString() const {
    std::string text;
    for (ZslReqObject const& req : mPendingRequests) {
        text += "R" + std::to_string(req.requestNo) + " ";
    }
    return text;
}

void ZslProcessor::dumpLockedMap(android::Printer& printer) const {
    for (auto const& [name, sets] : mLockedBuffersMap) {
        if (sets.empty()) {
            continue;
        }
        printer.printFormatLine("dump locked [%s]", name.c_str());
        for (HistoryBufferSet const& set : sets) {
            printer.printFormatLine("   %s", NSPipelineContext::toString(set).c_str());
        }
    }
}

}  // namespace NSCam::v3::pipeline::model
