#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "compare/ComparisonFields.h"
#include "pipeline/ReplayOptions.h"
#include "recording/Recording.h"

namespace zebcam::tool::compare {

/// One recording under one setting: what came of it. Or what came of all recordings together.
struct ComparisonRow {
    std::string recording;  ///< path; empty: all
    pipeline::ReplayOptions options;
    std::optional<RunNumbers> numbers;           ///< none: the run failed
    OwnRefusals ownRefusals;                     ///< the unknown ones of the numbers by name
    std::optional<recording::VideoFacts> video;  ///< whose pictures the frames have
    std::vector<run::FrameNumbers> frames;       ///< what the numbers were made from
    std::vector<std::string> problems;           ///< why it failed, or what went wrong in it
    std::vector<std::string> broken;  ///< the limits that it exceeds, with what was found
    std::string report;               ///< path of the run's own page; empty: there is none
    std::string worse;                ///< in what it is worse than a baseline; empty: nothing

    /// In force, ms; of a failed run what was asked for, if anything was.
    std::optional<int64_t> offsetMs() const;
    /// `failed`, `problem`, `limit`, `worse` or `ok`: the worst that holds.
    char const* status() const;
    bool isGood() const { return problems.empty() && broken.empty() && worse.empty(); }
};

/**
 * Every setting over all recordings. Only recordings count in which every setting has numbers, so
 * that none looks better because the hard ones are missing; a setting that failed everywhere has
 * none itself and keeps none out.
 */
struct Totals {
    size_t recordings = 0;            ///< that count
    size_t leftOut = 0;               ///< in which a setting failed
    std::vector<ComparisonRow> rows;  ///< by setting; without a recording's path
};

/// `settings`: rows of each recording; all recordings have the same ones, in the same order.
Totals totalsOf(std::vector<ComparisonRow> const& rows, size_t settings);

/// What a setting has in a field.
struct Place {
    size_t setting = 0;  ///< position among the totals
    FieldValue value;
    std::optional<double> ratio;  ///< to the best value; none where that is 0
};

/// Who is how good in a field that has a better and a worse end.
struct Ranking {
    ComparisonField const* field = nullptr;
    std::vector<Place> places;  ///< the best first; equal ones in the order of the settings
};

/// A ranking for each field in which the settings differ; those without a value have no place.
std::vector<Ranking> rank(std::vector<ComparisonRow> const& totals);

}  // namespace zebcam::tool::compare
