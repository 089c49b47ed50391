#pragma once

#include <streamutils/IStreamBuffer.h>
#include <utils/RefBase.h>

#include <cstdint>
#include <vector>

namespace NSCam::v3::pipeline {

/// Scope of the pipeline's frame callbacks.
class IPipelineBufferSetFrameControl {
public:
    class IAppCallback;
};

/// Takes results for the application. Implemented by the pipeline model.
class IPipelineBufferSetFrameControl::IAppCallback : public virtual android::RefBase {
public:
    /// A part of a frame's result.
    struct Result {
        uint32_t requestNo = 0;
        uint32_t nAppOutMetaLeft = 0;  ///< application metadata still to come
        uint32_t nHalOutMetaLeft = 0;  ///< HAL metadata still to come
        std::vector<android::sp<IMetaStreamBuffer>> outputAppMetas;
        bool isFrameEnd = false;  ///< this is the frame's last result
        std::vector<android::sp<IMetaStreamBuffer>> outputHalMetas;
    };

    /// Takes one result; it is valid during the call, its buffers may be kept. May be called with
    /// the lock of the caller held: an implementation must not call back.
    virtual void updateFrame(Result const& result) = 0;
};

}  // namespace NSCam::v3::pipeline
