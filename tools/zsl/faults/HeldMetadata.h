#pragma once

#include <host/MetaStreamBuffer.h>
#include <pipeline/IHistoryBufferProvider.h>
#include <utils/RefBase.h>

#include <mutex>
#include <vector>

namespace zebcam::tool {

/**
 * Results that somebody else holds locked whenever a policy looks at them.
 *
 * They are let go before frames are built: the processor waits for ever on the result of a frame
 * that it must build with and cannot lock. Borrows the buffers weakly. Thread-safe.
 */
class HeldMetadata {
public:
    /// From now on the results of `set` are among them.
    void add(NSCam::v3::pipeline::NSPipelineContext::HistoryBufferSet const& set);
    void hold() { setLockable(false); }
    void letGo() { setLockable(true); }

private:
    void setLockable(bool isLockable);

    std::mutex mLock;
    std::vector<android::wp<host::MetaStreamBuffer>> mBuffers;
};

}  // namespace zebcam::tool
