#pragma once

#include <android/log.h>
#include <policy/zsl/ISelector.h>

#include <string>

namespace NSCam::ZslPolicy {

/**
 * Tells in the log why `policy` passes over a history frame, in a line of the built-in policies'
 * shape; whoever reads the log of a device, or the tool's explanations, sees it like theirs.
 *
 * `criterion` is a name of your own of at most 40 characters, without a colon, or that of a
 * built-in one with the same meaning: time, streams, sensor mode, focus, exposure, sync. `found`
 * says in one line what the frame has and what was wanted of it, for instance `2.1 < 5.0`.
 *
 * Call it from select(), once for each frame that is not chosen. It is a line at warning level and
 * costs nothing more than a look at the level where those are not logged. Inline, so that a policy
 * needs no library of this project for it.
 */
inline void reject(ISelector const& policy, ISelector::SelectInputParams const& in,
                   ISelector::HistoryFrame const& frame, char const* criterion,
                   std::string const& found) {
    constexpr char TAG[] = "ZebCam/ZslProc";  // the processor's, whose lines it belongs to
    if (__android_log_is_loggable(ANDROID_LOG_WARN, TAG, ANDROID_LOG_INFO) != 0) {
        __android_log_print(
            ANDROID_LOG_WARN, TAG, "[select] [%s] zslReqNo(%u) hbs[F%u] X => %.40s: %.300s",
            policy.getName(), in.requestNo, frame.frameNo, criterion, found.c_str());
    }
}

}  // namespace NSCam::ZslPolicy
