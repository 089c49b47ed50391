#include <policy/zsl/ISelector.h>

#include <cstdlib>

/// Leaves a mark that a test can see, and no selector.
extern "C" __attribute__((visibility("default"))) NSCam::ZslPolicy::ISelector* create() {
    setenv("CUSTOM_SELECTOR_CREATED", "1", 1);
    return nullptr;
}
