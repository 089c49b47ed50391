#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "faults/FaultOptions.h"

namespace zebcam::tool {

/// Who chooses the history frames of a capture.
enum class PolicyKind {
    Default,     ///< the processor's default
    CShot,       ///< the processor's continuous-shot policy
    Multiframe,  ///< the processor's multi-frame policy
    Plugin,      ///< a library's, handed in with each capture
};

/// A policy as the user named it.
struct PolicyOption {
    PolicyKind kind = PolicyKind::Default;
    std::string pluginPath;  ///< of a Plugin, else empty

    /// `default`, `cshot`, `multiframe` or the path of the library.
    std::string name() const;
};

/// The processor's property for the user's part of the ZSL offset, in ms.
inline constexpr char OFFSET_PROPERTY[] = "vendor.debug.camera3.zsl.timestamp";

/// What to replay. Times count from the recording's first frame; delays are an hour at most.
struct ReplayOptions {
    std::vector<int64_t> pressesNs;  ///< empty: `captures` presses, evenly spread
    size_t captures = 10;
    size_t framesPerCapture = 1;
    size_t history = 8;                       ///< frames that the provider keeps
    std::optional<int64_t> deliveryDelayNs;   ///< none: the frame's duration
    std::optional<int64_t> reprocessDelayNs;  ///< none: the median interval
    std::optional<int64_t> offsetMs;          ///< none: OFFSET_PROPERTY stays as it is
    PolicyOption policy;
    int64_t timeoutMs = 3000;  ///< of the multi-frame policy; the others have a fixed one
    bool frameSync = false;
    std::vector<int64_t> flushesNs;
    std::vector<int64_t> dumpsNs;
    std::vector<std::pair<std::string, std::string>> properties;
    FaultOptions faults;
    uint32_t logLevel = 0;  ///< largest ULog::LogLevel that is shown; 0: nothing
};

}  // namespace zebcam::tool
