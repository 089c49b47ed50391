#pragma once

#include <policy/zsl/ZslTypes.h>

namespace NSCam::v3::pipeline::policy {

/// What the pipeline policy decided for one frame of a capture.
struct RequestResultParams {
    ZslPolicy::RequiredStreams required;  ///< streams that the frame reads
};

}  // namespace NSCam::v3::pipeline::policy
