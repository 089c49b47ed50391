#include <host/DeviceRegistration.h>
#include <metastore/IMetadataProvider.h>
#include <zebcam/ThreadSafety.h>

#include <map>
#include <utility>

namespace zebcam::host {

namespace {

class MetadataProvider final : public NSCam::IMetadataProvider {
public:
    explicit MetadataProvider(NSCam::IMetadata characteristics)
        : mCharacteristics(std::move(characteristics)) {}

    NSCam::IMetadata const& getStaticCharacteristics() const override { return mCharacteristics; }

private:
    NSCam::IMetadata const mCharacteristics;
};

struct Registry {
    Mutex lock;
    /// By open id.
    std::map<int32_t, android::sp<NSCam::IMetadataProvider>> providers GUARDED_BY(lock);
};

/// Never destroyed: a registration may be a static object.
Registry& registry() {
    static Registry& instance = *new Registry;
    return instance;
}

}  // namespace

DeviceRegistration::DeviceRegistration(int32_t openId, NSCam::IMetadata staticCharacteristics)
    : mOpenId(openId), mpProvider(new MetadataProvider(std::move(staticCharacteristics))) {
    LockGuard const lock(registry().lock);
    registry().providers[mOpenId] = mpProvider;
}

DeviceRegistration::~DeviceRegistration() {
    LockGuard const lock(registry().lock);
    // A later registration of the same device stays.
    auto const it = registry().providers.find(mOpenId);
    if (it != registry().providers.end() && it->second == mpProvider) {
        registry().providers.erase(it);
    }
}

}  // namespace zebcam::host

android::sp<NSCam::IMetadataProvider> NSCam::NSMetadataProviderManager::valueForByDeviceId(
    int32_t openId) {
    auto& registry = zebcam::host::registry();
    zebcam::LockGuard const lock(registry.lock);
    auto const it = registry.providers.find(openId);
    return it == registry.providers.end() ? nullptr : it->second;
}
