#include <nlohmann/json.hpp>
#include <sstream>

#include "Fuzz.h"
#include "log/Explainer.h"
#include "log/Logcat.h"
#include "report/Reports.h"

using namespace zebcam;

/// Any log can be explained, and the explanation be printed.
int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    std::istringstream in(fuzz::textOf(data, size));
    tool::log::LogcatReader reader(in);
    tool::log::Explainer explainer;
    for (tool::log::LogRecord record; reader.next(record);) {
        explainer.feed(record);
    }
    tool::log::Explanation const explanation = explainer.finish();
    auto const& counts = explanation.counts;
    fuzz::require(counts.lines == counts.processor + counts.foreign, "a line is one or the other");
    fuzz::require(!tool::report::explanationText(explanation).empty(),
                  "there is something to tell");
    std::string const json = tool::report::toJson(explanation).dump();
    fuzz::require(nlohmann::json::accept(json), "the JSON is well-formed");
    return 0;
}
