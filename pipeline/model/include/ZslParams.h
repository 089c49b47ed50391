#pragma once

#include <pipeline/IFrameBuilder.h>
#include <pipeline/IHistoryBufferProvider.h>
#include <pipeline/IPipelineBufferSetFrameControl.h>
#include <pipelinemodel_utils/ParsedStreamInfo_P1.h>
#include <pipelinemodel_utils/RequestResultParams.h>
#include <policy/zsl/ISelector.h>
#include <utils/RefBase.h>

#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

namespace NSCam::v3::pipeline::model {

/// What the processor needs to know before streaming.
struct ZslConfigParams {
    /// The P1 streams of every sensor, by sensor id; copied during the call. Null: none. Early
    /// shutter notifications need `pAppMeta_DynamicP1`, their buffer's stream, of the map's first
    /// sensor; nothing else in it is read.
    policy::ParsedStreamInfoMap_P1 const* pParsedStreamInfo_P1 = nullptr;

    /// Takes the early shutter notifications. Called with the processor's lock held, so it must
    /// not call back into the processor. What it throws costs an error line.
    android::wp<IPipelineBufferSetFrameControl::IAppCallback> pCallback;
};

/// A still capture that wants to be served from the history.
struct ZslRequestParams {
    uint32_t requestNo = 0;  ///< pipeline request number of the capture

    std::shared_ptr<ZslPolicy::ZslPolicyParams> pPolicyParams;  ///< may be empty
    std::shared_ptr<ZslPolicy::ISelector> pSelector;  ///< used instead of a policy; may be empty

    bool checkPureRaw = false;  ///< refuse history frames whose HAL metadata marks them pure raw

    std::shared_ptr<NSPipelineContext::IHistoryBufferProvider> pHistoryBufferProvider;

    /// The capture's frames: what each needs, and the builder that it is made with. Both lists
    /// have the same length; a difference is a broken invariant that ends the process.
    std::vector<std::shared_ptr<policy::RequestResultParams>> vReqResult;
    std::vector<std::shared_ptr<NSPipelineContext::IFrameBuilder>> vFrameBuilder;

    /// Sensor mode by sensor id, and the sensors of which it is required. Read during the call;
    /// null: empty.
    std::unordered_map<uint32_t, uint32_t> const* pStreamIdMap = nullptr;
    std::vector<uint32_t> const* pvRequiredSensorIds = nullptr;

    bool needFrameSync = false;  ///< wants frames with confirmed multi-sensor synchronisation
};

/// Frame builders that the caller must now submit to the pipeline: one list per request that was
/// served, or partly served, in the order in which they were.
using ZslFrameBuilders =
    std::vector<std::vector<std::shared_ptr<NSPipelineContext::IFrameBuilder>>>;

}  // namespace NSCam::v3::pipeline::model
