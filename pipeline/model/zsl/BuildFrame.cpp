#include "BuildFrame.h"

#include <streamutils/UsersManager.h>

#include "Log.h"
#include "TraceSection.h"
#include "ZslProcessor.h"

namespace NSCam::v3::pipeline::model {

ZslProcessor::FrameBuilders ZslProcessor::buildFrame_Locked(
    unsigned int requestNo, std::vector<BuildFrameParams> const& params) {
    TraceSection const trace("buildFrame_Locked");
    FrameBuilders built;
    for (BuildFrameParams const& frame : params) {
        if (frame.pFB == nullptr) {
            ZSL_LOGE("bad pFrameBuilder - requestNo:%u", requestNo);
            continue;
        }
        int64_t timestamp = fakeShutterOf(requestNo);
        if (frame.hbs != nullptr) {
            prepareHalImage(*frame.hbs, *frame.pFB);
            prepareHalMeta(*frame.hbs, *frame.pFB);
            prepareAppMeta(*frame.hbs, *frame.pFB);
            if (timestamp == 0) {
                timestamp = frame.hbs->timestamp;
            }
        }
        appendAdditionalMeta(frame.additionalMetas, *frame.pFB);
        frame.pFB->setFrameTimestamp(timestamp);
        frame.pFB->setBuiltFromHistory(frame.hbs != nullptr);
        built.push_back(frame.pFB);
    }
    return built;
}

void prepareHalImage(HistoryBufferSet const& set, NSPipelineContext::IFrameBuilder& builder) {
    TraceSection const trace("prepareHalImage");
    for (auto const& image : set.halImage) {
        if (image == nullptr || image->getStreamInfo() == nullptr) {
            continue;
        }
        StreamId_T const streamId = image->getStreamInfo()->getStreamId();
        char const* const streamName = image->getStreamInfo()->getStreamName();
        image->reset();
        android::sp<Utils::UsersManager> const users =
            new Utils::UsersManager(streamId, streamName);
        image->setUsersManager(users);
        ZSL_LOGD("reset (%#lx:%s)->UsersManager(%p)", streamId, streamName,
                 static_cast<void const*>(users.get()));
        builder.setHalImageStreamBuffer(streamId, image);
    }
}

android::sp<IMetaStreamBuffer> findStream(MetaBuffers const& buffers, StreamId_T streamId) {
    for (auto const& buffer : buffers) {
        if (buffer != nullptr && buffer->getStreamInfo() != nullptr &&
            buffer->getStreamInfo()->getStreamId() == streamId) {
            return buffer;
        }
    }
    return nullptr;
}

void appendAdditionalMeta(ZslPolicy::ISelector::AdditionalMetas const& additionalMetas,
                          NSPipelineContext::IFrameBuilder& builder) {
    if (additionalMetas.empty()) {
        return;
    }
    MetaBuffers appMetas;
    MetaBuffers halMetas;
    builder.getAppMetaStreamBuffers(appMetas);
    builder.getHalMetaStreamBuffers(halMetas);
    for (auto const& [streamId, additional] : additionalMetas) {
        ZSL_LOGD("(%#lx) append additionalMetas", streamId);
        auto target = findStream(appMetas, streamId);
        if (target == nullptr) {
            target = findStream(halMetas, streamId);
        }
        if (target == nullptr) {
            ZSL_LOGE("cannot find streamId(%#lx) to append additionalMetas", streamId);
            continue;
        }
        auto const metadata = MetadataLock::forWriting(target);
        if (!metadata) {
            ZSL_LOGE_AS("operator()", "cannot lock metadata");
        } else if (additional != nullptr) {
            *metadata += *additional;
        }
    }
}

}  // namespace NSCam::v3::pipeline::model
