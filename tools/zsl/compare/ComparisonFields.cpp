#include "compare/ComparisonFields.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace zebcam::tool {
namespace {

constexpr double kNsPerMs = 1e6;

FieldValue timeOf(Spread const& spread, int64_t ns) {
    return spread.count > 0 ? FieldValue(Nanoseconds{ns}) : FieldValue();
}

template <auto Member>
FieldValue count(RunNumbers const& numbers) {
    return uint64_t{numbers.summary.*Member};
}

template <auto Member>
FieldValue lag(RunNumbers const& numbers) {
    return timeOf(numbers.summary.lag, numbers.summary.lag.*Member);
}

template <auto Member>
FieldValue wait(RunNumbers const& numbers) {
    return timeOf(numbers.wait, numbers.wait.*Member);
}

template <Criterion Which>
FieldValue refused(RunNumbers const& numbers) {
    return numbers.refusals[Which];
}

FieldValue atOncePercent(RunNumbers const& numbers) {
    ReplaySummary const& summary = numbers.summary;
    if (summary.frames == 0) {
        return {};
    }
    return 100.0 * static_cast<double>(summary.atOnce) / static_cast<double>(summary.frames);
}

FieldValue heldNs(RunNumbers const& numbers) {
    return numbers.ledger.handedOut > 0 ? FieldValue(Nanoseconds{numbers.longestHeldNs})
                                        : FieldValue();
}

using C = Criterion;
using S = ReplaySummary;
using N = RunNumbers const&;

constexpr std::array kFields = std::to_array<ComparisonField>({
    {"captures", "captures, one for each press", count<&S::captures>},
    {"answered_captures", "captures of which every frame was answered",
     count<&S::answeredCaptures>},
    {"frames", "frames of all captures", count<&S::frames>},
    {"at_once", "frames that were chosen when the capture was submitted", count<&S::atOnce>},
    {"at_once_percent", "the same, of 100 frames", atOncePercent},
    {"waited", "frames that were chosen on a later try", count<&S::waited>},
    {"timed_out", "frames that were given what was there after the time-out", count<&S::timedOut>},
    {"flushed", "frames that a flush turned into ordinary captures", count<&S::flushed>},
    {"unanswered", "frames that never came back", count<&S::unanswered>},
    {"without_history", "frames that were answered without a history frame",
     count<&S::withoutHistory>},
    {"min_lag_ms", "from the press to the start of exposure: the least", lag<&Spread::min>},
    {"median_lag_ms", "the median", lag<&Spread::median>},
    {"p95_lag_ms", "the 95th percentile (nearest rank)", lag<&Spread::p95>},
    {"max_lag_ms", "the most", lag<&Spread::max>},
    {"min_wait_ms", "from the press to the answer, of the answered frames: the least",
     wait<&Spread::min>},
    {"median_wait_ms", "the median", wait<&Spread::median>},
    {"p95_wait_ms", "the 95th percentile (nearest rank)", wait<&Spread::p95>},
    {"max_wait_ms", "the most", wait<&Spread::max>},
    {"refused", "refusals of history frames, for each frame, try and capture anew",
     [](N numbers) -> FieldValue { return numbers.refusals.total(); }},
    {"refused_time", "of them: exposed before the instant that the capture stands for",
     refused<C::Time>},
    {"refused_streams", "a required stream is missing", refused<C::Streams>},
    {"refused_sensor_mode", "another mode, or another sensor", refused<C::SensorMode>},
    {"refused_focus", "the focus is not settled, or not known", refused<C::Focus>},
    {"refused_exposure", "the exposure is not settled", refused<C::Exposure>},
    {"refused_sync", "the sensors are not synchronised", refused<C::FrameSync>},
    {"refused_image", "an image cannot be used", refused<C::Image>},
    {"refused_pure_raw", "pure raw, which the capture refuses", refused<C::PureRaw>},
    {"refused_broken_run", "good itself, but its run of frames was not completed",
     refused<C::BrokenRun>},
    {"refused_lost", "chosen, but could not be handed over", refused<C::Lost>},
    {"refused_unknown", "the policy gives no reason", refused<C::Unknown>},
    {"max_held_ms", "the longest time that a buffer set was out of the history", heldNs},
    {"dropped_frames", "frames that left the history because newer ones came",
     [](N numbers) -> FieldValue { return numbers.droppedFrames; }},
    {"log_errors", "error lines of the processor's log",
     [](N numbers) -> FieldValue { return numbers.errorLines; }},
    {"buffers_out", "buffer sets that were not given back",
     [](N numbers)
         -> FieldValue { return numbers.ledger.withProcessor + numbers.ledger.withFrameBuilder; }},
    {"buffers_lost", "buffer sets that are gone without having been given back",
     [](N numbers) -> FieldValue { return numbers.ledger.lost; }},
});

}  // namespace

std::span<ComparisonField const> comparisonFields() {
    return kFields;
}

ComparisonField const* findField(std::string_view name) {
    auto const found = std::find_if(kFields.begin(), kFields.end(),
                                    [name](auto const& field) { return field.name == name; });
    return found != kFields.end() ? &*found : nullptr;
}

std::string fieldNames() {
    std::string names;
    for (ComparisonField const& field : kFields) {
        names += names.empty() ? "" : " ";
        names += field.name;
    }
    return names;
}

std::optional<double> asNumber(FieldValue const& value) {
    if (auto const* whole = std::get_if<uint64_t>(&value)) {
        return static_cast<double>(*whole);
    }
    if (auto const* time = std::get_if<Nanoseconds>(&value)) {
        return static_cast<double>(time->ns) / kNsPerMs;
    }
    if (auto const* number = std::get_if<double>(&value)) {
        return *number;
    }
    return std::nullopt;
}

std::string asText(FieldValue const& value) {
    if (auto const* whole = std::get_if<uint64_t>(&value)) {
        return fmt::to_string(*whole);
    }
    std::optional<double> const number = asNumber(value);
    return number ? fmt::format("{}", *number) : "";
}

}  // namespace zebcam::tool
