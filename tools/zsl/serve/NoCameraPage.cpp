// Takes the page's place in a build without FFmpeg's libraries, which never has a camera to show.

#include "serve/CameraPage.h"

namespace zebcam::tool::serve {

class CameraPage::Server {};

// NOLINTNEXTLINE(performance-unnecessary-value-param): the other build keeps the source
CameraPage::CameraPage(uint16_t, CameraPageSource) {
}

CameraPage::~CameraPage() = default;

std::string const& CameraPage::address() const {
    static std::string const NONE;
    return NONE;
}

}  // namespace zebcam::tool::serve
