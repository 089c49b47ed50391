#include "picture/Camera.h"

#include <fmt/format.h>
#include <utils/Timers.h>
#include <zebcam/ThreadSafety.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <exception>
#include <limits>
#include <thread>

#include "base/InputError.h"
#include "base/Text.h"
#include "picture/CameraInput.h"
#include "picture/Channel.h"
#include "picture/PictureMeter.h"

namespace zebcam::tool::picture {

namespace {

/// So many broken pictures in a row are no pictures.
constexpr int kMostBroken = 100;
/// Who falls behind its own pace by more does not catch up.
constexpr int64_t kMostBehindNs = base::NS_PER_SECOND;
/// What was read to know the streams is there at once, and for so long is waited for its decoding.
constexpr int64_t kAtOnceNs = base::NS_PER_MS;
constexpr int64_t kCatchingUpNs = 2 * base::NS_PER_SECOND;
constexpr std::chrono::milliseconds kMoment(2);
constexpr std::chrono::milliseconds kLongestNap(20);

int64_t bootNs() {
    return systemTime(SYSTEM_TIME_BOOTTIME);
}

class FfmpegCamera final : public Camera {
public:
    FfmpegCamera(CameraOptions const& options, std::function<void()> const& check)
        : mOptions(options),
          mCheck(check),
          mWaitsUntilNs(bootNs() + options.stallNs),
          mGiveUp([this] { return isGivingUp(); }),
          mInput(openedInput()),
          mFormat(*mInput.format),
          mDecoder(openedDecoder()) {
        AVRational const rate = av_guess_frame_rate(
            &mFormat, const_cast<AVStream*>(&mDecoder.stream()), nullptr);  // which changes nothing
        constexpr AVRational kUsualRate = {30, 1};
        mFacts.source = options.source;
        mFacts.format = mFormat.iformat->name;
        mFacts.intervalNs =
            av_rescale_q(1, av_inv_q(rate.num > 0 ? rate : kUsualRate), {1, base::NS_PER_SECOND});
        mIsOpen = true;
        mReading = std::jthread([this] { readPackets(); });
        mDecoding = std::jthread([this] { decode(); });
        try {
            awaitFirst();
        } catch (...) {
            stop();  // or nobody does before the threads are joined
            throw;
        }
    }
    ~FfmpegCamera() override { stop(); }

    CameraFacts facts() const override {
        LockGuard const lock(mLock);
        return mFacts;
    }

    std::optional<CameraPicture> next(std::stop_token const& stop) override {
        std::stop_callback const wake(stop, [this] { this->stop(); });
        auto picture = mPictures.pop(bootNs() + mOptions.stallNs);
        if (!picture && !mPictures.isClosed()) {
            end(stalled(), true);
        }
        return picture;
    }

private:
    struct Received {
        Packet packet;
        int64_t originNs = 0;  ///< boot time at which the packet's own time is 0
    };

    // While it is opened.
    CameraInput openedInput();
    PictureDecoder openedDecoder();
    void explain() const;
    bool isGivingUp();
    void awaitFirst();

    // The reading thread's.
    void readPackets();
    void receive(Packet packet, bool mayWait);
    CameraClock clockOf(AVPacket const& packet) const;
    int64_t waitForTurn(AVPacket const& packet);

    // The decoding thread's.
    int takePacket(AVPacket& packet, int64_t& originNs);
    void decode();
    bool decodeOne();
    void hand(std::shared_ptr<Picture const> const& picture);

    void stop();
    void end(std::string const& why, bool isBreak);
    void count(uint64_t CameraFacts::*what);
    std::string stalled() const {
        return fmt::format("no picture for {}", base::formatDuration(mOptions.stallNs));
    }

    CameraOptions const mOptions;
    std::function<void()> const& mCheck;  ///< asked until the first picture is there
    std::exception_ptr mThrown;           ///< by mCheck, which FFmpeg called
    int64_t const mWaitsUntilNs;          ///< while it is opened
    std::atomic<bool> mIsOpen = false;
    std::atomic<bool> mIsStopped = false;
    GiveUp const mGiveUp;
    CameraInput mInput;
    AVFormatContext& mFormat;  ///< the decoder owns it, the reading thread reads it

    std::optional<CameraClock> mClock;  ///< once there was a packet
    int64_t mOriginNs = 0;              ///< of the pace
    std::optional<int64_t> mPacketNs;   ///< own time of the packet before
    bool mIsSkipping = false;           ///< to the next packet that needs none before it

    PictureDecoder mDecoder;
    PictureMeter mMeter;
    int mBrokenInRow = 0;
    std::string mBreakage;  ///< what was wrong with the last one
    int64_t mPictureNs = 0;
    uint32_t mWidth = 0;
    uint32_t mHeight = 0;

    Channel<Received> mPackets;
    Channel<CameraPicture> mPictures;
    mutable Mutex mLock;  ///< a leaf
    CameraFacts mFacts GUARDED_BY(mLock);
    std::jthread mReading;
    std::jthread mDecoding;
};

CameraInput FfmpegCamera::openedInput() {
    try {
        return openInput(mOptions, mGiveUp);
    } catch (base::InputError const&) {
        explain();
        throw;
    }
}

PictureDecoder FfmpegCamera::openedDecoder() {
    try {
        return PictureDecoder(
            mOptions.source, std::move(mInput.format),
            [this](AVPacket& packet, int64_t& originNs) { return takePacket(packet, originNs); });
    } catch (base::InputError const&) {
        explain();
        throw;
    }
}

/// Throws what made FFmpeg give up, which it does not know itself.
void FfmpegCamera::explain() const {
    if (mThrown != nullptr) {
        std::rethrow_exception(mThrown);
    }
    if (bootNs() > mWaitsUntilNs) {
        throw base::InputError(
            fmt::format("{}: expected a camera, found {}", mOptions.source, stalled()));
    }
}

bool FfmpegCamera::isGivingUp() {
    if (mIsOpen) {
        return mIsStopped;
    }
    try {
        if (mCheck) {
            mCheck();
        }
    } catch (...) {
        mThrown = std::current_exception();  // which must not get through FFmpeg
    }
    return mThrown != nullptr || bootNs() > mWaitsUntilNs;
}

void FfmpegCamera::awaitFirst() {
    int64_t const untilNs = bootNs() + mOptions.stallNs;
    while (mPictures.isEmpty() && !mPictures.isClosed()) {
        if (mCheck) {
            mCheck();
        }
        if (bootNs() > untilNs) {
            throw base::InputError(
                fmt::format("{}: expected a camera, found {}", mOptions.source, stalled()));
        }
        std::this_thread::sleep_for(kMoment);
    }
    if (mPictures.isEmpty()) {
        throw base::InputError(!mBreakage.empty()
                                   ? mBreakage
                                   : fmt::format("{}: expected a camera, found no picture: {}",
                                                 mOptions.source, facts().end));
    }
}

void FfmpegCamera::readPackets() {
    int status = 0;
    int64_t const startNs = bootNs();
    for (bool isCatchingUp = true; !mIsStopped && status >= 0;) {
        Packet packet(av_packet_alloc());
        int64_t const nowNs = bootNs();
        status = av_read_frame(&mFormat, packet.get());
        isCatchingUp =
            isCatchingUp && bootNs() - nowNs < kAtOnceNs && nowNs - startNs < kCatchingUpNs;
        if (status == AVERROR(EAGAIN)) {
            std::this_thread::sleep_for(kMoment);
            status = 0;
        } else if (status >= 0 && packet->stream_index == mDecoder.stream().index) {
            receive(std::move(packet), isCatchingUp);
        }
    }
    if (status == AVERROR_EOF) {
        // A camera does not end, but a file does.
        bool const isPaced = mInput.kind == CameraInput::Kind::Paced;
        end(isPaced ? "the source is over" : "the source has ended", !isPaced);
    } else if (!mIsStopped) {
        end(reasonOf(status), true);
    }
    mPackets.close(false);
}

/// What does not fit is dropped here, and what cannot be decoded without it; unless there is time
/// to wait.
void FfmpegCamera::receive(Packet packet, bool mayWait) {
    if ((packet->flags & AV_PKT_FLAG_CORRUPT) != 0) {
        count(&CameraFacts::broken);
        return;
    }
    if (!mClock) {
        mClock = clockOf(*packet);
        LockGuard const lock(mLock);
        mFacts.clock = *mClock;
    }
    int64_t originNs = bootNs();
    switch (*mClock) {
        case CameraClock::Own:
            originNs = waitForTurn(*packet);
            break;
        case CameraClock::Driver:
            originNs -= systemTime(SYSTEM_TIME_MONOTONIC);
            break;
        case CameraClock::Arrival:
            packet->pts = packet->dts = 0;
            break;
    }
    bool const isKey = (packet->flags & AV_PKT_FLAG_KEY) != 0;
    mIsSkipping = mIsSkipping && !isKey;
    if (mayWait) {
        mPackets.push({std::move(packet), originNs});
        return;
    }
    if (mIsSkipping || !mPackets.tryPush({std::move(packet), originNs})) {
        mIsSkipping = true;
        count(&CameraFacts::dropped);
    }
}

/// A driver's time that lies shortly before this moment on the monotonic clock is of that clock:
/// those that it could be taken for have other origins.
CameraClock FfmpegCamera::clockOf(AVPacket const& packet) const {
    if (mInput.kind == CameraInput::Kind::Paced) {
        return CameraClock::Own;
    }
    int64_t const ageNs =
        systemTime(SYSTEM_TIME_MONOTONIC) -
        av_rescale_q(packet.pts, mDecoder.stream().time_base, {1, base::NS_PER_SECOND});
    bool const isMonotonic = mInput.kind == CameraInput::Kind::Device &&
                             packet.pts != AV_NOPTS_VALUE && ageNs >= 0 &&
                             ageNs < base::NS_PER_SECOND;
    return isMonotonic ? CameraClock::Driver : CameraClock::Arrival;
}

/// Gives the origin of the pace, which is a new one where the source's times begin anew or it is
/// too slow to keep to them.
int64_t FfmpegCamera::waitForTurn(AVPacket const& packet) {
    int64_t const stamp = packet.dts != AV_NOPTS_VALUE ? packet.dts : packet.pts;
    int64_t const ownNs = stamp != AV_NOPTS_VALUE ? av_rescale_q(stamp, mDecoder.stream().time_base,
                                                                 {1, base::NS_PER_SECOND})
                                                  : mPacketNs.value_or(0);
    int64_t const nowNs = bootNs();
    if (!mPacketNs || ownNs < *mPacketNs || nowNs - (mOriginNs + ownNs) > kMostBehindNs) {
        if (mPacketNs) {
            count(&CameraFacts::replacedTimes);
        }
        mOriginNs = nowNs - ownNs;
    }
    mPacketNs = ownNs;
    for (int64_t leftNs = 1; leftNs > 0 && !mIsStopped;) {
        leftNs = mOriginNs + ownNs - bootNs();
        std::this_thread::sleep_for(std::clamp(std::chrono::nanoseconds(leftNs),
                                               std::chrono::nanoseconds(0),
                                               std::chrono::nanoseconds(kLongestNap)));
    }
    return mOriginNs;
}

int FfmpegCamera::takePacket(AVPacket& packet, int64_t& originNs) {
    auto received = mPackets.pop(std::numeric_limits<int64_t>::max());
    if (!received) {
        return AVERROR_EOF;
    }
    av_packet_move_ref(&packet, received->packet.get());
    originNs = received->originNs;
    return 0;
}

void FfmpegCamera::decode() {
    while (!mIsStopped && decodeOne()) {
    }
    mPackets.close(true);
    mPictures.close(false);
}

/// False when there are no more.
bool FfmpegCamera::decodeOne() {
    try {
        if (!mDecoder.next()) {
            return false;
        }
    } catch (base::InputError const& error) {
        // One that came damaged is no reason to do without the next.
        count(&CameraFacts::broken);
        mBreakage = error.what();
        if (++mBrokenInRow < kMostBroken) {
            return true;
        }
        end(mBreakage, true);
        return false;
    }
    mBrokenInRow = 0;
    hand(mDecoder.picture());
    return true;
}

void FfmpegCamera::hand(std::shared_ptr<Picture const> const& picture) {
    auto const measures = mMeter.measure(picture->pixels(PixelKind::Luma, MEASURED_WIDTH));
    int64_t timeNs = mDecoder.tag() + mDecoder.timeNs();
    {
        LockGuard const lock(mLock);
        bool const isAhead = mFacts.clock == CameraClock::Driver && timeNs > bootNs();
        if (timeNs <= mPictureNs || isAhead) {
            timeNs = std::max(bootNs(), mPictureNs + 1);
            // Those that arrived in another order than they are shown in tell nothing of a clock.
            mFacts.replacedTimes += mFacts.clock != CameraClock::Arrival ? 1 : 0;
        }
        bool const isFirst = mFacts.pictures++ == 0;
        bool const isResized = picture->width() != mWidth || picture->height() != mHeight;
        if (isFirst) {
            mFacts.width = picture->width();
            mFacts.height = picture->height();
        }
        mFacts.resized += isResized && !isFirst ? 1 : 0;
    }
    mPictureNs = timeNs;
    mWidth = picture->width();
    mHeight = picture->height();
    mPictures.push({timeNs, picture, measures});
}

void FfmpegCamera::stop() {
    mIsStopped = true;
    mPackets.close(true);
    mPictures.close(true);
}

void FfmpegCamera::end(std::string const& why, bool isBreak) {
    LockGuard const lock(mLock);
    if (mFacts.end.empty()) {
        mFacts.end = why;
        mFacts.hasBrokenOff = isBreak;
    }
}

void FfmpegCamera::count(uint64_t CameraFacts::*what) {
    LockGuard const lock(mLock);
    ++(mFacts.*what);
}

}  // namespace

std::unique_ptr<Camera> openCamera(CameraOptions const& options,
                                   std::function<void()> const& check) {
    return std::make_unique<FfmpegCamera>(options, check);
}

}  // namespace zebcam::tool::picture
