#include "report/LiveJson.h"

#include <nlohmann/json.hpp>

#include <ostream>

#include "Version.h"
#include "report/JsonReport.h"
#include "report/LiveText.h"

namespace zebcam::tool::report {

using Json = nlohmann::ordered_json;

namespace {

constexpr int kFormatVersion = 1;

Json distributionJson(base::Distribution const& times) {
    return {{"count", times.count()},          {"minNs", times.min()},
            {"medianNs", times.quantile(0.5)}, {"p95Ns", times.quantile(0.95)},
            {"p99Ns", times.quantile(0.99)},   {"maxNs", times.max()}};
}

Json servedJson(pipeline::CaptureTotals const& totals) {
    Json served = Json::object();
    for (auto const& [how, frames] : totals.served) {
        served[toString(how)] = frames;
    }
    return {{"pressed", totals.captures},
            {"answered", totals.answeredCaptures},
            {"frames", totals.frames},
            {"served", std::move(served)}};
}

Json ledgerJson(run::LiveResult const& result) {
    host::BufferLedger::Totals const& totals = result.status.ledger;
    return {{"balances", totals.balances()},
            {"handedOut", totals.handedOut},
            {"returned", totals.returned},
            {"consumed", totals.consumed},
            {"released", totals.released},
            {"stillOut", totals.withProcessor + totals.withFrameBuilder},
            {"lost", totals.lost},
            {"longestHeldNs", result.longestHeldNs}};
}

Json recorderJson(run::LiveResult const& result) {
    if (!result.recorder) {
        return nullptr;
    }
    return {{"path", *result.options.recordPath},
            {"end", toString(result.recorder->end)},
            {"operations", result.recorder->operations},
            {"unrecorded", result.recorder->unrecorded},
            {"bytes", result.recorder->bytesWritten}};
}

}  // namespace

void writeJson(run::LiveResult const& result, std::ostream& out) {
    Json const json = {
        {"formatVersion", kFormatVersion},
        {"zsl", VERSION},
        {"source", result.source},
        {"framesPerSecond", result.fps},
        {"elapsedNs", result.status.elapsedNs},
        {"endedBySignal", result.signal ? Json(*result.signal) : Json(nullptr)},
        {"policy", result.options.replay.policy.name()},
        {"offsetMs", result.offsetMs},
        {"sensor",
         {{"arrived", result.status.arrivedFrames},
          {"dropped", result.droppedFrames},
          {"lateness", distributionJson(result.lateness)}}},
        {"captures", servedJson(result.status.captures)},
        {"times",
         {{"submission", distributionJson(result.times.submission)},
          {"retry", distributionJson(result.times.retry)},
          {"lockHeld", distributionJson(result.times.lockHeld)}}},
        {"dumps", result.status.dumps},
        {"ledger", ledgerJson(result)},
        {"recorder", recorderJson(result)},
        {"faults",
         result.faults ? faultJson(result.options.replay.faults, *result.faults) : Json(nullptr)},
        {"errorLines", result.errorLines},
        {"failures", result.failures},
        {"clean", result.isClean()}};
    out << json.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
}

}  // namespace zebcam::tool::report
