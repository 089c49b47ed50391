#pragma once

#include <policy/zsl/ISelector.h>

#include <cstddef>
#include <memory>

#include "pipeline/FaultInjector.h"

namespace zebcam::tool::pipeline {

/// The policy that a capture gets instead of its own; empty for PolicyFault::None.
///
/// One throws whenever it is asked. The other answers nonsense, each time another:
/// frames that do not exist, one frame for several indices, a frame that it also lets go, orders on
/// frames that it does not have, a frame that is in flight and may never come, or it keeps every
/// frame that it sees. It names only indices that it was asked for, because any other ends the
/// process.
std::shared_ptr<NSCam::ZslPolicy::ISelector> makeFaultySelector(
    PolicyFault fault, size_t capture, std::shared_ptr<FaultInjector const> injector);

}  // namespace zebcam::tool::pipeline
