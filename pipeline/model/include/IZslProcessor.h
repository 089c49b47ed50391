#pragma once

#include <ZslParams.h>
#include <utils/Printer.h>
#include <utils/RefBase.h>

#include <string>
#include <vector>

namespace NSCam::v3::pipeline::model {

/**
 * Serves still captures from the history of sensor frames, with zero shutter lag.
 *
 * One instance per opened sensor. It has no thread of its own; every operation may be called from
 * any thread and takes the processor's lock, which is not recursive: a selector, a provider or a
 * callback that the processor calls must not call back into it.
 *
 * What a selector or the result callback throws ends where it happens, with one error line: the
 * selection counts as one that chose nothing, the callback as one that returned. The capture waits
 * and times out like any other, and nothing of the exception is kept: the library that it came from
 * may be closed once the capture is served.
 */
class __attribute__((visibility("default"))) IZslProcessor : public virtual android::RefBase {
public:
    /// Makes a processor for the sensor opened under `openId`, on behalf of `name`. Null, with an
    /// error line, when it cannot be made.
    static android::sp<IZslProcessor> createInstance(int openId, std::string const& name);

    ~IZslProcessor() override;

    /**
     * Sets the P1 streams and the result callback, loads the custom selector library and renews
     * the built-in selectors. May be repeated.
     *
     * @return 0, or -ENOSYS (-38) while captures are pending; nothing is changed then.
     * @throws std::bad_function_call if the custom selector library lacks its entry point.
     */
    virtual int configure(ZslConfigParams const& params) = 0;

    /**
     * Takes a capture: retries the pending ones, then serves this one from the history as far as
     * it can. A capture that is not fully served gets an early shutter notification and waits. The
     * notification needs the callback and the stream `pAppMeta_DynamicP1` of ZslConfigParams;
     * without them an error line tells what is missing, and the capture waits all the same.
     */
    virtual ZslFrameBuilders submitZslRequest(ZslRequestParams&& params) = 0;

    /// Retries every pending capture, oldest first. `requestNo` is the request on whose behalf;
    /// it shows in the log only.
    virtual ZslFrameBuilders processZslPendingRequest(unsigned int requestNo) = 0;

    /// Whether any capture is waiting.
    virtual bool hasZslPendingRequest() const = 0;

    /// Tells of a result of request `requestNo`. Where an early shutter was sent, the sensor
    /// timestamp is removed from the result's metadata, so that the application hears one time.
    virtual void onFrameUpdated(
        unsigned int requestNo,
        IPipelineBufferSetFrameControl::IAppCallback::Result const& result) = 0;

    /// Turns every pending capture into an ordinary one and gives every locked history buffer
    /// back. Empty, and nothing changed, when a pending frame has no frame builder.
    virtual ZslFrameBuilders flush() = 0;

    /// Prints the pending captures. Waits at most 100 ms for the processor's lock.
    virtual void debug(android::Printer& printer, std::vector<std::string> const& options) = 0;
};

}  // namespace NSCam::v3::pipeline::model
