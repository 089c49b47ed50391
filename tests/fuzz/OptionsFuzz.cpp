#include <array>
#include <stdexcept>

#include "Fuzz.h"
#include "base/Text.h"
#include "commands/OptionValues.h"
#include "compare/ComparisonFields.h"
#include "pipeline/ReplayOptions.h"

using namespace zebcam;
using namespace zebcam::tool;

namespace {

void tryDuration(std::string const& text) {
    int64_t const ns = base::parseDuration(text);
    fuzz::require(base::parseDuration(base::formatDuration(ns)) == ns,
                  "a duration reads as it is written");
    fuzz::require(!base::formatMs(ns).empty() && !base::formatSeconds(ns).empty(),
                  "a duration can be shown");
}

void tryLimit(std::string const& text) {
    compare::Limit const limit(text);
    fuzz::require(compare::Limit(limit.text()).text() == limit.text(),
                  "a limit reads as it is shown");
}

void tryFault(std::string const& text) {
    pipeline::FaultRule const rule = pipeline::parseFault(text);
    fuzz::require(!rule.rate || (*rule.rate >= 0 && *rule.rate <= 1), "a rate is from 0 to 1");
    fuzz::require(pipeline::parseFault(toString(rule)) == rule, "a fault reads as it is shown");
}

void tryProperty(std::string const& text) {
    auto const [key, value] = commands::parseProperty(text);
    fuzz::require(!key.empty() && key + "=" + value == text, "nothing of a property is lost");
}

void tryWholeNumber(std::string const& text) {
    int64_t const value = commands::parseWholeNumber(text, -7, 1000);
    fuzz::require(value >= -7 && value <= 1000, "a number is in its range");
}

void tryDelay(std::string const& text) {
    fuzz::require(commands::parseDelay(text) >= 0, "a delay is not negative");
}

void tryPolicy(std::string const& text) {
    fuzz::require(commands::parsePolicy(text).name().find_first_of("/.") != std::string::npos ||
                      commands::parsePolicy(text).name() == text,
                  "a policy is shown as it was named");
}

void tryMilliseconds(std::string const& text) {
    fuzz::require(commands::parseMilliseconds(text) == base::parseDuration(text) / 1'000'000,
                  "ms are ns / 10^6");
}

void tryLogLevel(std::string const& text) {
    commands::parseLogLevel(text);
    fuzz::require(text.find_first_not_of("abcdefghijklmnopqrstuvwxyz") == std::string::npos,
                  "log levels are words");
}

constexpr std::array PARSERS{tryDuration, tryLimit,        tryFault,    tryProperty, tryWholeNumber,
                             tryDelay,    tryMilliseconds, tryLogLevel, tryPolicy};

}  // namespace

/// The first byte picks the option ('0' is the first), the rest is its value.
int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    std::string const text = fuzz::textOf(data + 1, size - 1);
    try {
        PARSERS[static_cast<uint8_t>(data[0] - '0') % PARSERS.size()](text);
    } catch (std::invalid_argument const& refusal) {
        fuzz::require(*refusal.what() != '\0', "a refusal says why");
    }
    return 0;
}
