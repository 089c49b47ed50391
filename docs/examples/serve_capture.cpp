// Serves one still capture from a history of eight frames.
#include <IZslProcessor.h>
#include <cutils/properties.h>
#include <host/FrameBuilder.h>
#include <host/HistoryProvider.h>
#include <host/ImageStreamBuffer.h>
#include <host/StreamInfos.h>
#include <utils/Timers.h>

#include <cstdio>

using namespace NSCam::v3::pipeline;
using namespace zebcam::host;

int main() {
    // A press stands for the moment 210 ms before it, for the user and the screen take time.
    property_set("vendor.debug.camera3.zsl.timestamp", "210");

    // Once per opened camera: its streams, and who hears of early shutters (nobody, here).
    android::sp<ImageStreamInfo> raw = new ImageStreamInfo(0x40, "FullRaw");
    policy::ParsedStreamInfoMap_P1 streams;
    streams[0].pHalImage_FullRaw = raw;
    auto zsl = model::IZslProcessor::createInstance(0, "serve_capture");
    zsl->configure({.pParsedStreamInfo_P1 = &streams, .pCallback = nullptr});

    // While the camera previews, the sensor's frames arrive in the history.
    auto history = std::make_shared<HistoryProvider>(8);
    int64_t const now = systemTime(SYSTEM_TIME_BOOTTIME);
    for (uint32_t frameNo = 1; frameNo <= 8; ++frameNo) {
        NSPipelineContext::HistoryBufferSet frame;
        frame.frameNo = frameNo;
        frame.timestamp = now - (9 - frameNo) * 33'333'333LL;
        frame.halImage.push_back(new ImageStreamBuffer(raw));
        history->arrive(std::move(frame));
    }

    // The press: one frame that reads the raw image.
    auto builder = std::make_shared<FrameBuilder>(7, NSPipelineContext::FRAME_TYPE_MAIN);
    auto settings = std::make_shared<policy::RequestResultParams>();
    settings->required.halImages = {raw->getStreamId()};
    model::ZslRequestParams capture;
    capture.requestNo = 7;
    capture.pHistoryBufferProvider = history;
    capture.vReqResult = {settings};
    capture.vFrameBuilder = {builder};
    auto const served = zsl->submitZslRequest(std::move(capture));

    // What came back is to be submitted to the pipeline; what did not is waiting.
    std::printf("served %zu capture(s); still waiting: %s\n", served.size(),
                zsl->hasZslPendingRequest() ? "yes" : "no");
    std::printf("shutter %.0f ms before the press, from the history: %s\n",
                static_cast<double>(now - builder->timestamp().value_or(now)) / 1e6,
                builder->builtFromHistory().value_or(false) ? "yes" : "no");
    return 0;
}
