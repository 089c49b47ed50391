#include <host/Services.h>
#include <metastore/IMetadataProvider.h>

#include <map>
#include <mutex>
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
    std::mutex lock;
    std::map<int32_t, android::sp<NSCam::IMetadataProvider>> providers;  ///< by open id
};

Registry& registry() {
    static Registry& instance = *new Registry;
    return instance;
}

}  // namespace

DeviceRegistration::DeviceRegistration(int32_t openId, NSCam::IMetadata staticCharacteristics)
    : mOpenId(openId), mpProvider(new MetadataProvider(std::move(staticCharacteristics))) {
    std::lock_guard lock(registry().lock);
    registry().providers[mOpenId] = mpProvider;
}

DeviceRegistration::~DeviceRegistration() {
    std::lock_guard lock(registry().lock);
    auto const it = registry().providers.find(mOpenId);
    if (it != registry().providers.end() && it->second == mpProvider) {
        registry().providers.erase(it);
    }
}

}  // namespace zebcam::host

android::sp<NSCam::IMetadataProvider> NSCam::NSMetadataProviderManager::valueForByDeviceId(
    int32_t openId) {
    auto& registry = zebcam::host::registry();
    std::lock_guard lock(registry.lock);
    auto const it = registry.providers.find(openId);
    return it == registry.providers.end() ? nullptr : it->second;
}
