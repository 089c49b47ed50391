#include "log/Reasons.h"

#include <fmt/format.h>
#include <metadata/MetadataTags.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>
#include <utility>

#include "base/Text.h"

namespace zebcam::tool::log {

namespace {

using Kind = ProcessorLine::Kind;

void append(std::string& list, std::string_view text) {
    list += list.empty() ? "" : ", ";
    list += text;
}

/// `[0] = 3,[1] = 2,` as `sensor 0 in mode 3, sensor 1 in mode 2`; what is no such list as it is.
std::string modesText(std::string_view list) {
    if (list.empty()) {
        return "none";
    }
    std::string text;
    for (std::string_view rest = list; !rest.empty();) {
        uint32_t sensor = 0;
        int64_t mode = 0;
        base::FormFields const fields = {{"sensor", &sensor}, {"mode", &mode}, {"rest", &rest}};
        if (!base::match(rest, "[<sensor>] = <mode>,<rest>", fields)) {
            return std::string(list);
        }
        append(text, fmt::format("sensor {} in mode {}", sensor, mode));
    }
    return text;
}

/// The tags that criteria read, by number.
#define TAG(name) std::pair<uint32_t, std::string_view>(NSCam::name, #name)
constexpr std::array kTags = {TAG(ANDROID_CONTROL_AF_MODE), TAG(ANDROID_CONTROL_AF_STATE),
                              TAG(ANDROID_LENS_STATE),      TAG(ZEB_HAL_REQUEST_SENSOR_ID),
                              TAG(ZEB_P1NODE_PURE_RAW),     TAG(ZEB_P1NODE_SENSOR_MODE),
                              TAG(ZEB_3A_AE_SOFT_STABLE),   TAG(ZEB_FRAME_SYNC_RESULT)};
#undef TAG

/// Some lines name the tag, others have its number in hex.
std::string_view tagName(std::string_view text) {
    uint32_t number = 0;
    std::string_view const digits = text.substr(text.starts_with("0x") ? 2 : 0);
    std::from_chars(digits.data(), digits.data() + digits.size(), number, 16);
    auto const tag = std::find_if(kTags.begin(), kTags.end(),
                                  [number](auto const& each) { return each.first == number; });
    return text.starts_with("0x") && tag != kTags.end() ? tag->second : text;
}

template <size_t N>
std::string nameOr(std::array<char const*, N> const& names, uint64_t value) {
    return value < N ? names[value] : std::to_string(value);
}

/// `afMode=4 afState=1 lensState=1` in the words of Android's documentation.
std::string focusText(std::string_view text) {
    constexpr std::array MODES{"off", "auto", "macro", "continuous video", "continuous picture",
                               "EDOF"};
    constexpr std::array STATES{"inactive",         "passive scan",   "passive focused",
                                "active scan",      "focused locked", "not focused locked",
                                "passive unfocused"};
    constexpr std::array LENS{"stationary", "moving"};
    uint64_t mode = 0;
    uint64_t state = 0;
    uint64_t lens = 0;
    if (!base::match(text, "afMode=<mode> afState=<state> lensState=<lens>",
                     {{"mode", &mode}, {"state", &state}, {"lens", &lens}})) {
        return std::string(text);
    }
    return fmt::format("AF mode {}, AF state {}, lens {}", nameOr(MODES, mode),
                       nameOr(STATES, state), nameOr(LENS, lens));
}

/// None for a list of values, and where a tag is missing.
std::optional<int64_t> numberIn(std::string_view text) {
    int64_t number = 0;
    bool const isWhole = base::match(text, "<number>", {{"number", &number}});
    return isWhole ? std::optional(number) : std::nullopt;
}

Criterion criterionOf(std::string_view function) {
    for (size_t i = 0; i < CRITERIA; ++i) {
        char const* const known = infoOf(static_cast<Criterion>(i)).function;
        if (known != nullptr && known == function) {
            return static_cast<Criterion>(i);
        }
    }
    return Criterion::Unknown;
}

/// A policy's own criterion is one of ours if it is called so.
Criterion criterionNamed(std::string_view name) {
    for (size_t i = 0; i < CRITERIA; ++i) {
        auto const criterion = static_cast<Criterion>(i);
        if (criterion != Criterion::None && name == infoOf(criterion).name) {
            return criterion;
        }
    }
    return Criterion::Unknown;
}

}  // namespace

Candidate candidateOf(ProcessorLine const& rejected) {
    Candidate frame;
    frame.frameNo = rejected.frameNo;
    frame.criterion = criterionNamed(rejected.function);
    frame.found = rejected.found;
    if (frame.criterion == Criterion::Unknown) {
        frame.unknownCriterion = rejected.function;
    }
    return frame;
}

bool Reasons::add(ProcessorLine const& line) {
    switch (line.kind) {
        case Kind::SensorModes:
            mNext.wanted = modesText(line.wanted);
            mNext.found = modesText(line.found);
            return true;
        case Kind::MissingTag:
            mNext.found = fmt::format("no tag {}", tagName(line.name));
            return true;
        case Kind::AssumedGood:
            mNext.notes.push_back(fmt::format("no tag {}, taken as good", tagName(line.name)));
            return true;
        case Kind::TagValue:
            // Every value that is looked at has a line; only that of a stream that fails matters.
            mLastValue = line.found;
            return true;
        case Kind::FailedStream:
            append(mNext.stream, line.name);
            if (!mLastValue.empty()) {
                append(mNext.found, std::exchange(mLastValue, {}));
            }
            return true;
        case Kind::FocusLetPass:
            mNext.notes.push_back(
                fmt::format("unsettled focus let pass: {}", focusText(line.found)));
            return true;
        case Kind::TimeRefusal:
        case Kind::Refusal:
            refuse(line);
            return true;
        default:
            return false;
    }
}

void Reasons::refuse(ProcessorLine const& line) {
    Candidate frame = std::exchange(mNext, {});
    frame.frameNo = line.frameNo;
    if (line.kind == Kind::TimeRefusal) {
        frame.criterion = Criterion::Time;
        frame.wanted = fmt::format(">= {} ns", line.zsdTimestampNs);
        frame.found = fmt::format("{} ns ({} ms)", line.timestampNs, line.ageMs);
        frame.wantedNumber = line.zsdTimestampNs;
        frame.foundNumber = line.timestampNs;
    } else {
        frame.criterion = criterionOf(line.function);
        if (frame.criterion == Criterion::Unknown) {
            frame.unknownCriterion = line.function;
        } else if (char const* const wanted = infoOf(frame.criterion).wanted) {
            frame.wanted = wanted;
            frame.wantedNumber = numberIn(wanted);
            frame.foundNumber = frame.wantedNumber ? numberIn(frame.found) : std::nullopt;
        }
    }
    mRefused.push_back(std::move(frame));
}

Candidate Reasons::take(uint32_t frameNo, bool isTaken) {
    Candidate frame;
    auto const refused = std::find_if(mRefused.begin(), mRefused.end(), [&](auto const& candidate) {
        return candidate.frameNo == frameNo;
    });
    if (!isTaken && refused != mRefused.end()) {
        frame = std::move(*refused);
        mRefused.erase(refused);
    } else {
        // A reason that names no frame may be another one's; notes are worth the risk.
        frame.criterion = isTaken ? Criterion::None : Criterion::Unknown;
        frame.notes = std::move(mNext.notes);
    }
    frame.frameNo = frameNo;
    frame.verdict = isTaken ? Verdict::Taken : Verdict::Refused;
    return frame;
}

std::vector<Candidate> Reasons::takeRest() {
    std::vector<Candidate> rest = std::move(mRefused);
    *this = {};
    return rest;
}

}  // namespace zebcam::tool::log
