#pragma once

#include <cstdint>
#include <string>

#include "ZslProcessor.h"

/// Textual forms of the records, for log lines and dumps. They take no lock.

namespace NSCam::v3::pipeline::NSPipelineContext {

/// For instance `{ F12 R10 Ts1000 halImage{ 10000000a } halMeta{ } appMeta{ } }`.
std::string toString(HistoryBufferSet const& set);

}  // namespace NSCam::v3::pipeline::NSPipelineContext

namespace NSCam::v3::pipeline::model {

/// "MAIN", "SUB" and so on; "?" for an unknown type.
char const* frameTypeName(uint32_t frameType);

/// With a line for each frame still to serve.
std::string toString(ZslProcessor::ZslReqObject const& req);

std::string toString(ZslProcessor::BuildFrameParams const& params);

}  // namespace NSCam::v3::pipeline::model
