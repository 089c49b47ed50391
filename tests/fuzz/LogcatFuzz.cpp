#include <nlohmann/json.hpp>
#include <sstream>

#include "Fuzz.h"
#include "explain/Explainer.h"
#include "explain/ExplanationJson.h"
#include "explain/ExplanationText.h"
#include "explain/LogcatReader.h"

using namespace zebcam;

/// Any log can be explained, and the explanation be printed.
int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    std::istringstream in(fuzz::textOf(data, size));
    tool::LogcatReader reader(in);
    tool::Explainer explainer;
    for (tool::LogRecord record; reader.next(record);) {
        explainer.feed(record);
    }
    tool::Explanation const explanation = explainer.finish();
    auto const& counts = explanation.counts;
    fuzz::require(counts.lines == counts.processor + counts.foreign, "a line is one or the other");
    fuzz::require(!tool::explanationText(explanation).empty(), "there is something to tell");
    std::string const json = tool::toJson(explanation).dump();
    fuzz::require(nlohmann::json::accept(json), "the JSON is well-formed");
    return 0;
}
