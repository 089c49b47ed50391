#pragma once

#include <IZslProcessor.h>
#include <debugutils/IDebuggee.h>
#include <zebcam/ThreadSafety.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "HistorySets.h"
#include "MetadataLocks.h"

namespace NSCam::v3::pipeline::model {

using zebcam::AdoptedLock;
using zebcam::LockGuard;
using zebcam::TimedMutex;

/**
 * The processor.
 *
 * Who holds a history buffer set: at any moment exactly one of the provider, the history list of
 * the running selection (HistoryLease), a selector's list in `mLockedBuffersMap`, or a
 * BuildFrameParams, from which its images go into the frame builder. Sets move, only an explicit
 * clone copies one, and whatever is left in the history list returns to the provider before the
 * selection ends.
 *
 * Every member below is guarded by `mLock` unless it is set once at construction.
 */
class ZslProcessor : public IZslProcessor {
public:
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
    using ISelector = ZslPolicy::ISelector;
    using IFrameBuilder = NSPipelineContext::IFrameBuilder;
    using FrameBuilders = std::vector<std::shared_ptr<IFrameBuilder>>;
    using SelectedMap = std::map<uint64_t, ISelector::ZslFrameResult>;
    using OpMap = std::map<uint32_t, ISelector::SelectOutputParams::OpT>;
    using InFlightInfos = std::vector<ZslPolicy::InFlightInfo>;

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
        mutable SelectedMap vInflightSelected;      ///< what was chosen for those
        mutable OpMap vInflightOps;                 ///< orders on sets that were in flight
        FrameBuilders vTuningFrameBuilder;          ///< frames that need no history

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

    class DefaultSelector;
    class CShotSelector;
    class MultiframeSelector;
    class MyDebuggee;

    /// Which selector serves a capture, and how long the capture may wait for it.
    struct SelectorChoice {
        ISelector const* pSelector = nullptr;
        int64_t timeoutMs = 0;
    };

    /// What one selection works on.
    struct Selection {
        ZslReqObject const& req;
        BufferSets& history;
        BufferSets& locked;
        InFlightInfos const& inflight;
        bool isInFlight(uint32_t frameNo) const;
    };

    // Configuration
    void loadCustomSelector() REQUIRES(mLock);
    int64_t processorClockNs() const;

    // Intake and pending queue
    ZslReqObject makeRequest(ZslRequestParams& params) const;
    static void prepareFrames(
        std::vector<std::shared_ptr<policy::RequestResultParams>> const& vReqResult,
        FrameBuilders const& vFrameBuilder,
        std::unordered_map<uint32_t, uint32_t> const& streamIdMap,
        std::vector<uint32_t> const& requiredSensorIds, FrameObjectMap& vFrameObj,
        FrameBuilders& vTuningFrameBuilder);
    void queue(ZslReqObject&& req, size_t selected) REQUIRES(mLock);
    FrameBuilders processZslRequest(ZslReqObject const& req) REQUIRES(mLock);
    void finishServedPending(size_t position, unsigned int requestNo, FrameBuilders selected,
                             ZslFrameBuilders& result) REQUIRES(mLock);
    void callbackFakeShutter(unsigned int requestNo) REQUIRES(mLock);
    void sendFakeShutter(IPipelineBufferSetFrameControl::IAppCallback& callback,
                         unsigned int requestNo) REQUIRES(mLock);
    int64_t fakeShutterOf(uint32_t requestNo) const REQUIRES(mLock);
    static bool hasEveryFrameBuilder(ZslReqObject const& req);
    FrameBuilders changeToNormalCapture(ZslReqObject& req) REQUIRES(mLock);
    void returnLockedBuffers() REQUIRES(mLock);

    // Failures of plug-ins and callbacks
    void noteFailure() REQUIRES(mLock);
    ZslFrameBuilders deliver(ZslFrameBuilders result) REQUIRES(mLock);

    // Selection
    std::vector<BuildFrameParams> selectBuf_Locked(ZslReqObject const& req) REQUIRES(mLock);
    ISelector const* getSelector(ISelector const* pSelector) const REQUIRES(mLock);
    SelectorChoice chooseSelector(ZslReqObject const& req) const REQUIRES(mLock);
    std::string nameOf(ISelector const*& pSelector) REQUIRES(mLock);
    ISelector::SelectOutputParams runSelector(Selection const& selection,
                                              ISelector const* pSelector) REQUIRES(mLock);
    static void mergeInflight(ZslReqObject const& req, ISelector::SelectOutputParams& output);
    static void lockBuffersForSelector(Selection const& selection, OpMap const& ops);
    static void unlockBuffersForSelector(Selection const& selection, OpMap const& ops);
    static void releaseBuffersForSelector(Selection const& selection, OpMap const& ops);
    static void serveTimedout(Selection const& selection, int64_t timeoutMs,
                              std::vector<BuildFrameParams>& out);
    void logSelection(ZslReqObject const& req, std::vector<BuildFrameParams> const& out) const
        REQUIRES(mLock);

    static std::shared_ptr<HistoryBufferSet> takeSelected(Selection const& selection,
                                                          FrameObject const& frame,
                                                          ISelector::ZslFrameResult const& result);
    static void prepareSelectedParams(Selection const& selection, SelectedMap const& selected,
                                      std::vector<BuildFrameParams>& out);
    static void prepareTimedoutParams(FrameObjectMap& vFrameObj, BufferSets& history,
                                      std::vector<BuildFrameParams>& out);

    static std::map<uint64_t, ISelector::ZslFrameInfo> generateZslFrameInfos(
        FrameObjectMap const& vFrameObj, LockedMetadata& locked);
    static ISelector::SelectInputParams generateZslRequestInfo(ZslReqObject const& req,
                                                               LockedMetadata& locked);
    static ISelector::SelectOutputParams select(ZslReqObject const& req, ISelector const& selector,
                                                BufferSets const& history,
                                                BufferSets const& lockedSets,
                                                InFlightInfos const& inflight);

    // Frame building
    FrameBuilders buildFrame_Locked(unsigned int requestNo,
                                    std::vector<BuildFrameParams> const& params) REQUIRES(mLock);

    // Diagnostics
    static std::string toString(ZslReqObject const& req);
    static std::string toString(BuildFrameParams const& params);
    static void print(android::Printer& printer, ZslReqObject const& req);
    std::string dumpPendingToString() const REQUIRES(mLock);
    void dumpLockedMap(android::Printer& printer) const REQUIRES(mLock);

    // Set once, at construction
    uint8_t const mTimeSource;  ///< 1: sensor time is boot time; 0: it is monotonic time
    std::string const mUserName;
    int32_t const mLogLevel;

    // Touched by reference counting only: first and last strong reference
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

    std::exception_ptr mFailure GUARDED_BY(mLock);  ///< a plug-in's, not yet passed on
};

}  // namespace NSCam::v3::pipeline::model
