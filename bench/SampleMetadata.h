#pragma once

#include <metadata/IMetadata.h>

#include <cstddef>

namespace zebcam::bench {

/// What a sample stands for.
enum class SampleKind {
    Control,  ///< a request's settings: every third tag, small entries and a tone map of 1.5 KB
    Result,   ///< a frame's result: small entries, histogram 4 KB, shading map 4.6 KB, tone map
};

/// Metadata of `entries` entries with sizes as a still capture has them. Two thirds of a control's
/// tags occur in a result of twice as many entries.
NSCam::IMetadata makeSample(size_t entries, SampleKind kind);

/// Adds the tags by which the selection policies judge a frame: three of the application's, or
/// five of the HAL's.
void addFocusTags(NSCam::IMetadata& metadata);
void addSensorTags(NSCam::IMetadata& metadata, bool isExposureStable);

/// Bytes of tags, types, counts and items, as a block of 16-byte entries and their large items
/// would hold them: what a copy has to move at least.
size_t storedBytes(NSCam::IMetadata const& metadata);

}  // namespace zebcam::bench
