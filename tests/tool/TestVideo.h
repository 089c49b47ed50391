#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace zebcam::tool {

/// A video of plain pictures, each with a brightness of its own, and the left upper quarter dark.
struct TestVideo {
    int width = 64;
    int height = 48;
    std::vector<int64_t> timesMs{0, 33, 67, 100, 133, 167, 200, 233};
    int rotation = 0;  ///< degrees clockwise by which it is to be turned
    int aspect = 1;    ///< how many times as wide as high points are
    bool startsWithIndex = true;
};

inline constexpr int DARK_LUMA = 40;

/// The luma that picture `index` was painted with.
constexpr int brightnessOf(size_t index) {
    return 60 + 20 * static_cast<int>(index);
}

/// Writes it as MPEG-4 in MP4, with pictures that are stored in another order than they are shown
/// in.
std::string writeTestVideo(std::string const& path, TestVideo const& video = {});

}  // namespace zebcam::tool
