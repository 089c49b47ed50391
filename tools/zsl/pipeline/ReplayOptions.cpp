#include "pipeline/ReplayOptions.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <stdexcept>
#include <string_view>

#include "Version.h"
#include "base/Text.h"
#include "script/Rule.h"

namespace zebcam::tool::pipeline {

namespace {

/// As long as a live run may be, so that sums with boot times fit 64 bits.
constexpr int64_t kMaxTimeNs = 7 * 24 * 3600 * int64_t{1'000'000'000};

[[noreturn]] void refuse(std::string const& expected, std::string_view found) {
    throw std::invalid_argument(
        fmt::format("expected {}, found {}", expected, base::quoteContent(found)));
}

FaultTraits const& parseKind(std::string_view name) {
    auto const found =
        std::find_if(FAULT_KINDS.begin(), FAULT_KINDS.end(),
                     [name](FaultTraits const& traits) { return traits.name == name; });
    if (found == FAULT_KINDS.end()) {
        throw std::invalid_argument(
            fmt::format("expected KIND, KIND:RATE or KIND@TIME, found {} (zsl list faults){}",
                        base::quoteContent(name), base::didYouMean(name, faultKindNames())));
    }
    return *found;
}

double parseRate(FaultTraits const& traits, std::string_view text) {
    if (traits.scope == FaultScope::State) {
        refuse(fmt::format("{0} or {0}@TIME ({0} begins and lasts, so that it has no rate)",
                           traits.name),
               fmt::format("{}:{}", traits.name, text));
    }
    double rate = 0;
    auto const [rest, error] = std::from_chars(text.data(), text.data() + text.size(), rate);
    // The comparison is false for what is no number.
    if (error != std::errc() || rest != text.data() + text.size() || !(rate >= 0 && rate <= 1)) {
        refuse(fmt::format("a rate from 0 to 1 after \"{}:\"", traits.name), text);
    }
    return rate;
}

int64_t parseTime(FaultTraits const& traits, std::string_view text) {
    int64_t ns = -1;
    try {
        ns = base::parseDuration(text);
    } catch (std::invalid_argument const& error) {
        throw std::invalid_argument(fmt::format("after \"{}@\": {}", traits.name, error.what()));
    }
    if (ns < 0 || ns > kMaxTimeNs) {
        refuse(fmt::format("a time from 0s to {} after \"{}@\"", base::formatDuration(kMaxTimeNs),
                           traits.name),
               text);
    }
    return ns;
}

}  // namespace

std::vector<std::string> faultKindNames() {
    std::vector<std::string> names;
    names.reserve(std::size(FAULT_KINDS));
    for (FaultTraits const& traits : FAULT_KINDS) {
        names.emplace_back(traits.name);
    }
    return names;
}

FaultRule parseFault(std::string const& text) {
    std::string_view const whole = text;
    size_t const end = whole.find_first_of(":@");
    FaultTraits const& traits = parseKind(whole.substr(0, end));
    FaultRule rule{traits.kind, {}, {}};
    if (end == std::string_view::npos) {
        return rule;
    }
    std::string_view const value = whole.substr(end + 1);
    // The number's own complaint would not say that there is one thing too many.
    if (value.find_first_of(":@") != std::string_view::npos) {
        refuse("a rate or a time, not both", text);
    }
    if (whole[end] == ':') {
        rule.rate = parseRate(traits, value);
    } else {
        rule.atNs = parseTime(traits, value);
    }
    return rule;
}

std::vector<std::string_view> namesOf(FaultSet const& set) {
    std::vector<std::string_view> names;
    for (FaultTraits const& traits : FAULT_KINDS) {
        if (set[static_cast<size_t>(traits.kind)]) {
            names.push_back(traits.name);
        }
    }
    return names;
}

std::string toString(FaultRule const& rule) {
    std::string_view const name = traitsOf(rule.kind).name;
    if (rule.atNs) {
        return fmt::format("{}@{}", name, base::formatDuration(*rule.atNs));
    }
    return rule.rate ? fmt::format("{}:{}", name, *rule.rate) : std::string(name);
}

std::string FaultTally::text() const {
    std::string text;
    for (auto const& [kind, count] : strikes) {
        text += fmt::format("{}{} {}", text.empty() ? "" : ", ", traitsOf(kind).name, count);
    }
    return fmt::format("{} (random seed {})", text, randomSeed);
}

std::string PolicyOption::name() const {
    switch (kind) {
        case PolicyKind::Default:
            return "default";
        case PolicyKind::CShot:
            return "cshot";
        case PolicyKind::Multiframe:
            return "multiframe";
        case PolicyKind::BestShot:
            return "best-shot";
        case PolicyKind::Plugin:
            break;
    }
    return pluginPath;
}

bool PolicyOption::isRule() const {
    return pluginPath.ends_with(script::RULE_SUFFIX);
}

std::string PolicyOption::file() const {
    if (kind != PolicyKind::BestShot) {
        return pluginPath;
    }
    std::error_code ignored;  // whoever opens the library will say that it is not there
    auto const program = std::filesystem::read_symlink("/proc/self/exe", ignored);
    return (program.parent_path() / POLICY_FOLDER / "libzebcam_best_shot.so").lexically_normal();
}

}  // namespace zebcam::tool::pipeline
