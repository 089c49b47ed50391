#pragma once

#include <exception>

#include "Log.h"

namespace NSCam::v3::pipeline::model {

/**
 * Calls code of somebody else: a selector's or the result callback's. What that throws ends here,
 * with one error line under the name of `function`.
 *
 * An exception must not cost a capture a frame, nor delay one; and it must not be kept, because its
 * code and its text go with the library that it came from, which may be closed as soon as the
 * capture is served.
 *
 * @param who the selector's name, or "callback"
 * @return whether the call returned.
 */
template <typename Call>
bool callPlugin(char const* function, uint32_t requestNo, char const* who, Call const& call) {
    try {
        call();
        return true;
    } catch (std::exception const& thrown) {
        ZSL_LOGE_AS(function, "[requestNo:%u]: exception of %s: %s", requestNo, who, thrown.what());
    } catch (...) {
        ZSL_LOGE_AS(function, "[requestNo:%u]: exception of %s: unknown exception", requestNo, who);
    }
    return false;
}

}  // namespace NSCam::v3::pipeline::model
