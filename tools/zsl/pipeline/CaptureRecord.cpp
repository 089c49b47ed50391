#include "pipeline/CaptureRecord.h"

#include <algorithm>

namespace zebcam::tool::pipeline {

char const* toString(Served served) {
    switch (served) {
        case Served::AtOnce:
            return "at once";
        case Served::Waited:
            return "waited";
        case Served::TimedOut:
            return "timed out";
        case Served::Flushed:
            return "flushed";
        case Served::Unanswered:
            break;
    }
    return "unanswered";
}

bool CaptureRecord::isAnswered() const {
    return std::none_of(frames.begin(), frames.end(), [](FrameOutcome const& frame) {
        return frame.served == Served::Unanswered;
    });
}

std::optional<int64_t> CaptureRecord::lagNs(FrameOutcome const& frame) const {
    return frame.timestampNs ? std::optional(*frame.timestampNs - pressNs) : std::nullopt;
}

std::optional<int64_t> CaptureRecord::waitNs(FrameOutcome const& frame) const {
    return frame.answeredNs ? std::optional(*frame.answeredNs - pressNs) : std::nullopt;
}

}  // namespace zebcam::tool::pipeline
