#include "compare/Comparison.h"

#include <ulog/ULogger.h>

#include <algorithm>
#include <cstring>
#include <exception>
#include <map>
#include <sstream>
#include <type_traits>
#include <utility>

#include "base/InputError.h"
#include "base/InputFile.h"
#include "log/Explainer.h"
#include "log/Logcat.h"
#include "pipeline/PipelineSetup.h"
#include "recording/Recording.h"
#include "run/Replay.h"

namespace zebcam::tool::compare {

namespace {

using Names = std::vector<std::string>;

/// The names of the parameters that a plan's policies take, by file; none of one that does not
/// tell.
using Takers = std::map<std::string, std::optional<Names>>;

bool takes(Takers const& takers, pipeline::PolicyOption const& policy, std::string const& name) {
    auto const taker = takers.find(policy.file());
    return taker != takers.end() &&
           (!taker->second ||
            std::find(taker->second->begin(), taker->second->end(), name) != taker->second->end());
}

/// A parameter that no policy takes is a slip: it would count for nothing.
void requireTaken(ComparisonPlan const& plan, Takers const& takers) {
    for (auto const& [name, values] : plan.policyParameters) {
        pipeline::PolicyOption const* refusing = nullptr;
        bool isTaken = false;
        for (pipeline::PolicyOption const& policy : plan.policies) {
            isTaken = isTaken || takes(takers, policy, name);
            refusing = policy.file().empty() ? refusing : &policy;
        }
        if (!isTaken && refusing != nullptr) {
            throw base::InputError(
                pipeline::unknownParameter(*refusing, name, *takers.at(refusing->file())));
        }
    }
}

/// Asks the policies in children, as the runs will be: they are code of the user's. A rule that
/// cannot be loaded is told at once, for all its runs would fail alike; of a library its rows tell.
Takers askTakers(ComparisonPlan const& plan, ChildPoolOptions const& pool,
                 base::SignalWatch const& signals) {
    Takers takers;
    std::vector<pipeline::PolicyOption> asked;
    for (pipeline::PolicyOption const& policy : plan.policies) {
        bool const isNew = !policy.file().empty() && takers.try_emplace(policy.file()).second;
        if (isNew && (policy.isRule() || !plan.policyParameters.empty())) {
            asked.push_back(policy);
        }
    }
    // A line for each name, behind one that stands for that the policy tells them.
    constexpr char kTold = '+';
    auto const ask = [&](size_t i) {
        auto const names = pipeline::loadPolicy(asked[i].file()).parameters;
        std::string told = names ? std::string(1, kTold) : "-";
        for (std::string const& name : names.value_or(Names())) {
            told += '\n' + name;
        }
        return told;
    };
    runInChildren(asked.size(), pool, signals, ask, [&](size_t i, ChildOutcome const& outcome) {
        if (!outcome.failure.empty() && asked[i].isRule()) {
            bool const isNamed = outcome.failure.starts_with("--policy ");
            throw base::InputError(
                isNamed ? outcome.failure : "--policy " + asked[i].name() + ": " + outcome.failure);
        }
        if (outcome.data.starts_with(kTold)) {
            Names& names = takers[asked[i].file()].emplace();
            std::istringstream lines(outcome.data);
            std::string line;
            std::getline(lines, line);
            while (std::getline(lines, line)) {
                names.push_back(line);
            }
        }
    });
    requireTaken(plan, takers);
    return takers;
}

/// Every policy with every choice of the values of those parameters that it takes, the last
/// parameter changing fastest.
std::vector<pipeline::ReplayOptions> policiesOf(ComparisonPlan const& plan, Takers const& takers) {
    std::vector<pipeline::ReplayOptions> settings;
    for (pipeline::PolicyOption const& policy : plan.policies) {
        std::vector<pipeline::PolicyParameters> choices(1);
        for (auto const& [name, values] : plan.policyParameters) {
            std::vector<pipeline::PolicyParameters> const shorter =
                takes(takers, policy, name) ? std::exchange(choices, {})
                                            : std::vector<pipeline::PolicyParameters>();
            for (pipeline::PolicyParameters const& choice : shorter) {
                for (std::string const& value : values) {
                    choices.emplace_back(choice).emplace_back(name, value);
                }
            }
        }
        for (pipeline::PolicyParameters& choice : choices) {
            settings.push_back(plan.common);
            settings.back().policy = policy;
            settings.back().policyParameters = std::move(choice);
        }
    }
    return settings;
}

std::vector<ComparisonRow> rowsOf(ComparisonPlan const& plan, Takers const& takers) {
    std::vector<pipeline::ReplayOptions> const policies = policiesOf(plan, takers);
    std::vector<ComparisonRow> rows;
    for (size_t i = 0; i < plan.recordings.size(); ++i) {
        for (pipeline::ReplayOptions const& policy : policies) {
            for (std::optional<int64_t> const& offsetMs : plan.offsetsMs) {
                for (size_t const frames : plan.framesPerCapture) {
                    for (size_t const history : plan.history) {
                        ComparisonRow& row = rows.emplace_back();
                        row.recording = plan.recordings[i];
                        row.options = policy;
                        if (!plan.videos.empty()) {
                            row.options.input.video = plan.videos[i];
                        }
                        row.options.offsetMs = offsetMs;
                        row.options.framesPerCapture = frames;
                        row.options.history = history;
                    }
                }
            }
        }
    }
    return rows;
}

/// The result on its way between two processes of the same program: a child is forked, so that both
/// lay out the numbers alike and the bytes will do.
class Parcel {
public:
    explicit Parcel(std::string data = {}) : mData(std::move(data)) {}

    template <typename T>
    void put(T const& value) {
        static_assert(std::is_trivially_copyable_v<T>);
        mData.append(reinterpret_cast<char const*>(&value), sizeof value);
    }
    /// All bytes of `items`, with their number before them.
    template <typename Items>
    void putAll(Items const& items) {
        using Item = typename Items::value_type;
        static_assert(std::is_trivially_copyable_v<Item>);
        put(items.size());
        mData.append(reinterpret_cast<char const*>(items.data()), items.size() * sizeof(Item));
    }

    /// In the order of put(); what is missing is not looked for, because the child has put it.
    template <typename T>
    void take(T& value) {
        std::memcpy(&value, mData.data() + mTaken, sizeof value);
        mTaken += sizeof value;
    }
    template <typename Items>
    void takeAll(Items& items) {
        size_t size = 0;
        take(size);
        items.resize(size);
        size_t const bytes = size * sizeof(typename Items::value_type);
        if (bytes > 0) {
            std::memcpy(items.data(), mData.data() + mTaken, bytes);
        }
        mTaken += bytes;
    }

    std::string const& data() const { return mData; }

private:
    std::string mData;
    size_t mTaken = 0;
};

/// Visits what is plain of a video's facts.
template <typename Video, typename Visit>
void forEachFact(Video& video, Visit const& visit) {
    visit(video.width);
    visit(video.height);
    visit(video.rotation);
    visit(video.pictures);
    visit(video.match);
    visit(video.framesWithout);
}

std::string pack(RunNumbers const& numbers, OwnRefusals const& ownRefusals,
                 run::ReplayResult const& result, std::vector<std::string> const& problems) {
    Parcel parcel;
    parcel.put(numbers);
    parcel.put(ownRefusals.size());
    for (auto const& [name, count] : ownRefusals) {
        parcel.putAll(name);
        parcel.put(count);
    }
    parcel.putAll(run::measure(result.captures, result.offsetMs));
    parcel.putAll(result.options.policy.ownName);
    recording::VideoFacts const video = result.facts.video.value_or(recording::VideoFacts());
    parcel.putAll(video.path);
    forEachFact(video, [&parcel](auto const& fact) { parcel.put(fact); });
    parcel.put(problems.size());
    for (std::string const& problem : problems) {
        parcel.putAll(problem);
    }
    return parcel.data();
}

void unpack(std::string data, ComparisonRow& row) {
    Parcel parcel(std::move(data));
    parcel.take(row.numbers.emplace());
    size_t names = 0;
    for (parcel.take(names); names > 0; --names) {
        std::string name;
        parcel.takeAll(name);
        parcel.take(row.ownRefusals[name]);
    }
    parcel.takeAll(row.frames);
    parcel.takeAll(row.options.policy.ownName);
    recording::VideoFacts& video = row.video.emplace();
    parcel.takeAll(video.path);
    forEachFact(video, [&parcel](auto& fact) { parcel.take(fact); });
    if (video.path.empty()) {
        row.video.reset();
    }
    size_t problems = 0;
    parcel.take(problems);
    row.problems.resize(problems);
    for (std::string& problem : row.problems) {
        parcel.takeAll(problem);
    }
}

/// The videos of a plan, each decoded once, before there are children that all have them. One that
/// cannot be is a failure of the rows that need it, and of no others.
class Videos {
public:
    Videos(ComparisonPlan const& plan, base::SignalWatch const& signals) {
        for (std::string const& video : plan.videos) {
            measure(plan, video, signals);
        }
        for (std::string const& recording : plan.recordings) {
            if (isVideo(recording)) {
                measure(plan, recording, signals);
            }
        }
    }

    picture::MeasuredVideo const& of(std::string const& path) const {
        Found const& found = mFound.at(path);
        if (!found.failure.empty()) {
            throw base::InputError(found.failure);
        }
        return found.video;
    }

private:
    struct Found {
        picture::MeasuredVideo video;
        std::string failure;
    };

    static bool isVideo(std::string const& path) {
        try {
            return picture::looksLikeVideo(base::InputFile(path));
        } catch (base::InputError const&) {
            return false;  // whoever reads it says why
        }
    }

    void measure(ComparisonPlan const& plan, std::string const& path,
                 base::SignalWatch const& signals) {
        auto const [at, isNew] = mFound.try_emplace(path);
        if (!isNew) {
            return;
        }
        signals.throwIfAny();
        try {
            base::InputFile file(path);
            at->second.video = plan.measure(file);
        } catch (base::InputError const& error) {
            at->second.failure = error.what();
        }
    }

    std::map<std::string, Found> mFound;  ///< by path
};

std::string runOne(ComparisonPlan const& plan, Videos const& videos,
                   std::vector<ComparisonRow> const& rows, size_t i) {
    ComparisonRow const& row = rows[i];
    // Read in the child: a file that breaks off is a failure of its rows and of no other.
    base::InputFile file(row.recording);
    recording::Recording const recording = picture::readWithPictures(
        file, row.options.input, [&](base::InputFile& video) { return videos.of(video.name()); });
    pipeline::ReplayOptions options = row.options;
    // Debug lines add the values that were found, which nobody counts.
    options.logLevel =
        plan.onRun ? NSCam::Utils::ULog::LOG_LEVEL_DEBUG : NSCam::Utils::ULog::LOG_LEVEL_INFO;
    log::Explainer explainer;
    run::ReplayListener listener;
    listener.isRepeat = [&explainer](uint32_t requestNo, bool evenIfUnlike) {
        return explainer.foldRepeat(requestNo, evenIfUnlike);
    };
    listener.skipRepeat = [&explainer](uint32_t requestNo, int64_t ageMs) {
        explainer.skipRepeat(requestNo, ageMs);
    };
    listener.log = [&explainer](int64_t, host::LogLine const& line) {
        // Of both outputs: libraries' policies give their reasons to the Android log only.
        explainer.feed(log::fromLogLine(line));
    };
    run::ReplayResult result = run::replay(recording, options, listener);
    log::Explanation const explanation = explainer.finish();
    RunNumbers const numbers = numbersOf(result, countRefusals(explanation));
    std::vector<std::string> problems = problemsOf(result);
    if (plan.onRun) {
        for (Limit const& limit : plan.limits) {
            result.limits.push_back(limit.check(numbers));
        }
        try {
            run::addDefaultOutcomes(recording, result);
            plan.onRun(i, recording, result, explanation);
        } catch (std::exception const& error) {
            problems.emplace_back(error.what());  // the numbers are good nevertheless
        }
    }
    return pack(numbers, countOwnRefusals(explanation), result, problems);
}

void judge(ComparisonRow& row, std::vector<Limit> const& limits) {
    for (Limit const& limit : limits) {
        if (auto broken = limit.brokenBy(*row.numbers)) {
            row.broken.push_back(std::move(*broken));
        }
    }
}

}  // namespace

bool Comparison::isGood() const {
    auto const isGood = [](ComparisonRow const& row) { return row.isGood(); };
    return std::all_of(rows.begin(), rows.end(), isGood) &&
           std::all_of(totals.rows.begin(), totals.rows.end(), isGood) &&
           (!since || since->matched > 0);
}

Comparison compare(ComparisonPlan const& plan, ChildPoolOptions const& pool,
                   base::SignalWatch const& signals,
                   std::function<void(size_t, size_t)> const& progress) {
    Comparison comparison;
    comparison.limits = plan.limits;
    std::vector<ComparisonRow>& rows = comparison.rows =
        rowsOf(plan, askTakers(plan, pool, signals));
    size_t ended = 0;
    auto const onEnd = [&](size_t task, ChildOutcome outcome) {
        ComparisonRow& row = rows[task];
        // The row of a run that failed stays, without numbers: nothing may be left out in silence.
        if (outcome.failure.empty()) {
            unpack(std::move(outcome.data), row);
            judge(row, plan.limits);
        } else {
            row.problems.push_back(std::move(outcome.failure));
        }
        if (progress) {
            progress(++ended, rows.size());
        }
    };
    if (progress) {
        // Somebody who looks should see at once how much there is to do.
        progress(0, rows.size());
    }
    Videos const videos(plan, signals);
    runInChildren(
        rows.size(), pool, signals, [&](size_t task) { return runOne(plan, videos, rows, task); },
        onEnd);
    comparison.totals = totalsOf(rows, rows.size() / plan.recordings.size());
    comparison.rankings = rank(comparison.totals.rows);
    if (plan.baseline) {
        comparison.since = plan.baseline->changes(rows, comparison.totals);
    }
    return comparison;
}

}  // namespace zebcam::tool::compare
