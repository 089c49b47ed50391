#pragma once

#include <cstdint>
#include <memory>
#include <set>

/**
 * Selection types that the pipeline's own interfaces share with the selection policies. They
 * depend on nothing but the standard library.
 */
namespace NSCam::ZslPolicy {

/// Which streams a history frame must carry to serve one requested frame, by stream id.
struct RequiredStreams {
    std::set<int64_t> halImages;
    std::set<int64_t> halMetas;
    std::set<int64_t> appMetas;
};

/// A frame that the pipeline has started but whose buffers have not yet reached the history.
struct InFlightInfo {
    uint32_t frameNo = 0;
    std::shared_ptr<void const> pData;  ///< defined by the history buffer provider, may be empty
};

/// `ZslPolicyParams::policy`: the continuous-shot policy is the word 0, the multi-frame policy any
/// word with this bit; any other word leaves the choice to the processor's default.
constexpr uint32_t POLICY_CONTINUOUS_SHOT = 0;
constexpr uint32_t POLICY_MULTIFRAME_BIT = 0x20000;

/// How a capture wants its history frames chosen.
struct ZslPolicyParams {
    uint32_t policy = POLICY_CONTINUOUS_SHOT;
    int64_t timeoutMs = 0;  ///< ms that the capture may wait; read for the multi-frame policy only
};

}  // namespace NSCam::ZslPolicy
