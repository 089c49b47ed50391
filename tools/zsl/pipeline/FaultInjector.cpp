#include "pipeline/FaultInjector.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <stdexcept>
#include <utility>

#include "base/Text.h"

namespace zebcam::tool::pipeline {

using NSCam::ZslPolicy::ISelector;

namespace {

constexpr uint64_t kSecondsPerHour = 3600;
constexpr uint64_t kMostIntervalsLate = 4;
constexpr uint64_t kMostHalfIntervalsSlow = 6;
// How many enumerators Absurdity has.
constexpr uint64_t kAbsurdities = 4;

/// A bijection in which every bit of the input moves every bit of the output (SplitMix64).
uint64_t mixed(uint64_t value) {
    value += 0x9e3779b97f4a7c15;
    value = (value ^ (value >> 30)) * 0xbf58476d1ce4e5b9;
    value = (value ^ (value >> 27)) * 0x94d049bb133111eb;
    return value ^ (value >> 31);
}

}  // namespace

FaultInjector::FaultInjector(FaultOptions options, int64_t startNs, int64_t intervalNs)
    : mOptions(std::move(options)),
      mStartNs(startNs),
      mIntervalNs(intervalNs),
      mDone(mOptions.rules.size()) {
}

FrameFaults FaultInjector::ofFrame(uint64_t frame, int64_t timestampNs) {
    FrameFaults faults;
    for (FaultTraits const& traits : FAULT_KINDS) {
        if (traits.scope == FaultScope::Frame) {
            faults.kinds.set(static_cast<size_t>(traits.kind),
                             strikes(traits.kind, frame, 0, timestampNs));
        }
    }
    if (faults.has(FaultKind::AbsurdMetadata)) {
        faults.absurdity =
            static_cast<Absurdity>(pick(FaultKind::AbsurdMetadata, kAbsurdities, frame));
    }
    if (faults.has(FaultKind::Late)) {
        auto const more = static_cast<int64_t>(pick(FaultKind::Late, kMostIntervalsLate, frame));
        faults.lateNs = (1 + more) * mIntervalNs;
    }
    if (hasBegun(FaultKind::WrongClock, timestampNs)) {
        // As long as a phone may have slept; the same for the whole run.
        uint64_t const seconds =
            kSecondsPerHour + pick(FaultKind::WrongClock, 11 * kSecondsPerHour, 0);
        faults.clockBehindNs = static_cast<int64_t>(seconds) * base::NS_PER_SECOND;
        faults.kinds.set(static_cast<size_t>(FaultKind::WrongClock));
    }
    return faults;
}

TryFaults FaultInjector::ofTry(size_t capture, size_t attempt, int64_t nowNs) {
    TryFaults faults;
    faults.noHistory = strikesCounted(FaultKind::NoHistory, capture, attempt, nowNs);
    if (strikesCounted(FaultKind::PolicySlow, capture, attempt, nowNs)) {
        auto const more = static_cast<int64_t>(
            pick(FaultKind::PolicySlow, kMostHalfIntervalsSlow, capture, attempt));
        // Half of the shortest interval may be nothing, and what is counted must have happened.
        faults.policyPauseNs = std::max<int64_t>((1 + more) * mIntervalNs / 2, 1);
    }
    return faults;
}

std::optional<FaultKind> FaultInjector::ofPolicy(size_t capture, int64_t pressNs) {
    // Both are asked: a rule with a time is used up by the press that it strikes, even where the
    // other kind wins.
    bool const throws = strikesCounted(FaultKind::PolicyThrows, capture, 0, pressNs);
    bool const isNonsense = strikesCounted(FaultKind::PolicyNonsense, capture, 0, pressNs);
    if (throws) {
        return FaultKind::PolicyThrows;
    }
    return isNonsense ? std::optional(FaultKind::PolicyNonsense) : std::nullopt;
}

std::optional<int64_t> FaultInjector::flushAfter(size_t capture, int64_t pressNs) const {
    // Half an interval later a capture that waits for the next frame is still under way.
    return isDrawn(FaultKind::Flush, capture, 0) ? std::optional(pressNs + mIntervalNs / 2)
                                                 : std::nullopt;
}

// Those of the rules with a rate come with the presses.
std::vector<int64_t> FaultInjector::flushTimes() const {
    std::vector<int64_t> times;
    for (FaultRule const& rule : mOptions.rules) {
        if (rule.kind == FaultKind::Flush && rule.atNs) {
            times.push_back(mStartNs + *rule.atNs);
        }
    }
    return times;
}

bool FaultInjector::isCallbackGone(int64_t nowNs) const {
    return hasBegun(FaultKind::CallbackGone, nowNs);
}

void FaultInjector::count(FaultKind kind) {
    LockGuard const lock(mLock);
    ++mStrikes[static_cast<size_t>(kind)];
}

void FaultInjector::count(FrameFaults const& faults) {
    LockGuard const lock(mLock);
    for (size_t kind = 0; kind < mStrikes.size(); ++kind) {
        mStrikes[kind] += faults.kinds[kind] ? 1 : 0;
    }
}

bool FaultInjector::strikesCounted(FaultKind kind, uint64_t opportunity, uint64_t part,
                                   int64_t timeNs) {
    bool const isStruck = strikes(kind, opportunity, part, timeNs);
    if (isStruck) {
        count(kind);
    }
    return isStruck;
}

uint64_t FaultInjector::pick(FaultKind kind, uint64_t limit, uint64_t opportunity,
                             uint64_t part) const {
    // Mixed once more: how a fault looks has nothing to do with what let it strike.
    return mixed(draw(kind, opportunity, part)) % limit;
}

bool FaultInjector::has(FaultKind kind) const {
    return std::any_of(mOptions.rules.begin(), mOptions.rules.end(),
                       [kind](FaultRule const& rule) { return rule.kind == kind; });
}

FaultTally FaultInjector::tally() const {
    FaultTally tally;
    tally.randomSeed = mOptions.randomSeed;
    LockGuard const lock(mLock);
    for (FaultTraits const& traits : FAULT_KINDS) {
        // What was asked for and never struck is told as 0, all else is left out.
        if (has(traits.kind)) {
            tally.strikes.emplace_back(traits.kind, mStrikes[static_cast<size_t>(traits.kind)]);
        }
    }
    return tally;
}

bool FaultInjector::strikes(FaultKind kind, uint64_t opportunity, uint64_t part, int64_t timeNs) {
    // The time is looked at in any case: its rule is used up even where the draw strikes too.
    bool const isTime = isTimeReached(kind, timeNs);
    return isTime || isDrawn(kind, opportunity, part);
}

bool FaultInjector::isDrawn(FaultKind kind, uint64_t opportunity, uint64_t part) const {
    // 53 bits are what a double holds exactly, so that a rate of 1 strikes always.
    constexpr double kUnit = 1.0 / (uint64_t{1} << 53);
    double const drawn = static_cast<double>(draw(kind, opportunity, part) >> 11) * kUnit;
    return std::any_of(mOptions.rules.begin(), mOptions.rules.end(), [&](FaultRule const& rule) {
        return rule.kind == kind && !rule.atNs &&
               drawn < rule.rate.value_or(traitsOf(kind).defaultRate);
    });
}

bool FaultInjector::isTimeReached(FaultKind kind, int64_t timeNs) {
    LockGuard const lock(mLock);
    for (size_t i = 0; i < mOptions.rules.size(); ++i) {
        FaultRule const& rule = mOptions.rules[i];
        if (rule.kind == kind && rule.atNs && !mDone[i] && timeNs - mStartNs >= *rule.atNs) {
            mDone[i] = true;
            return true;
        }
    }
    return false;
}

bool FaultInjector::hasBegun(FaultKind kind, int64_t timeNs) const {
    return std::any_of(mOptions.rules.begin(), mOptions.rules.end(), [&](FaultRule const& rule) {
        return rule.kind == kind && timeNs - mStartNs >= rule.atNs.value_or(0);
    });
}

uint64_t FaultInjector::draw(FaultKind kind, uint64_t opportunity, uint64_t part) const {
    uint64_t const subject = mixed(mOptions.randomSeed) ^ static_cast<uint64_t>(kind);
    // One after the other: of a sum other opportunities would have the same draws.
    return mixed(mixed(mixed(subject) ^ opportunity) ^ part);
}

std::shared_ptr<FaultInjector> makeFaultInjector(FaultOptions const& options, int64_t startNs,
                                                 int64_t intervalNs) {
    return options.rules.empty() ? nullptr
                                 : std::make_shared<FaultInjector>(options, startNs, intervalNs);
}

namespace {

using In = ISelector::SelectInputParams;
using Out = ISelector::SelectOutputParams;

/// Further than any recording's next frames.
constexpr uint32_t kNowhere = 1'000'000;

uint32_t newestOf(In const& in) {
    return in.historyFrames.empty() ? 0 : in.historyFrames.rbegin()->first;
}

/// Serves every index with `frameNo`.
Out serveAll(In const& in, uint32_t frameNo) {
    Out out;
    for (auto const& [index, info] : in.frameInfos) {
        out.selected[index] = {frameNo, false, {}};
    }
    return out;
}

Out serveWithNothing(In const& in) {
    return serveAll(in, newestOf(in) + kNowhere);
}

Out serveAllWithOne(In const& in) {
    return in.historyFrames.empty() ? Out{} : serveAll(in, newestOf(in));
}

Out serveAndLetGo(In const& in) {
    Out out = serveAllWithOne(in);
    out.ops[newestOf(in)] = Out::RELEASE;
    return out;
}

Out orderStrangers(In const& in) {
    uint32_t const stranger = newestOf(in) + kNowhere;
    return {{}, {{stranger, Out::LOCK}, {stranger + 1, Out::UNLOCK}, {stranger + 2, Out::RELEASE}}};
}

Out waitForOldestInFlight(In const& in) {
    auto const oldest =
        std::min_element(in.inflightInfos.begin(), in.inflightInfos.end(),
                         [](auto const& a, auto const& b) { return a.frameNo < b.frameNo; });
    return oldest == in.inflightInfos.end() ? Out{} : serveAll(in, oldest->frameNo);
}

Out keepAll(In const& in) {
    Out out;
    for (auto const& [frameNo, frame] : in.historyFrames) {
        out.ops[frameNo] = frame.isLocked ? Out::UNLOCK : Out::LOCK;
    }
    return out;
}

class FaultySelector final : public ISelector {
public:
    FaultySelector(FaultKind fault, size_t capture, std::shared_ptr<FaultInjector const> injector)
        : mFault(fault), mCapture(capture), mInjector(std::move(injector)) {}

    char const* getName() const override {
        return mFault == FaultKind::PolicyThrows ? "ThrowingPolicy" : "NonsensePolicy";
    }
    Out select(In const& in) const override {
        if (mFault == FaultKind::PolicyThrows) {
            throw std::runtime_error(fmt::format("the policy of capture {} fails", mCapture + 1));
        }
        constexpr std::array kAnswers = {serveWithNothing, serveAllWithOne,       serveAndLetGo,
                                         orderStrangers,   waitForOldestInFlight, keepAll};
        uint64_t const choice = mInjector->pick(FaultKind::PolicyNonsense, kAnswers.size(),
                                                mCapture, mTimesAsked.fetch_add(1));
        return kAnswers.at(choice)(in);
    }

private:
    FaultKind const mFault;
    size_t const mCapture;
    std::shared_ptr<FaultInjector const> const mInjector;
    /// Tries may come from any thread, though from one at a time.
    mutable std::atomic<uint64_t> mTimesAsked = 0;
};

}  // namespace

std::shared_ptr<ISelector> makeFaultySelector(FaultKind fault, size_t capture,
                                              std::shared_ptr<FaultInjector const> injector) {
    return std::make_shared<FaultySelector>(fault, capture, std::move(injector));
}

}  // namespace zebcam::tool::pipeline
