#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "device/DeviceRecording.h"

namespace zebcam::tool::device {

/// A bound for flags: six bits are the most that any kind of them has.
inline constexpr uint64_t ANY_FLAGS = 64;

/// Takes values one by one out of a piece of a file. Whatever is not there or out of range throws
/// DeviceRecordingError.
class Decoder {
public:
    /// Borrows all. `offset` is where in the file the bytes begin.
    Decoder(std::span<uint8_t const> bytes, uint64_t offset, std::string const& path)
        : mBytes(bytes), mBegin(offset), mPath(path) {}

    bool isAtEnd() const { return mAt == mBytes.size(); }

    uint8_t byte(std::string_view what);
    bool yesOrNo(std::string_view what) { return below(2, what) != 0; }
    uint64_t number(std::string_view what);
    uint32_t number32(std::string_view what);
    int64_t signedNumber(std::string_view what);
    /// A number below `limit`.
    uint64_t below(uint64_t limit, std::string_view what);
    /// How many things follow, of at least one byte each.
    size_t count(std::string_view what);
    std::string text(std::string_view what);
    uint64_t fixed(size_t bytes, std::string_view what);
    /// A time in ns whose distance from any other fits 64 bits.
    int64_t time(int64_t& last, std::string_view what);
    record::ClockReading clock(record::ClockReading& last);
    void requireTime(int64_t ns, std::string_view what);

    [[noreturn]] void fail(std::string_view expected, std::string_view found) const;

private:
    std::span<uint8_t const> mBytes;
    uint64_t const mBegin;
    std::string const& mPath;
    size_t mAt = 0;
};

/// Decodes the entries of a recording, one after the other, into the recording.
class EntryDecoder {
public:
    explicit EntryDecoder(DeviceRecording& recording) : mRecording(recording) {}

    /// Throws DeviceRecordingError; the recording then has what came before.
    void decode(Decoder& in);

    bool hasHeader() const { return mHasHeader; }
    /// An END has come.
    bool isComplete() const { return mIsComplete; }

private:
    void decodeHeader(Decoder& in);
    void decodeEnd(Decoder& in);
    DeviceOperation decodeOperation(Decoder& in);
    ConfigureCall decodeConfigure(Decoder& in);
    SubmitCall decodeSubmit(Decoder& in);
    void decodeSelectorName(Decoder& in, SubmitCall& call);
    RequestedFrame decodeRequestedFrame(Decoder& in);
    ResultCall decodeResult(Decoder& in);
    void decodeItem(Decoder& in, record::Item item, DeviceOperation& operation);
    void decodeClone(Decoder& in, DeviceOperation& operation);
    void decodeSelectionEnd(Decoder& in, DeviceOperation& operation);
    void decodeOffer(Decoder& in, DeviceOperation& operation);
    void decodeInFlight(Decoder& in, DeviceOperation& operation);
    void decodeFault(Decoder& in, DeviceOperation& operation);
    DeviceAnswer decodeAnswer(Decoder& in);
    static ReturnStep decodeReturn(Decoder& in);
    BuiltStep decodeBuilt(Decoder& in) const;
    void decodeDone(Decoder& in, DeviceOperation& operation);

    size_t decodeStream(Decoder& in);
    std::optional<size_t> decodeOptionalStream(Decoder& in);
    std::vector<DeviceMeta> decodeMetas(Decoder& in);
    static NSCam::IMetadata decodeMetadata(Decoder& in);
    size_t decodeFrame(Decoder& in, bool isNew);

    DeviceRecording& mRecording;
    record::ClockReading mClock;  ///< last one; the later two relative to the boot-time clock
    int64_t mTimestampNs = 0;     ///< of the last new frame
    uint64_t mFirstBuilder = 0;
    bool mHasHeader = false;
    bool mIsComplete = false;
};

}  // namespace zebcam::tool::device
