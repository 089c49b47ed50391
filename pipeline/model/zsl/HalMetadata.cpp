#include <streamutils/HalMetaStreamBuffer.h>

#include "BuildFrame.h"
#include "Log.h"
#include "MetadataLocks.h"
#include "TraceSection.h"

namespace NSCam::v3::pipeline::model {

using Utils::HalMetaStreamBuffer;

namespace {

/// The stream of the request's HAL settings for the sensor whose result the stream is; -1: none.
StreamId_T controlStreamIdOf(StreamId_T historyStreamId) {
    switch (historyStreamId) {
        case STREAM_ID_HAL_META_P1_0:
            return STREAM_ID_HAL_META_CONTROL_0;
        case STREAM_ID_HAL_META_P1_1:
            return STREAM_ID_HAL_META_CONTROL_1;
        case STREAM_ID_HAL_META_P1_2:
            return STREAM_ID_HAL_META_CONTROL_2;
        case STREAM_ID_APP_META_P1_0:
        case STREAM_ID_APP_META_P1_1:
        case STREAM_ID_APP_META_P1_2:
            return STREAM_ID_APP_META_CONTROL;
        default:
            return -1;
    }
}

void overrideByControl(MetaBuffers const& controls, IStreamInfo const& history,
                       IMetadata& metadata) {
    constexpr char FUNCTION[] = "prepareHalMeta";
    auto const control = findStream(controls, controlStreamIdOf(history.getStreamId()));
    if (control == nullptr) {
        return;
    }
    {
        auto const locked = MetadataLock::forReading(control);
        ZSL_ASSERT_AS(locked, FUNCTION, "ctrl metadata=nullptr (HalMeta)");
        metadata += *locked;
    }
    ZSL_LOGD_AS(FUNCTION, "prepare (%#lx:%s): copy history, update all (%#lx:%s)",
                history.getStreamId(), history.getStreamName(),
                control->getStreamInfo()->getStreamId(), control->getStreamInfo()->getStreamName());
}

}  // namespace

void prepareHalMeta(HistoryBufferSet const& set, NSPipelineContext::IFrameBuilder& builder) {
    TraceSection const trace("prepareHalMeta");
    MetaBuffers controls;
    builder.getHalMetaStreamBuffers(controls);
    for (auto const& history : set.halMeta) {
        ZSL_ASSERT(history != nullptr, "history sb=nullptr (HalMeta)");
        android::sp<IMetaStreamInfo> const info = history->getStreamInfo();
        ZSL_ASSERT(info != nullptr, "history streamInfo=nullptr (HalMeta)");
        StreamId_T const streamId = info->getStreamId();

        IMetadata metadata;
        {
            auto const locked = MetadataLock::forReading(history);
            ZSL_ASSERT(locked, "history metadata=nullptr (HalMeta)(%#lx:%s)", streamId,
                       info->getStreamName());
            metadata = *locked;
        }
        overrideByControl(controls, *info, metadata);
        auto const built = HalMetaStreamBuffer::Allocator(info)(std::move(metadata));
        ZSL_ASSERT(built != nullptr, "new sb=nullptr (HalMeta)(%#lx:%s)", streamId,
                   info->getStreamName());
        builder.setHalMetaStreamBuffer(streamId, built);
    }
}

}  // namespace NSCam::v3::pipeline::model
