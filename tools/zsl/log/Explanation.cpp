#include "log/Explanation.h"

#include <algorithm>
#include <utility>

namespace zebcam::tool::log {

namespace {

// The compiler warns of a criterion that has no case.
constexpr CriterionInfo infoOfCase(Criterion criterion) {
    switch (criterion) {
        case Criterion::None:
            return {"none", nullptr, nullptr, "not refused"};
        case Criterion::Time:
            return {"time", nullptr, nullptr,
                    "exposed before the instant that the capture stands for"};
        case Criterion::Streams:
            return {"streams", "containsRequiredStreamBuffer", nullptr,
                    "a required stream is missing"};
        case Criterion::SensorMode:
            return {"sensor mode", "containRequiredSensorMode", nullptr,
                    "another mode, or another sensor"};
        case Criterion::Focus:
            return {"focus", "isAFStable", "AF mode, AF state and lens state",
                    "the focus is not settled, or not known"};
        case Criterion::Exposure:
            return {"exposure", "isAESoftStable", "1", "the exposure is not settled"};
        case Criterion::FrameSync:
            return {"sync", "isFameSync", "0", "the sensors are not synchronised"};
        case Criterion::Image:
            return {"image", nullptr, nullptr, "an image reports an error, or is pure raw"};
        case Criterion::PureRaw:
            return {"pure raw", nullptr, nullptr, "pure raw, which the capture refuses"};
        case Criterion::BrokenRun:
            return {"broken run", nullptr, nullptr,
                    "good itself, but its run of frames was not completed"};
        case Criterion::Lost:
            return {"lost", nullptr, nullptr, "chosen, but could not be handed over"};
        case Criterion::Unknown:
            return {"unknown", nullptr, nullptr,
                    "the policy gives no reason, or one that is not known here"};
    }
    return {};
}
static_assert(infoOfCase(static_cast<Criterion>(CRITERIA)).name == nullptr,
              "a criterion behind Unknown would not be counted");

template <auto LAST, size_t N>
char const* nameOf(decltype(LAST) value, char const* const (&names)[N]) {
    static_assert(N == static_cast<size_t>(LAST) + 1, "each value has a name");
    return names[static_cast<size_t>(value)];
}

}  // namespace

CriterionInfo infoOf(Criterion criterion) {
    return infoOfCase(criterion);
}

std::string Candidate::criterionName() const {
    return unknownCriterion.empty() ? infoOf(criterion).name : unknownCriterion;
}

size_t CaptureExplanation::tryCount() const {
    size_t count = tries.size();
    for (TryExplanation const& attempt : tries) {
        count += attempt.repeats;
    }
    return count;
}

bool CaptureExplanation::isCertain() const {
    return std::any_of(tries.begin(), tries.end(),
                       [](TryExplanation const& attempt) { return attempt.hasInput; });
}

std::string textOf(StreamList const& streams, StreamNames const& names) {
    std::string text;
    for (auto const& [kind, ids] : {std::pair{"image ", &streams.halImages},
                                    {"HAL ", &streams.halMetas},
                                    {"app ", &streams.appMetas}}) {
        for (std::string const& id : *ids) {
            auto const name = names.find(id);
            text += text.empty() ? "" : ", ";
            text += kind + (name != names.end() ? name->second : "0x" + id);
        }
    }
    return text;
}

char const* toString(Verdict verdict) {
    return nameOf<Verdict::Refused>(verdict, {"taken", "parked", "locked", "refused"});
}

char const* toString(Source source) {
    return nameOf<Source::TimedOut>(source, {"chosen", "arrived", "timed out"});
}

char const* toString(Order::Kind kind) {
    return nameOf<Order::Kind::Release>(kind, {"lock", "unlock", "release"});
}

char const* toString(Order::Fate fate) {
    return nameOf<Order::Fate::NotFound>(fate, {"done", "in flight", "not found"});
}

char const* toString(TryOutcome outcome) {
    return nameOf<TryOutcome::Waiting>(outcome, {"unknown", "served", "waiting"});
}

bool isOver(CaptureOutcome outcome) {
    return outcome == CaptureOutcome::Served || outcome == CaptureOutcome::TimedOut ||
           outcome == CaptureOutcome::Flushed;
}

char const* toString(CaptureOutcome outcome) {
    return nameOf<CaptureOutcome::Pending>(
        outcome, {"unknown", "served", "timed out", "flushed", "pending"});
}

}  // namespace zebcam::tool::log
