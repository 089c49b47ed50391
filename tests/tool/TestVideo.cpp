#include "TestVideo.h"

#include <stdexcept>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/display.h>
#include <libavutil/log.h>
}

namespace zebcam::tool {

namespace {

constexpr AVRational kMs = {1, 1'000};
constexpr int64_t kIntervalMs = 33;

int check(int status) {
    return status >= 0 ? status : throw std::runtime_error("FFmpeg cannot write the test's video");
}

void paint(AVFrame& frame, int brightness) {
    for (int plane = 0; plane < 3; ++plane) {
        int const shift = plane > 0 ? 1 : 0;
        for (int y = 0; y < frame.height >> shift; ++y) {
            for (int x = 0; x < frame.width >> shift; ++x) {
                bool const isDark = 2 * x < frame.width >> shift && 2 * y < frame.height >> shift;
                frame.data[plane][y * frame.linesize[plane] + x] =
                    static_cast<uint8_t>(plane > 0 ? 128
                                         : isDark  ? DARK_LUMA
                                                   : brightness);
            }
        }
    }
}

void writePackets(AVCodecContext& codec, AVFormatContext& format, AVFrame const* frame) {
    check(avcodec_send_frame(&codec, frame));
    AVPacket* packet = av_packet_alloc();
    while (avcodec_receive_packet(&codec, packet) >= 0) {
        packet->duration = kIntervalMs;  // the end of the last one ends the video
        av_packet_rescale_ts(packet, kMs, format.streams[0]->time_base);
        check(av_interleaved_write_frame(&format, packet));
    }
    av_packet_free(&packet);
}

}  // namespace

std::string writeTestVideo(std::string const& path, TestVideo const& video) {
    AVFormatContext* format = nullptr;
    av_log_set_level(AV_LOG_QUIET);
    check(avformat_alloc_output_context2(&format, nullptr, "mp4", path.c_str()));
    AVCodec const* const encoder = avcodec_find_encoder(AV_CODEC_ID_MPEG4);
    AVCodecContext* codec = avcodec_alloc_context3(encoder);
    codec->width = video.width;
    codec->height = video.height;
    codec->pix_fmt = AV_PIX_FMT_YUV420P;
    codec->time_base = kMs;
    codec->max_b_frames = 2;
    codec->sample_aspect_ratio = {video.aspect, 1};
    codec->flags |= AV_CODEC_FLAG_GLOBAL_HEADER | AV_CODEC_FLAG_QSCALE;
    codec->global_quality = FF_QP2LAMBDA;
    check(avcodec_open2(codec, encoder, nullptr));
    AVStream* const stream = avformat_new_stream(format, nullptr);
    check(avcodec_parameters_from_context(stream->codecpar, codec));
    stream->time_base = kMs;
    stream->sample_aspect_ratio = codec->sample_aspect_ratio;
    if (video.rotation != 0) {
        auto* const matrix = reinterpret_cast<int32_t*>(
            av_stream_new_side_data(stream, AV_PKT_DATA_DISPLAYMATRIX, 9 * sizeof(int32_t)));
        av_display_rotation_set(matrix, video.rotation);
    }
    AVDictionary* options = nullptr;
    if (video.startsWithIndex) {
        av_dict_set(&options, "movflags", "faststart", 0);
    }
    check(avio_open(&format->pb, path.c_str(), AVIO_FLAG_WRITE));
    check(avformat_write_header(format, &options));
    av_dict_free(&options);
    AVFrame* frame = av_frame_alloc();
    frame->width = video.width;
    frame->height = video.height;
    frame->format = codec->pix_fmt;
    check(av_frame_get_buffer(frame, 0));
    for (size_t i = 0; i < video.timesMs.size(); ++i) {
        check(av_frame_make_writable(frame));
        paint(*frame, brightnessOf(i));
        frame->pts = video.timesMs[i];
        frame->quality = codec->global_quality;
        writePackets(*codec, *format, frame);
    }
    writePackets(*codec, *format, nullptr);
    check(av_write_trailer(format));
    avio_closep(&format->pb);
    av_frame_free(&frame);
    avcodec_free_context(&codec);
    avformat_free_context(format);
    return path;
}

}  // namespace zebcam::tool
