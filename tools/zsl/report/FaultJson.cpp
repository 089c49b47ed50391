#include "report/FaultJson.h"

#include <nlohmann/json.hpp>
#include <string>

namespace zebcam::tool {

nlohmann::ordered_json faultJson(FaultOptions const& options, FaultTally const& tally) {
    using Json = nlohmann::ordered_json;
    Json rules = Json::array();
    for (FaultRule const& rule : options.rules) {
        rules.push_back(toString(rule));
    }
    Json strikes = Json::object();
    for (auto const& [kind, count] : tally.strikes) {
        strikes[std::string(traitsOf(kind).name)] = count;
    }
    return {{"randomSeed", tally.randomSeed},
            {"rules", std::move(rules)},
            {"strikes", std::move(strikes)}};
}

}  // namespace zebcam::tool
