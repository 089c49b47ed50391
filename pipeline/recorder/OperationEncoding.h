#pragma once

#include <IZslProcessor.h>

#include <cstdint>
#include <string_view>

#include "RecordingSession.h"

/// Writes down what goes into the operations and comes out of them: the calls and the DONE of the
/// format. For use within RecordingSession::note.
namespace NSCam::v3::pipeline::model::record {

using Result = IPipelineBufferSetFrameControl::IAppCallback::Result;

void putConfiguration(RecordingSession& session, ZslConfigParams const& params);

/// `provider` is the number of the submission's provider, if it has one.
void putSubmission(RecordingSession& session, ZslRequestParams const& params, bool callbackLives,
                   uint64_t provider);

void putResult(RecordingSession& session, unsigned int requestNo, Result const& result);
/// Which application metadata have a sensor timestamp after the operation.
void putTimestampsLeft(RecordingSession& session, Result const& result);

// How an operation ended
void putStatus(RecordingSession& session, int status);
void putFailure(RecordingSession& session, std::string_view text);
void putBuilders(RecordingSession& session, ZslFrameBuilders const& lists);

}  // namespace NSCam::v3::pipeline::model::record
