#include "pipeline/FrameFactory.h"

#include <host/MetaStreamBuffer.h>
#include <host/StreamInfos.h>
#include <metadata/MetadataTags.h>
#include <policy/zsl/PictureMeasures.h>

#include <utility>

#include "pipeline/MetadataAccess.h"

namespace zebcam::tool::pipeline {

namespace v3 = NSCam::v3;

namespace {

android::sp<v3::IMetaStreamInfo> metaStream(v3::StreamId_T id, char const* name) {
    return new host::MetaStreamInfo(id, name);
}

}  // namespace

SensorStreams::SensorStreams()
    : pFullRaw(new host::ImageStreamInfo(STREAM_ID_FULL_RAW, "HalImage_FullRaw")),
      pHalResult(metaStream(v3::STREAM_ID_HAL_META_P1_0, "HalMeta_DynamicP1")),
      pAppResult(metaStream(v3::STREAM_ID_APP_META_P1_0, "AppMeta_DynamicP1")),
      pHalControl(metaStream(v3::STREAM_ID_HAL_META_CONTROL_0, "HalMeta_Control")),
      pAppControl(metaStream(v3::STREAM_ID_APP_META_CONTROL, "AppMeta_Control")) {
}

v3::pipeline::policy::ParsedStreamInfoMap_P1 SensorStreams::describe(uint32_t sensorId) const {
    v3::pipeline::policy::ParsedStreamInfo_P1 streams;
    streams.pHalMeta_Control = pHalControl;
    streams.pHalMeta_DynamicP1 = pHalResult;
    streams.pAppMeta_DynamicP1 = pAppResult;
    streams.pHalImage_FullRaw = pFullRaw;
    return {{sensorId, streams}};
}

NSCam::ZslPolicy::RequiredStreams SensorStreams::required() const {
    return {.halImages = {pFullRaw->getStreamId()},
            .halMetas = {pHalResult->getStreamId()},
            .appMetas = {pAppResult->getStreamId()}};
}

using NSCam::IMetadata;
using NSCam::v3::pipeline::NSPipelineContext::HistoryBufferSet;

namespace {

constexpr uint8_t kOn = 1;
constexpr uint8_t kFast = 1;
constexpr uint8_t kHighQuality = 2;
constexpr uint8_t kIntentPreview = 1;
constexpr uint8_t kIntentStillCapture = 2;
constexpr size_t kVendorEntries = 60;

void putSettings(IMetadata& metadata, uint8_t intent, uint8_t quality) {
    put(metadata, NSCam::ANDROID_COLOR_CORRECTION_MODE, kFast);
    put(metadata, NSCam::ANDROID_CONTROL_AE_MODE, kOn);
    putSeries<int32_t>(metadata, NSCam::ANDROID_CONTROL_AE_TARGET_FPS_RANGE, 2, 30, 0);
    put(metadata, NSCam::ANDROID_CONTROL_AWB_MODE, kOn);
    put(metadata, NSCam::ANDROID_CONTROL_CAPTURE_INTENT, intent);
    put(metadata, NSCam::ANDROID_CONTROL_MODE, kOn);
    put(metadata, NSCam::ANDROID_EDGE_MODE, quality);
    put<uint8_t>(metadata, NSCam::ANDROID_FLASH_MODE, 0);
    put(metadata, NSCam::ANDROID_HOT_PIXEL_MODE, quality);
    put(metadata, NSCam::ANDROID_LENS_OPTICAL_STABILIZATION_MODE, kOn);
    put(metadata, NSCam::ANDROID_NOISE_REDUCTION_MODE, quality);
    putSeries<int32_t>(metadata, NSCam::ANDROID_SCALER_CROP_REGION, 4, 0, 1000);
    put(metadata, NSCam::ANDROID_SHADING_MODE, quality);
    put<uint8_t>(metadata, NSCam::ZEB_STATISTICS_FACE_DETECT_MODE, 0);
    put(metadata, NSCam::ANDROID_TONEMAP_MODE, quality);
}

IMetadata appResult() {
    IMetadata metadata;
    putSettings(metadata, kIntentPreview, kFast);
    putSeries<float>(metadata, NSCam::ANDROID_COLOR_CORRECTION_TRANSFORM, 9, 0.1F, 0.1F);
    putSeries<float>(metadata, NSCam::ANDROID_COLOR_CORRECTION_GAINS, 4, 1.5F, 0.1F);
    put<uint8_t>(metadata, NSCam::ANDROID_CONTROL_AE_STATE, 2);
    put<uint8_t>(metadata, NSCam::ANDROID_CONTROL_AWB_STATE, 2);
    put<uint8_t>(metadata, NSCam::ANDROID_FLASH_STATE, 2);
    put(metadata, NSCam::ANDROID_LENS_APERTURE, 1.8F);
    put(metadata, NSCam::ANDROID_LENS_FOCAL_LENGTH, 4.38F);
    put<uint8_t>(metadata, NSCam::ANDROID_REQUEST_PIPELINE_DEPTH, 4);
    putSeries<double>(metadata, NSCam::ANDROID_SENSOR_NOISE_PROFILE, 8, 1e-4, 1e-6);
    // 256 values and 17 x 17 points of four channels, which make up most of a result's bytes.
    putSeries<int32_t>(metadata, NSCam::ANDROID_STATISTICS_HISTOGRAM, 1024, 0, 3);
    putSeries<float>(metadata, NSCam::ANDROID_STATISTICS_LENS_SHADING_MAP, 1156, 1.0F, 0.001F);
    put<uint8_t>(metadata, NSCam::ANDROID_STATISTICS_SCENE_FLICKER, 1);
    for (uint32_t const curve :
         {NSCam::ANDROID_TONEMAP_CURVE_BLUE, NSCam::ANDROID_TONEMAP_CURVE_GREEN,
          NSCam::ANDROID_TONEMAP_CURVE_RED}) {
        putSeries<float>(metadata, curve, 128, 0.0F, 1.0F / 128);
    }
    for (uint32_t i = 0; i < kVendorEntries; ++i) {
        put(metadata, VENDOR_APP_FIRST + i, static_cast<int32_t>(i));
    }
    return metadata;
}

IMetadata halResult() {
    IMetadata metadata;
    for (uint32_t i = 0; i < kVendorEntries; ++i) {
        putSeries(metadata, VENDOR_HAL_FIRST + i, 1 + i % 16, static_cast<int32_t>(i), 1);
    }
    return metadata;
}

// A still capture asks for other settings than the preview whose results the history holds, so
// that a mix-up of the two shows in the built frame.
IMetadata appControl() {
    IMetadata metadata;
    putSettings(metadata, kIntentStillCapture, kHighQuality);
    put<uint8_t>(metadata, NSCam::ANDROID_JPEG_QUALITY, 95);
    put<int32_t>(metadata, NSCam::ANDROID_JPEG_ORIENTATION, 90);
    return metadata;
}

IMetadata halControl() {
    IMetadata metadata;
    put<int32_t>(metadata, VENDOR_HAL_FIRST, 1);
    return metadata;
}

void describe(recording::SensorFrame const& frame, IMetadata& app) {
    put(app, NSCam::ZEB_SENSOR_TIMESTAMP, frame.timestampNs);
    put(app, NSCam::ANDROID_REQUEST_FRAME_COUNT, static_cast<int32_t>(frame.frameNo));
    // A frame without any was not exposed: nobody told how long.
    put(app, NSCam::ANDROID_SENSOR_EXPOSURE_TIME,
        frame.exposureNs > 0 ? std::optional(frame.exposureNs) : std::nullopt);
    put(app, NSCam::ANDROID_SENSOR_FRAME_DURATION, frame.durationNs);
    put(app, NSCam::ANDROID_SENSOR_ROLLING_SHUTTER_SKEW, frame.readoutNs);
    put(app, NSCam::ANDROID_SENSOR_SENSITIVITY, frame.iso);
    put(app, NSCam::ANDROID_LENS_FOCUS_DISTANCE, frame.focusDistance);
    put(app, NSCam::ANDROID_CONTROL_AF_MODE, frame.afMode);
    put(app, NSCam::ANDROID_CONTROL_AF_STATE, frame.afState);
    put(app, NSCam::ANDROID_LENS_STATE, frame.lensState);
    auto const picture = [&frame](auto member) {
        return frame.picture ? std::optional<float>((*frame.picture).*member) : std::nullopt;
    };
    using recording::PictureMeasures;
    put(app, NSCam::ZslPolicy::PICTURE_SHARPNESS, picture(&PictureMeasures::sharpness));
    put(app, NSCam::ZslPolicy::PICTURE_MOTION,
        frame.picture ? frame.picture->motion : std::nullopt);
    put(app, NSCam::ZslPolicy::PICTURE_BRIGHTNESS, picture(&PictureMeasures::brightness));
    put(app, NSCam::ZslPolicy::PICTURE_CLIPPED, picture(&PictureMeasures::clipped));
}

void describeToHal(recording::SensorFrame const& frame, IMetadata& hal) {
    put(hal, NSCam::ZEB_HAL_REQUEST_SENSOR_ID, frame.sensorId);
    put(hal, NSCam::ZEB_P1NODE_SENSOR_MODE, frame.sensorMode);
    put(hal, NSCam::ZEB_3A_AE_SOFT_STABLE, frame.aeStable);
    put(hal, NSCam::ZEB_FRAME_SYNC_RESULT, frame.frameSync);
}

}  // namespace

FrameFactory::FrameFactory()
    : mAppResult(appResult()),
      mHalResult(halResult()),
      mAppControl(appControl()),
      mHalControl(halControl()) {
}

HistoryBufferSet FrameFactory::sensorFrame(recording::SensorFrame const& frame,
                                           std::shared_ptr<host::ImageContent const> content) {
    // Written over the frame before, so that no entry needs room made for it, and copied whole.
    describe(frame, mAppResult);
    describeToHal(frame, mHalResult);
    for (recording::DataValue const& data : mData) {
        mAppResult.remove(data.tag);  // of this frame the cell may be empty
    }
    mData = frame.data;
    for (recording::DataValue const& data : mData) {
        std::visit([&](auto value) { put(mAppResult, data.tag, value); }, data.value);
    }
    android::sp<host::ImageStreamBuffer> const image =
        new host::ImageStreamBuffer(mStreams.pFullRaw);
    image->setError(frame.hasError);
    image->setContent(std::move(content));

    HistoryBufferSet set;
    set.frameNo = frame.frameNo;
    // The preview makes a request for each frame, and counts alike.
    set.requestNo = frame.frameNo;
    set.timestamp = frame.timestampNs;
    set.halImage.emplace_back(image);
    set.halMeta.emplace_back(new host::MetaStreamBuffer(mStreams.pHalResult, mHalResult));
    set.appMeta.emplace_back(new host::MetaStreamBuffer(mStreams.pAppResult, mAppResult));
    return set;
}

std::shared_ptr<host::FrameBuilder> FrameFactory::captureFrame(uint32_t requestNo,
                                                               size_t index) const {
    namespace context = NSCam::v3::pipeline::NSPipelineContext;
    auto builder = std::make_shared<host::FrameBuilder>(
        requestNo, index == 0 ? context::FRAME_TYPE_MAIN : context::FRAME_TYPE_SUB);
    builder->setAppMetaStreamBuffer(mStreams.pAppControl->getStreamId(),
                                    new host::MetaStreamBuffer(mStreams.pAppControl, mAppControl));
    builder->setHalMetaStreamBuffer(mStreams.pHalControl->getStreamId(),
                                    new host::MetaStreamBuffer(mStreams.pHalControl, mHalControl));
    return builder;
}

}  // namespace zebcam::tool::pipeline
