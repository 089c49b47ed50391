#pragma once

#include <string>
#include <vector>

#include "ZslProcessor.h"

namespace NSCam::v3::pipeline::model {

/// Makes the processor dumpable without keeping it alive.
class ZslProcessor::MyDebuggee final : public IDebuggee {
public:
    explicit MyDebuggee(ZslProcessor* context) : mContext(context) {}

    std::string debuggeeName() const override { return mName; }
    void debug(android::Printer& printer, std::vector<std::string> const& options) override;

    std::shared_ptr<IDebuggeeCookie> mCookie;  ///< of the registration; empty without a manager

private:
    android::wp<ZslProcessor> mContext;
    static std::string const mName;
};

}  // namespace NSCam::v3::pipeline::model
