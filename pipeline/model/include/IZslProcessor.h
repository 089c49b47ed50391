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
 * Exceptions that leave a selector or the result callback pass to the caller, after the operation
 * in which they happened has done its work as if the selector had chosen nothing (or the callback
 * had returned). An operation that has frames to hand over does so instead, and the exception
 * leaves the next one that has none; a flush ends it. No lock stays taken, no history buffer and no
 * frame is lost or late, and the capture waits.
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
     * it can. A capture that is not fully served gets an early shutter notification and waits.
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
