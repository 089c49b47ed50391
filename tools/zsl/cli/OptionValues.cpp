#include "cli/OptionValues.h"

#include <fmt/format.h>
#include <ulog/ULogger.h>

#include <charconv>
#include <stdexcept>

#include "recording/RecordingError.h"
#include "text/Duration.h"

namespace zebcam::tool {

namespace ulog = NSCam::Utils::ULog;

namespace {

/// As long as a recording's own times may be, so that sums of them fit 64 bits.
constexpr int64_t kMaxDelayNs = 3'600'000'000'000;

[[noreturn]] void refuse(std::string const& expected, std::string const& text) {
    throw std::invalid_argument(fmt::format("expected {}, found {}", expected, quoteContent(text)));
}

}  // namespace

int64_t parseWholeNumber(std::string const& text, int64_t min, int64_t max) {
    int64_t value = 0;
    auto const [rest, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || rest != text.data() + text.size() || value < min || value > max) {
        refuse(fmt::format("a whole number from {} to {}", min, max), text);
    }
    return value;
}

int64_t parseDelay(std::string const& text) {
    int64_t const ns = parseDuration(text);
    if (ns < 0 || ns > kMaxDelayNs) {
        refuse("a time from 0s to " + formatDuration(kMaxDelayNs), text);
    }
    return ns;
}

int64_t parseMilliseconds(std::string const& text) {
    constexpr int64_t kNsPerMs = 1'000'000;
    int64_t const ns = parseDuration(text);
    if (ns % kNsPerMs != 0) {
        refuse("whole milliseconds", text);
    }
    return ns / kNsPerMs;
}

PolicyOption parsePolicy(std::string const& text) {
    for (PolicyKind const kind : {PolicyKind::Default, PolicyKind::CShot, PolicyKind::Multiframe}) {
        PolicyOption policy{kind, {}};
        if (policy.name() == text) {
            return policy;
        }
    }
    if (text.find('/') != std::string::npos || text.ends_with(".so")) {
        return {PolicyKind::Plugin, text};
    }
    refuse("default, cshot, multiframe or the path of a library", text);
}

uint32_t parseLogLevel(std::string const& text) {
    for (auto const& [name, level] : {std::pair{"error", ulog::LOG_LEVEL_ERROR},
                                      {"warning", ulog::LOG_LEVEL_WARNING},
                                      {"info", ulog::LOG_LEVEL_INFO},
                                      {"debug", ulog::LOG_LEVEL_DEBUG}}) {
        if (text == name) {
            return level;
        }
    }
    refuse("error, warning, info or debug", text);
}

std::pair<std::string, std::string> parseProperty(std::string const& text) {
    size_t const equals = text.find('=');
    if (equals == std::string::npos || equals == 0) {
        refuse("KEY=VALUE", text);
    }
    return {text.substr(0, equals), text.substr(equals + 1)};
}

}  // namespace zebcam::tool
