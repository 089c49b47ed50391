#pragma once

#include <IZslProcessor.h>

#include <cstdint>
#include <string_view>

#include "Tape.h"

/// What goes into the operations and comes out of them, written down.
namespace NSCam::v3::pipeline::model::record {

using Result = IPipelineBufferSetFrameControl::IAppCallback::Result;

void putConfiguration(Tape& tape, ZslConfigParams const& params);

/// `provider` is the number of the submission's provider, if it has one.
void putSubmission(Tape& tape, ZslRequestParams const& params, bool callbackLives,
                   uint64_t provider);

void putResult(Tape& tape, unsigned int requestNo, Result const& result);
/// Which application metadata have a sensor timestamp after the operation.
void putTimestampsLeft(Tape& tape, Result const& result);

// How an operation ended
void putStatus(Tape& tape, int status);
void putFailure(Tape& tape, std::string_view text);
void putBuilders(Tape& tape, ZslFrameBuilders const& lists);

}  // namespace NSCam::v3::pipeline::model::record
