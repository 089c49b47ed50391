#include "best_shot/Sharpness.h"

#include <policy/zsl/PictureMeasures.h>
#include <policy/zsl/RecordedColumns.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <iterator>

#include "FrameFacts.h"

namespace kit {

std::optional<double> measuredSharpness(ISelector::HistoryFrame const& frame) {
    std::optional<double> sharpness = NSCam::ZslPolicy::pictureMeasures(frame.appMetas).sharpness;
    if (!sharpness) {
        sharpness = NSCam::ZslPolicy::recordedColumn(frame.appMetas, "Sharpness");
    }
    // Somebody else's number: what cannot be one is as good as none.
    bool const isNumber = sharpness && std::isfinite(*sharpness) && *sharpness >= 0;
    return isNumber ? sharpness : std::nullopt;
}

namespace {

/// For frames that nobody measured, in ascending order.
std::vector<double> estimates(std::vector<ISelector::HistoryFrame const*> const& frames) {
    std::optional<int64_t> shortest;
    for (auto const* frame : frames) {
        if (auto const exposure = exposureTimeNs(*frame)) {
            shortest = std::min(*exposure, shortest.value_or(*exposure));
        }
    }
    constexpr double UNSETTLED = 0.5;
    double scans = 1;
    double moves = 1;
    std::vector<double> estimates(frames.size());
    for (size_t i = frames.size(); i-- > 0;) {
        // From the newest on: a focus goes looking because it was lost before.
        scans = isFocusScanning(*frames[i]) ? UNSETTLED : scans;
        moves = isLensMoving(*frames[i]) ? UNSETTLED : moves;
        auto const exposure = exposureTimeNs(*frames[i]);
        double const blur =
            exposure ? static_cast<double>(*exposure) / static_cast<double>(*shortest) : 1;
        estimates[i] = scans * moves / blur;
    }
    return estimates;
}

}  // namespace

std::vector<double> sharpnessShares(std::vector<ISelector::HistoryFrame const*> const& frames) {
    std::vector<std::optional<double>> measured;
    std::optional<double> least;
    for (auto const* frame : frames) {
        auto const sharpness = measured.emplace_back(measuredSharpness(*frame));
        if (sharpness) {
            least = std::min(*sharpness, least.value_or(*sharpness));
        }
    }
    std::vector<double> shares;
    if (least) {
        std::transform(measured.begin(), measured.end(), std::back_inserter(shares),
                       [&](auto const& sharpness) { return sharpness.value_or(*least); });
    } else {
        shares = estimates(frames);
    }
    double const most = shares.empty() ? 0 : *std::max_element(shares.begin(), shares.end());
    for (double& share : shares) {
        share = most > 0 ? share / most : 1;  // all alike, for instance all black
    }
    return shares;
}

}  // namespace kit
