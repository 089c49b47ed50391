// Takes the rules' place in a build without Python.

#include "base/InputError.h"
#include "script/Rule.h"

namespace zebcam::tool::script {

bool canRunRules() {
    return false;
}

Rule loadRule(std::string const& path, RuleSettings const& /*settings*/) {
    throw base::InputError("--policy " + path + ": " + NO_RULES);
}

}  // namespace zebcam::tool::script
