#include "picture/VideoFile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <optional>
#include <vector>

extern "C" {
#include <libavutil/murmur3.h>
}

#include "base/InputError.h"
#include "picture/PictureDecoder.h"

namespace zebcam::tool::picture {

namespace {

constexpr int kIoBytes = 1 << 16;
/// What standard input may fill a disk with.
constexpr int64_t kMaxSpooledBytes = int64_t{8} << 30;
/// What it is read in, and judged by.
constexpr int64_t kPieceBytes = 1 << 20;

struct IoFree {
    void operator()(AVIOContext* io) const {
        av_freep(&io->buffer);
        avio_context_free(&io);
    }
};
using Io = std::unique_ptr<AVIOContext, IoFree>;
struct FileClose {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileClose>;

int readFile(void* file, uint8_t* buffer, int size) {
    ssize_t const got = ::read(fileno(static_cast<std::FILE*>(file)), buffer, size);
    return got > 0 ? static_cast<int>(got) : got == 0 ? AVERROR_EOF : AVERROR(errno);
}

int64_t seekFile(void* file, int64_t offset, int whence) {
    int const descriptor = fileno(static_cast<std::FILE*>(file));
    if (whence == AVSEEK_SIZE) {
        struct stat status = {};
        return ::fstat(descriptor, &status) == 0 ? status.st_size : AVERROR(errno);
    }
    int64_t const position = ::lseek(descriptor, offset, whence & ~AVSEEK_FORCE);
    return position >= 0 ? position : AVERROR(errno);
}

/// Whether a file that begins so can be a video, so that none without end is kept that is none.
/// FFmpeg reads some zeros behind `start`.
bool beginsVideo(std::vector<char> start) {
    AVProbeData probe = {};
    probe.filename = "";
    probe.buf_size = static_cast<int>(start.size());
    start.resize(start.size() + AVPROBE_PADDING_SIZE);
    probe.buf = reinterpret_cast<unsigned char*>(start.data());
    int score = 0;
    return av_probe_input_format3(&probe, 1, &score) != nullptr && score > AVPROBE_SCORE_RETRY;
}

/// All of `input`, so that it can be gone back in: the index of a video often stands at its end.
File spool(base::InputFile& input) {
    File file(std::tmpfile());
    int64_t bytes = 0;
    for (std::vector<char> piece(kPieceBytes); file != nullptr && input.stream();) {
        input.stream().read(piece.data(), kPieceBytes);
        piece.resize(static_cast<size_t>(input.stream().gcount()));
        if (bytes == 0 && !beginsVideo(piece)) {
            throw base::InputError(
                fmt::format("{}: expected a video, found what FFmpeg does not know", input.name()));
        }
        bytes += static_cast<int64_t>(piece.size());
        if (bytes > kMaxSpooledBytes) {
            throw base::InputError(fmt::format("{}: expected a video of at most {} GiB, found more",
                                               input.name(), kMaxSpooledBytes >> 30));
        }
        if (std::fwrite(piece.data(), 1, piece.size(), file.get()) != piece.size()) {
            file.reset();
        }
    }
    if (file == nullptr || std::fflush(file.get()) != 0) {
        throw base::InputError(fmt::format("{}: cannot be kept in a temporary file: {}",
                                           input.name(), std::strerror(errno)));
    }
    return file;
}

File open(base::InputFile& input) {
    std::error_code ignored;
    if (!std::filesystem::is_regular_file(input.name(), ignored)) {
        return spool(input);
    }
    File file(std::fopen(input.name().c_str(), "rbe"));
    if (file == nullptr) {
        throw base::InputError(fmt::format("{}: expected a readable file, found {}", input.name(),
                                           std::strerror(errno)));
    }
    return file;
}

}  // namespace

bool canReadVideos() {
    return true;
}

/// A file and the decoder of a pass through it.
class VideoFile::Source {
public:
    explicit Source(base::InputFile& input) : mName(input.name()), mFile(open(input)) { start(); }

    /// From the file's beginning.
    void start() {
        mDecoder.reset();
        std::rewind(mFile.get());
        listenToFfmpeg();
        mIo.reset(avio_alloc_context(static_cast<uint8_t*>(av_malloc(kIoBytes)), kIoBytes, 0,
                                     mFile.get(), readFile, nullptr, seekFile));
        mDecoder.emplace(mName, openFormat());
    }

    std::string contentKey() {
        struct Murmur {
            AVMurMur3* state = av_murmur3_alloc();
            ~Murmur() { av_free(state); }
        } const murmur;
        av_murmur3_init(murmur.state);
        int64_t const position = ::lseek(fileno(mFile.get()), 0, SEEK_CUR);
        ::lseek(fileno(mFile.get()), 0, SEEK_SET);
        std::vector<uint8_t> buffer(kIoBytes);
        for (int got = 0; (got = readFile(mFile.get(), buffer.data(), kIoBytes)) > 0;) {
            av_murmur3_update(murmur.state, buffer.data(), static_cast<size_t>(got));
        }
        ::lseek(fileno(mFile.get()), position, SEEK_SET);
        std::array<uint8_t, 16> hash{};
        av_murmur3_final(murmur.state, hash.data());
        std::string text;
        for (uint8_t const byte : hash) {
            text += fmt::format("{:02x}", byte);
        }
        return text;
    }

    PictureDecoder& decoder() { return *mDecoder; }

    std::string const mName;

private:
    FormatContext openFormat() {
        AVFormatContext* format = avformat_alloc_context();
        format->pb = mIo.get();
        AVDictionary* options = nullptr;
        // A file may name others, or addresses of the network, to be opened with it.
        av_dict_set(&options, "protocol_whitelist", "none", 0);
        int const status = avformat_open_input(&format, nullptr, nullptr, &options);
        av_dict_free(&options);
        if (status < 0) {  // which has freed it
            throw base::InputError(
                fmt::format("{}: expected a video, found {}", mName, reasonOf(status)));
        }
        return FormatContext(format);
    }

    File const mFile;
    Io mIo;
    std::optional<PictureDecoder> mDecoder;  ///< goes before what it reads from
};

VideoFile::VideoFile(base::InputFile& input) : mSource(std::make_unique<Source>(input)) {
}

VideoFile::~VideoFile() = default;
VideoFile::VideoFile(VideoFile&&) noexcept = default;

std::string const& VideoFile::name() const {
    return mSource->mName;
}

int VideoFile::rotation() const {
    return mSource->decoder().rotation();
}

size_t VideoFile::declaredPictures() const {
    return mSource->decoder().declared();
}

bool VideoFile::next() {
    return mSource->decoder().next();
}

void VideoFile::rewind() {
    mSource->start();
}

size_t VideoFile::index() const {
    return mSource->decoder().decoded() - 1;
}

int64_t VideoFile::timeNs() const {
    return mSource->decoder().timeNs();
}

std::shared_ptr<Picture const> const& VideoFile::picture() const {
    return mSource->decoder().picture();
}

std::string VideoFile::contentKey() {
    return mSource->contentKey();
}

std::optional<std::vector<int64_t>> VideoFile::packetTimes() {
    mSource->start();
    auto times = mSource->decoder().packetTimes();
    mSource->start();
    return times;
}

}  // namespace zebcam::tool::picture
