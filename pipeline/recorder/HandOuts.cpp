#include "HandOuts.h"

#include <algorithm>
#include <utility>

namespace NSCam::v3::pipeline::model::record {

namespace {

// A caller whose builders are never completed must not make this grow for ever.
constexpr size_t MOST_SETS = 4096;

}  // namespace

void HandOuts::add(HistoryBufferSet const& set, bool isClone) {
    Set added{set.frameNo, set.timestamp, isClone, {}};
    for (auto const& image : set.halImage) {
        if (image != nullptr) {
            added.images.push_back(image.get());
        }
    }
    // An image is in one set at a time: whatever had it before is over, unseen. Without images only
    // the number tells, and a clone has its original's.
    mSets.remove_if([&](Set const& other) {
        return added.images.empty() && other.images.empty()
                   ? !isClone && !other.isClone && other.frameNo == added.frameNo
                   : std::find_first_of(other.images.begin(), other.images.end(),
                                        added.images.begin(),
                                        added.images.end()) != other.images.end();
    });
    mSets.push_back(std::move(added));
    if (mSets.size() > MOST_SETS) {
        mSets.pop_front();
    }
}

template <typename Matches>
bool HandOuts::takeIf(Matches matches, Set& taken) {
    auto const found = std::find_if(mSets.begin(), mSets.end(), matches);
    if (found == mSets.end()) {
        return false;
    }
    taken = std::move(*found);
    mSets.erase(found);
    return true;
}

bool HandOuts::take(void const* image, Set& taken) {
    return takeIf(
        [image](Set const& set) {
            return std::find(set.images.begin(), set.images.end(), image) != set.images.end();
        },
        taken);
}

bool HandOuts::take(int64_t timestamp, Set& taken) {
    return takeIf([timestamp](Set const& set) { return set.timestamp == timestamp; }, taken);
}

bool HandOuts::takeBack(HistoryBufferSet const& set) {
    Set taken;
    for (auto const& image : set.halImage) {
        if (image != nullptr && take(image.get(), taken)) {
            return taken.isClone;
        }
    }
    // Every image was trimmed away.
    takeIf([&](Set const& other) { return other.frameNo == set.frameNo; }, taken);
    return taken.isClone;
}

}  // namespace NSCam::v3::pipeline::model::record
