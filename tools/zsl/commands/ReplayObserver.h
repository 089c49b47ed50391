#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "log/Explainer.h"
#include "log/Explanation.h"
#include "recording/Recording.h"
#include "run/ProcessorSections.h"
#include "run/Replay.h"
#include "run/ReplayResult.h"

namespace zebcam::tool::commands {

/// Listens to a replay for what goes beyond its result: the log for people, the reasons of every
/// decision, and what a trace shows. Lives around one call of `replay`.
class ReplayObserver {
public:
    struct Wishes {
        uint32_t shownLevel = 0;  ///< largest ULog::LogLevel that `show` gets; 0: none
        std::function<void(std::string const& lines)> show;  ///< gets logcat lines
        std::function<void(size_t frames, size_t total)> progress;
        bool reasons = false;   ///< explain each decision from the processor's log
        bool sections = false;  ///< record the processor's trace sections and the occupancy
    };

    explicit ReplayObserver(Wishes wishes);

    /// `options` with the log level that the wishes need.
    pipeline::ReplayOptions listeningOptions(pipeline::ReplayOptions options) const;
    run::ReplayListener listener();

    /// Ends the observation. What was not wished for is empty.
    void finish();
    log::Explanation const* explanation() const;
    std::vector<run::OccupancySample> const& occupancy() const { return mOccupancy; }
    std::vector<run::ProcessorSection> const& sections() const { return mSections; }

private:
    void onLog(int64_t timeNs, host::LogLine const& line);

    Wishes const mWishes;
    log::Explainer mExplainer;
    std::optional<log::Explanation> mExplanation;
    std::vector<run::OccupancySample> mOccupancy;
    std::unique_ptr<run::SectionRecorder> mRecorder;
    std::vector<run::ProcessorSection> mSections;
};

}  // namespace zebcam::tool::commands
