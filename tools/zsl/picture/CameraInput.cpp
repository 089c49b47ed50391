#include "picture/CameraInput.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

extern "C" {
#include <libavdevice/avdevice.h>
}

#include "base/InputError.h"
#include "base/Text.h"

namespace zebcam::tool::picture {

namespace {

constexpr char kMadeUp[] = "lavfi:";
constexpr int kPollMs = 20;
constexpr int kIoBytes = 1 << 16;
constexpr int kFormatBytes = 1 << 16;
constexpr int kRatePictures = 3;

[[noreturn]] void refuse(std::string const& source, std::string const& found) {
    throw base::InputError(fmt::format("{}: expected a camera, found {}", source, found));
}

/// FFmpeg's options by name, which takes away those that it knows.
class Dictionary {
public:
    explicit Dictionary(std::vector<std::pair<std::string, std::string>> const& entries) {
        for (auto const& [name, value] : entries) {
            av_dict_set(&mEntries, name.c_str(), value.c_str(), 0);
        }
    }
    ~Dictionary() { av_dict_free(&mEntries); }
    Dictionary(Dictionary const&) = delete;
    Dictionary& operator=(Dictionary const&) = delete;

    AVDictionary** entries() { return &mEntries; }
    /// Name of one that is left; empty: none is.
    std::string left() const {
        AVDictionaryEntry const* const entry =
            av_dict_get(mEntries, "", nullptr, AV_DICT_IGNORE_SUFFIX);
        return entry != nullptr ? entry->key : "";
    }

private:
    AVDictionary* mEntries = nullptr;
};

int askGiveUp(void* giveUp) {
    return (*static_cast<GiveUp const*>(giveUp))() ? 1 : 0;
}

}  // namespace

/// FFmpeg's own reading of a pipe cannot be called back.
class InputDescriptor {
public:
    InputDescriptor(std::string const& path, GiveUp const& giveUp)
        : mDescriptor(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)), mGiveUp(giveUp) {
        struct stat status = {};
        if (mDescriptor < 0 || ::fstat(mDescriptor, &status) != 0) {
            refuse(path, std::strerror(errno));
        }
        mIsFile = S_ISREG(status.st_mode);
        mIo = avio_alloc_context(static_cast<uint8_t*>(av_malloc(kIoBytes)), kIoBytes, 0, this,
                                 read, nullptr, mIsFile ? seek : nullptr);
    }
    ~InputDescriptor() {
        if (mIo != nullptr) {
            av_freep(&mIo->buffer);
            avio_context_free(&mIo);
        }
        if (mDescriptor >= 0) {
            ::close(mDescriptor);
        }
    }
    InputDescriptor(InputDescriptor const&) = delete;
    InputDescriptor& operator=(InputDescriptor const&) = delete;

    AVIOContext* io() { return mIo; }
    bool isFile() const { return mIsFile; }

private:
    static int read(void* self, uint8_t* buffer, int size) {
        auto& input = *static_cast<InputDescriptor*>(self);
        while (!input.mGiveUp()) {
            pollfd ready{input.mDescriptor, POLLIN, 0};
            ::poll(&ready, 1, kPollMs);
            ssize_t const got = ::read(input.mDescriptor, buffer, static_cast<size_t>(size));
            if (got > 0) {
                input.mHasBegun = true;
                return static_cast<int>(got);
            }
            // A pipe that nobody writes to yet has an end, too.
            if (got == 0 && (input.mIsFile || input.mHasBegun)) {
                return AVERROR_EOF;
            }
            if (got < 0 && errno != EAGAIN && errno != EINTR) {
                return AVERROR(errno);
            }
        }
        return AVERROR_EXIT;
    }

    static int64_t seek(void* self, int64_t offset, int whence) {
        int const descriptor = static_cast<InputDescriptor*>(self)->mDescriptor;
        if (whence == AVSEEK_SIZE) {
            struct stat status = {};
            return ::fstat(descriptor, &status) == 0 ? status.st_size : AVERROR(errno);
        }
        int64_t const position = ::lseek(descriptor, offset, whence & ~AVSEEK_FORCE);
        return position >= 0 ? position : AVERROR(errno);
    }

    int const mDescriptor;
    GiveUp const& mGiveUp;
    bool mIsFile = false;
    bool mHasBegun = false;
    AVIOContext* mIo = nullptr;
};

CameraInput::CameraInput() = default;
CameraInput::CameraInput(CameraInput&&) noexcept = default;
CameraInput::~CameraInput() = default;

namespace {

/// By what the source is called and what lies there: how FFmpeg is to read it, and by what address.
/// Nothing but a protocol's address is looked for on the network.
std::pair<AVInputFormat const*, std::string> prepare(CameraInput& input, std::string const& source,
                                                     GiveUp const& giveUp) {
    struct stat status = {};
    if (source.starts_with(kMadeUp)) {
        input.kind = CameraInput::Kind::Paced;
        return {av_find_input_format("lavfi"), source.substr(std::strlen(kMadeUp))};
    }
    if (::stat(source.c_str(), &status) == 0 && S_ISCHR(status.st_mode)) {
        input.kind = CameraInput::Kind::Device;
        // It would wait for a picture and hear nobody.
        input.format->flags |= AVFMT_FLAG_NONBLOCK;
        return {av_find_input_format("v4l2"), source};
    }
    if (source.find("://") == std::string::npos) {
        input.descriptor = std::make_unique<InputDescriptor>(source, giveUp);
        input.format->pb = input.descriptor->io();
        if (input.descriptor->isFile()) {
            input.kind = CameraInput::Kind::Paced;
            return {};
        }
    }
    // Nobody wants to wait for a format that is certain and a rate that is exact.
    input.format->format_probesize = kFormatBytes;
    input.format->max_analyze_duration = AV_TIME_BASE;
    input.format->fps_probe_size = kRatePictures;
    return {nullptr, source};
}

}  // namespace

CameraInput openInput(CameraOptions const& options, GiveUp const& giveUp) {
    avdevice_register_all();
    listenToFfmpeg();
    CameraInput input;
    input.format.reset(avformat_alloc_context());
    input.format->interrupt_callback = {askGiveUp, const_cast<GiveUp*>(&giveUp)};
    auto const [reader, address] = prepare(input, options.source, giveUp);
    Dictionary dictionary(options.inputOptions);
    if (input.descriptor != nullptr) {
        // A file may name others, or addresses of the network, to be opened with it.
        av_dict_set(dictionary.entries(), "protocol_whitelist", "none", 0);
    }
    AVFormatContext* format = input.format.release();
    int const opened =
        avformat_open_input(&format, input.descriptor == nullptr ? address.c_str() : nullptr,
                            reader, dictionary.entries());
    if (opened < 0) {  // which has freed it
        refuse(options.source, reasonOf(opened));
    }
    input.format.reset(format);
    if (std::string const unknown = dictionary.left(); !unknown.empty()) {
        throw base::InputError(
            fmt::format("--input-option {}: {}, which FFmpeg reads as {}, knows no such option",
                        unknown, options.source, format->iformat->name));
    }
    return input;
}

}  // namespace zebcam::tool::picture
