#pragma once

#include <pipeline/IFrameBuilder.h>
#include <pipeline/IHistoryBufferProvider.h>
#include <policy/zsl/ISelector.h>

#include <cstdint>
#include <map>
#include <string>

/// One-line textual forms of the records, for log lines and dumps. They take no lock.

namespace NSCam::v3::pipeline::NSPipelineContext {

/// For instance `{ F12 R10 Ts1000 halImage{ 10000000a } halMeta{ } appMeta{ } }`.
std::string toString(HistoryBufferSet const& set);

}  // namespace NSCam::v3::pipeline::NSPipelineContext

namespace NSCam::v3::pipeline::model {

/// "MAIN", "SUB" and so on; "?" for an unknown type.
char const* frameTypeName(uint32_t frameType);

/// A selection in the form of a SelectOutputParams.
std::string toString(std::map<uint64_t, ZslPolicy::ISelector::ZslFrameResult> const& selected,
                     std::map<uint32_t, ZslPolicy::ISelector::SelectOutputParams::OpT> const& ops);

}  // namespace NSCam::v3::pipeline::model
