#include "compare/ComparisonResult.h"

#include <algorithm>
#include <span>
#include <utility>

namespace zebcam::tool::compare {

std::optional<int64_t> ComparisonRow::offsetMs() const {
    return numbers ? numbers->offsetMs : options.offsetMs;
}

char const* ComparisonRow::status() const {
    if (!numbers) {
        return "failed";
    }
    if (!problems.empty()) {
        return "problem";
    }
    return !broken.empty() ? "limit" : worse.empty() ? "ok" : "worse";
}

namespace {

void add(RunNumbers const& more, RunNumbers& sum) {
    // What is not made from the frames themselves, which are summed up at the end.
    sum.summary.captures += more.summary.captures;
    sum.summary.answeredCaptures += more.summary.answeredCaptures;
    for (size_t i = 0; i < sum.refusals.byCriterion.size(); ++i) {
        sum.refusals.byCriterion[i] += more.refusals.byCriterion[i];
    }
    sum.ledger.handedOut += more.ledger.handedOut;
    sum.ledger.returned += more.ledger.returned;
    sum.ledger.released += more.ledger.released;
    sum.ledger.consumed += more.ledger.consumed;
    sum.ledger.lost += more.ledger.lost;
    sum.ledger.withProcessor += more.ledger.withProcessor;
    sum.ledger.withFrameBuilder += more.ledger.withFrameBuilder;
    sum.longestHeldNs = std::max(sum.longestHeldNs, more.longestHeldNs);
    sum.droppedFrames += more.droppedFrames;
    sum.errorLines += more.errorLines;
    sum.offsetMs = more.offsetMs;
}

ComparisonRow totalOf(std::vector<ComparisonRow const*> const& rows) {
    ComparisonRow total;
    total.options = rows.front()->options;
    RunNumbers& numbers = total.numbers.emplace();
    for (ComparisonRow const* const row : rows) {
        add(*row->numbers, numbers);
        for (auto const& [name, count] : row->ownRefusals) {
            total.ownRefusals[name] += count;
        }
        total.frames.insert(total.frames.end(), row->frames.begin(), row->frames.end());
    }
    run::ReplaySummary const counts = numbers.summary;
    numbers.summary = run::summarize(total.frames);
    numbers.summary.captures = counts.captures;
    numbers.summary.answeredCaptures = counts.answeredCaptures;
    return total;
}

}  // namespace

Totals totalsOf(std::vector<ComparisonRow> const& rows, size_t settings) {
    std::vector<bool> everRan(settings);
    for (size_t i = 0; i < rows.size(); ++i) {
        everRan[i % settings] = everRan[i % settings] || rows[i].numbers;
    }
    Totals totals;
    std::vector<std::vector<ComparisonRow const*>> counted(settings);
    for (size_t begin = 0; begin < rows.size(); begin += settings) {
        std::span const recording(&rows[begin], settings);
        bool isWhole = std::find(everRan.begin(), everRan.end(), true) != everRan.end();
        for (size_t i = 0; i < settings; ++i) {
            isWhole = isWhole && (recording[i].numbers || !everRan[i]);
        }
        ++(isWhole ? totals.recordings : totals.leftOut);
        for (size_t i = 0; isWhole && i < settings; ++i) {
            if (everRan[i]) {
                counted[i].push_back(&recording[i]);
            }
        }
    }
    for (size_t i = 0; i < settings; ++i) {
        if (!counted[i].empty()) {
            totals.rows.push_back(totalOf(counted[i]));
            continue;
        }
        totals.rows.emplace_back().options = rows[i].options;
    }
    return totals;
}

std::vector<Ranking> rank(std::vector<ComparisonRow> const& totals) {
    std::vector<Ranking> rankings;
    for (ComparisonField const& field : comparisonFields()) {
        Ranking ranking{&field, {}};
        for (size_t i = 0; i < totals.size(); ++i) {
            FieldValue value = totals[i].numbers ? field.value(*totals[i].numbers) : FieldValue();
            if (field.better != Better::Neither && asNumber(value)) {
                ranking.places.push_back({i, value, {}});
            }
        }
        auto const number = [](Place const& place) { return *asNumber(place.value); };
        bool const isLess = field.better == Better::Less;
        std::ranges::stable_sort(ranking.places, [&](Place const& a, Place const& b) {
            return isLess ? number(a) < number(b) : number(a) > number(b);
        });
        // Where all are alike there is nothing to choose.
        if (ranking.places.empty() ||
            number(ranking.places.front()) == number(ranking.places.back())) {
            continue;
        }
        double const best = number(ranking.places.front());
        for (Place& place : ranking.places) {
            place.ratio = best != 0 ? std::optional(number(place) / best) : std::nullopt;
        }
        rankings.push_back(std::move(ranking));
    }
    return rankings;
}

}  // namespace zebcam::tool::compare
