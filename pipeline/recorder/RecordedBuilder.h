#pragma once

#include <pipeline/IFrameBuilder.h>

#include <cstdint>
#include <memory>
#include <optional>

#include "Tape.h"

namespace NSCam::v3::pipeline::model::record {

/// A frame builder that forwards to another and records what it is made of.
class RecordedBuilder final : public NSPipelineContext::IFrameBuilder {
public:
    /// `number` is the builder's in the recording.
    RecordedBuilder(std::shared_ptr<IFrameBuilder> builder, uint64_t number,
                    std::shared_ptr<Tape> tape)
        : mBuilder(std::move(builder)), mNumber(number), mTape(std::move(tape)) {}

    std::shared_ptr<IFrameBuilder> const& builder() const { return mBuilder; }
    uint64_t number() const { return mNumber; }

    uint32_t getFrameType() const override;
    void getAppMetaStreamBuffers(MetaBuffers& out) const override {
        mBuilder->getAppMetaStreamBuffers(out);
    }
    void getHalMetaStreamBuffers(MetaBuffers& out) const override {
        mBuilder->getHalMetaStreamBuffers(out);
    }
    void setHalImageStreamBuffer(StreamId_T streamId,
                                 android::sp<IImageStreamBuffer> const& buffer) override;
    void setHalMetaStreamBuffer(StreamId_T streamId,
                                android::sp<IMetaStreamBuffer> const& buffer) override {
        mBuilder->setHalMetaStreamBuffer(streamId, buffer);
    }
    void setAppMetaStreamBuffer(StreamId_T streamId,
                                android::sp<IMetaStreamBuffer> const& buffer) override;
    void setFrameTimestamp(int64_t ns) override;
    void setBuiltFromHistory(bool builtFromHistory) override;

private:
    std::shared_ptr<IFrameBuilder> const mBuilder;
    uint64_t const mNumber;
    std::shared_ptr<Tape> const mTape;
    // What is known of the frame so far, used by one thread at a time like the builder
    std::optional<OutSets::Set> mHistorySet;
    std::optional<int64_t> mSensorTimestamp;  ///< that the application result tells
    int64_t mTimestamp = 0;
};

}  // namespace NSCam::v3::pipeline::model::record
