#pragma once

#include <policy/zsl/ZslTypes.h>
#include <streamutils/IStreamBuffer.h>
#include <utils/Printer.h>

#include <cstdint>
#include <list>
#include <optional>
#include <string>
#include <vector>

namespace NSCam::v3::pipeline::NSPipelineContext {

/**
 * Keeps the recent sensor frames and lends them out. Thread-safe with a lock of its own; it must
 * not call back into whoever calls it.
 */
class IHistoryBufferProvider {
public:
    struct HistoryBufferSet;
    struct ReturnedBufferSet;

    virtual ~IHistoryBufferProvider() = default;

    virtual std::string getName() const = 0;

    /// Prints the state line by line.
    virtual void dump(android::Printer& printer) const = 0;

    /// Opens a selection on the provider's side. Not needed before getHistoryBufferSets.
    virtual void beginSelect() = 0;

    /// Hands the current history over, oldest first. The sets are the caller's until it returns
    /// them. No value: there is no history this time.
    virtual std::optional<std::list<HistoryBufferSet>> getHistoryBufferSets() = 0;

    /// Ends a selection. Harmless when repeated.
    virtual void endSelect() = 0;

    /// Takes a set back. The provider moves what it keeps out of the set during the call; what is
    /// left stays with the caller, who destroys it.
    virtual void returnBufferSet(ReturnedBufferSet& returned) = 0;

    /// The frames that were requested from the sensor but have not reached the history yet.
    virtual std::vector<ZslPolicy::InFlightInfo> getInFlightInfos() const = 0;

    /// A further set that stands for the same frame, with buffers of its own. Never returned: it is
    /// used up, or just destroyed.
    virtual HistoryBufferSet cloneBufferSet(HistoryBufferSet const& original) = 0;
};

/// One sensor frame as the history keeps it.
struct IHistoryBufferProvider::HistoryBufferSet {
    uint32_t frameNo = 0;    ///< pipeline frame number, the key of the set
    uint32_t requestNo = 0;  ///< request that produced the frame
    int64_t timestamp = 0;   ///< sensor timestamp, ns
    std::vector<android::sp<IImageStreamBuffer>> halImage;
    std::vector<android::sp<IMetaStreamBuffer>> halMeta;
    std::vector<android::sp<IMetaStreamBuffer>> appMeta;
};

struct IHistoryBufferProvider::ReturnedBufferSet {
    HistoryBufferSet* pSet = nullptr;
    bool isUnused = false;  ///< true: was not used, may be offered again; false: let go for good
};

using HistoryBufferSet = IHistoryBufferProvider::HistoryBufferSet;

}  // namespace NSCam::v3::pipeline::NSPipelineContext
