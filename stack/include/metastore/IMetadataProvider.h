#pragma once

#include <metadata/IMetadata.h>
#include <utils/RefBase.h>

#include <cstdint>

namespace NSCam {

/// Static facts of one opened camera device.
class IMetadataProvider : public virtual android::RefBase {
public:
    /// The static characteristics (Android camera metadata documentation). Constant for the life
    /// of the provider, which owns them.
    virtual IMetadata const& getStaticCharacteristics() const = 0;
};

namespace NSMetadataProviderManager {

/// The provider of the device opened under `openId`, or null when none is registered.
/// Thread-safe.
android::sp<IMetadataProvider> valueForByDeviceId(int32_t openId);

}  // namespace NSMetadataProviderManager
}  // namespace NSCam
