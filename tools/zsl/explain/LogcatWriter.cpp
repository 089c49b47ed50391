#include "explain/LogcatWriter.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <string_view>

namespace zebcam::tool {

std::string toThreadtime(LogRecord const& record, int64_t timeNs) {
    std::chrono::sys_time<std::chrono::milliseconds> const time(
        std::chrono::milliseconds(std::max<int64_t>(timeNs, 0) / 1'000'000));
    std::string const header =
        fmt::format("{:%m-%d %H:%M}:{:%S} {:5} {:5} {} {:<8}: ",
                    std::chrono::time_point_cast<std::chrono::seconds>(time),
                    time.time_since_epoch(), record.pid.value_or(0), record.tid.value_or(0),
                    record.priority != 0 ? record.priority : 'D', record.tag);
    std::string text;
    std::string_view rest = record.message;
    do {
        size_t const end = std::min(rest.find('\n'), rest.size());
        text += header;
        text += rest.substr(0, end);
        text += '\n';
        rest.remove_prefix(std::min(end + 1, rest.size()));
    } while (!rest.empty());
    return text;
}

}  // namespace zebcam::tool
