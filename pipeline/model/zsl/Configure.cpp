#include <dlfcn.h>
#include <metadata/MetadataTags.h>
#include <metastore/IMetadataProvider.h>

#include <cerrno>

#include "BuiltinSelectors.h"
#include "Log.h"
#include "TimeSource.h"
#include "TraceSection.h"

namespace NSCam::v3::pipeline::model {

namespace {

constexpr char CUSTOM_LIBRARY[] = "libzebcam_zsl_customselector.so";
constexpr char CUSTOM_ENTRY[] = "create";

void closeLibrary(void* handle) {
    if (handle != nullptr) {
        dlclose(handle);
    }
}

}  // namespace

uint8_t getTimeSource(int openId) {
    constexpr uint8_t REALTIME = 1;
    auto const provider = NSMetadataProviderManager::valueForByDeviceId(openId);
    if (provider == nullptr) {
        ZSL_LOGW("openId(%d): can not get IMetadataProvider", openId);
        return REALTIME;
    }
    auto const entry =
        provider->getStaticCharacteristics().entryFor(ZEB_SENSOR_INFO_TIMESTAMP_SOURCE);
    if (entry.isEmpty()) {
        ZSL_LOGW("can not get ZEB_SENSOR_INFO_TIMESTAMP_SOURCE, use REALTIME as default");
        return REALTIME;
    }
    return entry.itemAt(0, Type2Type<uint8_t>());
}

int ZslProcessor::configure(ZslConfigParams const& params) {
    TraceSection const trace("configure");
    LockGuard const lock(mLock);
    if (!mPendingRequests.empty()) {
        ZSL_LOGE("%zu ZSL pending requests not finish yet, 1st-reqNo: %u", mPendingRequests.size(),
                 mPendingRequests.front().requestNo);
        return -ENOSYS;
    }
    if (params.pParsedStreamInfo_P1 == nullptr) {
        mParsedStreamInfo_P1.clear();
    } else if (params.pParsedStreamInfo_P1 != &mParsedStreamInfo_P1) {
        mParsedStreamInfo_P1 = *params.pParsedStreamInfo_P1;
    }
    mpCallback = params.pCallback;
    loadCustomSelector();
    mpDefaultSelector = std::make_shared<DefaultSelector>();
    mpCShotSelector = std::make_shared<CShotSelector>();
    mpMultiframeSelector = std::make_shared<MultiframeSelector>();
    ZSL_LOGI("mCustomLibHandle(%p) mpCustomSelector(%p)", mCustomLibHandle.get(),
             static_cast<void const*>(mpCustomSelector));
    return 0;
}

void ZslProcessor::loadCustomSelector() {
    mCustomSelectorCreator = nullptr;  // it may point into the library that is let go here
    mCustomLibHandle = std::shared_ptr<void>(dlopen(CUSTOM_LIBRARY, RTLD_LAZY), closeLibrary);
    if (mCustomLibHandle == nullptr) {
        dlerror();
        return;
    }
    mCustomSelectorCreator =
        reinterpret_cast<ISelector* (*)()>(dlsym(mCustomLibHandle.get(), CUSTOM_ENTRY));
    // The test is this way round on purpose: a library with its entry point is kept loaded but not
    // asked for a selector, and one without makes the call of an empty function throw.
    if (!mCustomSelectorCreator) {
        ZSL_LOGW_AS("configure", "CustomSelector - dlsym fail: %s", dlerror());
        mpCustomSelector = mCustomSelectorCreator();
    }
}

}  // namespace NSCam::v3::pipeline::model
