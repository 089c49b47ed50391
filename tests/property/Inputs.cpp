#include <cmath>
#include <limits>
#include <tuple>

#include "Given.h"

/// The captures and sensor frames of a world, with their faults.
namespace zebcam::test {
namespace {

constexpr int64_t ABSURD_TIME = std::numeric_limits<int64_t>::max();

void strike(ExposedFrame& frame, Fault fault) {
    if (fault == Fault::ImageError) {
        frame.hasImageError = true;
    } else if (fault == Fault::MissingImage) {
        frame.images.erase(RAW);
    } else if (fault == Fault::MissingMeta) {
        frame.metas.erase(frame.frameNo % 2 == 0 ? HAL : APP);
    } else if (fault == Fault::MissingTags) {
        for (auto& [stream, metadata] : frame.metas) {
            metadata.clear();
        }
    } else if (fault == Fault::AbsurdTags) {
        frame.tag<int64_t>(HAL, ZEB_HAL_REQUEST_SENSOR_ID, ABSURD_TIME);
        frame.tag<double>(HAL, ZEB_P1NODE_SENSOR_MODE, -1e300);
        frame.tag<float>(HAL, ZEB_FRAME_SYNC_RESULT, NAN);
        frame.focus(255, 255, 255);
    } else if (fault == Fault::AbsurdTime) {
        frame.timestamp = frame.frameNo % 2 == 0 ? ABSURD_TIME : -ABSURD_TIME;
    } else if (fault == Fault::UnlockableMeta) {
        frame.metas[EXTRA_HAL];
        frame.metas[EXTRA_APP];
        frame.unlockable = {EXTRA_HAL, EXTRA_APP};
    }
}

}  // namespace

Capture World::makeCapture(Event const& event, Press& press) {
    CaptureSpec const& spec = event.capture;
    std::vector<uint32_t> types(spec.required.size(), FRAME_TYPE_MAIN);
    if (has(event.faults, Fault::DummyFrame)) {
        types.back() = FRAME_TYPE_POSTDUMMY;
    }
    Capture capture = captureOf(press.requestNo, types);
    capture.params.checkPureRaw = spec.checkPureRaw;
    capture.params.needFrameSync = spec.frameSync;
    if (has(event.faults, Fault::NoProvider)) {
        capture.params.pHistoryBufferProvider = nullptr;
    }
    if (spec.policy == Policy::Given) {
        capture.by(std::make_shared<Given>(*this, press, event.faults));
    } else if (spec.policy != Policy::Default) {
        capture.policy(spec.policy == Policy::CShot ? ZslPolicy::POLICY_CONTINUOUS_SHOT
                                                    : ZslPolicy::POLICY_MULTIFRAME_BIT,
                       spec.timeoutMs);
    }
    if (spec.sensorMode != 0) {
        capture.sensorMode(0, spec.sensorMode - 1);
    }
    for (size_t i = 0; i < spec.required.size(); ++i) {
        prepareFrame(event, i, capture, press);
    }
    return capture;
}

ZslPolicy::RequiredStreams World::requiredOf(uint32_t bits) {
    ZslPolicy::RequiredStreams required;
    for (auto const& [bit, ids, id] : {std::tuple{1U, &required.halImages, RAW},
                                       {2U, &required.halImages, YUV},
                                       {4U, &required.halMetas, HAL},
                                       {8U, &required.appMetas, APP}}) {
        if ((bits & bit) != 0) {
            ids->insert(id);
        }
    }
    return required;
}

/// Faults of frames hit the last one.
void World::prepareFrame(Event const& event, size_t index, Capture& capture, Press& press) {
    ZslPolicy::RequiredStreams required = requiredOf(event.capture.required[index]);
    bool const isLast = index + 1 == event.capture.required.size();
    auto const fails = [&](Fault fault) { return isLast && has(event.faults, fault); };
    auto& settings = capture.params.vReqResult[index];
    settings->required = required;
    if (fails(Fault::NoSettings)) {
        settings = nullptr;
        required = {};
    }
    if (fails(Fault::NoBuilder)) {
        capture.params.vFrameBuilder[index] = nullptr;
        press.hasFrameWithoutBuilder = true;
        return;
    }
    auto const& builder = capture.frames[index];
    if (fails(Fault::UnlockableControl)) {
        auto const control = metaBuffer(EXTRA_CONTROL);
        control->setLockable(false);
        builder->setHalMetaStreamBuffer(EXTRA_CONTROL, control);
    }
    mAllBuilders.push_back(builder);
    if (!fails(Fault::DummyFrame)) {
        mOwners[builder.get()] = press.requestNo;
        press.open.insert(builder.get());
        press.images[builder.get()] = required.halImages;
    }
}

void World::arrive(Event const& event) {
    uint32_t frameNo = mNextFrameNo;
    if (size_t const n = event.n % (mInFlight.size() + 1); n < mInFlight.size()) {
        frameNo = mInFlight[n];
        mInFlight.erase(mInFlight.begin() + static_cast<std::ptrdiff_t>(n));
    } else {
        ++mNextFrameNo;
    }
    ExposedFrame frame(frameNo);
    frame.timestamp = clock.bootTimeNs() - event.frame.ageMs * MS;
    if (event.frame.hasYuv) {
        frame.images.insert(YUV);
    }
    frame.tag<int32_t>(HAL, ZEB_P1NODE_PURE_RAW, event.frame.isPureRaw);
    for (Fault const fault : event.faults) {
        strike(frame, fault);
    }
    HistoryBufferSet set = frame.set();
    if (has(event.faults, Fault::NullBuffer)) {
        set.halImage.push_back(nullptr);
        set.halMeta.insert(set.halMeta.begin(), nullptr);
        set.appMeta.push_back(nullptr);
    }
    if (frame.hasImageError && !frame.images.empty()) {
        mErrorFrames.insert(frameNo);
    }
    if (frame.metas.count(HAL) != 0 &&
        valueOf<int32_t>(frame.metas[HAL], ZEB_P1NODE_PURE_RAW) == 1) {
        mPureRawFrames.insert(frameNo);
    }
    mMayRelease = mMayRelease || !mErrorFrames.empty() || !mPureRawFrames.empty();
    history->arrive(std::move(set));
}

}  // namespace zebcam::test
