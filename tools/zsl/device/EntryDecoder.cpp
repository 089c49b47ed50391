#include "device/EntryDecoder.h"

#include <ZslRecorder.h>
#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <utility>

namespace zebcam::tool::device {

using NSCam::v3::pipeline::model::ZslRecordingEnd;
namespace flag = record::flag;

namespace {

// The sum and the difference of two such times still fit 64 bits.
constexpr int64_t kFarthestTimeNs = int64_t{1} << 62;

/// Wraps around, for the steps in a damaged file may be anything.
int64_t sumOf(int64_t a, int64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}

std::set<int64_t> decodeIds(Decoder& in) {
    std::set<int64_t> ids;
    for (size_t left = in.count("a number of streams"); left > 0; --left) {
        ids.insert(in.signedNumber("a stream id"));
    }
    return ids;
}

}  // namespace

void Decoder::fail(std::string_view expected, std::string_view found) const {
    throw DeviceRecordingError(mPath, mBegin + mAt, expected, found);
}

uint8_t Decoder::byte(std::string_view what) {
    if (isAtEnd()) {
        fail(what, "the end of the entry");
    }
    return mBytes[mAt++];
}

uint64_t Decoder::number(std::string_view what) {
    uint64_t value = 0;
    for (unsigned shift = 0; shift < 64; shift += 7) {
        uint8_t const next = byte(what);
        value |= uint64_t{next & 0x7fU} << shift;
        if ((next & 0x80) == 0) {
            return value;
        }
    }
    fail(what, "a number of more than 64 bits");
}

uint32_t Decoder::number32(std::string_view what) {
    return static_cast<uint32_t>(below(uint64_t{1} << 32, what));
}

int64_t Decoder::signedNumber(std::string_view what) {
    uint64_t const bits = number(what);
    return static_cast<int64_t>((bits >> 1) ^ (~(bits & 1) + 1));
}

uint64_t Decoder::below(uint64_t limit, std::string_view what) {
    uint64_t const value = number(what);
    if (value >= limit) {
        fail(fmt::format("{} below {}", what, limit), std::to_string(value));
    }
    return value;
}

size_t Decoder::count(std::string_view what) {
    uint64_t const value = number(what);
    // Checked before anybody makes room for so many: in a damaged file it may be any number.
    size_t const left = mBytes.size() - mAt;
    if (value > left) {
        fail(what, fmt::format("{} in the {} bytes that are left of the entry", value, left));
    }
    return static_cast<size_t>(value);
}

std::string Decoder::text(std::string_view what) {
    size_t const size = count(what);
    std::string value(mBytes.begin() + static_cast<std::ptrdiff_t>(mAt),
                      mBytes.begin() + static_cast<std::ptrdiff_t>(mAt + size));
    mAt += size;
    return value;
}

uint64_t Decoder::fixed(size_t bytes, std::string_view what) {
    uint64_t value = 0;
    for (size_t i = 0; i < bytes; ++i) {
        value |= uint64_t{byte(what)} << (8 * i);
    }
    return value;
}

void Decoder::requireTime(int64_t ns, std::string_view what) {
    if (ns <= -kFarthestTimeNs || ns >= kFarthestTimeNs) {
        fail(fmt::format("{} within 146 years", what), fmt::format("{} ns", ns));
    }
}

int64_t Decoder::time(int64_t& last, std::string_view what) {
    last = sumOf(last, signedNumber(what));
    requireTime(last, what);
    return last;
}

record::ClockReading Decoder::clock(record::ClockReading& last) {
    record::ClockReading now;
    now.bootNs = time(last.bootNs, "a boot time");
    now.monotonicNs = sumOf(time(last.monotonicNs, "a monotonic time"), now.bootNs);
    now.wallNs = sumOf(time(last.wallNs, "a wall-clock time"), now.bootNs);
    // The boot time and the distance from it were in range, their sum need not be.
    requireTime(now.monotonicNs, "a monotonic time");
    requireTime(now.wallNs, "a wall-clock time");
    return now;
}

void EntryDecoder::decode(Decoder& in) {
    auto const kind = static_cast<record::Entry>(in.byte("an entry"));
    if (mIsComplete) {
        in.fail("nothing after the end of the recording", "another entry");
    }
    // The clock readings of all other entries are steps from the header's.
    if ((kind == record::Entry::HEADER) == mHasHeader) {
        in.fail(mHasHeader ? "one header" : "the header first",
                fmt::format("entry {}", static_cast<unsigned>(kind)));
    }
    switch (kind) {
        case record::Entry::HEADER:
            decodeHeader(in);
            break;
        case record::Entry::OPERATION: {
            DeviceOperation operation = decodeOperation(in);
            // Only of a whole operation: of one that breaks off nothing counts.
            mRecording.builders = mFirstBuilder;
            mRecording.operations.push_back(std::move(operation));
            break;
        }
        case record::Entry::END:
            decodeEnd(in);
            break;
        default:
            in.fail("a known entry", fmt::format("entry {}", static_cast<unsigned>(kind)));
    }
    // A byte too many means that what came before was misread.
    if (!in.isAtEnd()) {
        in.fail("the end of the entry", "more bytes");
    }
}

void EntryDecoder::decodeHeader(Decoder& in) {
    mRecording.begun = in.clock(mClock);
    mRecording.openId = in.signedNumber("an open id");
    int64_t const source = in.signedNumber("a timestamp source");
    // -1: the device's characteristics did not tell.
    if (source < -1 || source > std::numeric_limits<uint8_t>::max()) {
        in.fail("a timestamp source", std::to_string(source));
    }
    if (source >= 0) {
        mRecording.timestampSource = static_cast<uint8_t>(source);
    }
    for (size_t left = in.count("a number of properties"); left > 0; --left) {
        // Two statements: the arguments of a call are read from the file in any order.
        std::string key = in.text("a property's key");
        mRecording.properties.emplace_back(std::move(key), in.text("a property's value"));
    }
    mHasHeader = true;
}

void EntryDecoder::decodeEnd(Decoder& in) {
    auto const end = static_cast<ZslRecordingEnd>(in.below(6, "a reason for the end"));
    uint64_t const missed = in.number("a number of operations");
    mIsComplete = true;
    if (end != ZslRecordingEnd::FINISHED) {
        mRecording.notes.push_back(
            fmt::format("the recorder ended early, after {} operations: {}; at least {} operations "
                        "came after that",
                        mRecording.operations.size(), toString(end), missed));
    }
}

DeviceOperation EntryDecoder::decodeOperation(Decoder& in) {
    DeviceOperation operation;
    operation.kind = static_cast<record::Operation>(in.byte("an operation"));
    operation.begun = in.clock(mClock);
    switch (operation.kind) {
        case record::Operation::CONFIGURE:
            operation.call = decodeConfigure(in);
            break;
        case record::Operation::SUBMIT:
            operation.call = decodeSubmit(in);
            break;
        case record::Operation::RETRY:
            operation.call = RetryCall{in.number32("a request number")};
            break;
        case record::Operation::RESULT:
            operation.call = decodeResult(in);
            break;
        case record::Operation::FLUSH:
            break;
        default:
            in.fail("a known operation",
                    fmt::format("operation {}", static_cast<unsigned>(operation.kind)));
    }
    while (true) {
        auto const item = static_cast<record::Item>(in.byte("an item"));
        decodeItem(in, item, operation);
        if (item == record::Item::DONE) {
            return operation;
        }
    }
}

ConfigureCall EntryDecoder::decodeConfigure(Decoder& in) {
    ConfigureCall call;
    call.hasCallback = in.yesOrNo("whether there is a callback");
    size_t const sensors = in.count("a number of sensors");
    // One more than there are, for no list differs from an empty one.
    if (sensors == 0) {
        return call;
    }
    call.sensors.emplace();
    for (size_t i = 1; i < sensors; ++i) {
        DeviceSensor& sensor = call.sensors->emplace_back();
        sensor.id = in.number32("a sensor id");
        for (auto& stream : sensor.streams) {
            stream = decodeOptionalStream(in);
        }
    }
    return call;
}

SubmitCall EntryDecoder::decodeSubmit(Decoder& in) {
    SubmitCall call;
    call.requestNo = in.number32("a request number");
    uint64_t const flags = in.below(ANY_FLAGS, "the flags of a capture");
    call.checksPureRaw = (flags & flag::CHECKS_PURE_RAW) != 0;
    call.needsFrameSync = (flags & flag::NEEDS_FRAME_SYNC) != 0;
    call.callbackLives = (flags & flag::CALLBACK_LIVES) != 0;
    if ((flags & flag::HAS_POLICY) != 0) {
        call.policy.emplace();
        call.policy->policy = in.number32("a policy");
        call.policy->timeoutMs = in.signedNumber("a time-out");
    }
    if ((flags & flag::HAS_SELECTOR) != 0) {
        decodeSelectorName(in, call);
    }
    if ((flags & flag::HAS_PROVIDER) != 0) {
        call.provider = in.number("a provider");
    }
    for (size_t left = in.count("a number of sensor modes"); left > 0; --left) {
        uint32_t const sensor = in.number32("a sensor id");
        call.sensorModes.emplace_back(sensor, in.number32("a sensor mode"));
    }
    for (size_t left = in.count("a number of sensors"); left > 0; --left) {
        call.requiredSensors.push_back(in.number32("a sensor id"));
    }
    for (size_t left = in.count("a number of frames"); left > 0; --left) {
        call.frames.push_back(decodeRequestedFrame(in));
    }
    // A frame without a builder takes a number too, so that frames are found by theirs.
    call.firstBuilder = mFirstBuilder;
    mFirstBuilder += call.frames.size();
    return call;
}

void EntryDecoder::decodeSelectorName(Decoder& in, SubmitCall& call) {
    call.hasSelector = true;
    uint64_t const kind = in.below(3, "how a policy tells its name");
    std::string text = in.text("a policy's name");
    if (kind == 1) {
        call.selectorName = std::move(text);
    } else if (kind == 2) {
        call.selectorNameFailure = std::move(text);
    }
}

RequestedFrame EntryDecoder::decodeRequestedFrame(Decoder& in) {
    RequestedFrame frame;
    uint64_t const flags = in.below(ANY_FLAGS, "the flags of a frame");
    if ((flags & flag::HAS_RESULT_PARAMS) != 0) {
        frame.required.emplace();
        frame.required->halImages = decodeIds(in);
        frame.required->halMetas = decodeIds(in);
        frame.required->appMetas = decodeIds(in);
    }
    if ((flags & flag::HAS_BUILDER) != 0) {
        frame.frameType = in.number32("a frame type");
        frame.appControls = decodeMetas(in);
        frame.halControls = decodeMetas(in);
    }
    return frame;
}

ResultCall EntryDecoder::decodeResult(Decoder& in) {
    ResultCall call;
    call.requestNo = in.number32("a request number");
    call.resultRequestNo = in.number32("a request number");
    call.appMetasLeft = in.number32("a number of metadata");
    call.halMetasLeft = in.number32("a number of metadata");
    call.isFrameEnd = in.yesOrNo("whether the frame ends");
    for (size_t left = in.count("a number of metadata"); left > 0; --left) {
        ResultMeta& meta = call.appMetas.emplace_back();
        meta.stream = decodeOptionalStream(in);
        if (in.yesOrNo("whether there is a sensor timestamp")) {
            meta.timestampNs = in.signedNumber("a sensor timestamp");
            in.requireTime(*meta.timestampNs, "a sensor timestamp");
        }
    }
    return call;
}

size_t EntryDecoder::decodeStream(Decoder& in) {
    auto const index =
        static_cast<size_t>(in.below(mRecording.streams.size() + 1, "a stream's position"));
    if (index == mRecording.streams.size()) {
        DeviceStream stream;
        stream.id = in.signedNumber("a stream id");
        stream.name = in.text("a stream's name");
        stream.address = in.number("an address");
        mRecording.streams.push_back(std::move(stream));
    }
    return index;
}

std::optional<size_t> EntryDecoder::decodeOptionalStream(Decoder& in) {
    return in.yesOrNo("whether there is a stream") ? std::optional(decodeStream(in)) : std::nullopt;
}

}  // namespace zebcam::tool::device
