#include "picture/VideoWriter.h"

#include <fmt/format.h>

#include <cstdio>
#include <ostream>
#include <stdexcept>

extern "C" {
#include <libavutil/display.h>
#include <libavutil/imgutils.h>
#include <libavutil/opt.h>
}

#include "base/InputError.h"
#include "base/Text.h"
#include "picture/PictureDecoder.h"

namespace zebcam::tool::picture {

namespace {

constexpr int kIoBytes = 1 << 16;
/// That of Android's muxer. An interval of some seconds in ns would be too long for the format.
constexpr AVRational kTimeBase = {1, 1'000'000};
/// Lossy, but a point hardly differs.
constexpr char kQuality[] = "18";
/// A picture that refers to none before every second, always two between others that refer to both
/// sides, and few that are waited for.
constexpr char kStructure[] = "keyint=30:bframes=2:b-adapt=0:rc-lookahead=8:sync-lookahead=0";

struct OutputFree {
    void operator()(AVFormatContext* format) const { avformat_free_context(format); }
};
using OutputContext = std::unique_ptr<AVFormatContext, OutputFree>;
struct IoFree {
    void operator()(AVIOContext* io) const {
        av_freep(&io->buffer);
        avio_context_free(&io);
    }
};
using OutputIo = std::unique_ptr<AVIOContext, IoFree>;

int writeBytes(void* out, uint8_t* bytes, int size) {
    // An error stays in the stream, whose owner knows the file's name.
    static_cast<std::ostream*>(out)->write(reinterpret_cast<char const*>(bytes), size);
    return size;
}

int64_t seekTo(void* stream, int64_t offset, int whence) {
    auto& out = *static_cast<std::ostream*>(stream);
    if (whence == AVSEEK_SIZE) {
        return AVERROR(ENOSYS);
    }
    out.seekp(offset, whence == SEEK_SET   ? std::ios::beg
                      : whence == SEEK_CUR ? std::ios::cur
                                           : std::ios::end);
    return out ? static_cast<int64_t>(out.tellp()) : AVERROR(EIO);
}

int check(int status) {
    if (status < 0) {
        throw std::runtime_error(fmt::format("the video cannot be encoded: {}", reasonOf(status)));
    }
    return status;
}

}  // namespace

class VideoWriter::Encoder {
public:
    Encoder(std::ostream& out, VideoFormat const& format)
        : mOut(out), mIntervalNs(format.intervalNs) {
        listenToFfmpeg();
        openCodec(format);
        openFile(format);
        mFrame.reset(av_frame_alloc());
        mFrame->width = mCodec->width;
        mFrame->height = mCodec->height;
        mFrame->format = mCodec->pix_fmt;
        check(av_frame_get_buffer(mFrame.get(), 0));
        mPacket.reset(av_packet_alloc());
    }

    void write(Planes const& planes, int64_t timeNs) {
        check(av_frame_make_writable(mFrame.get()));  // the encoder may still look at the last
        for (size_t i = 0; i < planes.size(); ++i) {
            auto const width = static_cast<int>(planes[i].width);
            av_image_copy_plane(mFrame->data[i], mFrame->linesize[i], planes[i].bytes.data(), width,
                                width, static_cast<int>(planes[i].height));
        }
        mFrame->pts = inTimeBase(timeNs);
        encode(mFrame.get());
    }

    void finish() {
        encode(nullptr);
        int const status = av_write_trailer(mFormat.get());
        avio_flush(mIo.get());
        if (mOut.good()) {
            check(status);
        }
    }

private:
    static int64_t inTimeBase(int64_t ns) {
        return av_rescale_q(ns, {1, base::NS_PER_SECOND}, kTimeBase);
    }

    void openCodec(VideoFormat const& format) {
        AVCodec const* const codec = avcodec_find_encoder_by_name("libx264");
        if (codec == nullptr) {
            throw base::InputError(
                "expected FFmpeg's libraries with the encoder libx264, as Debian's libavcodec has "
                "it, found them without");
        }
        mCodec.reset(avcodec_alloc_context3(codec));
        mCodec->width = static_cast<int>(format.width);
        mCodec->height = static_cast<int>(format.height);
        mCodec->pix_fmt = AV_PIX_FMT_YUV420P;
        mCodec->time_base = kTimeBase;
        // Of the usual interval, or the encoder would count on a picture for each tick.
        av_reduce(&mCodec->framerate.num, &mCodec->framerate.den, base::NS_PER_SECOND, mIntervalNs,
                  1 << 16);
        mCodec->color_range = AVCOL_RANGE_MPEG;
        mCodec->colorspace = AVCOL_SPC_BT709;
        mCodec->color_primaries = AVCOL_PRI_BT709;
        mCodec->color_trc = AVCOL_TRC_BT709;
        mCodec->thread_count = 1;
        mCodec->flags |= AV_CODEC_FLAG_GLOBAL_HEADER | AV_CODEC_FLAG_BITEXACT;
        check(av_opt_set(mCodec->priv_data, "preset", "veryfast", 0));
        check(av_opt_set(mCodec->priv_data, "crf", kQuality, 0));
        check(av_opt_set(mCodec->priv_data, "x264-params", kStructure, 0));
        check(avcodec_open2(mCodec.get(), codec, nullptr));
    }

    void openFile(VideoFormat const& format) {
        AVFormatContext* file = nullptr;
        check(avformat_alloc_output_context2(&file, nullptr, "mp4", nullptr));
        mFormat.reset(file);
        auto* const buffer = static_cast<uint8_t*>(av_malloc(kIoBytes));
        mIo.reset(avio_alloc_context(buffer, kIoBytes, 1, &mOut, nullptr, writeBytes, seekTo));
        mFormat->pb = mIo.get();
        mFormat->flags |= AVFMT_FLAG_BITEXACT | AVFMT_FLAG_CUSTOM_IO;
        AVStream* const stream = avformat_new_stream(file, nullptr);
        check(avcodec_parameters_from_context(stream->codecpar, mCodec.get()));
        stream->time_base = kTimeBase;
        stream->avg_frame_rate = mCodec->framerate;
        if (format.rotation != 0) {
            auto* const matrix = reinterpret_cast<int32_t*>(
                av_stream_new_side_data(stream, AV_PKT_DATA_DISPLAYMATRIX, 9 * sizeof(int32_t)));
            av_display_rotation_set(matrix, format.rotation);
        }
        check(avformat_write_header(file, nullptr));
    }

    void encode(AVFrame const* frame) {
        check(avcodec_send_frame(mCodec.get(), frame));
        for (;;) {
            int const status = avcodec_receive_packet(mCodec.get(), mPacket.get());
            if (status == AVERROR(EAGAIN) || status == AVERROR_EOF) {
                return;
            }
            check(status);
            // The last one's ends the video; those before end with the next.
            mPacket->duration = inTimeBase(mIntervalNs);
            av_packet_rescale_ts(mPacket.get(), kTimeBase, mFormat->streams[0]->time_base);
            check(av_interleaved_write_frame(mFormat.get(), mPacket.get()));
        }
    }

    std::ostream& mOut;
    int64_t const mIntervalNs;
    OutputIo mIo;
    OutputContext mFormat;
    CodecContext mCodec;
    Frame mFrame;
    Packet mPacket;
};

VideoWriter::VideoWriter(std::ostream& out, VideoFormat const& format)
    : mEncoder(std::make_unique<Encoder>(out, format)) {
}

VideoWriter::~VideoWriter() = default;

void VideoWriter::write(Planes const& planes, int64_t timeNs) {
    mEncoder->write(planes, timeNs);
}

void VideoWriter::finish() {
    mEncoder->finish();
}

}  // namespace zebcam::tool::picture
