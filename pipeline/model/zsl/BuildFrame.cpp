#include <cutils/properties.h>
#include <metadata/MetadataTags.h>
#include <streamutils/HalMetaStreamBuffer.h>
#include <streamutils/UsersManager.h>

#include <unordered_set>

#include "Log.h"
#include "MetadataLocks.h"
#include "Streams.h"
#include "TraceSection.h"
#include "ZslProcessor.h"

/// A frame out of a history buffer set and the capture's settings. The set stays as it is but for
/// its image buffers' bookkeeping.
namespace NSCam::v3::pipeline::model {

using NSPipelineContext::IFrameBuilder;
using Utils::HalMetaStreamBuffer;

namespace {

/// Hands over the images, re-armed for the new frame with users of their own.
void prepareHalImage(HistoryBufferSet const& set, IFrameBuilder& builder) {
    TraceSection const trace("prepareHalImage");
    for (auto const& image : set.halImage) {
        IImageStreamInfo const* const info = streamInfoOf(image);
        if (info == nullptr) {
            continue;
        }
        StreamId_T const streamId = info->getStreamId();
        char const* const streamName = info->getStreamName();
        // The users of the preview frame are done with it; the ones that come are counted anew.
        image->reset();
        android::sp<Utils::UsersManager> const users =
            new Utils::UsersManager(streamId, streamName);
        image->setUsersManager(users);
        ZSL_LOGD("reset (%#lx:%s)->UsersManager(%p)", streamId, streamName,
                 static_cast<void const*>(users.get()));
        builder.setHalImageStreamBuffer(streamId, image);
    }
}

/// The stream of the request's HAL settings for the sensor whose result the stream is; -1: none.
StreamId_T controlStreamIdOf(StreamId_T historyStreamId) {
    switch (historyStreamId) {
        case STREAM_ID_HAL_META_P1_0:
            return STREAM_ID_HAL_META_CONTROL_0;
        case STREAM_ID_HAL_META_P1_1:
            return STREAM_ID_HAL_META_CONTROL_1;
        case STREAM_ID_HAL_META_P1_2:
            return STREAM_ID_HAL_META_CONTROL_2;
        // HAL metadata is not of these streams; the table is the stack's, in full.
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

/// Gives a new HAL metadata buffer for each of the set: the history's values, overridden by the
/// request's HAL settings for the same sensor.
void prepareHalMeta(HistoryBufferSet const& set, IFrameBuilder& builder) {
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
            // One lock at a time, so that no order of locks has to be agreed on.
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

constexpr uint32_t VENDOR_BIT = 0x80000000;
constexpr uint32_t HISTORY_SECTION_MASK = 0xfff70000;
constexpr uint32_t HISTORY_SECTION = 0x80060000;

using TagSet = std::unordered_set<uint32_t>;

/// Application tags that the capture's request decides, also by its absence: colour correction,
/// control, edge, hot pixel, JPEG, noise reduction, shading, tone map, and the vendor controls of
/// the same kind.
TagSet const& requestKeptTags() {
    static TagSet const tags{
        0x1000d,    0xa0000,    0x3,        0x0,        0x130003,   0x100000,   0x60000,
        0x30000,    0x70003,    0x70000,    0x8015003e, 0x80150001, 0x80150003, 0x80150007,
        0x8015000a, 0x8015000b, 0x8015000d, 0x8015000f, 0x80150010, 0x80150019, 0x8015001e,
        0x80150031, 0x80150032, 0x80150033, 0x80150036, 0x80150037, 0x80150039, 0x8015004d,
        0x80170001, 0x80190001, 0x80150035, 0x80190017, 0x801f0000, 0x80150038, 0x8015003a,
    };
    return tags;
}

/// Vendor tags that describe the sensor frame and therefore come from the history. 0x8015003e is
/// also among the request's, which win.
TagSet const& historyVendorTags() {
    static TagSet const tags{
        0x80180003, 0x80150008, 0x8015000c, 0x8015000e, 0x80150024, 0x8015003b, 0x801a0001,
        0x801a0002, 0x801a0003, 0x80150014, 0x80150014, 0x8015003c, 0x80150055, 0x80150004,
        0x8015003e, 0x801a0005, 0x801a0006, 0x801a0007, 0x801a0004,
    };
    return tags;
}

bool takesEveryVendorTag() {
    static bool const takes =
        property_get_bool("persist.vendor.camera3.zsl.vendortag.usehistory", 0) != 0;
    return takes;
}

/// Whether the sensor frame decides a vendor tag that is not the request's.
bool isVendorTagFromHistory(uint32_t tag) {
    return takesEveryVendorTag() || historyVendorTags().count(tag) != 0 ||
           (tag & HISTORY_SECTION_MASK) == HISTORY_SECTION;
}

/// The entries that the history decides. Few are not, so that it is cheaper to remove those from a
/// copy than to collect the others.
IMetadata historyPart(IMetadata const& history) {
    IMetadata part = history;
    for (uint32_t const tag : requestKeptTags()) {
        part.remove(tag);
    }
    // Backwards, because a removal moves what is behind it. A container may have any order.
    for (size_t i = part.count(); i-- > 0;) {
        uint32_t const tag = part.entryAt(i).tag();
        if ((tag & VENDOR_BIT) != 0 && !isVendorTagFromHistory(tag)) {
            part.remove(tag);
        }
    }
    return part;
}

void removeFaceDetectMode(IMetadata& metadata) {
    constexpr char FUNCTION[] = "prepareAppMeta";
    // Faces are looked for in the preview only; a frame of the past cannot be searched again.
    if (metadata.remove(ZEB_STATISTICS_FACE_DETECT_MODE) != 0) {
        ZSL_LOGW_AS(FUNCTION, "can not find ZEB_STATISTICS_FACE_DETECT_MODE");
    } else {
        ZSL_LOGD_AS(FUNCTION, "remove ZEB_STATISTICS_FACE_DETECT_MODE OK");
    }
}

IMetadata mergeAppMeta(android::sp<IMetaStreamBuffer> const& control,
                       android::sp<IMetaStreamBuffer> const& history, IStreamInfo const& info) {
    constexpr char FUNCTION[] = "prepareAppMeta";
    IMetadata metadata;
    {
        auto const locked = MetadataLock::forReading(control);
        ZSL_ASSERT_AS(locked, FUNCTION, "ctrl metadata=nullptr (AppMeta)");
        metadata = *locked;
    }
    {
        auto const locked = MetadataLock::forReading(history);
        ZSL_ASSERT_AS(locked, FUNCTION, "history metadata=nullptr (AppMeta)(%#lx:%s)",
                      info.getStreamId(), info.getStreamName());
        metadata += historyPart(*locked);
    }
    removeFaceDetectMode(metadata);
    return metadata;
}

/// Gives a new application metadata buffer for each of the set: the request's settings, with the
/// tags that the sensor frame decides taken from the history. None without such settings.
void prepareAppMeta(HistoryBufferSet const& set, IFrameBuilder& builder) {
    TraceSection const trace("prepareAppMeta");
    MetaBuffers controls;
    builder.getAppMetaStreamBuffers(controls);
    auto const control = findStream(controls, STREAM_ID_APP_META_CONTROL);
    for (auto const& history : set.appMeta) {
        ZSL_ASSERT(history != nullptr, "history sb=nullptr (AppMeta)");
        android::sp<IMetaStreamInfo> const info = history->getStreamInfo();
        ZSL_ASSERT(info != nullptr, "history streamInfo=nullptr (AppMeta)");
        if (control == nullptr) {
            // Not an error: a frame that asks for no settings gets no application result either.
            continue;
        }
        StreamId_T const streamId = info->getStreamId();
        auto const built =
            HalMetaStreamBuffer::Allocator(info)(mergeAppMeta(control, history, *info));
        ZSL_ASSERT(built != nullptr, "new sb=nullptr (AppMeta)(%#lx:%s)", streamId,
                   info->getStreamName());
        builder.setAppMetaStreamBuffer(streamId, built);
        ZSL_LOGD("prepare (%#lx:%s): copy (%#lx:%s), update P1 related tags", streamId,
                 info->getStreamName(), control->getStreamInfo()->getStreamId(),
                 control->getStreamInfo()->getStreamName());
    }
}

/// Merges a selector's additional metadata over the builder's buffers; what has no buffer is
/// reported and left out.
void appendAdditionalMeta(ZslPolicy::ISelector::AdditionalMetas const& additionalMetas,
                          IFrameBuilder& builder) {
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
            // Under the name that log readers' filters know.
            ZSL_LOGE_AS("operator()", "cannot lock metadata");
        } else if (additional != nullptr) {
            *metadata += *additional;
        }
    }
}

}  // namespace

ZslProcessor::FrameBuilders ZslProcessor::buildFrame_Locked(
    unsigned int requestNo, std::vector<BuildFrameParams> const& params) {
    TraceSection const trace("buildFrame_Locked");
    FrameBuilders built;
    for (BuildFrameParams const& frame : params) {
        if (frame.pFB == nullptr) {
            // Nobody can submit it. The capture's other frames are still worth having.
            ZSL_LOGE("bad pFrameBuilder - requestNo:%u", requestNo);
            continue;
        }
        // The time that the application already heard wins over the sensor's.
        int64_t timestamp = fakeShutterOf(requestNo);
        if (frame.hbs != nullptr) {
            prepareHalImage(*frame.hbs, *frame.pFB);
            prepareHalMeta(*frame.hbs, *frame.pFB);
            prepareAppMeta(*frame.hbs, *frame.pFB);
            if (timestamp == 0) {
                timestamp = frame.hbs->timestamp;
            }
        }
        // Last, so that it overrides what was built, and also without a history part.
        appendAdditionalMeta(frame.additionalMetas, *frame.pFB);
        frame.pFB->setFrameTimestamp(timestamp);
        frame.pFB->setBuiltFromHistory(frame.hbs != nullptr);
        built.push_back(frame.pFB);
    }
    return built;
}

}  // namespace NSCam::v3::pipeline::model
