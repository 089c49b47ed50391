#pragma once

#include <pipeline/IPipelineBufferSetFrameControl.h>

#include <memory>

#include "Tape.h"

namespace NSCam::v3::pipeline::model::record {

/// A result callback that forwards to another and records that it threw: the exception may leave a
/// later operation than the one in which it was thrown.
class RecordedCallback final : public IPipelineBufferSetFrameControl::IAppCallback {
public:
    RecordedCallback(android::wp<IAppCallback> callback, std::shared_ptr<Tape> tape)
        : mCallback(std::move(callback)), mTape(std::move(tape)) {}

    bool lives() const { return mCallback.promote() != nullptr; }
    void updateFrame(Result const& result) override;

private:
    android::wp<IAppCallback> const mCallback;  ///< the caller's, held as weakly as it asked for
    std::shared_ptr<Tape> const mTape;
};

}  // namespace NSCam::v3::pipeline::model::record
