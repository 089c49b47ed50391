#include "picture/VideoFile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zebcam/ThreadSafety.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <string_view>
#include <utility>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/display.h>
#include <libavutil/log.h>
#include <libavutil/murmur3.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

#include "base/InputError.h"
#include "base/Text.h"

namespace zebcam::tool::picture {

namespace {

constexpr int kIoBytes = 1 << 16;
/// So that sums and differences of a few times fit.
constexpr double kMaxTimeNs = 1e18;
/// What standard input may fill a disk with.
constexpr int64_t kMaxSpooledBytes = int64_t{8} << 30;
/// What it is read in, and judged by.
constexpr int64_t kPieceBytes = 1 << 20;

template <auto Free>
struct Freed {
    template <typename T>
    void operator()(T* object) const {
        Free(&object);
    }
};
using FormatContext = std::unique_ptr<AVFormatContext, Freed<avformat_close_input>>;
using CodecContext = std::unique_ptr<AVCodecContext, Freed<avcodec_free_context>>;
using Packet = std::unique_ptr<AVPacket, Freed<av_packet_free>>;
using Frame = std::unique_ptr<AVFrame, Freed<av_frame_free>>;
struct ScalerFree {
    void operator()(SwsContext* scaler) const { sws_freeContext(scaler); }
};
using Scaler = std::unique_ptr<SwsContext, ScalerFree>;
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

/// FFmpeg's last error line, which often says more than its status. Its log is the process's, and
/// its threads write to it.
class LastWords {
public:
    static void listen() {
        static std::once_flag once;
        std::call_once(once, [] { av_log_set_callback(hear); });
        LockGuard const lock(sMutex);
        sText.clear();
    }

    static std::string on(int status) {
        char reason[AV_ERROR_MAX_STRING_SIZE] = {};
        av_strerror(status, reason, sizeof reason);
        LockGuard const lock(sMutex);
        return sText.empty() ? reason : fmt::format("{} ({})", reason, sText);
    }

private:
    [[gnu::format(printf, 3, 0)]] static void hear(void*, int level, char const* format,
                                                   va_list arguments) {
        if (level > AV_LOG_ERROR) {
            return;
        }
        char line[200];
        std::vsnprintf(line, sizeof line, format, arguments);
        std::string text = base::printable(
            std::string_view(line).substr(0, std::string_view(line).find_last_not_of("\n ") + 1));
        LockGuard const lock(sMutex);
        sText = std::move(text);
    }

    inline static Mutex sMutex;
    inline static std::string sText GUARDED_BY(sMutex);
};

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

/// `bytes` of points of `size` bytes, turned by a multiple of 90 degrees clockwise.
Pixels turned(Pixels const& from, int rotation, size_t size) {
    if (rotation == 0) {
        return from;
    }
    bool const isSwapped = rotation % 180 != 0;
    Pixels to{isSwapped ? from.height : from.width, isSwapped ? from.width : from.height, {}};
    to.bytes.resize(from.bytes.size());
    for (uint32_t y = 0; y < to.height; ++y) {
        for (uint32_t x = 0; x < to.width; ++x) {
            uint32_t const fromX = rotation == 90    ? y
                                   : rotation == 180 ? from.width - 1 - x
                                                     : from.width - 1 - y;
            uint32_t const fromY = rotation == 90    ? from.height - 1 - x
                                   : rotation == 180 ? from.height - 1 - y
                                                     : x;
            std::copy_n(&from.bytes[(size_t{fromY} * from.width + fromX) * size], size,
                        &to.bytes[(size_t{y} * to.width + x) * size]);
        }
    }
    return to;
}

}  // namespace

bool canReadVideos() {
    return true;
}

/// FFmpeg's parts of one pass through a file.
class VideoFile::Decoder {
public:
    explicit Decoder(base::InputFile& input)
        : mName(input.name()),
          mFile(open(input)),
          mPacket(av_packet_alloc()),
          mFrame(av_frame_alloc()) {
        start();
    }

    void start() {
        mCodec.reset();
        mFormat.reset();
        std::rewind(mFile.get());
        LastWords::listen();
        mIo.reset(avio_alloc_context(static_cast<uint8_t*>(av_malloc(kIoBytes)), kIoBytes, 0,
                                     mFile.get(), readFile, nullptr, seekFile));
        openFormat();
        openCodec();
        mPictures = mPackets = 0;
        mWidth = static_cast<uint32_t>(mStream->codecpar->width);
        mHeight = static_cast<uint32_t>(mStream->codecpar->height);
        mAspect = mStream->sample_aspect_ratio;
    }

    bool next() {
        for (;;) {
            int const status = avcodec_receive_frame(mCodec.get(), mFrame.get());
            if (status >= 0) {
                takePicture();
                return true;
            }
            if (status == AVERROR_EOF) {
                requireWhole();
                return false;
            }
            if (status != AVERROR(EAGAIN)) {
                failAtPicture(LastWords::on(status));
            }
            feed();
        }
    }

    Pixels pixels(PixelKind kind, uint32_t width) {
        uint32_t const toWidth = std::clamp(width, uint32_t{1}, uprightWidth());
        uint32_t const toHeight = std::max<uint32_t>(
            1, static_cast<uint32_t>(av_rescale(uprightHeight(), toWidth, uprightWidth())));
        Pixels scaled{isSwapped() ? toHeight : toWidth, isSwapped() ? toWidth : toHeight, {}};
        size_t const size = kind == PixelKind::Rgb ? 3 : 1;
        scaled.bytes.resize(size_t{scaled.width} * scaled.height * size);
        SwsContext* const scaler = scalerTo(scaled, kind);
        uint8_t* const planes[4] = {scaled.bytes.data(), nullptr, nullptr, nullptr};
        int const strides[4] = {static_cast<int>(scaled.width * size), 0, 0, 0};
        sws_scale(scaler, mFrame->data, mFrame->linesize, 0, mFrame->height, planes, strides);
        return turned(scaled, mRotation, size);
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

    size_t declaredPictures() const {
        return static_cast<size_t>(std::max<int64_t>(mStream->nb_frames, 0));
    }
    bool isSwapped() const { return mRotation % 180 != 0; }
    uint32_t uprightWidth() const { return isSwapped() ? mHeight : squareWidth(); }
    uint32_t uprightHeight() const { return isSwapped() ? squareWidth() : mHeight; }

    std::string const mName;
    int mRotation = 0;
    size_t mPictures = 0;  ///< decoded so far
    int64_t mTimeNs = 0;

private:
    [[noreturn]] void fail(std::string_view expected, std::string_view found) const {
        throw base::InputError(fmt::format("{}: expected {}, found {}", mName, expected, found));
    }

    [[noreturn]] void failAtPicture(std::string_view reason) const {
        throw base::InputError(
            fmt::format("{}: picture {} cannot be decoded: {}", mName, mPictures, reason));
    }

    void openFormat() {
        AVFormatContext* format = avformat_alloc_context();
        format->pb = mIo.get();
        AVDictionary* options = nullptr;
        // A file may name others, or addresses of the network, to be opened with it.
        av_dict_set(&options, "protocol_whitelist", "none", 0);
        int const status = avformat_open_input(&format, nullptr, nullptr, &options);
        av_dict_free(&options);
        if (status < 0) {  // which has freed it
            fail("a video", LastWords::on(status));
        }
        mFormat.reset(format);
        requireSizes();
        std::vector<AVDictionary*> limits(mFormat->nb_streams);
        for (AVDictionary*& limit : limits) {
            av_dict_set_int(&limit, "max_pixels", MAX_PICTURE_POINTS, 0);
        }
        int const found = avformat_find_stream_info(mFormat.get(), limits.data());
        for (AVDictionary*& limit : limits) {
            av_dict_free(&limit);
        }
        requireSizes();
        if (found < 0) {
            fail("a video", LastWords::on(found));
        }
    }

    /// Before anything is made room for.
    void requireSizes() const {
        for (unsigned i = 0; i < mFormat->nb_streams; ++i) {
            AVCodecParameters const& stream = *mFormat->streams[i]->codecpar;
            requireSize(stream.width, stream.height);
        }
    }

    void requireSize(int64_t width, int64_t height) const {
        if (std::max(width, height) > MAX_PICTURE_SIDE || width * height > MAX_PICTURE_POINTS) {
            fail(fmt::format("pictures of at most {} million points and {} a side",
                             MAX_PICTURE_POINTS / 1'000'000, MAX_PICTURE_SIDE),
                 fmt::format("{} x {}", width, height));
        }
    }

    void openCodec() {
        AVCodec const* codec = nullptr;
        int const position =
            av_find_best_stream(mFormat.get(), AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0);
        // A cover is no video.
        bool const isVideo = position >= 0 && (mFormat->streams[position]->disposition &
                                               AV_DISPOSITION_ATTACHED_PIC) == 0;
        if (!isVideo) {
            fail("a video", position == AVERROR_DECODER_NOT_FOUND
                                ? "a codec that FFmpeg cannot decode"
                                : fmt::format("{} without pictures ({})", mFormat->iformat->name,
                                              streamKinds()));
        }
        mStream = mFormat->streams[position];
        for (unsigned i = 0; i < mFormat->nb_streams; ++i) {
            mFormat->streams[i]->discard =
                static_cast<int>(i) == position ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
        }
        mCodec.reset(avcodec_alloc_context3(codec));
        avcodec_parameters_to_context(mCodec.get(), mStream->codecpar);
        mCodec->max_pixels = MAX_PICTURE_POINTS;
        mCodec->thread_count = 0;  // as many as there are cores
        mCodec->pkt_timebase = mStream->time_base;
        if (int const status = avcodec_open2(mCodec.get(), codec, nullptr); status < 0) {
            fail("a video", LastWords::on(status));
        }
        mRotation = rotationOf(*mStream);
    }

    std::string streamKinds() const {
        std::string kinds;
        for (unsigned i = 0; i < mFormat->nb_streams; ++i) {
            char const* const kind =
                av_get_media_type_string(mFormat->streams[i]->codecpar->codec_type);
            kinds += fmt::format("{}{}", i > 0 ? ", " : "", kind != nullptr ? kind : "unknown");
        }
        return kinds.empty() ? "no streams" : kinds;
    }

    static int rotationOf(AVStream const& stream) {
        auto const* const matrix = reinterpret_cast<int32_t const*>(
            av_stream_get_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX, nullptr));
        double const degrees = matrix != nullptr ? av_display_rotation_get(matrix) : 0;
        // What is not known, or lies between, is left as it is.
        if (!std::isfinite(degrees)) {
            return 0;
        }
        auto const quarters = static_cast<int>(std::lround(-degrees / 90)) % 4;
        return (quarters + 4) % 4 * 90;
    }

    void feed() {
        for (;;) {
            av_packet_unref(mPacket.get());
            int const status = av_read_frame(mFormat.get(), mPacket.get());
            if (status == AVERROR_EOF) {
                avcodec_send_packet(mCodec.get(), nullptr);
                return;
            }
            if (status < 0) {
                fail(fmt::format("more than {} pictures", mPictures), LastWords::on(status));
            }
            if (mPacket->stream_index != mStream->index) {
                continue;
            }
            if ((mPacket->flags & AV_PKT_FLAG_CORRUPT) != 0) {
                fail("a whole file", fmt::format("one that breaks off in picture {}", mPackets));
            }
            ++mPackets;
            // Of what it does not take at once it has pictures to give first, and has given them.
            if (int const sent = avcodec_send_packet(mCodec.get(), mPacket.get()); sent < 0) {
                failAtPicture(LastWords::on(sent));
            }
            return;
        }
    }

    void takePicture() {
        if (mFrame->decode_error_flags != 0 || (mFrame->flags & AV_FRAME_FLAG_CORRUPT) != 0) {
            failAtPicture(LastWords::on(AVERROR_INVALIDDATA));
        }
        requireSize(mFrame->width, mFrame->height);
        mWidth = static_cast<uint32_t>(mFrame->width);
        mHeight = static_cast<uint32_t>(mFrame->height);
        if (mFrame->sample_aspect_ratio.num > 0) {
            mAspect = mFrame->sample_aspect_ratio;
        }
        int64_t const time = mFrame->best_effort_timestamp;
        if (time != AV_NOPTS_VALUE) {
            mTimeNs = av_rescale_q(time, mStream->time_base, {1, base::NS_PER_SECOND});
        } else {
            mTimeNs = mPictures > 0 ? mTimeNs + intervalNs() : 0;
        }
        if (std::abs(static_cast<double>(mTimeNs)) > kMaxTimeNs) {
            failAtPicture("its time is beyond all clocks");
        }
        ++mPictures;
    }

    int64_t intervalNs() const {
        AVRational const rate = mStream->avg_frame_rate;
        constexpr AVRational kUsualRate = {30, 1};
        return av_rescale_q(1, av_inv_q(rate.num > 0 ? rate : kUsualRate),
                            {1, base::NS_PER_SECOND});
    }

    /// A file's index, where it has one, tells of what was cut off.
    void requireWhole() const {
        auto const indexed = static_cast<size_t>(avformat_index_get_entries_count(mStream));
        if (mPackets < indexed) {
            fail(fmt::format("{} pictures as its index tells", indexed),
                 fmt::format("{}: it is cut off", mPackets));
        }
        if (mPictures == 0) {
            fail("a video", "no picture in it");
        }
    }

    uint32_t squareWidth() const {
        if (mAspect.num <= 0 || mAspect.den <= 0) {
            return mWidth;
        }
        int64_t const width = av_rescale(mWidth, mAspect.num, mAspect.den);
        return static_cast<uint32_t>(std::clamp<int64_t>(width, 1, MAX_PICTURE_SIDE));
    }

    /// Whether the first plane of that format holds a byte of luma for each point.
    static bool isLumaPlane(AVPixelFormat format) {
        AVPixFmtDescriptor const* const traits = av_pix_fmt_desc_get(format);
        AVComponentDescriptor const& first = traits->comp[0];
        uint64_t const others = AV_PIX_FMT_FLAG_RGB | AV_PIX_FMT_FLAG_PAL |
                                AV_PIX_FMT_FLAG_BITSTREAM | AV_PIX_FMT_FLAG_HWACCEL;
        return traits->nb_components >= 3 && (traits->flags & others) == 0 && first.plane == 0 &&
               first.step == 1 && first.offset == 0 && first.shift == 0 && first.depth == 8;
    }

    SwsContext* scalerTo(Pixels const& to, PixelKind kind) {
        auto format = static_cast<AVPixelFormat>(mFrame->format);
        // Nobody looks at the colours, whose planes take most of the time.
        if (kind == PixelKind::Luma && isLumaPlane(format)) {
            format = AV_PIX_FMT_GRAY8;
        }
        mScaler.reset(
            sws_getCachedContext(mScaler.release(), mFrame->width, mFrame->height, format,
                                 static_cast<int>(to.width), static_cast<int>(to.height),
                                 kind == PixelKind::Rgb ? AV_PIX_FMT_RGB24 : AV_PIX_FMT_GRAY8,
                                 // The same points on every machine.
                                 SWS_AREA | SWS_BITEXACT | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT,
                                 nullptr, nullptr, nullptr));
        if (mScaler == nullptr) {
            failAtPicture("its points cannot be converted");
        }
        int const* const coefficients = sws_getCoefficients(mFrame->colorspace);
        sws_setColorspaceDetails(mScaler.get(), coefficients,
                                 mFrame->color_range == AVCOL_RANGE_JPEG ? 1 : 0, coefficients, 1,
                                 0, 1 << 16, 1 << 16);
        return mScaler.get();
    }

    File mFile;
    Io mIo;
    FormatContext mFormat;
    AVStream* mStream = nullptr;  ///< the format's
    CodecContext mCodec;
    Packet mPacket;
    Frame mFrame;
    Scaler mScaler;
    AVRational mAspect{0, 1};
    uint32_t mWidth = 0;
    uint32_t mHeight = 0;
    size_t mPackets = 0;
};

VideoFile::VideoFile(base::InputFile& input) : mDecoder(std::make_unique<Decoder>(input)) {
}

VideoFile::~VideoFile() = default;
VideoFile::VideoFile(VideoFile&&) noexcept = default;

std::string const& VideoFile::name() const {
    return mDecoder->mName;
}

int VideoFile::rotation() const {
    return mDecoder->mRotation;
}

uint32_t VideoFile::width() const {
    return mDecoder->uprightWidth();
}

uint32_t VideoFile::height() const {
    return mDecoder->uprightHeight();
}

size_t VideoFile::declaredPictures() const {
    return mDecoder->declaredPictures();
}

bool VideoFile::next() {
    return mDecoder->next();
}

void VideoFile::rewind() {
    mDecoder->start();
}

size_t VideoFile::index() const {
    return mDecoder->mPictures - 1;
}

int64_t VideoFile::timeNs() const {
    return mDecoder->mTimeNs;
}

Pixels VideoFile::pixels(PixelKind kind, uint32_t width) {
    return mDecoder->pixels(kind, width);
}

std::string VideoFile::contentKey() {
    return mDecoder->contentKey();
}

void forEachPicture(VideoFile& video, std::span<size_t const> wanted,
                    std::function<void(VideoFile& video)> const& take) {
    video.rewind();
    auto next = wanted.begin();
    while (next != wanted.end() && video.next()) {
        if (video.index() == *next) {
            take(video);
            ++next;
        }
    }
}

}  // namespace zebcam::tool::picture
