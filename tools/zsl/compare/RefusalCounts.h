#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "explain/Explainer.h"

namespace zebcam::tool {

/// How often history frames were refused, by criterion. A frame counts each time that it is looked
/// at: once for each try of each capture.
struct RefusalCounts {
    std::array<uint64_t, static_cast<size_t>(Criterion::Unknown) + 1> byCriterion{};

    uint64_t& operator[](Criterion criterion) {
        return byCriterion[static_cast<size_t>(criterion)];
    }
    uint64_t operator[](Criterion criterion) const {
        return byCriterion[static_cast<size_t>(criterion)];
    }
    uint64_t total() const;
    /// `time 12, focus 3`: what is not 0, the most frequent first; empty for none.
    std::string text() const;

    bool operator==(RefusalCounts const&) const = default;
};

/// Counts the refusals that the processor's log tells of.
class RefusalCounter {
public:
    /// Log level (ULog::LogLevel) up to which the lines are needed.
    static uint32_t logLevel();

    void feed(host::LogLine const& line);
    /// Ends the count, once.
    RefusalCounts finish();

private:
    Explainer mExplainer;
};

}  // namespace zebcam::tool
