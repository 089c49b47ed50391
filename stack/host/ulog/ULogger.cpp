#include <ulog/ULogger.h>

namespace NSCam::Utils::ULog {

// A process that sets nothing up gets errors and warnings, in the Android log.
std::atomic<uint32_t> ULogger::sMode{LOG_MODE_ANDROID};
std::atomic<uint32_t> ULogger::sDetailsLevel{LOG_LEVEL_WARNING};
std::atomic<uint32_t> ULogger::sNormalDetailsMask{0};
std::atomic<ULogger*> ULogger::sULogger{nullptr};

}  // namespace NSCam::Utils::ULog
