#include <fmt/format.h>

#include <algorithm>
#include <bit>

#include "device/EntryDecoder.h"

namespace zebcam::tool::device {

/// What happens within an operation, and what that names.

using NSCam::IMetadata;
using NSCam::Rational;
using NSCam::Type2Type;
using NSCam::ZslPolicy::ISelector;
namespace flag = record::flag;

namespace {

int32_t decodeInt32(Decoder& in) {
    int64_t const value = in.signedNumber("an item");
    if (value != static_cast<int32_t>(value)) {
        in.fail("an item of 32 bits", std::to_string(value));
    }
    return static_cast<int32_t>(value);
}

void decodeMetadataItem(Decoder& in, IMetadata::Type type, IMetadata::IEntry& entry) {
    switch (type) {
        case IMetadata::Type::Byte:
            entry.push_back(in.byte("an item"), Type2Type<uint8_t>());
            break;
        case IMetadata::Type::Int32:
            entry.push_back(decodeInt32(in), Type2Type<int32_t>());
            break;
        case IMetadata::Type::Float:
            entry.push_back(std::bit_cast<float>(static_cast<uint32_t>(in.fixed(4, "an item"))),
                            Type2Type<float>());
            break;
        case IMetadata::Type::Int64:
            entry.push_back(in.signedNumber("an item"), Type2Type<int64_t>());
            break;
        case IMetadata::Type::Double:
            entry.push_back(std::bit_cast<double>(in.fixed(8, "an item")), Type2Type<double>());
            break;
        case IMetadata::Type::Rational: {
            int32_t const numerator = decodeInt32(in);
            entry.push_back(Rational{numerator, decodeInt32(in)}, Type2Type<Rational>());
            break;
        }
    }
}

}  // namespace

void EntryDecoder::decodeItem(Decoder& in, record::Item item, DeviceOperation& operation) {
    switch (item) {
        case record::Item::SUBMISSION_CLOCK:
            operation.submissionRead = in.clock(mClock);
            break;
        case record::Item::OFFER:
            decodeOffer(in, operation);
            break;
        case record::Item::IN_FLIGHT:
            decodeInFlight(in, operation);
            break;
        case record::Item::RETURN:
            operation.steps.emplace_back(decodeReturn(in));
            break;
        case record::Item::CLONE:
            decodeClone(in, operation);
            break;
        case record::Item::SELECTION_END:
            decodeSelectionEnd(in, operation);
            break;
        case record::Item::FAULT:
            decodeFault(in, operation);
            break;
        case record::Item::SELECT:
            operation.answers.push_back(decodeAnswer(in));
            break;
        case record::Item::BUILT:
            operation.steps.emplace_back(decodeBuilt(in));
            break;
        case record::Item::RESULT_LEFT:
            for (size_t left = in.count("a number of metadata"); left > 0; --left) {
                operation.outcome.timestampsLeft.push_back(
                    in.yesOrNo("whether there is a sensor timestamp"));
            }
            break;
        case record::Item::CALLBACK_FAILED:
            operation.callbackFailure = in.text("what the callback threw");
            break;
        case record::Item::DONE:
            decodeDone(in, operation);
            break;
        default:
            in.fail("a known item", fmt::format("item {}", static_cast<unsigned>(item)));
    }
}

void EntryDecoder::decodeClone(Decoder& in, DeviceOperation& operation) {
    uint64_t const provider = in.number("a provider");
    // The original's: the clone has the same number among what follows.
    in.number32("a frame number");
    operation.clones.push_back({provider, decodeFrame(in, true)});
}

void EntryDecoder::decodeSelectionEnd(Decoder& in, DeviceOperation& operation) {
    record::ClockReading const now = in.clock(mClock);
    // A recorder writes it only after an offer; a file may be anything.
    if (!operation.tries.empty()) {
        operation.tries.back().ended = now;
    }
}

void EntryDecoder::decodeOffer(Decoder& in, DeviceOperation& operation) {
    DeviceTry& attempt = operation.tries.emplace_back();
    attempt.offered = in.clock(mClock);
    attempt.provider = in.number("a provider");
    size_t const count = in.count("a number of frames");
    // One more than there are, for no history differs from an empty one.
    if (count == 0) {
        return;
    }
    attempt.frames.emplace();
    for (size_t i = 1; i < count; ++i) {
        attempt.frames->push_back(decodeFrame(in, false));
    }
    // So that an offer is no larger than the frames that the file describes.
    std::vector<size_t> sorted = *attempt.frames;
    std::sort(sorted.begin(), sorted.end());
    if (std::adjacent_find(sorted.begin(), sorted.end()) != sorted.end()) {
        in.fail("frames that are offered once", "one twice");
    }
}

void EntryDecoder::decodeInFlight(Decoder& in, DeviceOperation& operation) {
    record::ClockReading const now = in.clock(mClock);
    in.number("a provider");
    std::vector<uint32_t> frames;
    int64_t last = 0;
    for (size_t left = in.count("a number of frames"); left > 0; --left) {
        // Numbers of frames are coded by their steps, as times are.
        frames.push_back(static_cast<uint32_t>(in.time(last, "a frame number")));
    }
    if (!operation.tries.empty()) {
        operation.tries.back().asked = now;
        operation.tries.back().inFlight = std::move(frames);
    }
}

void EntryDecoder::decodeFault(Decoder& in, DeviceOperation& operation) {
    DeviceFault fault;
    fault.call = static_cast<record::ProviderCall>(in.below(record::PROVIDER_CALLS, "a call"));
    fault.count = in.number("a number of calls");
    fault.text = in.text("the text of an exception");
    operation.faults.push_back(std::move(fault));
}

DeviceAnswer EntryDecoder::decodeAnswer(Decoder& in) {
    DeviceAnswer answer;
    uint64_t const flags = in.below(ANY_FLAGS, "the flags of an answer");
    answer.requestNo = in.number32("a request number");
    answer.zsdNs = in.signedNumber("a time");
    answer.durationMs = in.signedNumber("a duration");
    if ((flags & flag::HAS_THROWN) != 0) {
        answer.failure = in.text("the text of an exception");
        return answer;
    }
    for (size_t left = in.count("a number of frames"); left > 0; --left) {
        uint64_t const index = in.number("a frame's index");
        ISelector::ZslFrameResult result;
        result.frameNo = in.number32("a frame number");
        result.needClone = in.yesOrNo("whether the frame is cloned");
        for (size_t metas = in.count("a number of metadata"); metas > 0; --metas) {
            int64_t const streamId = in.signedNumber("a stream id");
            auto& additional = result.additionalMetas[streamId];
            if (in.yesOrNo("whether there is metadata")) {
                additional = std::make_shared<IMetadata>(decodeMetadata(in));
            }
        }
        answer.answer.selected.insert_or_assign(index, std::move(result));
    }
    for (size_t left = in.count("a number of orders"); left > 0; --left) {
        uint32_t const frameNo = in.number32("a frame number");
        answer.answer.ops[frameNo] =
            static_cast<ISelector::SelectOutputParams::OpT>(in.below(3, "an order"));
    }
    return answer;
}

ReturnStep EntryDecoder::decodeReturn(Decoder& in) {
    ReturnStep step;
    step.provider = in.number("a provider");
    uint64_t const flags = in.below(ANY_FLAGS, "the flags of a set that came back");
    step.isUnused = (flags & flag::IS_UNUSED) != 0;
    step.isClone = (flags & flag::IS_CLONE) != 0;
    step.frameNo = in.number32("a frame number");
    return step;
}

BuiltStep EntryDecoder::decodeBuilt(Decoder& in) const {
    BuiltStep step;
    step.builder = in.below(mFirstBuilder, "a frame builder's number");
    uint64_t const flags = in.below(ANY_FLAGS, "the flags of a built frame");
    step.isFromHistory = (flags & flag::IS_FROM_HISTORY) != 0;
    step.isClone = (flags & flag::IS_CLONE) != 0;
    step.timestampNs = in.signedNumber("a timestamp");
    if ((flags & flag::HAS_HISTORY_FRAME) != 0) {
        step.frameNo = in.number32("a frame number");
    }
    return step;
}

void EntryDecoder::decodeDone(Decoder& in, DeviceOperation& operation) {
    operation.ended = in.clock(mClock);
    DeviceOutcome& outcome = operation.outcome;
    if ((in.below(ANY_FLAGS, "the flags of an outcome") & flag::HAS_THROWN) != 0) {
        outcome.failure = in.text("the text of an exception");
        return;
    }
    if (operation.kind == record::Operation::CONFIGURE ||
        operation.kind == record::Operation::RESULT) {
        outcome.status = in.signedNumber("a status");
        return;
    }
    for (size_t lists = in.count("a number of lists"); lists > 0; --lists) {
        auto& list = outcome.builders.emplace_back();
        for (size_t left = in.count("a number of frame builders"); left > 0; --left) {
            // One more than the builder's number; 0 stands for a frame without one.
            list.push_back(in.below(mFirstBuilder + 1, "a frame builder's number"));
        }
    }
}

std::vector<DeviceMeta> EntryDecoder::decodeMetas(Decoder& in) {
    std::vector<DeviceMeta> metas;
    for (size_t left = in.count("a number of buffers"); left > 0; --left) {
        uint64_t const flags = in.below(ANY_FLAGS, "the flags of a buffer");
        DeviceMeta& meta = metas.emplace_back();
        meta.hasError = (flags & flag::HAS_ERROR) != 0;
        meta.isLockable = (flags & flag::IS_LOCKABLE) != 0;
        if ((flags & flag::HAS_STREAM) != 0) {
            meta.stream = decodeStream(in);
        }
        // What could not be locked could not be read either.
        if (meta.isLockable) {
            meta.metadata = decodeMetadata(in);
        }
    }
    return metas;
}

IMetadata EntryDecoder::decodeMetadata(Decoder& in) {
    IMetadata metadata;
    int64_t tag = 0;
    for (size_t left = in.count("a number of entries"); left > 0; --left) {
        if (in.time(tag, "a tag") < 0 || tag > UINT32_MAX) {
            in.fail("a tag of 32 bits", std::to_string(tag));
        }
        uint64_t const shape = in.number("the shape of an entry");
        auto const type = static_cast<IMetadata::Type>(shape & 7);
        if (type > IMetadata::Type::Rational) {
            in.fail("a type of items", std::to_string(shape & 7));
        }
        IMetadata::IEntry entry(static_cast<uint32_t>(tag));
        // No check of the number: each item takes a byte at least, so that the entry ends first.
        for (uint64_t items = shape >> 3; items > 0; --items) {
            decodeMetadataItem(in, type, entry);
        }
        metadata.update(entry.tag(), entry);
    }
    return metadata;
}

size_t EntryDecoder::decodeFrame(Decoder& in, bool isNew) {
    size_t const known = mRecording.frames.size();
    // The first number that is not known yet announces a frame, described by what follows.
    auto const index = static_cast<size_t>(in.below(known + 1, "a frame's position"));
    if (index < known) {
        if (isNew) {
            in.fail("a new frame", fmt::format("frame {}", index));
        }
        return index;
    }
    DeviceFrame frame;
    frame.frameNo = in.number32("a frame number");
    frame.requestNo = in.number32("a request number");
    frame.timestampNs = in.time(mTimestampNs, "a sensor timestamp");
    for (size_t left = in.count("a number of buffers"); left > 0; --left) {
        uint64_t const flags = in.below(ANY_FLAGS, "the flags of a buffer");
        DeviceImage& image = frame.images.emplace_back();
        image.hasError = (flags & flag::HAS_ERROR) != 0;
        if ((flags & flag::HAS_STREAM) != 0) {
            image.stream = decodeStream(in);
        }
    }
    frame.halMetas = decodeMetas(in);
    frame.appMetas = decodeMetas(in);
    mRecording.frames.push_back(std::move(frame));
    return index;
}

}  // namespace zebcam::tool::device
