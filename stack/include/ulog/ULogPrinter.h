#pragma once

#include <utils/Printer.h>

#include <cstdint>
#include <string>

namespace NSCam::Utils::ULog {

/**
 * A printer whose lines become log lines of one module, tag and level.
 *
 * Lines are gated like any other log line of the module: by `ULogger::sDetailsLevel`, and from
 * info level on by `ULogger::sNormalDetailsMask`. Thread-safe as far as the outputs are.
 */
class ULogPrinter : public android::Printer {
public:
    /// `level` is on the LogLevel scale.
    ULogPrinter(uint32_t moduleId, std::string tag, uint32_t level);

    void printLine(char const* string = "") override;

    /// Formats into 1024 bytes; longer output is cut.
    void printFormatLine(char const* format, ...) override __attribute__((format(printf, 2, 3)));

private:
    bool passes() const;

    uint32_t const mLogLevel;
    uint32_t const mModuleId;
    std::string const mTag;
    android::LogPrinter mLogPrinter;
};

}  // namespace NSCam::Utils::ULog
