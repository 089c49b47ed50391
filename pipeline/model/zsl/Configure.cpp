#include <cutils/properties.h>
#include <dlfcn.h>

#include <cerrno>

#include "BuiltinSelectors.h"
#include "Log.h"
#include "TraceSection.h"

namespace NSCam::v3::pipeline::model {

namespace {

constexpr char CUSTOM_LIBRARY[] = "libzebcam_zsl_customselector.so";
constexpr char CUSTOM_ENTRY[] = "create";
constexpr int64_t DEFAULT_TIMEOUT_MS = 3000;

/// When the custom selector steps in. Any other value counts as FOR_DEFAULT.
enum CustomSelectMode : int32_t {
    NEVER = -1,
    FOR_DEFAULT = 0,  ///< in place of the default selector only
    ALWAYS = 1,       ///< in place of every selector
};

/// Read once: a choice that changed between the tries of a capture would leave sets behind in the
/// locked list of the other selector.
int32_t customSelectMode() {
    static int32_t const mode =
        property_get_int32("vendor.debug.camera.zsl.custom.select", FOR_DEFAULT);
    return mode;
}

// dlclose takes no null, which the absence of a library leaves in the handle.
void closeLibrary(void* handle) {
    if (handle != nullptr) {
        dlclose(handle);
    }
}

}  // namespace

int ZslProcessor::configure(ZslConfigParams const& params) {
    TraceSection const trace("configure");
    LockGuard const lock(mLock);
    if (!mPendingRequests.empty()) {
        // They were promised the streams, the callback and the selectors that would go here.
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
    // Before the built-in selectors: if the library makes it throw, the earlier ones stay.
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
        dlerror();  // most devices have none: nobody else shall find this failure pending
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

ZslProcessor::SelectorChoice ZslProcessor::chooseSelector(ZslReqObject const& req) const {
    SelectorChoice choice{req.pSelector.get(), DEFAULT_TIMEOUT_MS};
    if (choice.pSelector == nullptr && req.pPolicyParams != nullptr) {
        if (req.pPolicyParams->policy == ZslPolicy::POLICY_CONTINUOUS_SHOT) {
            choice.pSelector = mpCShotSelector.get();
        } else if ((req.pPolicyParams->policy & ZslPolicy::POLICY_MULTIFRAME_BIT) != 0) {
            // Only such a capture says how long it may wait, and its time holds even if a custom
            // selector steps in below.
            choice = {mpMultiframeSelector.get(), req.pPolicyParams->timeoutMs};
        }
    }
    choice.pSelector = getSelector(choice.pSelector);
    return choice;
}

ZslPolicy::ISelector const* ZslProcessor::getSelector(ISelector const* pSelector) const {
    int32_t const mode = customSelectMode();
    if (pSelector != nullptr) {
        return mpCustomSelector != nullptr && mode == ALWAYS ? mpCustomSelector : pSelector;
    }
    if (mpCustomSelector != nullptr && mode != NEVER) {
        return mpCustomSelector;
    }
    return mpDefaultSelector.get();  // null before the first configure
}

}  // namespace NSCam::v3::pipeline::model
