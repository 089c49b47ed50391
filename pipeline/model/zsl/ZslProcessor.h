#pragma once

#include <IZslProcessor.h>
#include <debugutils/IDebuggee.h>
#include <zebcam/ThreadSafety.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "HistorySets.h"

namespace NSCam::v3::pipeline::model {

using zebcam::AdoptedLock;
using zebcam::LockGuard;
using zebcam::TimedMutex;

struct Selection;

/**
 * The processor.
 *
 * Who holds a history buffer set: at any moment exactly one of the provider, the history list of
 * the running selection (HistoryLease), a selector's list in `mLockedBuffersMap`, or a
 * BuildFrameParams, from which its images go into the frame builder. Sets move, only an explicit
 * clone copies one, and whatever is left in the history list returns to the provider before the
 * selection ends.
 *
 * Every member below is guarded by `mLock` unless it is set once at construction. A function that
 * needs the lock held says REQUIRES, which is checked; the two names that also say `_Locked` are
 * those of trace sections.
 *
 * Code of others (selectors, the result callback) is called through callPlugin(), so that no
 * exception of theirs leaves an operation.
 */
class ZslProcessor : public IZslProcessor {
public:
    using ISelector = ZslPolicy::ISelector;
    using IFrameBuilder = NSPipelineContext::IFrameBuilder;
    using FrameBuilders = std::vector<std::shared_ptr<IFrameBuilder>>;

    /// One frame of a capture that still needs a history buffer set.
    struct FrameObject {
        std::shared_ptr<ZslPolicy::RequiredStreams const> required;
        /// Shared by the frames of a capture.
        std::shared_ptr<std::unordered_map<uint32_t, uint32_t> const> pSensorModeMap;
        std::shared_ptr<IFrameBuilder> pFB;  ///< null in a broken capture
    };
    using FrameObjectMap = std::map<uint64_t, FrameObject>;

    /// A capture while it is being served or waits. The mutable members are its progress, which
    /// selection moves on although it takes the record as constant.
    struct ZslReqObject {
        using TimePoint =
            std::chrono::time_point<std::chrono::system_clock, std::chrono::microseconds>;

        ZslReqObject() = default;
        ZslReqObject(ZslReqObject&&) = default;
        ZslReqObject& operator=(ZslReqObject&&) = default;

        uint32_t requestNo = 0;
        TimePoint reqTimePoint;
        std::shared_ptr<ZslPolicy::ZslPolicyParams> pPolicyParams;
        std::shared_ptr<ISelector> pSelector;
        bool checkPureRaw = false;
        bool needFrameSync = false;
        int64_t zsdTimestamp = 0;  ///< the instant that the capture stands for, ns
        std::shared_ptr<NSPipelineContext::IHistoryBufferProvider> pHistoryBufferProvider;

        mutable FrameObjectMap vFrameObj;           ///< frames still to serve, by frame index
        mutable FrameObjectMap vPreselectFrameObj;  ///< chosen, but the set was in flight
        /// What was chosen for those, by frame index.
        mutable std::map<uint64_t, ISelector::ZslFrameResult> vInflightSelected;
        /// Orders on sets that were in flight, by frame number.
        mutable std::map<uint32_t, ISelector::SelectOutputParams::OpT> vInflightOps;
        /// Frames that need no history and go out with the rest. Always empty today: every frame
        /// but the dummies is one to serve. Results and log lines count them all the same.
        FrameBuilders vTuningFrameBuilder;

        bool isServed() const { return vFrameObj.empty() && vPreselectFrameObj.empty(); }

        /// Wall-clock time since the submission, ms.
        int64_t ageMs() const;
        static TimePoint now();
    };

    /// One frame to build.
    struct BuildFrameParams {
        std::shared_ptr<HistoryBufferSet> hbs;  ///< null: the frame has no history part
        std::shared_ptr<IFrameBuilder> pFB;
        ISelector::AdditionalMetas additionalMetas;
    };

    ZslProcessor(int openId, std::string const& name);
    ~ZslProcessor() override;

    int configure(ZslConfigParams const& params) override EXCLUDES(mLock);
    ZslFrameBuilders submitZslRequest(ZslRequestParams&& params) override EXCLUDES(mLock);
    ZslFrameBuilders processZslPendingRequest(unsigned int requestNo) override EXCLUDES(mLock);
    bool hasZslPendingRequest() const override EXCLUDES(mLock);
    void onFrameUpdated(unsigned int requestNo,
                        IPipelineBufferSetFrameControl::IAppCallback::Result const& result) override
        EXCLUDES(mLock);
    ZslFrameBuilders flush() override EXCLUDES(mLock);
    void debug(android::Printer& printer, std::vector<std::string> const& options) override
        EXCLUDES(mLock);

protected:
    void onFirstRef() override;
    void onLastStrongRef(void const* id) override;

private:
    class DefaultSelector;
    class CShotSelector;
    class MultiframeSelector;
    class MyDebuggee;

    /// Which selector serves a capture, and how long the capture may wait for it.
    struct SelectorChoice {
        ISelector const* pSelector = nullptr;
        int64_t timeoutMs = 0;
    };

    // Configuration
    void loadCustomSelector() REQUIRES(mLock);
    ISelector const* getSelector(ISelector const* pSelector) const REQUIRES(mLock);
    SelectorChoice chooseSelector(ZslReqObject const& req) const REQUIRES(mLock);
    int64_t processorClockNs() const;

    // Intake and pending queue
    ZslReqObject makeRequest(ZslRequestParams& params) const;
    FrameBuilders processZslRequest(ZslReqObject const& req) REQUIRES(mLock);
    void addToPending(ZslReqObject&& req, size_t selected) REQUIRES(mLock);
    void finishServedPending(size_t position, unsigned int requestNo, FrameBuilders selected,
                             ZslFrameBuilders& result) REQUIRES(mLock);
    FrameBuilders changeToNormalCapture(ZslReqObject& req) REQUIRES(mLock);
    void returnLockedBuffers() REQUIRES(mLock);

    // Early shutter
    void callbackFakeShutter(unsigned int requestNo) REQUIRES(mLock);
    int64_t fakeShutterOf(uint32_t requestNo) const REQUIRES(mLock);

    // Selection and frame building
    std::vector<BuildFrameParams> selectBuf_Locked(ZslReqObject const& req) REQUIRES(mLock);
    ISelector::SelectOutputParams runSelector(Selection const& selection,
                                              ISelector const* pSelector,
                                              std::optional<std::string> const& name)
        REQUIRES(mLock);
    FrameBuilders buildFrame_Locked(unsigned int requestNo,
                                    std::vector<BuildFrameParams> const& params) REQUIRES(mLock);

    // Diagnostics
    void logSelection(ZslReqObject const& req, std::vector<BuildFrameParams> const& out) const
        REQUIRES(mLock);
    std::string dumpPendingToString() const REQUIRES(mLock);
    void dumpLockedMap(android::Printer& printer) const REQUIRES(mLock);

    // Destruction runs this order backwards: the selectors go, then the custom library with its
    // creator, the locked sets, and last the captures that still wait. Nobody is called back.

    uint8_t const mTimeSource;    ///< 1: sensor time is boot time; 0: it is monotonic time
    std::string const mUserName;  ///< for whoever looks at the process; nothing reads it
    int32_t const mLogLevel;      ///< likewise: the logger's own settings decide
    /// Touched by reference counting only: first and last strong reference.
    std::shared_ptr<MyDebuggee> mpDebuggee;
    policy::ParsedStreamInfoMap_P1 mParsedStreamInfo_P1 GUARDED_BY(mLock);
    android::wp<IPipelineBufferSetFrameControl::IAppCallback> mpCallback GUARDED_BY(mLock);
    std::deque<ZslReqObject> mPendingRequests GUARDED_BY(mLock);    ///< oldest first
    std::map<uint32_t, int64_t> mFakeShutterMap GUARDED_BY(mLock);  ///< ns by request number
    int64_t mFakeShutterNs GUARDED_BY(mLock);  ///< last early shutter, ns of the processor clock
    mutable TimedMutex mLock;
    int64_t const mZsdOffsetMs;  ///< how far before "now" a capture looks
    std::map<std::string, BufferSets> mLockedBuffersMap GUARDED_BY(mLock);  ///< by selector name
    std::shared_ptr<NSPipelineContext::IHistoryBufferProvider> mpHistoryBufferProvider
        GUARDED_BY(mLock);
    std::shared_ptr<void> mCustomLibHandle GUARDED_BY(mLock);
    std::function<ISelector*()> mCustomSelectorCreator GUARDED_BY(mLock);
    ISelector* mpCustomSelector GUARDED_BY(mLock) = nullptr;  ///< not owned
    std::shared_ptr<DefaultSelector> mpDefaultSelector GUARDED_BY(mLock);
    std::shared_ptr<CShotSelector> mpCShotSelector GUARDED_BY(mLock);
    std::shared_ptr<MultiframeSelector> mpMultiframeSelector GUARDED_BY(mLock);
};

}  // namespace NSCam::v3::pipeline::model
