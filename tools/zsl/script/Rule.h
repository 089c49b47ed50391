#pragma once

#include <policy/zsl/ISelector.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// Policies that are written in Python, for trying at a desk.
namespace zebcam::tool::script {

/// Ends the name of every file with a rule.
inline constexpr char RULE_SUFFIX[] = ".py";

inline constexpr char NO_RULES[] =
    "this build runs no Python; build with -DZSL_BUILD_PYTHON=ON, for which pybind11-dev and "
    "libpython3-dev are needed (scripts/setup demo)";

/// What a rule is told that stands in no question to a policy.
struct RuleSettings {
    int64_t offsetMs = 0;   ///< from the wanted instant to the press
    int64_t timeoutMs = 0;  ///< after which a capture is served without the rule
    /// The value of the rule's option with this name, if it is set.
    std::function<std::optional<std::string>(std::string const& name)> option;
};

/// A file whose function `choose(capture, frames)` makes the decisions of a policy. The policy is
/// called as the file is, without folder and suffix; it may be asked on any thread, and what the
/// function raises leaves `select` as an exception that says where.
struct Rule {
    std::shared_ptr<NSCam::ZslPolicy::ISelector> policy;
    std::vector<std::string> options;  ///< names of those that it has
};

/// Runs the file, and with the first one of a process starts the interpreter, which lasts until the
/// program exits. Throws InputError, with file and line, for what Python does not like, for a file
/// without the function, and in a build without Python.
Rule loadRule(std::string const& path, RuleSettings const& settings);

/// Whether this build has Python.
bool canRunRules();

}  // namespace zebcam::tool::script
