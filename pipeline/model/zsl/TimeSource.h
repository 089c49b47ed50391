#pragma once

#include <cstdint>

namespace NSCam::v3::pipeline::model {

/// The timestamp source of the sensor opened under `openId`, from its static characteristics: 1
/// (REALTIME, boot-time clock) or 0 (UNKNOWN, monotonic clock). REALTIME, with a warning, when the
/// characteristics do not tell.
uint8_t getTimeSource(int openId);

}  // namespace NSCam::v3::pipeline::model
