#pragma once

#include <fmt/format.h>

#include <cstddef>
#include <optional>
#include <ostream>

namespace zebcam::tool::base {

/// How far a long work is, on one line of a terminal that is wiped at the end. Silent while nobody
/// looks, and for less than `leastTotal` items, which are done before anybody could read.
class Progress {
public:
    Progress(std::ostream& err, bool isOn, char const* items, size_t leastTotal = 0)
        : mErr(err), mIsOn(isOn), mItems(items), mLeastTotal(leastTotal) {}
    ~Progress() {
        if (mShown) {
            mErr << "\r\033[K" << std::flush;
        }
    }
    Progress(Progress const&) = delete;
    Progress& operator=(Progress const&) = delete;

    void operator()(size_t done, size_t total) {
        // At most a hundred times, for a terminal is slow.
        if (mIsOn && total >= mLeastTotal && (!mShown || (done - *mShown) * 100 >= total)) {
            mShown = done;
            mErr << fmt::format("\r{} of {} {}", done, total, mItems) << std::flush;
        }
    }

private:
    std::ostream& mErr;
    bool const mIsOn;
    char const* const mItems;
    size_t const mLeastTotal;
    std::optional<size_t> mShown;
};

}  // namespace zebcam::tool::base
