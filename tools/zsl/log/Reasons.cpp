#include "log/Reasons.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <utility>

namespace zebcam::tool::log {

namespace {

void append(std::string& list, std::string_view text) {
    list += list.empty() ? "" : ", ";
    list += text;
}

/// Lists of sensor modes end with a comma.
std::string_view modesText(std::string_view list) {
    return list.empty() ? "none" : list.substr(0, list.size() - (list.ends_with(',') ? 1 : 0));
}

std::vector<std::string> missingFrom(std::vector<std::string> const& found,
                                     std::vector<std::string> const& wanted) {
    std::vector<std::string> missing;
    std::copy_if(wanted.begin(), wanted.end(), std::back_inserter(missing), [&](auto const& id) {
        return std::find(found.begin(), found.end(), id) == found.end();
    });
    return missing;
}

}  // namespace

void Reasons::add(line::SensorModes const& modes) {
    mWanted = modesText(modes.required);
    mFound = modesText(modes.history);
}

void Reasons::add(line::MissingTag const& missing) {
    if (missing.criterion.empty()) {
        mFound = fmt::format("no tag {}", missing.tag);
    } else {
        mNotes.push_back(
            fmt::format("{}: no tag {}, taken as good", missing.criterion, missing.tag));
    }
}

void Reasons::add(line::TagValue const& value) {
    mLastValue = value.value;
}

void Reasons::add(line::FailedStream const& stream) {
    append(mStreams, stream.name);
    if (!mLastValue.empty()) {
        append(mFound, std::exchange(mLastValue, {}));
    }
}

void Reasons::add(line::FocusLetPass const& focus) {
    mNotes.push_back(fmt::format("unsettled focus let pass: {}", focus.state));
}

void Reasons::add(line::Refusal const& refusal) {
    Candidate frame;
    frame.frameNo = refusal.frameNo;
    frame.criterion = refusal.criterion;
    frame.wanted = std::exchange(mWanted, {});
    frame.found = std::exchange(mFound, {});
    frame.stream = std::exchange(mStreams, {});
    frame.notes = std::exchange(mNotes, {});
    switch (refusal.criterion) {
        case Criterion::Time:
            frame.wanted = fmt::format(">= {} ns", refusal.zsdTimestampNs);
            frame.found = fmt::format("{} ns ({} ms)", refusal.timestampNs, refusal.delayMs);
            break;
        case Criterion::Focus:
            frame.wanted = "AF mode, AF state and lens state";
            break;
        case Criterion::Exposure:
            frame.wanted = "1";
            break;
        case Criterion::FrameSync:
            frame.wanted = "0";
            break;
        default:
            break;
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
        frame.criterion = isTaken ? Criterion::None : Criterion::Unknown;
        frame.notes = mNotes;
    }
    frame.frameNo = frameNo;
    frame.verdict = isTaken ? Verdict::Taken : Verdict::Refused;
    std::vector<Candidate> rest = std::move(mRefused);
    *this = {};
    mRefused = std::move(rest);
    return frame;
}

std::vector<Candidate> Reasons::takeRest() {
    std::vector<Candidate> rest = std::move(mRefused);
    *this = {};
    return rest;
}

std::string textOf(StreamList const& streams) {
    std::string text;
    for (auto const& [name, ids] : {std::pair{"image", &streams.halImages},
                                    {"HAL", &streams.halMetas},
                                    {"app", &streams.appMetas}}) {
        for (std::string const& id : *ids) {
            append(text, fmt::format("{} {}", name, id));
        }
    }
    return text;
}

StreamList missingFrom(StreamList const& found, StreamList const& wanted) {
    return {missingFrom(found.halImages, wanted.halImages),
            missingFrom(found.halMetas, wanted.halMetas),
            missingFrom(found.appMetas, wanted.appMetas)};
}

}  // namespace zebcam::tool::log
