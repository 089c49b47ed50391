#include "compare/Baseline.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <utility>

#include "base/InputError.h"
#include "base/Text.h"

namespace zebcam::tool::compare {

namespace {

using Json = nlohmann::json;

constexpr int kFormat = 2;

/// Null where there is none: a file may hold anything.
Json memberOf(Json const& json, char const* name) {
    return json.is_object() ? json.value(name, Json()) : Json();
}

[[noreturn]] void refuse(std::string const& path, std::string const& why) {
    throw base::InputError(
        fmt::format("--baseline {}: expected what zsl compare --json wrote, {}", path, why));
}

std::string fileNameOf(std::string const& path) {
    return std::filesystem::path(path).filename().string();
}

}  // namespace

char const* toString(Change::Trend trend) {
    switch (trend) {
        case Change::Trend::Worse:
            return "worse";
        case Change::Trend::Better:
            return "better";
        case Change::Trend::Tolerated:
            return "tolerated";
        case Change::Trend::Other:
            break;
    }
    return "other";
}

Tolerance::Tolerance(std::string_view text) : mText(text) {
    size_t const equals = text.find('=');
    std::string_view amount = text;
    if (equals != std::string_view::npos) {
        mField = &fieldOf(text.substr(0, equals));
        amount.remove_prefix(equals + 1);
    }
    mIsPercent = amount.ends_with('%');
    amount.remove_suffix(mIsPercent ? 1 : 0);
    auto const [end, error] = std::from_chars(amount.data(), amount.data() + amount.size(), mAmount,
                                              std::chars_format::fixed);
    bool const isNumber =
        error == std::errc() && end == amount.data() + amount.size() && std::isfinite(mAmount);
    // Fields have units of their own, so that a bare number means something else in each.
    if (!isNumber || mAmount < 0 || (mField == nullptr && !mIsPercent)) {
        throw std::invalid_argument("expected N% for every field, FIELD=N or FIELD=N%, found " +
                                    base::quoteContent(text));
    }
}

double Tolerance::allowed(ComparisonField const& field, double was) const {
    constexpr double kPercent = 100;
    if (mField != nullptr && mField != &field) {
        return 0;
    }
    return mIsPercent ? mAmount / kPercent * std::abs(was) : mAmount;
}

Baseline::Baseline(std::string path) : mPath(std::move(path)) {
    std::ifstream file(mPath, std::ios::binary);
    if (!file) {
        throw base::InputError(fmt::format("--baseline {}: expected a readable file", mPath));
    }
    mDocument = Json::parse(file, nullptr, false);
    Json const command = memberOf(mDocument, "command");
    if (command != "compare") {
        refuse(mPath, mDocument.is_discarded() ? "found no JSON"
                      : command.is_string()
                          ? "found what zsl " + command.get<std::string>() + " wrote"
                          : "found other JSON");
    }
    if (Json const format = memberOf(mDocument, "format"); format != kFormat) {
        refuse(mPath, fmt::format("in format {}, found format {}", kFormat, format.dump()));
    }
    Json const rows = memberOf(mDocument, "rows");
    bool const isWhole = rows.is_array() && !rows.empty() &&
                         std::all_of(rows.begin(), rows.end(), [](Json const& row) {
                             return row.is_object() && row.contains("fields") &&
                                    (row["fields"].is_object() || row["fields"].is_null()) &&
                                    memberOf(row, "options").is_object() &&
                                    memberOf(memberOf(row, "recording"), "path").is_string();
                         });
    if (!isWhole) {
        refuse(mPath, "with rows that have fields; an older zsl left them out");
    }
}

namespace {

/// What makes two rows runs of the same, apart from recording and policy.
Json settingsOf(ComparisonRow const& row) {
    pipeline::ReplayOptions const& options = row.options;
    bool const hasTimeout = options.policy.kind == pipeline::PolicyKind::Multiframe;
    Json parameters = Json::object();
    for (auto const& [name, value] : options.policyParameters) {
        parameters[name] = value;
    }
    Json properties = Json::object();
    for (auto const& [key, value] : options.properties) {
        properties[key] = value;
    }
    // As a number with a fraction, for a property may hold more ms than there are ns.
    Json const offset =
        row.offsetMs() ? Json(static_cast<double>(*row.offsetMs()) * base::NS_PER_MS) : Json();
    return {
        {"policyOptions", std::move(parameters)},
        {"framesPerCapture", options.framesPerCapture},
        {"historySize", options.history},
        {"deliveryDelayNs", options.deliveryDelayNs ? Json(*options.deliveryDelayNs) : Json()},
        {"reprocessDelayNs", options.reprocessDelayNs ? Json(*options.reprocessDelayNs) : Json()},
        {"offsetNs", offset},
        {"timeoutNs", hasTimeout ? Json(options.timeoutMs * base::NS_PER_MS) : Json()},
        {"frameSync", options.frameSync},
        {"pressAtNs", options.pressesNs},
        {"pressAtBootNs", options.pressBootTimesNs},
        {"fromNs", options.input.fromNs ? Json(*options.input.fromNs) : Json()},
        {"toNs", options.input.toNs ? Json(*options.input.toNs) : Json()},
        {"properties", std::move(properties)}};
}

std::optional<double> numberOf(ComparisonRow const& row, ComparisonField const& field) {
    return row.numbers ? asNumber(field.value(*row.numbers)) : std::nullopt;
}

/// Whether `old` is of the setting of `row`. A file name or a policy's own name will do, because
/// corpora and builds lie elsewhere from machine to machine.
bool isSameSetting(Json const& old, ComparisonRow const& row) {
    Json const options = memberOf(old, "options");
    Json const settings = settingsOf(row);
    for (auto const& [key, value] : settings.items()) {
        if (memberOf(options, key.c_str()) != value) {
            return false;
        }
    }
    pipeline::PolicyOption const& policy = row.options.policy;
    bool const isSamePolicy =
        memberOf(options, "policy") == policy.name() ||
        (!policy.ownName.empty() && memberOf(options, "policyName") == policy.ownName);
    Json const captures = memberOf(old["fields"], "captures");
    ComparisonField const& field = fieldOf("captures");
    auto const now = numberOf(row, field);
    return isSamePolicy && (captures.is_null() || !now || captures == *now);
}

bool isSameRecording(Json const& old, ComparisonRow const& row, bool byPath) {
    std::string const path = old["recording"]["path"];
    return byPath ? path == row.recording : fileNameOf(path) == fileNameOf(row.recording);
}

/// The row of the baseline that `row` is a run of; null: there is none, or there are several.
Json const* find(Json const& rows, ComparisonRow const& row) {
    std::vector<Json const*> found;
    for (Json const& old : rows) {
        if (isSameRecording(old, row, false) && isSameSetting(old, row)) {
            found.push_back(&old);
        }
    }
    if (found.size() > 1) {
        std::erase_if(found, [&](Json const* old) {
            return !isSameRecording(*old, row, true) ||
                   memberOf((*old)["options"], "policy") != row.options.policy.name();
        });
    }
    return found.size() == 1 ? found.front() : nullptr;
}

Change::Trend trendOf(Change const& change, std::vector<Tolerance> const& tolerances) {
    if (change.field->better == Better::Neither) {
        return Change::Trend::Other;
    }
    // A value that is no longer there can be no better, as with a limit.
    if (!change.is || !change.was) {
        return change.is ? Change::Trend::Better : Change::Trend::Worse;
    }
    double const worsening =
        change.field->better == Better::Less ? *change.is - *change.was : *change.was - *change.is;
    double allowed = 0;
    for (Tolerance const& tolerance : tolerances) {
        allowed = std::max(allowed, tolerance.allowed(*change.field, *change.was));
    }
    return worsening < 0          ? Change::Trend::Better
           : worsening <= allowed ? Change::Trend::Tolerated
                                  : Change::Trend::Worse;
}

/// Adds what changed in `row` against the fields of `old`, and tells it where it got worse.
void addChanges(Json const& old, std::vector<Tolerance> const& tolerances, Change const& place,
                std::string const& path, ComparisonRow& row, std::vector<Change>& changes) {
    if (!old.is_object() || !row.numbers) {
        return;  // one of the runs failed, which its status says
    }
    std::string worse;
    for (ComparisonField const& field : comparisonFields()) {
        auto const was = old.find(field.name);
        if (was == old.end()) {
            continue;  // a field that is new since
        }
        Change change = place;
        change.field = &field;
        change.was = was->is_number() ? std::optional(was->get<double>()) : std::nullopt;
        change.is = numberOf(row, field);
        if (change.was == change.is) {
            continue;
        }
        change.trend = trendOf(change, tolerances);
        if (change.trend == Change::Trend::Worse) {
            worse += fmt::format("{}{} {} -> {}", worse.empty() ? "" : ", ", field.name,
                                 change.was ? fmt::to_string(*change.was) : "none",
                                 change.is ? fmt::to_string(*change.is) : "none");
        }
        changes.push_back(change);
    }
    if (!worse.empty()) {
        row.worse = fmt::format("worse than in {}: {}", path, worse);
    }
}

}  // namespace

Since Baseline::changes(std::vector<ComparisonRow>& rows, Totals& totals) const {
    Since since;
    since.path = mPath;
    Json const version = memberOf(mDocument, "version");
    since.version = version.is_string() ? version.get<std::string>() : version.dump();
    for (Tolerance const& tolerance : mTolerances) {
        since.tolerances.push_back(tolerance.text());
    }
    Json const& olds = mDocument["rows"];
    for (size_t i = 0; i < rows.size(); ++i) {
        Json const* const old = find(olds, rows[i]);
        ++(old != nullptr ? since.matched : since.added);
        if (old != nullptr) {
            addChanges((*old)["fields"], mTolerances, {.row = i}, mPath, rows[i], since.changes);
        }
    }
    since.gone = olds.size() - std::min(olds.size(), since.matched);
    Json const oldTotals = memberOf(mDocument, "totals");
    Json const oldRows = memberOf(oldTotals, "rows");
    // Sums over other recordings would differ without anything having changed.
    since.hasTotals = since.added == 0 && since.gone == 0 &&
                      memberOf(oldTotals, "recordings") == totals.recordings;
    for (size_t i = 0; since.hasTotals && i < totals.rows.size(); ++i) {
        auto const old = std::ranges::find_if(oldRows, [&](Json const& row) {
            return row.is_object() && row.contains("options") && row.contains("fields") &&
                   isSameSetting(row, totals.rows[i]);
        });
        if (old != oldRows.end()) {
            addChanges((*old)["fields"], mTolerances, {.isOfTotal = true, .row = i}, mPath,
                       totals.rows[i], since.changes);
        }
    }
    return since;
}

}  // namespace zebcam::tool::compare
