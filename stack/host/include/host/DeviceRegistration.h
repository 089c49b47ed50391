#pragma once

#include <metadata/IMetadata.h>
#include <metastore/IMetadataProvider.h>

#include <cstdint>

namespace zebcam::host {

/// Gives the device opened under `openId` static characteristics (replacing earlier ones), and
/// takes them away again when it is destroyed, unless they were replaced.
class DeviceRegistration {
public:
    DeviceRegistration(int32_t openId, NSCam::IMetadata staticCharacteristics);
    ~DeviceRegistration();
    DeviceRegistration(DeviceRegistration const&) = delete;
    DeviceRegistration& operator=(DeviceRegistration const&) = delete;

private:
    int32_t const mOpenId;
    android::sp<NSCam::IMetadataProvider> const mpProvider;
};

}  // namespace zebcam::host
