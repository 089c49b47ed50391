#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "log/Explanation.h"
#include "log/ProcessorLine.h"

namespace zebcam::tool::log {

/**
 * Joins the lines that lead to the verdict on one history frame: values, streams, the criterion.
 * They name no capture and come before the line that does.
 */
class Reasons {
public:
    void add(line::SensorModes const& modes);
    void add(line::MissingTag const& missing);
    void add(line::TagValue const& value);
    void add(line::FailedStream const& stream);
    void add(line::FocusLetPass const& focus);
    void add(line::Refusal const& refusal);

    /// What is known of the frame that the verdict is on; forgets it.
    Candidate take(uint32_t frameNo, bool isTaken);

    /// Refused frames whose verdicts never came.
    std::vector<Candidate> takeRest();

private:
    std::vector<Candidate> mRefused;
    std::vector<std::string> mNotes;
    std::string mStreams, mWanted, mFound;
    std::string mLastValue;
};

/// `streams` as `image 21, HAL 60000, app 50000`.
std::string textOf(StreamList const& streams);

/// The streams of `wanted` that `found` lacks.
StreamList missingFrom(StreamList const& found, StreamList const& wanted);

}  // namespace zebcam::tool::log
