// Writes the pages that the browser test opens, each with the result's JSON beside it:
// ReportPages FOLDER

#include <exception>
#include <fstream>
#include <iostream>
#include <string>
#include <utility>
#include <vector>

#include "commands/ReplayObserver.h"
#include "compare/Comparison.h"
#include "recording/RecordingGenerator.h"
#include "report/HtmlReport.h"
#include "report/JsonReport.h"
#include "run/Replay.h"

namespace {

using namespace zebcam::tool;

std::ofstream opened(std::string const& path) {
    std::ofstream file;
    file.exceptions(std::ios::failbit | std::ios::badbit);
    file.open(path);
    return file;
}

recording::Recording recordingOf(recording::GeneratorOptions const& options,
                                 std::string const& name) {
    recording::Recording recording = recording::generate(options);
    recording.path = "recordings/" + name + ".csv";
    // This would end the script element that holds the data.
    recording.notes.push_back("</script><!--<script>\u2028");
    return recording;
}

void writePage(std::string const& base, recording::Recording const& recording,
               pipeline::ReplayOptions const& options) {
    commands::ReplayObserver::Wishes wishes;
    wishes.reasons = true;
    commands::ReplayObserver observer(std::move(wishes));
    run::ReplayResult const result =
        run::replay(recording, observer.listeningOptions(options), observer.listener());
    observer.finish();
    std::ofstream html = opened(base + ".html");
    report::writeHtmlReport(recording, result, observer.explanation(), html);
    std::ofstream json = opened(base + ".json");
    report::writeJson(result, observer.explanation(), json);
}

void writeComparison(std::string const& path, std::vector<recording::Recording> const& recordings) {
    std::vector<compare::ComparisonRow> rows;
    for (recording::Recording const& recording : recordings) {
        for (pipeline::PolicyKind const kind :
             {pipeline::PolicyKind::Default, pipeline::PolicyKind::CShot,
              pipeline::PolicyKind::Multiframe}) {
            pipeline::ReplayOptions options;
            options.captures = 20;
            options.framesPerCapture = 2;
            options.policy.kind = kind;
            run::ReplayResult const result = run::replay(recording, options);
            rows.push_back({recording.path,
                            options,
                            compare::numbersOf(result, {}),
                            compare::problemsOf(result),
                            {}});
        }
    }
    rows.back().broken = {"p95_lag_ms is 66.7 (--fail-if p95_lag_ms>50)"};
    rows.push_back({"missing.csv", {}, std::nullopt, {"missing.csv: cannot be opened"}, {}});
    std::ofstream html = opened(path);
    report::writeHtmlReport(rows, html);
}

pipeline::ReplayOptions pressing(std::vector<int64_t> pressesMs, pipeline::PolicyKind kind,
                                 size_t frames) {
    pipeline::ReplayOptions options;
    for (int64_t const ms : pressesMs) {
        options.pressesNs.push_back(ms * 1'000'000);
    }
    options.policy.kind = kind;
    options.framesPerCapture = frames;
    return options;
}

void writeAll(std::string const& folder) {
    recording::GeneratorOptions few;
    few.frames = 25;
    few.missingAfStateRate = 0.3;
    few.exposureJumpRate = 0.1;
    few.scanRate = 0.2;
    few.errorRate = 0.05;
    recording::Recording const shortOne = recordingOf(few, "short");
    writePage(folder + "/short", shortOne,
              pressing({120, 260, 300, 455, 620}, pipeline::PolicyKind::Default, 3));

    recording::GeneratorOptions many;
    many.frames = 20'000;
    many.missingAfStateRate = 0.02;
    many.exposureJumpRate = 0.01;
    many.errorRate = 0.001;
    recording::Recording const longOne = recordingOf(many, "long");
    pipeline::ReplayOptions options = pressing({}, pipeline::PolicyKind::Multiframe, 4);
    options.captures = 60;
    writePage(folder + "/long", longOne, options);

    writeComparison(folder + "/comparison.html", {shortOne, longOne});
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: ReportPages FOLDER\n";
        return 2;
    }
    try {
        writeAll(argv[1]);
        return 0;
    } catch (std::exception const& error) {
        std::cerr << "ReportPages: " << error.what() << '\n';
        return 1;
    }
}
