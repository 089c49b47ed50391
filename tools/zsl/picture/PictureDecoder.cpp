#include "picture/PictureDecoder.h"

#include <fmt/format.h>
#include <zebcam/ThreadSafety.h>

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <iterator>
#include <mutex>
#include <utility>
#include <vector>

extern "C" {
#include <libavutil/display.h>
#include <libavutil/log.h>
#include <libswscale/swscale.h>
}

#include "base/InputError.h"
#include "base/Text.h"

namespace zebcam::tool::picture {

namespace {

/// So that sums and differences of a few times fit.
constexpr double kMaxTimeNs = 1e18;

/// FFmpeg's last error line, which its threads write.
struct LastLine {
    Mutex mutex;
    std::string text GUARDED_BY(mutex);
} sLastLine;

[[gnu::format(printf, 3, 0)]] void hear(void*, int level, char const* format, va_list arguments) {
    if (level > AV_LOG_ERROR) {
        return;
    }
    char line[200];
    std::vsnprintf(line, sizeof line, format, arguments);
    std::string text = base::printable(
        std::string_view(line).substr(0, std::string_view(line).find_last_not_of("\n ") + 1));
    LockGuard const lock(sLastLine.mutex);
    sLastLine.text = std::move(text);
}

int rotationOf(AVStream const& stream) {
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

/// Of a picture whose points are `aspect` times as wide as high, if they were square.
uint32_t squareWidth(int width, AVRational aspect) {
    if (aspect.num <= 0 || aspect.den <= 0) {
        return static_cast<uint32_t>(width);
    }
    int64_t const square = av_rescale(width, aspect.num, aspect.den);
    return static_cast<uint32_t>(std::clamp<int64_t>(square, 1, MAX_PICTURE_SIDE));
}

}  // namespace

void listenToFfmpeg() {
    static std::once_flag once;
    std::call_once(once, [] { av_log_set_callback(hear); });
    LockGuard const lock(sLastLine.mutex);
    sLastLine.text.clear();
}

std::string reasonOf(int status) {
    char reason[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(status, reason, sizeof reason);
    LockGuard const lock(sLastLine.mutex);
    return sLastLine.text.empty() ? reason : fmt::format("{} ({})", reason, sLastLine.text);
}

PictureDecoder::PictureDecoder(std::string name, FormatContext format, ReadPacket read)
    : mName(std::move(name)),
      mFormat(std::move(format)),
      mRead(std::move(read)),
      mPacket(av_packet_alloc()),
      mFrame(av_frame_alloc()) {
    findStreams();
    openCodec();
}

bool PictureDecoder::next() {
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
            failAtPicture(reasonOf(status));
        }
        feed();
    }
}

std::optional<std::vector<int64_t>> PictureDecoder::packetTimes() {
    // Those of others may be parts of pictures, or pictures that are not shown.
    constexpr AVCodecID kPlain[] = {AV_CODEC_ID_H264, AV_CODEC_ID_HEVC, AV_CODEC_ID_MPEG4,
                                    AV_CODEC_ID_MJPEG};
    if (std::ranges::find(kPlain, mStream->codecpar->codec_id) == std::end(kPlain)) {
        return std::nullopt;
    }
    std::vector<int64_t> times;
    for (;;) {
        av_packet_unref(mPacket.get());
        int const status = av_read_frame(mFormat.get(), mPacket.get());
        if (status == AVERROR_EOF) {
            break;
        }
        if (status < 0) {
            return std::nullopt;
        }
        if (mPacket->stream_index == mStream->index) {
            constexpr int kUnsure = AV_PKT_FLAG_CORRUPT | AV_PKT_FLAG_DISCARD;
            if (mPacket->pts == AV_NOPTS_VALUE || (mPacket->flags & kUnsure) != 0) {
                return std::nullopt;
            }
            times.push_back(inNs(mPacket->pts));
        }
    }
    std::ranges::sort(times);
    bool const isSure = !times.empty() && std::ranges::adjacent_find(times) == times.end();
    return isSure ? std::optional(std::move(times)) : std::nullopt;
}

size_t PictureDecoder::declared() const {
    return static_cast<size_t>(std::max<int64_t>(mStream->nb_frames, 0));
}

void PictureDecoder::fail(std::string_view expected, std::string_view found) const {
    throw base::InputError(fmt::format("{}: expected {}, found {}", mName, expected, found));
}

void PictureDecoder::failAtPicture(std::string_view reason) const {
    throw base::InputError(
        fmt::format("{}: picture {} cannot be decoded: {}", mName, mPictures, reason));
}

void PictureDecoder::findStreams() {
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
        fail("a video", reasonOf(found));
    }
}

/// Before anything is made room for.
void PictureDecoder::requireSizes() const {
    for (unsigned i = 0; i < mFormat->nb_streams; ++i) {
        AVCodecParameters const& stream = *mFormat->streams[i]->codecpar;
        requireSize(stream.width, stream.height);
    }
}

void PictureDecoder::requireSize(int64_t width, int64_t height) const {
    if (std::max(width, height) > MAX_PICTURE_SIDE || width * height > MAX_PICTURE_POINTS) {
        fail(fmt::format("pictures of at most {} million points and {} a side",
                         MAX_PICTURE_POINTS / 1'000'000, MAX_PICTURE_SIDE),
             fmt::format("{} x {}", width, height));
    }
}

void PictureDecoder::openCodec() {
    AVCodec const* codec = nullptr;
    int const position = av_find_best_stream(mFormat.get(), AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0);
    // A cover is no video.
    bool const isVideo = position >= 0 && (mFormat->streams[position]->disposition &
                                           AV_DISPOSITION_ATTACHED_PIC) == 0;
    if (!isVideo) {
        fail("a video",
             position == AVERROR_DECODER_NOT_FOUND
                 ? "a codec that FFmpeg cannot decode"
                 : fmt::format("{} without pictures ({})", mFormat->iformat->name, streamKinds()));
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
    if (mRead) {
        mCodec->thread_type = FF_THREAD_SLICE;  // of several pictures at once each comes later
    }
    mCodec->pkt_timebase = mStream->time_base;
    if (int const status = avcodec_open2(mCodec.get(), codec, nullptr); status < 0) {
        fail("a video", reasonOf(status));
    }
    mRotation = rotationOf(*mStream);
}

std::string PictureDecoder::streamKinds() const {
    std::string kinds;
    for (unsigned i = 0; i < mFormat->nb_streams; ++i) {
        char const* const kind =
            av_get_media_type_string(mFormat->streams[i]->codecpar->codec_type);
        kinds += fmt::format("{}{}", i > 0 ? ", " : "", kind != nullptr ? kind : "unknown");
    }
    return kinds.empty() ? "no streams" : kinds;
}

void PictureDecoder::feed() {
    for (;;) {
        av_packet_unref(mPacket.get());
        int const status = mRead ? mRead(*mPacket, mCodec->reordered_opaque)
                                 : av_read_frame(mFormat.get(), mPacket.get());
        if (status == AVERROR_EOF) {
            avcodec_send_packet(mCodec.get(), nullptr);
            return;
        }
        if (status < 0) {
            fail(fmt::format("more than {} pictures", mPictures), reasonOf(status));
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
            failAtPicture(reasonOf(sent));
        }
        return;
    }
}

void PictureDecoder::takePicture() {
    if (mFrame->decode_error_flags != 0 || (mFrame->flags & AV_FRAME_FLAG_CORRUPT) != 0) {
        failAtPicture(reasonOf(AVERROR_INVALIDDATA));
    }
    requireSize(mFrame->width, mFrame->height);
    if (sws_isSupportedInput(static_cast<AVPixelFormat>(mFrame->format)) == 0) {
        failAtPicture("its points cannot be converted");
    }
    mTag = mRead ? mFrame->reordered_opaque : 0;
    int64_t const time = mFrame->best_effort_timestamp;
    if (time != AV_NOPTS_VALUE) {
        mTimeNs = inNs(time);
    } else {
        mTimeNs = mPictures > 0 ? mTimeNs + intervalNs() : 0;
    }
    if (std::abs(static_cast<double>(mTimeNs)) > kMaxTimeNs) {
        failAtPicture("its time is beyond all clocks");
    }
    AVRational const aspect = mFrame->sample_aspect_ratio.num > 0 ? mFrame->sample_aspect_ratio
                                                                  : mStream->sample_aspect_ratio;
    uint32_t const across = squareWidth(mFrame->width, aspect);
    auto const down = static_cast<uint32_t>(mFrame->height);
    bool const isSwapped = mRotation % 180 != 0;
    std::shared_ptr<AVFrame> frame(av_frame_alloc(), Freed<av_frame_free>());
    av_frame_move_ref(frame.get(), mFrame.get());
    mPicture = std::make_shared<Picture const>(std::move(frame), isSwapped ? down : across,
                                               isSwapped ? across : down, mRotation);
    ++mPictures;
}

int64_t PictureDecoder::intervalNs() const {
    AVRational const rate = mStream->avg_frame_rate;
    constexpr AVRational kUsualRate = {30, 1};
    return av_rescale_q(1, av_inv_q(rate.num > 0 ? rate : kUsualRate), {1, base::NS_PER_SECOND});
}

int64_t PictureDecoder::inNs(int64_t time) const {
    return av_rescale_q(time, mStream->time_base, {1, base::NS_PER_SECOND});
}

/// A file's index, where it has one, tells of what was cut off.
void PictureDecoder::requireWhole() const {
    auto const indexed = static_cast<size_t>(avformat_index_get_entries_count(mStream));
    if (!mRead && mPackets < indexed) {
        fail(fmt::format("{} pictures as its index tells", indexed),
             fmt::format("{}: it is cut off", mPackets));
    }
    if (mPictures == 0) {
        fail("a video", "no picture in it");
    }
}

}  // namespace zebcam::tool::picture
