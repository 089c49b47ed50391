#pragma once

#include <pipeline/IFrameBuilder.h>
#include <pipeline/IHistoryBufferProvider.h>
#include <policy/zsl/ISelector.h>

#include <vector>

/// The steps of building a frame from a history buffer set. Each leaves the set as it is but for
/// the image buffers' bookkeeping.
namespace NSCam::v3::pipeline::model {

using NSPipelineContext::HistoryBufferSet;
using MetaBuffers = std::vector<android::sp<IMetaStreamBuffer>>;

/// Hands over the images, re-armed for the new frame with users of their own.
void prepareHalImage(HistoryBufferSet const& set, NSPipelineContext::IFrameBuilder& builder);

/// Gives a new HAL metadata buffer for each of the set: the history's values, overridden by the
/// request's HAL settings for the same sensor.
void prepareHalMeta(HistoryBufferSet const& set, NSPipelineContext::IFrameBuilder& builder);

/// Gives a new application metadata buffer for each of the set: the request's settings, with the
/// tags that the sensor frame decides taken from the history. None without such settings.
void prepareAppMeta(HistoryBufferSet const& set, NSPipelineContext::IFrameBuilder& builder);

/// Merges a selector's additional metadata over the builder's buffers; what has no buffer is
/// reported and left out.
void appendAdditionalMeta(ZslPolicy::ISelector::AdditionalMetas const& additionalMetas,
                          NSPipelineContext::IFrameBuilder& builder);

/// The first buffer of a stream; null when there is none.
android::sp<IMetaStreamBuffer> findStream(MetaBuffers const& buffers, StreamId_T streamId);

}  // namespace NSCam::v3::pipeline::model
