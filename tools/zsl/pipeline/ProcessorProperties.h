#pragma once

#include <array>
#include <string_view>

#include "pipeline/ReplayOptions.h"

namespace zebcam::tool::pipeline {

/// A system property that the processor reads.
struct ProcessorProperty {
    std::string_view name;
    std::string_view unit;  ///< what its value is
    std::string_view usual;
    std::string_view meaning;
};

/// All of them; no other has an effect, but on a policy of one's own.
inline constexpr std::array<ProcessorProperty, 7> PROCESSOR_PROPERTIES = {{
    {"ro.vendor.camera3.zsl.default", "ms", "0", "the platform's part of the ZSL offset"},
    {"ro.vendor.camera3.zsl.project", "ms", "0", "the product's part of the ZSL offset"},
    {OFFSET_PROPERTY, "ms", "0", "the user's part of the ZSL offset, which --offset sets"},
    {"vendor.debug.camera.zsl.custom.select", "-1, 0 or 1", "0",
     "the vendor's own policy: never, in place of the default policy, or of every policy"},
    {"persist.vendor.camera3.zsl.vendortag.usehistory", "0 or 1", "0",
     "take every vendor tag from the history frame, not only the known ones"},
    {"vendor.debug.camera.zsl.dumpfbm", "0 or 1", "0",
     "log the history with every try, not only with one that serves nothing"},
    {"vendor.debug.camera.log.pipelinemodel.zsl", "a number", "0",
     "read, but the logger's own settings decide what is printed"},
}};

}  // namespace zebcam::tool::pipeline
