#pragma once

#include <policy/zsl/ISelector.h>
// After the platform's headers, which it does not mind.
#include <pybind11/pybind11.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "script/Rule.h"

/// What a rule sees of a question to its policy. All of it is for whoever holds the interpreter's
/// lock.
namespace zebcam::tool::script {

using NSCam::ZslPolicy::ISelector;

/// One question and the answer as it comes about; in Python a `Capture`. A rule may keep it for
/// longer than the question lasts; it then raises an exception for whatever it is asked.
class RuleCall : public std::enable_shared_from_this<RuleCall> {
public:
    using In = ISelector::SelectInputParams;
    using Out = ISelector::SelectOutputParams;

    RuleCall(ISelector const& policy, In const& in, RuleSettings const& settings)
        : mPolicy(policy), mIn(&in), mSettings(settings) {}

    /// Throws RuntimeError once the question is over.
    In const& in() const;
    RuleSettings const& settings() const { return mSettings; }
    /// The history's frames as Python has them, oldest first.
    pybind11::list frames();
    /// Notes that the rule has looked at this frame.
    void lookAt(uint32_t frameNo) { mLookedAt = frameNo; }
    /// `capture 3, frame 27`: what the rule was about.
    std::string place() const;

    void reject(pybind11::handle frame, std::string const& criterion, pybind11::handle found) const;
    void order(pybind11::handle frame, Out::OpT order);
    void clone(pybind11::handle frame);

    /// Takes what the rule has returned and gives the whole answer. Throws std::runtime_error,
    /// which says what was expected, for what is none.
    Out answer(pybind11::handle returned);
    void end() { mIn = nullptr; }

private:
    uint32_t knownFrame(pybind11::handle frame) const;

    ISelector const& mPolicy;
    In const* mIn;  ///< null: the question is over
    RuleSettings const mSettings;
    std::optional<uint32_t> mLookedAt;
    Out mOut;
    std::set<uint32_t> mClones;
};

/// Where the rule that is being loaded finds its options, and notes which it has.
struct OptionSource {
    RuleSettings const& settings;
    std::vector<std::string>& names;

    /// Null while no rule is being loaded.
    static OptionSource*& current();
};

}  // namespace zebcam::tool::script
