#include "Calls.h"

#include <algorithm>
#include <string>

#include "RecordedBuilder.h"

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
    try {
        name = selector.getName();
    } catch (...) {
        out.byte(2);
        out.text(currentExceptionText());
        return;
    }
    out.byte(name != nullptr ? 1 : 0);
    out.text(name != nullptr ? name : "");
}

void putFrame(Tape& tape, policy::RequestResultParams const* params,
              NSPipelineContext::IFrameBuilder const* builder) {
    Encoder& out = tape.out();
    out.number((params != nullptr ? flag::HAS_RESULT_PARAMS : 0) |
               (builder != nullptr ? flag::HAS_BUILDER : 0));
    if (params != nullptr) {
        putIds(out, params->required.halImages);
        putIds(out, params->required.halMetas);
        putIds(out, params->required.appMetas);
    }
    if (builder != nullptr) {
        out.number(builder->getFrameType());
        MetaBuffers controls;
        builder->getAppMetaStreamBuffers(controls);
        tape.describer().metaBuffers(out, controls);
        controls.clear();
        builder->getHalMetaStreamBuffers(controls);
        tape.describer().metaBuffers(out, controls);
    }
}

/// The sensors' modes, and of which sensors they are required.
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

void putDone(Tape& tape, uint64_t flags) {
    tape.item(Item::DONE);
    tape.clock();
    tape.out().number(flags);
}

}  // namespace

void putConfiguration(Tape& tape, ZslConfigParams const& params) {
    Encoder& out = tape.out();
    out.byte(params.pCallback.promote() != nullptr ? 1 : 0);
    auto const* const sensors = params.pParsedStreamInfo_P1;
    out.number(sensors != nullptr ? sensors->size() + 1 : 0);
    if (sensors == nullptr) {
        return;
    }
    // In the map's own order, for the first sensor's streams carry the early shutter.
    for (auto const& [sensorId, streams] : *sensors) {
        out.number(sensorId);
        tape.describer().optionalStream(out, streams.pHalMeta_Control.get());
        tape.describer().optionalStream(out, streams.pHalMeta_DynamicP1.get());
        tape.describer().optionalStream(out, streams.pAppMeta_DynamicP1.get());
        for (auto const& image : {streams.pHalImage_FullRaw, streams.pHalImage_ResizedRaw,
                                  streams.pHalImage_ScaledYuv, streams.pHalImage_FaceYuv,
                                  streams.pHalImage_ShadingStats, streams.pHalImage_MotionStats,
                                  streams.pHalImage_DepthStats, streams.pHalImage_FlickerStats}) {
            tape.describer().optionalStream(out, image.get());
        }
    }
}

void putSubmission(Tape& tape, ZslRequestParams const& params, bool callbackLives,
                   uint64_t provider) {
    Encoder& out = tape.out();
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
    out.number(params.vFrameBuilder.size());
    for (size_t i = 0; i < params.vFrameBuilder.size(); ++i) {
        putFrame(tape, i < params.vReqResult.size() ? params.vReqResult[i].get() : nullptr,
                 params.vFrameBuilder[i].get());
    }
}

void putResult(Tape& tape, unsigned int requestNo, Result const& result) {
    Encoder& out = tape.out();
    out.number(requestNo);
    out.number(result.requestNo);
    out.number(result.nAppOutMetaLeft);
    out.number(result.nHalOutMetaLeft);
    out.byte(result.isFrameEnd ? 1 : 0);
    out.number(result.outputAppMetas.size());
    for (auto const& buffer : result.outputAppMetas) {
        tape.describer().optionalStream(out, buffer != nullptr ? buffer->getStreamInfo() : nullptr);
        int64_t ns = 0;
        bool const hasTimestamp = readSensorTimestamp(buffer, ns);
        out.byte(hasTimestamp ? 1 : 0);
        if (hasTimestamp) {
            out.signedNumber(ns);
        }
    }
}

void putTimestampsLeft(Tape& tape, Result const& result) {
    tape.item(Item::RESULT_LEFT);
    tape.out().number(result.outputAppMetas.size());
    for (auto const& buffer : result.outputAppMetas) {
        int64_t ns = 0;
        tape.out().byte(readSensorTimestamp(buffer, ns) ? 1 : 0);
    }
}

void putStatus(Tape& tape, int status) {
    putDone(tape, 0);
    tape.out().signedNumber(status);
}

void putFailure(Tape& tape, std::string_view text) {
    putDone(tape, flag::HAS_THROWN);
    tape.out().text(text);
}

void putBuilders(Tape& tape, ZslFrameBuilders const& lists) {
    putDone(tape, 0);
    tape.out().number(lists.size());
    for (auto const& list : lists) {
        tape.out().number(list.size());
        for (auto const& builder : list) {
            auto const* const recorded = dynamic_cast<RecordedBuilder const*>(builder.get());
            tape.out().number(recorded != nullptr ? recorded->number() + 1 : 0);
        }
    }
}

}  // namespace NSCam::v3::pipeline::model::record
