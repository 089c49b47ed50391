#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "log/Explanation.h"
#include "log/ProcessorLine.h"

namespace zebcam::tool::log {

/// What a library's policy says of a frame in one line.
Candidate candidateOf(ProcessorLine const& rejected);

/**
 * Joins the lines that lead to the verdict on one history frame: values, streams, the criterion.
 * They name no capture and come before the line that does. A refusal names its frame; what came
 * since the last one belongs to it.
 */
class Reasons {
public:
    /// False: the line is of another kind.
    bool add(ProcessorLine const& line);

    /// What is known of the frame that the verdict is on. Call takeRest() before the next line.
    Candidate take(uint32_t frameNo, bool isTaken);

    /// Refused frames whose verdicts never came; forgets everything, also what was let pass.
    std::vector<Candidate> takeRest();

private:
    void refuse(ProcessorLine const& line);

    Candidate mNext;
    std::string mLastValue;
    std::vector<Candidate> mRefused;
};

}  // namespace zebcam::tool::log
