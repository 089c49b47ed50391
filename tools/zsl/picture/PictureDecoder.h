#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "picture/Picture.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

/// What all sources of pictures share, files and cameras. For this room's sources alone: FFmpeg's
/// headers define macros of common words.
namespace zebcam::tool::picture {

/// FFmpeg's objects, which go with their owners.
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

/// Keeps FFmpeg's log off standard error from now on, and forgets what it has told so far. The log
/// is the process's.
void listenToFfmpeg();

/// What a status of FFmpeg means, with its last error line, which often says more.
std::string reasonOf(int status);

/**
 * Decodes the pictures of an input that is open, in the order of presentation. Of several streams
 * the one that FFmpeg holds for the best. Memory is bounded by the size of a picture and what its
 * codec refers back to, and by the pictures that somebody keeps.
 *
 * Whatever is wrong is an InputError with the input's name and the cause.
 */
class PictureDecoder {
public:
    /// Gives the next packet as av_read_frame() does, and a tag for its picture.
    using ReadPacket = std::function<int(AVPacket& packet, int64_t& tag)>;

    /// `name` is the input's. Reads as far as it takes to know the streams. Its packets are read by
    /// `read` then, whose input is never cut off and shall not wait for pictures; empty: by the
    /// decoder.
    PictureDecoder(std::string name, FormatContext format, ReadPacket read = {});

    /// Goes to the next picture; false after the last. After an error to the one after that.
    bool next();

    /// Presentation times of all pictures as the packets tell them, ascending; none where those
    /// need not be the pictures'. Reads the input to its end, so that no picture comes any more.
    std::optional<std::vector<int64_t>> packetTimes();

    /// The current picture; null before the first.
    std::shared_ptr<Picture const> const& picture() const { return mPicture; }

    /// Presentation time of the current picture; where the input has none, by its rate.
    int64_t timeNs() const { return mTimeNs; }

    /// What the current picture's packet was given; 0 without such a reader.
    int64_t tag() const { return mTag; }

    size_t decoded() const { return mPictures; }  ///< pictures so far
    size_t declared() const;  ///< how many there are as the input declares it; 0: it does not
    int rotation() const { return mRotation; }  ///< by which pictures are turned, as Picture has it
    AVFormatContext const& format() const { return *mFormat; }
    AVStream const& stream() const { return *mStream; }

private:
    [[noreturn]] void fail(std::string_view expected, std::string_view found) const;
    [[noreturn]] void failAtPicture(std::string_view reason) const;
    void findStreams();
    void requireSizes() const;
    void requireSize(int64_t width, int64_t height) const;
    void openCodec();
    std::string streamKinds() const;
    void feed();
    void takePicture();
    int64_t intervalNs() const;
    int64_t inNs(int64_t time) const;
    void requireWhole() const;

    std::string const mName;
    FormatContext const mFormat;
    ReadPacket const mRead;
    AVStream* mStream = nullptr;  ///< the format's
    CodecContext mCodec;
    Packet const mPacket;
    Frame const mFrame;
    std::shared_ptr<Picture const> mPicture;
    int mRotation = 0;
    int64_t mTimeNs = 0;
    int64_t mTag = 0;
    size_t mPictures = 0;
    size_t mPackets = 0;
};

}  // namespace zebcam::tool::picture
