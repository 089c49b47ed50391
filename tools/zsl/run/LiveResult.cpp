#include "run/LiveResult.h"

namespace zebcam::tool::run {

bool LiveResult::isClean() const {
    using End = NSCam::v3::pipeline::model::ZslRecordingEnd;
    return status.captures.answeredCaptures == status.captures.captures &&
           status.ledger.balances() && failures.empty() &&
           (!recorder || recorder->end == End::FINISHED);
}

}  // namespace zebcam::tool::run
