#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "compare/Baseline.h"
#include "compare/ComparisonResult.h"

namespace zebcam::tool::report {

/// What people call the settings of a comparison, in every form in which it is told.
class ComparisonNames {
public:
    /// A setting beside the policy, as text; empty where a row does not have it.
    struct Setting {
        std::string title;
        char const* unit;
        std::function<std::string(compare::ComparisonRow const& row)> value;
    };

    explicit ComparisonNames(std::vector<compare::ComparisonRow> const& rows);

    /// The policy by its own name, and with its file where two have the same one.
    std::string const& policyOf(compare::ComparisonRow const& row) const;
    /// The policy, and the settings that differ from row to row: `default, offset 66 ms`.
    std::string nameOf(compare::ComparisonRow const& row) const;
    /// Every setting, for a line that stands alone: `policy default, offset 0 ms, frames 1`.
    std::string fullNameOf(compare::ComparisonRow const& row) const;

    std::vector<Setting> const& differing() const { return mDiffering; }
    /// What all rows share: `frames 1, history 8`.
    std::string shared() const;
    /// Policies from libraries: name and path.
    std::vector<std::pair<std::string, std::string>> const& libraries() const { return mLibraries; }

private:
    void namePolicies(std::vector<compare::ComparisonRow> const& rows);

    std::map<std::string, std::string> mPolicies;  ///< by what --policy was given
    std::vector<std::pair<std::string, std::string>> mLibraries;
    std::vector<Setting> mDiffering;
    std::vector<std::pair<Setting, std::string>> mShared;  ///< with the value
};

/// A value in as many digits as people compare; `-` for none.
std::string shortText(std::optional<double> value);
std::string shortText(compare::ComparisonRow const& row, compare::ComparisonField const& field);

/// How many times the best it is, ` (x1.80)`; empty for nothing, and for what is as good as the
/// best.
std::string ratioText(compare::Place const& place);

/// By how much a value has changed, `+5.0 %`; empty where that cannot be said.
std::string changeText(compare::Change const& change);

/// How things stand since a baseline, in a line.
std::string sinceSummary(compare::Since const& since);

}  // namespace zebcam::tool::report
