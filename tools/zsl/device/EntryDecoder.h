#pragma once

#include <cstdint>
#include <vector>

#include "device/Decoder.h"
#include "device/DeviceRecording.h"

namespace zebcam::tool::device {

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
