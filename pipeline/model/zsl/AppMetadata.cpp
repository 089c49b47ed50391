#include <cutils/properties.h>
#include <metadata/MetadataTags.h>
#include <streamutils/HalMetaStreamBuffer.h>

#include <unordered_set>

#include "BuildFrame.h"
#include "Log.h"
#include "MetadataLocks.h"
#include "TraceSection.h"

namespace NSCam::v3::pipeline::model {

using Utils::HalMetaStreamBuffer;

namespace {

constexpr uint32_t VENDOR_BIT = 0x80000000;
constexpr uint32_t HISTORY_SECTION_MASK = 0xfff70000;
constexpr uint32_t HISTORY_SECTION = 0x80060000;

using TagSet = std::unordered_set<uint32_t>;

/// What the capture's request decides, also by its absence: colour correction, control, edge, hot
/// pixel, JPEG, noise reduction, shading, tone map, and the vendor controls of the same kind.
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
    // Vendor tags are the largest and entries are in tag order, so they stand at the end.
    for (size_t i = part.count(); i-- > 0;) {
        uint32_t const tag = part.entryAt(i).tag();
        if ((tag & VENDOR_BIT) == 0) {
            break;
        }
        if (!isVendorTagFromHistory(tag)) {
            part.remove(tag);
        }
    }
    return part;
}

void removeFaceDetectMode(IMetadata& metadata) {
    constexpr char FUNCTION[] = "prepareAppMeta";
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

}  // namespace

void prepareAppMeta(HistoryBufferSet const& set, NSPipelineContext::IFrameBuilder& builder) {
    TraceSection const trace("prepareAppMeta");
    MetaBuffers controls;
    builder.getAppMetaStreamBuffers(controls);
    auto const control = findStream(controls, STREAM_ID_APP_META_CONTROL);
    for (auto const& history : set.appMeta) {
        ZSL_ASSERT(history != nullptr, "history sb=nullptr (AppMeta)");
        android::sp<IMetaStreamInfo> const info = history->getStreamInfo();
        ZSL_ASSERT(info != nullptr, "history streamInfo=nullptr (AppMeta)");
        if (control == nullptr) {
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

}  // namespace NSCam::v3::pipeline::model
