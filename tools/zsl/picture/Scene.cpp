#include "picture/Scene.h"

#include <fmt/format.h>
#include <metadata/MetadataTags.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <ostream>
#include <random>
#include <string>
#include <vector>

extern "C" {
#include <libavutil/crc.h>
}

#include "base/Text.h"
#include "picture/VideoWriter.h"

namespace zebcam::tool::picture {

namespace {

/// A strip of brightness without end that runs past a point of the picture. What the point sees in
/// an exposure is the mean over the stretch that has passed, to the last bit: no samples in time.
class Pattern {
public:
    static constexpr int32_t STEPS = 4096;
    static constexpr int32_t STEP = 256;  ///< in units of position, of which a shift is told
    static constexpr int32_t PERIOD = STEPS * STEP;
    using Steps = std::array<uint8_t, STEPS>;

    explicit Pattern(Steps const& steps) {
        for (size_t i = 0; i < STEPS; ++i) {
            mSums[i + 1] = mSums[i] + steps[i];
        }
    }

    /// `to` lies after `from`; both may be negative.
    int32_t mean(int64_t from, int64_t to) const {
        return static_cast<int32_t>((integral(to) - integral(from)) / (to - from));
    }

private:
    int64_t integral(int64_t position) const {
        int64_t const steps = position >> 8;
        auto const step = static_cast<size_t>(steps & (STEPS - 1));
        int64_t const whole = (steps >> 12) * mSums[STEPS] + mSums[step];
        return whole * STEP + (mSums[step + 1] - mSums[step]) * (position & (STEP - 1));
    }

    std::array<int32_t, STEPS + 1> mSums{};
};

/// Bars of many widths, each of one brightness, with edges that are as soft as points are wide.
Pattern fence(uint32_t width) {
    Pattern::Steps hard{};
    std::minstd_rand random;
    uint32_t left = 0;
    uint8_t brightness = 0;
    for (size_t i = 0; i < hard.size(); ++i, --left) {
        if (left == 0) {
            left = 24 + static_cast<uint32_t>(random()) % 120;
            // Dark and bright in turn, or neighbours might look like one.
            brightness = static_cast<uint8_t>((brightness < 105 ? 120 : 30) + random() % 60);
        }
        hard[i] = brightness;
    }
    auto const point = static_cast<int32_t>(std::max(1U, Pattern::STEPS / width));
    Pattern const bars(hard);
    Pattern::Steps soft{};
    for (int32_t i = 0; i < Pattern::STEPS; ++i) {
        soft[i] = static_cast<uint8_t>(
            bars.mean((i - point / 2) * Pattern::STEP, (i - point / 2 + point) * Pattern::STEP));
    }
    return Pattern(soft);
}

/// A blade and what lies between it and the next.
Pattern blade() {
    Pattern::Steps steps{};
    for (size_t i = 0; i < steps.size(); ++i) {
        double const wave =
            std::sin(2 * std::numbers::pi * static_cast<double>(i) / Pattern::STEPS);
        steps[i] = static_cast<uint8_t>(std::lround(120 + std::clamp(wave * 8, -1.0, 1.0) * 80));
    }
    return Pattern(steps);
}

enum Region : uint8_t { FENCE, FAN, REGIONS };
constexpr int kBlades = 5;

/// How far a region's pattern has run, in periods.
double shiftAt(Region region, double seconds) {
    constexpr double kTurn = 2 * std::numbers::pi;
    if (region == FAN) {
        return kBlades * seconds;
    }
    // A hand that sways, and trembles.
    return 0.2 * std::sin(kTurn * seconds / 1.9) + 0.03 * std::sin(kTurn * seconds / 0.31);
}

struct Stretch {
    int64_t from = 0;
    int64_t to = 0;
};

/// What runs past in an exposure. A swaying pattern does not run evenly, but in pieces of it.
std::vector<Stretch> stretchesOf(Region region, int64_t startNs, int64_t exposureNs) {
    constexpr int64_t kPieceNs = 4'000'000;
    constexpr int64_t kMostPieces = 16;
    int64_t const pieces = std::clamp<int64_t>(exposureNs / kPieceNs, 1, kMostPieces);
    auto const positionAt = [&](int64_t piece) {
        double const ns = static_cast<double>(startNs) + static_cast<double>(exposureNs) *
                                                             static_cast<double>(piece) /
                                                             static_cast<double>(pieces);
        return std::llround(shiftAt(region, ns / base::NS_PER_SECOND) * Pattern::PERIOD);
    };
    std::vector<Stretch> stretches;
    for (int64_t i = 0; i < pieces; ++i) {
        auto const [from, to] = std::minmax({positionAt(i), positionAt(i + 1)});
        stretches.push_back({from, std::max(to, from + Pattern::STEP)});
    }
    return stretches;
}

/// Each of `count` points from `at` on, `step` apart, becomes the mean of those around it. `row` is
/// room that is used again.
void blurRow(uint8_t* at, size_t step, int count, int radius, std::vector<uint8_t>& row) {
    row.resize(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i) {
        row[i] = at[i * step];
    }
    auto const valueAt = [&](int i) -> int { return row[std::clamp(i, 0, count - 1)]; };
    int sum = 0;
    for (int i = -radius; i <= radius; ++i) {
        sum += valueAt(i);
    }
    int const size = 2 * radius + 1;
    for (int i = 0; i < count; ++i) {
        at[i * step] = static_cast<uint8_t>((sum + radius) / size);
        sum += valueAt(i + radius + 1) - valueAt(i - radius);
    }
}

/// Twice a box: near to what a lens out of focus does.
void blur(Pixels& luma, int radius) {
    std::vector<uint8_t> row;
    for (int pass = 0; pass < 2 && radius > 0; ++pass) {
        for (size_t y = 0; y < luma.height; ++y) {
            blurRow(&luma.bytes[y * luma.width], 1, static_cast<int>(luma.width), radius, row);
        }
        for (size_t x = 0; x < luma.width; ++x) {
            blurRow(&luma.bytes[x], luma.width, static_cast<int>(luma.height), radius, row);
        }
    }
}

constexpr uint8_t kBlack = 16;
constexpr uint8_t kWhite = 235;
/// Of what tells the time. It is always sharp: with more contrast, and larger, it would outweigh
/// the scene in what is measured of a picture.
constexpr uint8_t kDark = 70;
constexpr uint8_t kLight = 160;

/// The camera before its scene. Coordinates u and v are those of a picture that is turned upright,
/// x and y those of the sensor, whose lines are exposed one after the other.
class Scene {
public:
    Scene(recording::Recording const& recording, SceneOptions const& options);

    /// The picture of the frame of that position; call it with ascending ones.
    Planes const& paint(size_t position);

private:
    size_t sensorPoint(uint32_t u, uint32_t v) const;
    void layOut();
    void expose(recording::SensorFrame const& frame);
    double defocus(size_t position);
    void develop(recording::SensorFrame const& frame);
    void fill(uint32_t u, uint32_t v, uint32_t width, uint32_t height, uint8_t luma);
    void showBars(int64_t timeNs);
    void showStopWatch(int64_t timeNs);

    std::vector<recording::SensorFrame> const& mFrames;
    SceneOptions const mOptions;
    uint32_t const mWidth;  ///< upright
    uint32_t const mHeight;
    std::array<Pattern, REGIONS> const mPatterns;
    std::vector<Region> mRegions;     ///< by point of the sensor
    std::vector<int32_t> mPositions;  ///< in the pattern of its region while that has not moved
    size_t mNextInFocus = 0;
    Planes mPlanes;
};

Scene::Scene(recording::Recording const& recording, SceneOptions const& options)
    : mFrames(recording.frames),
      mOptions(options),
      mWidth(options.rotation % 180 == 0 ? options.width : options.height),
      mHeight(options.rotation % 180 == 0 ? options.height : options.width),
      mPatterns{fence(mWidth), blade()} {
    size_t const points = size_t{options.width} * options.height;
    mRegions.resize(points);
    mPositions.resize(points);
    mPlanes[0] = {options.width, options.height, std::vector<uint8_t>(points)};
    mPlanes[1] =
        mPlanes[2] = {options.width / 2, options.height / 2, std::vector<uint8_t>(points / 4)};
    layOut();
}

size_t Scene::sensorPoint(uint32_t u, uint32_t v) const {
    size_t const width = mOptions.width;
    size_t const right = width - 1;
    size_t const bottom = mOptions.height - 1;
    switch (mOptions.rotation) {
        case 90:
            return (bottom - u) * width + v;
        case 180:
            return (bottom - v) * width + right - u;
        case 270:
            return u * width + right - v;
        default:
            return v * width + u;
    }
}

/// What never changes: where the fan stands before the fence, and the colours of both.
void Scene::layOut() {
    double const radius = 0.3 * std::min(mWidth, mHeight);
    for (uint32_t v = 0; v < mHeight; ++v) {
        for (uint32_t u = 0; u < mWidth; ++u) {
            double const right = u - mWidth * 0.5;
            double const down = v - mHeight * 0.52;
            bool const isFan = std::hypot(right, down) < radius;
            double const turn = std::atan2(down, right) / (2 * std::numbers::pi) * kBlades;
            double const position = isFan ? turn : static_cast<double>(u) / mWidth;
            size_t const at = sensorPoint(u, v);
            mRegions[at] = isFan ? FAN : FENCE;
            mPositions[at] = static_cast<int32_t>(std::lround(position * Pattern::PERIOD));
        }
    }
    constexpr uint8_t kColours[REGIONS][2] = {{118, 138}, {150, 112}};
    for (size_t plane = 1; plane < mPlanes.size(); ++plane) {
        Pixels& colour = mPlanes[plane];
        for (size_t i = 0; i < colour.bytes.size(); ++i) {
            size_t const at = i / colour.width * 2 * mOptions.width + i % colour.width * 2;
            colour.bytes[i] = kColours[mRegions[at]][plane - 1];
        }
    }
}

Planes const& Scene::paint(size_t position) {
    recording::SensorFrame const& frame = mFrames[position];
    expose(frame);
    // A lens blurs before the sensor exposes; for the few lines over which it does that is one.
    constexpr double kBlurOfDiopter = 0.06;
    constexpr double kWidest = 0.025;
    blur(mPlanes[0], static_cast<int>(std::lround(
                         std::min(defocus(position) * kBlurOfDiopter, kWidest) * mWidth)));
    develop(frame);
    int64_t const timeNs = frame.timestampNs - mFrames.front().timestampNs + frame.readoutNs / 2;
    showBars(timeNs);
    showStopWatch(timeNs);
    return mPlanes;
}

/// Line by line, each in its own time.
void Scene::expose(recording::SensorFrame const& frame) {
    int64_t const firstNs = frame.timestampNs - mFrames.front().timestampNs;
    std::array<std::vector<Stretch>, REGIONS> stretches;
    size_t at = 0;
    for (uint32_t y = 0; y < mOptions.height; ++y) {
        int64_t const startNs = firstNs + frame.readoutNs * y / mOptions.height;
        for (uint8_t region = 0; region < REGIONS; ++region) {
            stretches[region] = stretchesOf(static_cast<Region>(region), startNs, frame.exposureNs);
        }
        for (uint32_t x = 0; x < mOptions.width; ++x, ++at) {
            Pattern const& pattern = mPatterns[mRegions[at]];
            int32_t sum = 0;
            for (Stretch const& passed : stretches[mRegions[at]]) {
                sum += pattern.mean(mPositions[at] + passed.from, mPositions[at] + passed.to);
            }
            auto const pieces = static_cast<int32_t>(stretches[0].size());
            mPlanes[0].bytes[at] = static_cast<uint8_t>(sum / pieces);
        }
    }
}

/// How far the lens is from the scene, in diopters: the scene is where the focus will next have
/// come to rest. A lens on its way, and a focus that has not found it, is off in any case.
double Scene::defocus(size_t position) {
    auto const isInFocus = [](recording::SensorFrame const& frame) {
        return frame.afState == NSCam::AF_STATE_PASSIVE_FOCUSED &&
               frame.lensState != NSCam::LENS_STATE_MOVING;
    };
    mNextInFocus = std::max(mNextInFocus, position);
    while (mNextInFocus < mFrames.size() && !isInFocus(mFrames[mNextInFocus])) {
        ++mNextInFocus;
    }
    recording::SensorFrame const& frame = mFrames[position];
    recording::SensorFrame const& found =
        mNextInFocus < mFrames.size() ? mFrames[mNextInFocus] : frame;
    bool const isLost = frame.afState == NSCam::AF_STATE_PASSIVE_SCAN ||
                        frame.afState == NSCam::AF_STATE_PASSIVE_UNFOCUSED;
    return std::abs(frame.focusDistance.value_or(0) - found.focusDistance.value_or(0)) +
           (frame.lensState == NSCam::LENS_STATE_MOVING ? 0.1 : 0) + (isLost ? 0.1 : 0);
}

/// Brighter the longer and the more sensitive the exposure was, by the first frame's, without
/// clipping.
void Scene::develop(recording::SensorFrame const& frame) {
    auto const lightOf = [](recording::SensorFrame const& of) {
        return static_cast<double>(std::max<int64_t>(of.exposureNs, 1)) *
               std::max(of.iso.value_or(1), 1);
    };
    constexpr double kDisplayGamma = 2.2;
    double const light = std::clamp(lightOf(frame) / lightOf(mFrames.front()), 0.25, 4.0);
    double const exponent = std::pow(light, 1 / kDisplayGamma);
    std::array<uint8_t, 256> developed{};
    for (size_t i = 0; i < developed.size(); ++i) {
        double const value = 1 - std::pow(1 - static_cast<double>(i) / 255, exponent);
        developed[i] = static_cast<uint8_t>(kBlack + std::lround(value * (kWhite - kBlack)));
    }
    for (uint8_t& luma : mPlanes[0].bytes) {
        luma = developed[luma];
    }
}

void Scene::fill(uint32_t u, uint32_t v, uint32_t width, uint32_t height, uint8_t luma) {
    for (uint32_t down = 0; down < height; ++down) {
        for (uint32_t right = 0; right < width; ++right) {
            size_t const at = sensorPoint(u + right, v + down);
            mPlanes[0].bytes[at] = luma;
            size_t const y = at / mOptions.width;
            size_t const x = at % mOptions.width;
            size_t const colour = y / 2 * (mOptions.width / 2) + x / 2;
            mPlanes[1].bytes[colour] = mPlanes[2].bytes[colour] = 128;
        }
    }
}

/// Along the lower edge, over the whole width: light and dark, the bits, light and dark.
void Scene::showBars(int64_t timeNs) {
    std::array<uint8_t, 7> bytes{};
    for (size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<uint8_t>(timeNs >> 8 * (bytes.size() - 1 - i));
    }
    uint32_t const check =
        ~av_crc(av_crc_get_table(AV_CRC_32_IEEE_LE), UINT32_MAX, bytes.data(), bytes.size());
    std::string const bars = fmt::format("10{:056b}{:016b}10", timeNs, check & 0xffff);
    auto const count = static_cast<uint32_t>(bars.size());
    uint32_t const height = mHeight / 24;
    for (uint32_t i = 0; i < count; ++i) {
        uint32_t const left = mWidth * i / count;
        fill(left, mHeight - height, mWidth * (i + 1) / count - left, height,
             bars[i] == '1' ? kLight : kDark);
    }
}

/// Seconds and ms in seven segments, above left.
void Scene::showStopWatch(int64_t timeNs) {
    // Clockwise from the upper one, then the middle one, from the lowest bit.
    constexpr uint8_t kSegments[] = {0x3f, 0x06, 0x5b, 0x4f, 0x66, 0x6d, 0x7d, 0x07, 0x7f, 0x6f};
    int64_t const ms = timeNs / 1'000'000;
    std::string const text = fmt::format("{:04}.{:03}", ms / 1'000, ms % 1'000);
    uint32_t const height = std::min(mWidth, mHeight) / 12;
    uint32_t const half = height / 2;
    uint32_t const width = height * 5 / 9;
    uint32_t const line = std::max(2U, height / 8);
    uint32_t const pitch = width + 2 * line;
    uint32_t const v = height / 2;
    uint32_t u = height / 2;
    fill(u - line, v - line, static_cast<uint32_t>(text.size()) * pitch, height + 2 * line, kDark);
    for (char const each : text) {
        if (each == '.') {
            fill(u + (width - line) / 2, v + height - line, line, line, kLight);
        } else {
            uint32_t const places[][4] = {{0, 0, width, line},
                                          {width - line, 0, line, half},
                                          {width - line, half, line, height - half},
                                          {0, height - line, width, line},
                                          {0, half, line, height - half},
                                          {0, 0, line, half},
                                          {0, half - line / 2, width, line}};
            for (size_t i = 0; i < std::size(places); ++i) {
                if ((kSegments[each - '0'] >> i & 1) != 0) {
                    auto const& [right, down, wide, high] = places[i];
                    fill(u + right, v + down, wide, high, kLight);
                }
            }
        }
        u += pitch;
    }
}

}  // namespace

void writeScene(recording::Recording const& recording, SceneOptions const& options,
                std::ostream& out, std::function<void(size_t pictures)> const& progress) {
    Scene scene(recording, options);
    VideoWriter video(
        out, {options.width, options.height, options.rotation, recording.medianIntervalNs});
    std::vector<recording::SensorFrame> const& frames = recording.frames;
    for (size_t i = 0; i < frames.size() && out.good(); ++i) {
        video.write(scene.paint(i), frames[i].timestampNs - frames.front().timestampNs);
        if (progress) {
            progress(i + 1);
        }
    }
    if (out.good()) {
        video.finish();
    }
}

}  // namespace zebcam::tool::picture
