#include "pipeline/FaultInjector.h"

#include <algorithm>
#include <utility>

namespace zebcam::tool::pipeline {

namespace {

constexpr int64_t kNsPerSecond = 1'000'000'000;
constexpr uint64_t kSecondsPerHour = 3600;
constexpr uint64_t kMostIntervalsLate = 4;
constexpr uint64_t kMostHalfIntervalsSlow = 6;
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
    auto const isStruck = [&](FaultKind kind) {
        bool const struck = strikes(kind, frame, 0, timestampNs);
        faults.kinds.set(static_cast<size_t>(kind), struck);
        return struck;
    };
    faults.lost = isStruck(FaultKind::Lost);
    faults.duplicate = isStruck(FaultKind::Duplicate);
    faults.reorder = isStruck(FaultKind::Reorder);
    faults.imageError = isStruck(FaultKind::ImageError);
    faults.missingMetadata = isStruck(FaultKind::MissingMetadata);
    faults.lockedMetadata = isStruck(FaultKind::LockedMetadata);
    if (isStruck(FaultKind::AbsurdMetadata)) {
        faults.absurdity =
            static_cast<Absurdity>(pick(FaultKind::AbsurdMetadata, kAbsurdities, frame));
    }
    if (isStruck(FaultKind::Late)) {
        auto const more = static_cast<int64_t>(pick(FaultKind::Late, kMostIntervalsLate, frame));
        faults.lateNs = (1 + more) * mIntervalNs;
    }
    if (hasBegun(FaultKind::WrongClock, timestampNs)) {
        // As long as a phone may have slept; the same for the whole run.
        uint64_t const seconds =
            kSecondsPerHour + pick(FaultKind::WrongClock, 11 * kSecondsPerHour, 0);
        faults.clockBehindNs = static_cast<int64_t>(seconds) * kNsPerSecond;
        faults.kinds.set(static_cast<size_t>(FaultKind::WrongClock));
    }
    return faults;
}

TryFaults FaultInjector::ofTry(size_t capture, size_t attempt, int64_t nowNs) {
    TryFaults faults;
    faults.noHistory =
        countIf(strikes(FaultKind::NoHistory, capture, attempt, nowNs), FaultKind::NoHistory);
    if (countIf(strikes(FaultKind::PolicySlow, capture, attempt, nowNs), FaultKind::PolicySlow)) {
        auto const more = static_cast<int64_t>(
            pick(FaultKind::PolicySlow, kMostHalfIntervalsSlow, capture, attempt));
        faults.policyPauseNs = std::max<int64_t>((1 + more) * mIntervalNs / 2, 1);
    }
    return faults;
}

PolicyFault FaultInjector::ofPolicy(size_t capture, int64_t pressNs) {
    // Both are asked, so that one does not move the other.
    bool const throws =
        countIf(strikes(FaultKind::PolicyThrows, capture, 0, pressNs), FaultKind::PolicyThrows);
    bool const isNonsense =
        countIf(strikes(FaultKind::PolicyNonsense, capture, 0, pressNs), FaultKind::PolicyNonsense);
    if (throws) {
        return PolicyFault::Throws;
    }
    return isNonsense ? PolicyFault::Nonsense : PolicyFault::None;
}

std::optional<int64_t> FaultInjector::flushAfter(size_t capture, int64_t pressNs) const {
    return isDrawn(FaultKind::Flush, capture, 0) ? std::optional(pressNs + mIntervalNs / 2)
                                                 : std::nullopt;
}

std::vector<int64_t> FaultInjector::flushTimes() const {
    std::vector<int64_t> times;
    for (FaultRule const& rule : mOptions.rules) {
        if (rule.kind == FaultKind::Flush && rule.atNs) {
            times.push_back(mStartNs + *rule.atNs);
        }
    }
    std::sort(times.begin(), times.end());
    return times;
}

bool FaultInjector::isCallbackGone(int64_t nowNs) const {
    return hasBegun(FaultKind::CallbackGone, nowNs);
}

void FaultInjector::count(FaultKind kind) {
    std::lock_guard lock(mLock);
    ++mStrikes[static_cast<size_t>(kind)];
}

void FaultInjector::count(FrameFaults const& faults) {
    std::lock_guard lock(mLock);
    for (size_t kind = 0; kind < mStrikes.size(); ++kind) {
        mStrikes[kind] += faults.kinds[kind] ? 1 : 0;
    }
}

bool FaultInjector::countIf(bool isStruck, FaultKind kind) {
    if (isStruck) {
        count(kind);
    }
    return isStruck;
}

uint64_t FaultInjector::pick(FaultKind kind, uint64_t limit, uint64_t opportunity,
                             uint64_t part) const {
    return mixed(draw(kind, opportunity, part)) % limit;
}

bool FaultInjector::has(FaultKind kind) const {
    return std::any_of(mOptions.rules.begin(), mOptions.rules.end(),
                       [kind](FaultRule const& rule) { return rule.kind == kind; });
}

FaultTally FaultInjector::tally() const {
    FaultTally tally;
    tally.randomSeed = mOptions.randomSeed;
    std::lock_guard lock(mLock);
    for (FaultTraits const& traits : FAULT_KINDS) {
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
    constexpr double kUnit = 1.0 / (uint64_t{1} << 53);
    double const drawn = static_cast<double>(draw(kind, opportunity, part) >> 11) * kUnit;
    return std::any_of(mOptions.rules.begin(), mOptions.rules.end(), [&](FaultRule const& rule) {
        return rule.kind == kind && !rule.atNs &&
               drawn < rule.rate.value_or(traitsOf(kind).defaultRate);
    });
}

bool FaultInjector::isTimeReached(FaultKind kind, int64_t timeNs) {
    std::lock_guard lock(mLock);
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
    return mixed(mixed(mixed(subject) ^ opportunity) ^ part);
}

std::shared_ptr<FaultInjector> makeFaultInjector(FaultOptions const& options, int64_t startNs,
                                                 int64_t intervalNs) {
    return options.rules.empty() ? nullptr
                                 : std::make_shared<FaultInjector>(options, startNs, intervalNs);
}

void HeldMetadata::add(NSCam::v3::pipeline::NSPipelineContext::HistoryBufferSet const& set) {
    std::lock_guard lock(mLock);
    for (auto const* buffers : {&set.halMeta, &set.appMeta}) {
        for (auto const& buffer : *buffers) {
            if (auto* const ours = dynamic_cast<host::MetaStreamBuffer*>(buffer.get())) {
                mBuffers.emplace_back(ours);
            }
        }
    }
}

void HeldMetadata::setLockable(bool isLockable) {
    // Strong for a moment, and destroyed outside the lock where they turn out to be the last.
    std::vector<android::sp<host::MetaStreamBuffer>> alive;
    std::lock_guard lock(mLock);
    std::erase_if(mBuffers, [&](android::wp<host::MetaStreamBuffer> const& buffer) {
        alive.push_back(buffer.promote());
        return alive.back() == nullptr;
    });
    for (auto const& buffer : alive) {
        if (buffer != nullptr) {
            buffer->setLockable(isLockable);
        }
    }
}

}  // namespace zebcam::tool::pipeline
