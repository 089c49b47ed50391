#include "OperationEncoding.h"

#include <string>

#include "RecordingProxies.h"

namespace NSCam::v3::pipeline::model::record {

namespace {

void putIds(Encoder& out, std::set<int64_t> const& ids) {
    out.number(ids.size());
    for (int64_t const id : ids) {
        out.signedNumber(id);
    }
}

/// The name that the policy gives itself; that it gives none or throws is told too.
void putName(Encoder& out, ZslPolicy::ISelector const& selector) {
    char const* name = nullptr;
    try {  // one more call of the caller's code: what it throws here it throws to the processor
        name = selector.getName();
    } catch (...) {
        out.tag(SelectorName::THROWN);
        out.text(currentExceptionText());
        return;
    }
    out.tag(name != nullptr ? SelectorName::GIVEN : SelectorName::NONE);
    out.text(name != nullptr ? name : "");
}

void putFrame(RecordingSession& session, policy::RequestResultParams const* params,
              NSPipelineContext::IFrameBuilder const* builder) {
    Encoder& out = session.out();
    out.number((params != nullptr ? flag::HAS_RESULT_PARAMS : 0) |
               (builder != nullptr ? flag::HAS_BUILDER : 0));
    if (params != nullptr) {
        putIds(out, params->required.halImages);
        putIds(out, params->required.halMetas);
        putIds(out, params->required.appMetas);
    }
    if (builder != nullptr) {
        out.number(builder->getFrameType());
        // The request's own settings, on which history's metadata is merged.
        MetaBuffers controls;
        builder->getAppMetaStreamBuffers(controls);
        session.buffers().metaBuffers(out, controls);
        controls.clear();
        builder->getHalMetaStreamBuffers(controls);
        session.buffers().metaBuffers(out, controls);
    }
}

/// The sensors' modes, and of which sensors they are required. No list is an empty one: the
/// processor makes no difference.
void putSensors(Encoder& out, ZslRequestParams const& params) {
    size_t const modes = params.pStreamIdMap != nullptr ? params.pStreamIdMap->size() : 0;
    out.number(modes);
    if (modes > 0) {
        for (auto const& [sensorId, mode] : *params.pStreamIdMap) {
            out.number(sensorId);
            out.number(mode);
        }
    }
    size_t const sensors =
        params.pvRequiredSensorIds != nullptr ? params.pvRequiredSensorIds->size() : 0;
    out.number(sensors);
    for (size_t i = 0; i < sensors; ++i) {
        out.number((*params.pvRequiredSensorIds)[i]);
    }
}

void putDone(RecordingSession& session, uint64_t flags) {
    session.item(
        Item::DONE);  // the clock after it ends the time in which the processor read its own
    session.clock();
    session.out().number(flags);
}

}  // namespace

void putConfiguration(RecordingSession& session, ZslConfigParams const& params) {
    Encoder& out = session.out();
    out.flag(params.pCallback.promote() != nullptr);
    auto const* const sensors = params.pParsedStreamInfo_P1;
    out.number(sensors != nullptr ? sensors->size() + 1 : 0);
    if (sensors == nullptr) {
        return;
    }
    // In the map's own order, for the first sensor's streams carry the early shutter.
    for (auto const& [sensorId, streams] : *sensors) {
        out.number(sensorId);
        session.buffers().optionalStream(out, streams.pHalMeta_Control.get());
        session.buffers().optionalStream(out, streams.pHalMeta_DynamicP1.get());
        session.buffers().optionalStream(out, streams.pAppMeta_DynamicP1.get());
        for (auto const& image : {streams.pHalImage_FullRaw, streams.pHalImage_ResizedRaw,
                                  streams.pHalImage_ScaledYuv, streams.pHalImage_FaceYuv,
                                  streams.pHalImage_ShadingStats, streams.pHalImage_MotionStats,
                                  streams.pHalImage_DepthStats, streams.pHalImage_FlickerStats}) {
            session.buffers().optionalStream(out, image.get());
        }
    }
}

void putSubmission(RecordingSession& session, ZslRequestParams const& params, bool callbackLives,
                   uint64_t provider) {
    Encoder& out = session.out();
    out.number(params.requestNo);
    out.number((params.pPolicyParams != nullptr ? flag::HAS_POLICY : 0) |
               (params.pSelector != nullptr ? flag::HAS_SELECTOR : 0) |
               (params.checkPureRaw ? flag::CHECKS_PURE_RAW : 0) |
               (params.needFrameSync ? flag::NEEDS_FRAME_SYNC : 0) |
               (params.pHistoryBufferProvider != nullptr ? flag::HAS_PROVIDER : 0) |
               (callbackLives ? flag::CALLBACK_LIVES : 0));
    if (params.pPolicyParams != nullptr) {
        out.number(params.pPolicyParams->policy);
        out.signedNumber(params.pPolicyParams->timeoutMs);
    }
    if (params.pSelector != nullptr) {
        putName(out, *params.pSelector);
    }
    if (params.pHistoryBufferProvider != nullptr) {
        out.number(provider);
    }
    putSensors(out, params);
    // A frame is a builder; settings beyond the last one mean nothing to the processor.
    out.number(params.vFrameBuilder.size());
    for (size_t i = 0; i < params.vFrameBuilder.size(); ++i) {
        putFrame(session, i < params.vReqResult.size() ? params.vReqResult[i].get() : nullptr,
                 params.vFrameBuilder[i].get());
    }
}

void putResult(RecordingSession& session, unsigned int requestNo, Result const& result) {
    Encoder& out = session.out();
    out.number(requestNo);
    out.number(result.requestNo);
    out.number(result.nAppOutMetaLeft);
    out.number(result.nHalOutMetaLeft);
    out.flag(result.isFrameEnd);
    out.number(result.outputAppMetas.size());
    for (auto const& buffer : result.outputAppMetas) {
        session.buffers().optionalStream(out,
                                         buffer != nullptr ? buffer->getStreamInfo() : nullptr);
        int64_t ns = 0;
        bool const hasTimestamp = readSensorTimestamp(buffer, ns);
        out.flag(hasTimestamp);
        if (hasTimestamp) {
            out.signedNumber(ns);
        }
    }
}

void putTimestampsLeft(RecordingSession& session, Result const& result) {
    // The processor removes some: whether it did is a decision like any other.
    session.item(Item::RESULT_LEFT);
    session.out().number(result.outputAppMetas.size());
    for (auto const& buffer : result.outputAppMetas) {
        int64_t ns = 0;
        session.out().flag(readSensorTimestamp(buffer, ns));
    }
}

void putStatus(RecordingSession& session, int status) {
    putDone(session, 0);
    session.out().signedNumber(status);
}

void putFailure(RecordingSession& session, std::string_view text) {
    putDone(session, flag::HAS_THROWN);
    session.out().text(text);
}

void putBuilders(RecordingSession& session, ZslFrameBuilders const& lists) {
    putDone(session, 0);
    session.out().number(lists.size());
    for (auto const& list : lists) {
        session.out().number(list.size());
        for (auto const& builder : list) {
            // A builder that the recorder never saw came in while nothing was recorded.
            auto const* const recorded = dynamic_cast<RecordingBuilder const*>(builder.get());
            session.out().number(recorded != nullptr ? recorded->number() + 1 : 0);
        }
    }
}

}  // namespace NSCam::v3::pipeline::model::record
