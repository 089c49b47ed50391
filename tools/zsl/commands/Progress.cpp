#include <fmt/format.h>

#include <algorithm>
#include <ostream>
#include <utility>

#include "commands/Commands.h"
#include "picture/MeasureCache.h"

namespace zebcam::tool::commands {

namespace {

using std::chrono::seconds;

/// Rounded up, so that nobody waits longer than they were told because of it.
std::string timeLeft(seconds left) {
    constexpr seconds kMinute{60};
    constexpr seconds kHour{3600};
    if (left < kMinute) {
        return fmt::format("{} s", left.count());
    }
    return left < kHour ? fmt::format("{} min", left / kMinute + 1)
                        : fmt::format("{} h {} min", left / kHour, left % kHour / kMinute);
}

}  // namespace

Progress::~Progress() {
    if (mShown) {
        mErr << "\r\033[K" << std::flush;
    }
}

void Progress::operator()(size_t done, size_t total) {
    // At most a hundred times, for a terminal is slow.
    if (!mIsOn || total < mLeastTotal || (mShown && (done - *mShown) * 100 < total)) {
        return;
    }
    if (!mShown) {
        mStart = std::chrono::steady_clock::now();
        mFirst = done;
    }
    mShown = done;
    mErr << fmt::format("\r{} of {} {}", done, total, mItems);
    auto const elapsed = std::chrono::steady_clock::now() - mStart;
    // Before a second has passed, an estimate would only jump about.
    if (done > mFirst && elapsed > seconds{1}) {
        double const share = static_cast<double>(total - done) / static_cast<double>(done - mFirst);
        mErr << fmt::format(", {} left\033[K",
                            timeLeft(std::chrono::ceil<seconds>(elapsed * share)));
    }
    mErr << std::flush;
}

picture::MeasuredVideo measureShowing(picture::VideoFile& video, CliStreams const& streams,
                                      std::function<void()> const& check) {
    Progress progress(streams.err, streams.showProgress, "pictures");
    return picture::measureVideo(video, [&](size_t done, size_t declared) {
        if (check) {
            check();
        }
        progress(done, std::max(done, declared));
    });
}

picture::Measure pictureMeasurer(CliStreams const& streams, bool usesCache,
                                 std::function<void()> check) {
    return [&streams, usesCache, check = std::move(check)](base::InputFile& file) {
        picture::VideoFile video(file);
        picture::MeasureCache const cache(video, usesCache);
        if (auto known = cache.read()) {
            return *std::move(known);
        }
        picture::MeasuredVideo measured = measureShowing(video, streams, check);
        cache.write(measured);
        return measured;
    };
}

}  // namespace zebcam::tool::commands
