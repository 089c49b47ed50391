#include "compare/ComparisonFields.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <numeric>
#include <stdexcept>
#include <utility>

#include "base/Text.h"

namespace zebcam::tool::compare {

uint64_t RefusalCounts::total() const {
    return std::accumulate(byCriterion.begin(), byCriterion.end(), uint64_t{0});
}

std::string RefusalCounts::text(OwnRefusals const& own) const {
    std::vector<std::pair<uint64_t, std::string>> counts;
    for (size_t i = 0; i < byCriterion.size(); ++i) {
        auto const criterion = static_cast<log::Criterion>(i);
        bool const hasNames = criterion == log::Criterion::Unknown && !own.empty();
        if (byCriterion[i] > 0 && !hasNames) {
            counts.emplace_back(byCriterion[i], log::infoOf(criterion).name);
        }
    }
    for (auto const& [name, count] : own) {
        counts.emplace_back(count, name);
    }
    // Stable: equal counts stay in the order of the criteria, from run to run.
    std::stable_sort(counts.begin(), counts.end(),
                     [](auto const& a, auto const& b) { return a.first > b.first; });
    std::string text;
    for (auto const& [count, name] : counts) {
        text += fmt::format("{}{} {}", text.empty() ? "" : ", ", name, count);
    }
    return text;
}

namespace {

/// Calls `count` with each frame that was refused and how often it was, by tries that told the
/// same.
template <typename Count>
void forEachRefusal(log::Explanation const& explanation, Count const& count) {
    for (log::CaptureExplanation const& capture : explanation.captures) {
        for (log::TryExplanation const& attempt : capture.tries) {
            for (log::Candidate const& frame : attempt.candidates) {
                if (frame.criterion != log::Criterion::None) {
                    count(frame, uint64_t{1} + attempt.repeats);
                }
            }
        }
    }
}

}  // namespace

RefusalCounts countRefusals(log::Explanation const& explanation) {
    RefusalCounts counts;
    forEachRefusal(explanation, [&counts](log::Candidate const& frame, uint64_t times) {
        counts[frame.criterion] += times;
    });
    return counts;
}

OwnRefusals countOwnRefusals(log::Explanation const& explanation) {
    OwnRefusals counts;
    forEachRefusal(explanation, [&counts](log::Candidate const& frame, uint64_t times) {
        if (frame.criterion == log::Criterion::Unknown) {
            counts[frame.criterionName()] += times;
        }
    });
    return counts;
}

RunNumbers numbersOf(run::ReplayResult const& result, RefusalCounts const& refusals) {
    RunNumbers numbers;
    numbers.summary = result.summary;
    numbers.refusals = refusals;
    numbers.ledger = result.ledger;
    numbers.longestHeldNs = result.longestHeldNs;
    numbers.droppedFrames = result.droppedFrames;
    numbers.errorLines = result.errorLines;
    numbers.offsetMs = result.offsetMs;
    return numbers;
}

std::vector<std::string> problemsOf(run::ReplayResult const& result) {
    std::vector<std::string> problems = result.failures;
    if (result.summary.unanswered > 0) {
        problems.push_back(fmt::format("{} of {} frames unanswered", result.summary.unanswered,
                                       result.summary.frames));
    }
    host::BufferLedger::Totals const& ledger = result.ledger;
    if (!ledger.balances()) {
        problems.push_back(fmt::format("the ledger does not balance: {} buffer sets out, {} lost",
                                       ledger.withProcessor + ledger.withFrameBuilder,
                                       ledger.lost));
    }
    return problems;
}

namespace {

constexpr double kNsPerMs = 1e6;

FieldValue msOf(bool isThere, int64_t ns) {
    return isThere ? FieldValue(static_cast<double>(ns) / kNsPerMs) : FieldValue();
}

template <auto Member>
FieldValue count(RunNumbers const& numbers) {
    return uint64_t{numbers.summary.*Member};
}

template <auto Member>
FieldValue lag(RunNumbers const& numbers) {
    return msOf(numbers.summary.lag.count > 0, numbers.summary.lag.*Member);
}

template <auto Member>
FieldValue wait(RunNumbers const& numbers) {
    return msOf(numbers.summary.wait.count > 0, numbers.summary.wait.*Member);
}

FieldValue atOncePercent(RunNumbers const& numbers) {
    run::ReplaySummary const& summary = numbers.summary;
    if (summary.frames == 0) {
        return {};
    }
    return 100.0 * static_cast<double>(summary.atOnce) / static_cast<double>(summary.frames);
}

template <auto Member>
FieldValue distance(RunNumbers const& numbers) {
    return msOf(numbers.summary.distance.count > 0, numbers.summary.distance.*Member);
}

template <auto Member>
FieldValue exposure(RunNumbers const& numbers) {
    return msOf(numbers.summary.exposure.count > 0, numbers.summary.exposure.*Member);
}

template <auto Member>
FieldValue iso(RunNumbers const& numbers) {
    base::Spread const& iso = numbers.summary.iso;
    return iso.count > 0 ? FieldValue(static_cast<double>(iso.*Member)) : FieldValue();
}

// Nothing told is no value, so that a limit on it is broken.
template <auto Member>
FieldValue shareCount(RunNumbers const& numbers) {
    run::Share const& share = numbers.summary.*Member;
    return share.told > 0 ? FieldValue(uint64_t{share.count}) : FieldValue();
}

template <auto Member>
FieldValue sharePercent(RunNumbers const& numbers) {
    run::Share const& share = numbers.summary.*Member;
    return share.told > 0 ? FieldValue(100.0 * static_cast<double>(share.count) /
                                       static_cast<double>(share.told))
                          : FieldValue();
}

template <auto Member>
FieldValue picture(RunNumbers const& numbers) {
    run::PictureSummary const& pictures = numbers.summary.pictures;
    return pictures.count > 0 ? FieldValue(pictures.*Member) : FieldValue();
}

FieldValue belowHalfPercent(RunNumbers const& numbers) {
    run::PictureSummary const& pictures = numbers.summary.pictures;
    return pictures.count > 0 ? FieldValue(100.0 * static_cast<double>(pictures.belowHalf) /
                                           static_cast<double>(pictures.count))
                              : FieldValue();
}

FieldValue heldNs(RunNumbers const& numbers) {
    return msOf(numbers.ledger.handedOut > 0, numbers.longestHeldNs);
}

using S = run::ReplaySummary;
using N = RunNumbers const&;

/// A column of its own for whatever a history frame can be refused for.
void addRefusals(std::vector<ComparisonField>& fields) {
    fields.push_back({"refused", Better::Neither,
                      "refusals of history frames, for each frame, try and capture anew",
                      [](N numbers) -> FieldValue { return numbers.refusals.total(); }});
    for (size_t i = static_cast<size_t>(log::Criterion::None) + 1; i < log::CRITERIA; ++i) {
        log::CriterionInfo const criterion = log::infoOf(static_cast<log::Criterion>(i));
        std::string name = std::string("refused_") + criterion.name;
        std::replace(name.begin(), name.end(), ' ', '_');
        fields.push_back(
            {std::move(name), Better::Neither, criterion.meaning,
             [i](N numbers) -> FieldValue { return numbers.refusals.byCriterion[i]; }});
    }
}

std::vector<ComparisonField> makeFields() {
    std::vector<ComparisonField> fields = {
        {"captures", Better::Neither, "captures, one for each press", count<&S::captures>},
        {"answered_captures", Better::More, "captures of which every frame was answered",
         count<&S::answeredCaptures>},
        {"frames", Better::Neither, "frames of all captures", count<&S::frames>},
        {"at_once", Better::More, "frames that were chosen when the capture was submitted",
         count<&S::atOnce>},
        {"at_once_percent", Better::More, "the same, of 100 frames", atOncePercent},
        {"waited", Better::Neither, "frames that were chosen on a later try", count<&S::waited>},
        {"timed_out", Better::Less, "frames that were given what was there after the time-out",
         count<&S::timedOut>},
        {"flushed", Better::Less, "frames that a flush turned into ordinary captures",
         count<&S::flushed>},
        {"unanswered", Better::Less, "frames that never came back", count<&S::unanswered>},
        {"without_history", Better::Less, "frames that were answered without a history frame",
         count<&S::withoutHistory>},
        {"min_lag_ms", Better::Neither, "from the press to the start of exposure: the least",
         lag<&base::Spread::min>},
        {"median_lag_ms", Better::Neither, "the median", lag<&base::Spread::median>},
        {"p95_lag_ms", Better::Neither, "the 95th percentile (nearest rank)",
         lag<&base::Spread::p95>},
        {"max_lag_ms", Better::Neither, "the most", lag<&base::Spread::max>},
        {"min_wait_ms", Better::Neither,
         "from the press to the answer, of the answered frames: the least",
         wait<&base::Spread::min>},
        {"median_wait_ms", Better::Less, "the median", wait<&base::Spread::median>},
        {"p95_wait_ms", Better::Less, "the 95th percentile (nearest rank)",
         wait<&base::Spread::p95>},
        {"max_wait_ms", Better::Less, "the most", wait<&base::Spread::max>},
        {"median_distance_ms", Better::Less,
         "from the wanted instant to the start of exposure, before or after: the median",
         distance<&base::Spread::median>},
        {"p95_distance_ms", Better::Less, "the 95th percentile (nearest rank)",
         distance<&base::Spread::p95>},
        {"max_distance_ms", Better::Less, "the most", distance<&base::Spread::max>},
        {"settled_focus", Better::More, "chosen frames whose focus had settled",
         shareCount<&S::focusSettled>},
        {"settled_focus_percent", Better::More, "the same, of 100 that tell it",
         sharePercent<&S::focusSettled>},
        {"settled_exposure", Better::More, "chosen frames whose exposure had settled",
         shareCount<&S::exposureSettled>},
        {"settled_exposure_percent", Better::More, "the same, of 100 that tell it",
         sharePercent<&S::exposureSettled>},
        {"median_exposure_ms", Better::Less, "exposure time of the chosen frames: the median",
         exposure<&base::Spread::median>},
        {"max_exposure_ms", Better::Less, "the most", exposure<&base::Spread::max>},
        {"median_iso", Better::Less, "ISO of the chosen frames: the median",
         iso<&base::Spread::median>},
        {"max_iso", Better::Less, "the most", iso<&base::Spread::max>},
        {"median_sharpness", Better::More, "sharpness of the chosen pictures: the median",
         picture<&run::PictureSummary::medianSharpness>},
        {"median_sharpness_share", Better::More,
         "the same, by the sharpest in the history when it was chosen: the median",
         picture<&run::PictureSummary::medianShare>},
        {"p5_sharpness_share", Better::More, "the 5th percentile (nearest rank)",
         picture<&run::PictureSummary::p5Share>},
        {"below_half_percent", Better::Less,
         "chosen pictures less than half as sharp as the sharpest, of 100", belowHalfPercent},
    };
    addRefusals(fields);
    std::vector<ComparisonField> const rest = {
        {"max_held_ms", Better::Less, "the longest time that a buffer set was out of the history",
         heldNs},
        {"dropped_frames", Better::Neither, "frames that left the history because newer ones came",
         [](N numbers) -> FieldValue { return numbers.droppedFrames; }},
        {"log_errors", Better::Less, "error lines of the processor's log",
         [](N numbers) -> FieldValue { return numbers.errorLines; }},
        {"buffers_out", Better::Less, "buffer sets that were not given back",
         [](N numbers) -> FieldValue {
             return numbers.ledger.withProcessor + numbers.ledger.withFrameBuilder;
         }},
        {"buffers_lost", Better::Less, "buffer sets that are gone without having been given back",
         [](N numbers) -> FieldValue { return numbers.ledger.lost; }},
    };
    fields.insert(fields.end(), rest.begin(), rest.end());
    return fields;
}

}  // namespace

namespace {

constexpr std::string_view kBlanks = " \t";

std::string_view trimmed(std::string_view text) {
    size_t const begin = text.find_first_not_of(kBlanks);
    if (begin == std::string_view::npos) {
        return {};
    }
    return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

}  // namespace

std::span<ComparisonField const> comparisonFields() {
    // Made once and never changed: limits point to their fields.
    static std::vector<ComparisonField> const FIELDS = makeFields();
    return FIELDS;
}

ComparisonField const* findField(std::string_view name) {
    auto const fields = comparisonFields();
    auto const found = std::find_if(fields.begin(), fields.end(),
                                    [name](auto const& field) { return field.name == name; });
    return found != fields.end() ? &*found : nullptr;
}

ComparisonField const& fieldOf(std::string_view name) {
    name = trimmed(name);
    ComparisonField const* const field = findField(name);
    if (field == nullptr) {
        throw std::invalid_argument(fmt::format("expected a field, found {} (zsl list fields){}",
                                                base::quoteContent(name),
                                                base::didYouMean(name, fieldNames())));
    }
    return *field;
}

std::vector<std::string> fieldNames() {
    std::vector<std::string> names;
    for (ComparisonField const& field : comparisonFields()) {
        names.push_back(field.name);
    }
    return names;
}

std::optional<double> asNumber(FieldValue const& value) {
    if (auto const* whole = std::get_if<uint64_t>(&value)) {
        return static_cast<double>(*whole);
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
    // The shortest text that reads back as this number.
    return number ? fmt::format("{}", *number) : "";
}

namespace {

double parseNumber(std::string_view text) {
    double value = 0;
    auto const [end, error] =
        std::from_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed);
    // The format lets nan and infinity through, which no comparison would ever meet.
    if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(value)) {
        throw std::invalid_argument("expected a decimal number after the comparison, found " +
                                    base::quoteContent(text));
    }
    return value;
}

}  // namespace

Limit::Limit(std::string_view text) : mText(trimmed(text)) {
    std::string_view const whole = mText;
    size_t const at = whole.find_first_of("<>=!");
    std::string_view rest = at == std::string_view::npos ? "" : whole.substr(at);
    std::string_view const name = whole.substr(0, at);
    // The longer ones first: each begins like a shorter one.
    for (auto const& [sign, comparison] :
         {std::pair{"<=", Comparison::LessEqual}, std::pair{">=", Comparison::GreaterEqual},
          std::pair{"==", Comparison::Equal}, std::pair{"!=", Comparison::Unequal},
          std::pair{"<", Comparison::Less}, std::pair{">", Comparison::Greater}}) {
        if (rest.starts_with(sign)) {
            mField = &fieldOf(name);
            mComparison = comparison;
            rest.remove_prefix(std::string_view(sign).size());
            mNumber = parseNumber(trimmed(rest));
            return;
        }
    }
    throw std::invalid_argument(
        "expected a field, one of < <= > >= == != and a number, as p95_lag_ms>50, found " +
        base::quoteContent(text));
}

bool Limit::holds(double value) const {
    switch (mComparison) {
        case Comparison::Less:
            return value < mNumber;
        case Comparison::LessEqual:
            return value <= mNumber;
        case Comparison::Greater:
            return value > mNumber;
        case Comparison::GreaterEqual:
            return value >= mNumber;
        case Comparison::Equal:
            return value == mNumber;
        case Comparison::Unequal:
            break;
    }
    return value != mNumber;
}

run::LimitCheck Limit::check(RunNumbers const& numbers) const {
    std::optional<double> const number = asNumber(mField->value(numbers));
    return {mText, mField->name, number, !number || holds(*number)};
}

std::optional<std::string> Limit::brokenBy(RunNumbers const& numbers) const {
    run::LimitCheck const found = check(numbers);
    return found.isBroken ? std::optional(found.text()) : std::nullopt;
}

}  // namespace zebcam::tool::compare
