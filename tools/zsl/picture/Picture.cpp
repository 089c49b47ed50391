#include "picture/Picture.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/mathematics.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

#include "base/InputError.h"

namespace zebcam::tool::picture {

namespace {

struct ScalerFree {
    void operator()(SwsContext* scaler) const { sws_freeContext(scaler); }
};
using Scaler = std::unique_ptr<SwsContext, ScalerFree>;

/// `bytes` of points of `size` bytes, turned by a multiple of 90 degrees clockwise.
Pixels turned(Pixels from, int rotation, size_t size) {
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

/// From video's range to the whole. The scaler does so itself, unless it has nothing to scale.
void widenRange(std::vector<uint8_t>& luma) {
    constexpr int kBlack = 16;
    constexpr int kWhite = 235;
    for (uint8_t& value : luma) {
        int const above = std::clamp<int>(value, kBlack, kWhite) - kBlack;
        value = static_cast<uint8_t>((above * 255 + (kWhite - kBlack) / 2) / (kWhite - kBlack));
    }
}

/// Whether the first plane of that format holds a byte of luma for each point.
bool isLumaPlane(AVPixelFormat format) {
    AVPixFmtDescriptor const* const traits = av_pix_fmt_desc_get(format);
    AVComponentDescriptor const& first = traits->comp[0];
    uint64_t const others = AV_PIX_FMT_FLAG_RGB | AV_PIX_FMT_FLAG_PAL | AV_PIX_FMT_FLAG_BITSTREAM |
                            AV_PIX_FMT_FLAG_HWACCEL;
    return traits->nb_components >= 3 && (traits->flags & others) == 0 && first.plane == 0 &&
           first.step == 1 && first.offset == 0 && first.shift == 0 && first.depth == 8;
}

/// For pictures like `frame`, to points as `to` has them. The thread's, kept for the next one of
/// that kind: to set it up takes about as long as to use it.
SwsContext* scalerFor(AVFrame const& frame, Pixels const& to, PixelKind kind) {
    thread_local Scaler scalers[2];
    Scaler& scaler = scalers[kind == PixelKind::Rgb ? 1 : 0];
    auto format = static_cast<AVPixelFormat>(frame.format);
    // Nobody looks at the colours, whose planes take most of the time.
    if (kind == PixelKind::Luma && isLumaPlane(format)) {
        format = AV_PIX_FMT_GRAY8;
    }
    scaler.reset(sws_getCachedContext(
        scaler.release(), frame.width, frame.height, format, static_cast<int>(to.width),
        static_cast<int>(to.height), kind == PixelKind::Rgb ? AV_PIX_FMT_RGB24 : AV_PIX_FMT_GRAY8,
        // The same points on every machine.
        SWS_AREA | SWS_BITEXACT | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT, nullptr, nullptr,
        nullptr));
    if (scaler == nullptr) {
        throw base::InputError(fmt::format("a picture of {} x {} cannot be made one of {} x {}",
                                           frame.width, frame.height, to.width, to.height));
    }
    int const* const coefficients = sws_getCoefficients(frame.colorspace);
    sws_setColorspaceDetails(scaler.get(), coefficients,
                             frame.color_range == AVCOL_RANGE_JPEG ? 1 : 0, coefficients, 1, 0,
                             1 << 16, 1 << 16);
    return scaler.get();
}

}  // namespace

Picture::Picture(std::shared_ptr<AVFrame const> frame, uint32_t width, uint32_t height,
                 int rotation)
    : mFrame(std::move(frame)), mWidth(width), mHeight(height), mRotation(rotation) {
}

Pixels Picture::pixels(PixelKind kind, uint32_t width) const {
    uint32_t const toWidth = std::clamp(width, uint32_t{1}, mWidth);
    uint32_t const toHeight =
        std::max<uint32_t>(1, static_cast<uint32_t>(av_rescale(mHeight, toWidth, mWidth)));
    bool const isSwapped = mRotation % 180 != 0;
    Pixels scaled{isSwapped ? toHeight : toWidth, isSwapped ? toWidth : toHeight, {}};
    size_t const size = kind == PixelKind::Rgb ? 3 : 1;
    scaled.bytes.resize(size_t{scaled.width} * scaled.height * size);
    SwsContext* const scaler = scalerFor(*mFrame, scaled, kind);
    uint8_t* const planes[4] = {scaled.bytes.data(), nullptr, nullptr, nullptr};
    int const strides[4] = {static_cast<int>(scaled.width * size), 0, 0, 0};
    sws_scale(scaler, mFrame->data, mFrame->linesize, 0, mFrame->height, planes, strides);
    bool const isCopied = kind == PixelKind::Luma &&
                          isLumaPlane(static_cast<AVPixelFormat>(mFrame->format)) &&
                          scaled.width == static_cast<uint32_t>(mFrame->width) &&
                          scaled.height == static_cast<uint32_t>(mFrame->height);
    if (isCopied && mFrame->color_range != AVCOL_RANGE_JPEG) {
        widenRange(scaled.bytes);
    }
    return turned(std::move(scaled), mRotation, size);
}

}  // namespace zebcam::tool::picture
