#include "report/ComparisonNames.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <optional>
#include <set>

#include "base/Text.h"

namespace zebcam::tool::report {

namespace {

using compare::ComparisonRow;

std::vector<ComparisonNames::Setting> settingsOf(std::vector<ComparisonRow> const& rows) {
    std::vector<ComparisonNames::Setting> settings;
    std::vector<std::string> parameters;
    for (ComparisonRow const& row : rows) {
        for (auto const& [name, value] : row.options.policyParameters) {
            if (std::find(parameters.begin(), parameters.end(), name) == parameters.end()) {
                parameters.push_back(name);
            }
        }
    }
    settings.reserve(settings.size() + parameters.size());
    for (std::string const& name : parameters) {
        settings.push_back({name, "", [name](ComparisonRow const& row) {
                                std::string text;
                                for (auto const& [key, value] : row.options.policyParameters) {
                                    text = key == name ? base::printable(value) : text;
                                }
                                return text;
                            }});
    }
    settings.push_back({"offset", " ms", [](ComparisonRow const& row) {
                            auto const offset = row.offsetMs();
                            return offset ? fmt::to_string(*offset) : std::string();
                        }});
    settings.push_back({"frames", "", [](ComparisonRow const& row) {
                            return fmt::to_string(row.options.framesPerCapture);
                        }});
    settings.push_back({"history", "", [](ComparisonRow const& row) {
                            return fmt::to_string(row.options.history);
                        }});
    return settings;
}

std::string withValue(ComparisonNames::Setting const& setting, std::string const& value) {
    return value.empty() ? "" : fmt::format("{} {}{}", setting.title, value, setting.unit);
}

void append(std::string& list, std::string const& item) {
    if (!item.empty()) {
        list += (list.empty() ? "" : ", ") + item;
    }
}

}  // namespace

ComparisonNames::ComparisonNames(std::vector<ComparisonRow> const& rows) {
    namePolicies(rows);
    for (Setting& setting : settingsOf(rows)) {
        // A run that failed need not know a setting that all others share.
        std::set<std::string> values;
        bool isForAll = true;
        for (ComparisonRow const& row : rows) {
            std::string const value = setting.value(row);
            isForAll = isForAll && (!value.empty() || !row.numbers);
            if (!value.empty()) {
                values.insert(value);
            }
        }
        if (values.size() == 1 && isForAll) {
            mShared.emplace_back(std::move(setting), *values.begin());
        } else if (!values.empty()) {
            mDiffering.push_back(std::move(setting));
        }
    }
}

void ComparisonNames::namePolicies(std::vector<ComparisonRow> const& rows) {
    std::vector<std::string> paths;
    std::map<std::string, std::string> ownNames;  // of a library whose first run failed, too
    for (ComparisonRow const& row : rows) {
        pipeline::PolicyOption const& policy = row.options.policy;
        if (policy.kind != pipeline::PolicyKind::Plugin) {
            mPolicies.emplace(policy.name(), policy.name());
            continue;
        }
        if (std::find(paths.begin(), paths.end(), policy.pluginPath) == paths.end()) {
            paths.push_back(policy.pluginPath);
        }
        std::string& name = ownNames[policy.pluginPath];
        name = name.empty() ? policy.ownName : name;
    }
    for (std::string const& path : paths) {
        std::string const file = std::filesystem::path(path).filename().string();
        std::string const own = ownNames[path].empty() ? file : ownNames[path];
        auto const shares = [&](auto const& nameOf) {
            return std::count_if(paths.begin(), paths.end(), nameOf) > 1;
        };
        std::string name = own;
        if (shares([&](std::string const& other) { return ownNames[other] == own; })) {
            bool const isFileShared = shares([&](std::string const& other) {
                return std::filesystem::path(other).filename() == file;
            });
            name = fmt::format("{} ({})", own, isFileShared ? path : file);
        }
        mPolicies[path] = base::printable(name);
        mLibraries.emplace_back(base::printable(name), base::printable(path));
    }
}

std::string const& ComparisonNames::policyOf(ComparisonRow const& row) const {
    return mPolicies.at(row.options.policy.name());
}

std::string ComparisonNames::nameOf(ComparisonRow const& row) const {
    std::string text = policyOf(row);
    for (Setting const& setting : mDiffering) {
        append(text, withValue(setting, setting.value(row)));
    }
    return text;
}

std::string ComparisonNames::fullNameOf(ComparisonRow const& row) const {
    std::string text = "policy " + nameOf(row);
    for (auto const& [setting, value] : mShared) {
        append(text, withValue(setting, setting.value(row)));
    }
    return text;
}

std::string ComparisonNames::shared() const {
    std::string text;
    for (auto const& [setting, value] : mShared) {
        append(text, withValue(setting, value));
    }
    return text;
}

std::string shortText(std::optional<double> value) {
    if (!value) {
        return "-";
    }
    if (*value == std::floor(*value)) {
        return fmt::format("{:.0f}", *value);
    }
    // Rounded half away from zero, as all times are; without the sign of a zero.
    constexpr double kTenths = 10;
    double const tenths = std::round(*value * kTenths);
    return fmt::format("{:.1f}", tenths == 0 ? 0.0 : tenths / kTenths);
}

std::string shortText(compare::ComparisonRow const& row, compare::ComparisonField const& field) {
    std::optional<double> const value =
        row.numbers ? compare::asNumber(field.value(*row.numbers)) : std::nullopt;
    // Measures have a decimal, so that they stand below each other; counts have none.
    bool const isMeasure = field.name.ends_with("_ms") || field.name.ends_with("_percent");
    if (value && field.name.ends_with("_share")) {
        return fmt::format("{:.2f}", *value);
    }
    return value && isMeasure && *value == std::floor(*value) ? fmt::format("{:.1f}", *value)
                                                              : shortText(value);
}

std::string ratioText(compare::Place const& place) {
    // Nothing is no ratio, and what is near the best says more by itself.
    bool const saysMore = place.ratio && *place.ratio != 0 && std::abs(*place.ratio - 1) >= 0.005;
    return saysMore ? fmt::format(" (x{:.2f})", *place.ratio) : "";
}

std::string changeText(compare::Change const& change) {
    if (!change.was || !change.is || *change.was == 0) {
        return "";
    }
    constexpr double kPercent = 100;
    return fmt::format("{:+.1f} %", kPercent * (*change.is - *change.was) / std::abs(*change.was));
}

std::string sinceSummary(compare::Since const& since) {
    size_t worse = 0;
    size_t better = 0;
    for (compare::Change const& change : since.changes) {
        worse += change.trend == compare::Change::Trend::Worse ? 1 : 0;
        better += change.trend == compare::Change::Trend::Better ? 1 : 0;
    }
    std::string text =
        fmt::format("{} (zsl {}): {} of {} matched", base::printable(since.path), since.version,
                    since.matched, base::counted(since.matched + since.added, "run", "runs"));
    text += since.gone > 0 ? fmt::format(", {} of the baseline not run", since.gone) : "";
    text += since.changes.empty() ? ", nothing changed"
                                  : fmt::format(", {} got worse, {} better",
                                                base::counted(worse, "value", "values"), better);
    for (std::string const& tolerance : since.tolerances) {
        text += (&tolerance == &since.tolerances.front() ? "; tolerance " : ", ") + tolerance;
    }
    return text;
}

}  // namespace zebcam::tool::report
