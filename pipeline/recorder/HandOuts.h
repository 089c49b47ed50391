#pragma once

#include <pipeline/IHistoryBufferProvider.h>

#include <cstddef>
#include <cstdint>
#include <list>
#include <vector>

namespace NSCam::v3::pipeline::model::record {

using NSPipelineContext::HistoryBufferSet;

/// The buffer sets that are handed out: providers gave them away, and they are neither back nor in
/// a frame builder. Known by their images, or else by number and timestamp.
class HandOuts {
public:
    struct Set {
        uint32_t frameNo = 0;
        int64_t timestamp = 0;
        bool isClone = false;
        std::vector<void const*> images;
    };

    void add(HistoryBufferSet const& set, bool isClone);
    /// The set comes back. Tells whether it is a clone.
    bool takeBack(HistoryBufferSet const& set);
    /// Moves the set with an image, or else of a timestamp, to who uses it. False: there is none.
    bool take(void const* image, Set& taken);
    bool take(int64_t timestamp, Set& taken);

private:
    template <typename Matches>
    bool takeIf(Matches matches, Set& taken);

    std::list<Set> mSets;
};

}  // namespace NSCam::v3::pipeline::model::record
