#pragma once

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "recording/Recording.h"

namespace zebcam::tool::pipeline {

/// What may go wrong around the processor.
enum class FaultKind : uint8_t {
    // On the way from the sensor
    Late,             ///< a frame arrives some intervals late
    Lost,             ///< a frame never arrives and stays in flight
    Duplicate,        ///< a frame arrives a second time, under the same number
    Reorder,          ///< a frame arrives after its successor
    ImageError,       ///< a frame's image is unusable
    MissingMetadata,  ///< a frame's result lacks its states
    AbsurdMetadata,   ///< a frame's result tells what nobody documented
    LockedMetadata,   ///< a frame's results cannot be locked
    WrongClock,       ///< timestamps are on a clock of another base
    // Around the processor
    NoHistory,     ///< the provider gives no history to a try
    CallbackGone,  ///< who hears of early shutters no longer exists
    Flush,         ///< the pipeline is flushed while a capture is under way
    // In the policy
    PolicyThrows,    ///< a capture's policy throws whenever it is asked
    PolicySlow,      ///< a policy takes its time, with the processor's lock held
    PolicyNonsense,  ///< a capture's policy answers what cannot be carried out
};

/// What a fault strikes or spares each time.
enum class FaultScope : uint8_t {
    Frame,    ///< a sensor frame
    Try,      ///< an attempt of the processor to serve a capture
    Capture,  ///< a press
    State,    ///< nothing in particular: it begins and lasts
};

/// A kind as users know it.
struct FaultTraits {
    FaultKind kind;
    std::string_view name;  ///< for instance `image-error`
    FaultScope scope;
    double defaultRate;  ///< share of its opportunities that is struck; of no use for a State
    std::string_view meaning;
};

/// In the order of the kinds.
inline constexpr std::array<FaultTraits, 15> FAULT_KINDS = {{
    {FaultKind::Late, "late", FaultScope::Frame, 0.1, "it arrives 1 to 4 median intervals late"},
    {FaultKind::Lost, "lost", FaultScope::Frame, 0.1, "it is announced and never arrives"},
    {FaultKind::Duplicate, "duplicate", FaultScope::Frame, 0.1,
     "it arrives a second time, one interval later"},
    {FaultKind::Reorder, "reorder", FaultScope::Frame, 0.1,
     "it arrives a quarter of an interval after its successor"},
    {FaultKind::ImageError, "image-error", FaultScope::Frame, 0.1, "its image is unusable"},
    {FaultKind::MissingMetadata, "missing-metadata", FaultScope::Frame, 0.2,
     "its result lacks AF, lens, AE and frame-sync state, sensor id and mode"},
    {FaultKind::AbsurdMetadata, "absurd-metadata", FaultScope::Frame, 0.2,
     "its result tells what nobody documented"},
    {FaultKind::LockedMetadata, "locked-metadata", FaultScope::Frame, 0.2,
     "somebody else holds its results whenever a policy looks"},
    {FaultKind::WrongClock, "wrong-clock", FaultScope::State, 1.0,
     "timestamps are of a clock that stood still while the phone slept"},
    {FaultKind::NoHistory, "no-history", FaultScope::Try, 0.5,
     "the provider gives no history this time"},
    {FaultKind::CallbackGone, "callback-gone", FaultScope::State, 1.0,
     "the receiver of early shutters was destroyed"},
    {FaultKind::Flush, "flush", FaultScope::Capture, 0.5,
     "the pipeline is flushed half an interval after the press"},
    {FaultKind::PolicyThrows, "policy-throws", FaultScope::Capture, 0.5,
     "its policy throws whenever it is asked"},
    {FaultKind::PolicySlow, "policy-slow", FaultScope::Try, 0.5,
     "its policy takes half an interval to three before it answers"},
    {FaultKind::PolicyNonsense, "policy-nonsense", FaultScope::Capture, 0.5,
     "its policy answers what cannot be carried out"},
}};

constexpr FaultTraits const& traitsOf(FaultKind kind) {
    return FAULT_KINDS[static_cast<size_t>(kind)];
}

/// Kinds of faults, by kind.
using FaultSet = std::bitset<FAULT_KINDS.size()>;

inline void add(FaultSet& set, FaultKind kind) {
    set.set(static_cast<size_t>(kind));
}

/// In the order of the kinds.
std::vector<std::string_view> namesOf(FaultSet const& set);

/// One fault as the user asked for it. With neither rate nor time it strikes at its kind's default
/// rate; a state then lasts from the first frame on.
struct FaultRule {
    FaultKind kind = FaultKind::Late;
    std::optional<double> rate;   ///< share of the opportunities that is struck, 0 to 1
    std::optional<int64_t> atNs;  ///< from the first frame: once, at the next opportunity

    bool operator==(FaultRule const&) const = default;
};

/// All faults of a run.
struct FaultOptions {
    std::vector<FaultRule> rules;  ///< empty: nothing goes wrong
    uint64_t randomSeed = 1;       ///< the same one, the same faults
};

/// Reads `KIND`, `KIND:RATE` or `KIND@TIME`. Throws std::invalid_argument, with a text that says
/// what was expected and found, for anything else, for a rate that is not from 0 to 1, for a time
/// before the first frame or more than a week after it, and for the rate of a state.
FaultRule parseFault(std::string const& text);

std::vector<std::string> faultKindNames();

/// The rule in the form that parseFault reads.
std::string toString(FaultRule const& rule);

/// How often the faults that were asked for have struck.
struct FaultTally {
    uint64_t randomSeed = 0;
    std::vector<std::pair<FaultKind, uint64_t>> strikes;  ///< in the order of the kinds

    /// For instance `late 12, lost 3 (random seed 1)`.
    std::string text() const;
};

/// Who chooses the history frames of a capture.
enum class PolicyKind {
    Default,     ///< the processor's default
    CShot,       ///< the processor's continuous-shot policy
    Multiframe,  ///< the processor's multi-frame policy
    Plugin,      ///< a library's or a rule in Python, handed in with each capture
    BestShot,    ///< the kit's best-shot policy: a library that comes with the tool
};

/// A policy as the user named it.
struct PolicyOption {
    PolicyKind kind = PolicyKind::Default;
    std::string pluginPath;  ///< of a Plugin, else empty
    std::string ownName{};   ///< what a Plugin calls itself, once it has been loaded

    /// `default`, `cshot`, `multiframe`, `best-shot` or the path of the file.
    std::string name() const;

    /// The file that the policy is to be loaded from; empty for one of the processor's.
    std::string file() const;

    /// Whether that is a rule in Python.
    bool isRule() const;
};

/// The processor's property for the user's part of the ZSL offset, in ms.
inline constexpr char OFFSET_PROPERTY[] = "vendor.debug.camera3.zsl.timestamp";

/// What a policy from a file is given, by name: each becomes the property with this prefix, which a
/// device can set as well.
using PolicyParameters = std::vector<std::pair<std::string, std::string>>;
inline constexpr char POLICY_PROPERTY_PREFIX[] = "vendor.debug.camera3.zsl.policy.";

/// How long a capture may wait whose policy does not say, ms.
inline constexpr int64_t DEFAULT_TIMEOUT_MS = 3000;

/// What to replay. Times count from the recording's first frame; delays are an hour at most.
/// Without any press there are `captures` of them, evenly spread.
struct ReplayOptions {
    recording::InputOptions input;
    std::vector<int64_t> pressesNs;
    std::vector<int64_t> pressBootTimesNs;  ///< presses by the recording's own clock
    size_t captures = 10;
    size_t framesPerCapture = 1;
    size_t history = 8;                       ///< frames that the provider keeps
    std::optional<int64_t> deliveryDelayNs;   ///< none: the frame's duration
    std::optional<int64_t> reprocessDelayNs;  ///< none: the median interval
    std::optional<int64_t> offsetMs;          ///< none: OFFSET_PROPERTY stays as it is
    PolicyOption policy;
    PolicyParameters policyParameters;       ///< of a Plugin
    int64_t timeoutMs = DEFAULT_TIMEOUT_MS;  ///< of the multi-frame policy; the others' is fixed
    bool frameSync = false;
    std::vector<int64_t> flushesNs;
    std::vector<int64_t> dumpsNs;
    std::vector<std::pair<std::string, std::string>> properties;
    FaultOptions faults;
    uint32_t logLevel = 0;  ///< largest ULog::LogLevel that is shown; 0: nothing
};

}  // namespace zebcam::tool::pipeline
