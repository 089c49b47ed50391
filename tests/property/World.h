#pragma once

#include <map>
#include <set>
#include <stdexcept>
#include <string>

#include "Events.h"
#include "processor/ZslFixture.h"

namespace zebcam::test {

/// Nobody requires these streams, so that building never waits for their locks.
constexpr StreamId_T EXTRA_HAL = STREAM_ID_HAL_META_P1_1;
constexpr StreamId_T EXTRA_APP = STREAM_ID_APP_META_P1_1;
constexpr StreamId_T EXTRA_CONTROL = STREAM_ID_HAL_META_CONTROL_1;

/// How much was tried.
struct Tried {
    uint64_t cases = 0;
    std::map<std::string, uint64_t> events;
    std::map<std::string, uint64_t> faults;

    void fault(Fault kind) { ++faults[FAULT_NAMES[static_cast<size_t>(kind)]]; }
    std::string summary() const;
};

/// A rule that does not hold; the text says which.
class BrokenRule : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Throws BrokenRule, with the rule, unless it holds.
inline void require(bool holds, std::string const& rule) {
    if (!holds) {
        throw BrokenRule(rule);
    }
}

/**
 * A processor in virtual time with everything around it, as the tests of single cases have it, and
 * what must be true of it.
 *
 * Keeps its own book of captures, frames, early shutters and orders, and compares it with what can
 * be seen from outside after every event. At most one at a time.
 */
class World : private ZslTest {
public:
    explicit World(Tried& tried);
    ~World() override;

    /// Throws BrokenRule.
    void happen(Event const& event);
    /// Ends the session: nothing may be left anywhere. Throws BrokenRule.
    void close();

private:
    class Listener;
    class Given;
    void TestBody() override {}

    struct Press {
        uint32_t requestNo = 0;
        CaptureSpec spec;
        int64_t sinceNs = 0;
        std::set<FrameBuilder*> open;  ///< not answered yet
        std::set<FrameBuilder*> builtAtOnce;
        std::map<FrameBuilder*, std::set<StreamId_T>> images;  ///< required ones
        bool hasFrameWithoutBuilder = false;
        bool waited = false;
        int64_t shutterNs = 0;
        unsigned shutters = 0;
        bool ended = false;
    };

    void count(Event const& event);
    void submit(Event const& event);
    Capture makeCapture(Event const& event, Press& press);
    static ZslPolicy::RequiredStreams requiredOf(uint32_t bits);
    void prepareFrame(Event const& event, size_t index, Capture& capture, Press& press);
    void cancel(uint32_t n);
    void arrive(Event const& event);
    void result(Event const& event);
    void configure(uint32_t how);
    void flush();
    void finishFrames();

    /// Runs an operation, out of which no exception may come.
    void receive(std::function<ZslFrameBuilders()> const& operation, Press* submitted = nullptr);
    void answer(std::shared_ptr<IFrameBuilder> const& builder, Press const* submitted);
    void hear(Listener const& listener, IAppCallback::Result const& result);
    void checkSubmitted(Press& press);
    void checkBuilt(Press const& press, FrameBuilder& builder);
    void checkInput(Press const& press, ISelector::SelectInputParams const& in);
    void checkState();
    void checkLedger();
    /// Keeps the rule that `check` finds broken until the event is over.
    void watch(std::function<void()> const& check);
    std::vector<uint32_t> pending() const;  ///< request numbers, as the dump lists them
    std::vector<std::string> dump() const;

    Tried& mTried;
    pipeline::policy::ParsedStreamInfoMap_P1 mStreams;  ///< of the last configure that was taken
    android::sp<Listener> mListener;                    ///< likewise
    bool mListenerThrows = false;
    std::vector<android::sp<Listener>> mRefused;  ///< must never hear anything

    std::map<uint32_t, Press> mPresses;
    std::map<IFrameBuilder*, uint32_t> mOwners;
    std::vector<std::shared_ptr<FrameBuilder>> mAllBuilders;
    std::vector<std::shared_ptr<FrameBuilder>> mWithPipeline;  ///< answered, not finished
    Press* mSubmitted = nullptr;
    std::vector<uint32_t> mInFlight;
    std::set<uint32_t> mErrorFrames, mPureRawFrames;
    std::set<uint32_t> mOrderedLocks;   ///< frames that a policy may keep
    std::set<uint32_t> mLocksInFlight;  ///< ordered before the frame arrived
    uint64_t mReleased = 0;             ///< sets that were let go for good so far
    bool mMayRelease = false;           ///< there was a reason to
    std::string mBrokenInside;          ///< rule that was found broken inside an operation
    uint64_t mThrown = 0;               ///< exceptions of plug-ins so far
    uint64_t mToldThrown = 0;           ///< error lines about them
    uint32_t mNextFrameNo = 1;
    uint32_t mNextRequestNo = 1;
};

}  // namespace zebcam::test
