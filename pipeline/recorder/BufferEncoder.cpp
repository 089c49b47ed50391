#include "BufferEncoder.h"

#include <metadata/MetadataTags.h>

#include <algorithm>
#include <bit>

namespace NSCam::v3::pipeline::model::record {

namespace {

constexpr char USER[] = "ZslRecorder";
// Addresses are used again: streams that come and go must not make this grow for ever.
constexpr size_t MOST_STREAMS = 4096;

/// One metadata buffer, locked for reading; `get` is null when the lock was not obtained.
class ReadLock {
public:
    explicit ReadLock(android::sp<IMetaStreamBuffer> const& buffer)
        : mBuffer(buffer), mMetadata(buffer->tryReadLock(USER)) {}
    ~ReadLock() {
        if (mMetadata != nullptr) {
            mBuffer->unlock(USER, mMetadata);
        }
    }
    ReadLock(ReadLock const&) = delete;
    ReadLock& operator=(ReadLock const&) = delete;

    IMetadata const* get() const { return mMetadata; }

private:
    android::sp<IMetaStreamBuffer> const mBuffer;
    IMetadata* const mMetadata;
};

size_t bytesOf(IMetadata::Type type) {
    switch (type) {
        case IMetadata::Type::Byte:
            return 1;
        case IMetadata::Type::Int32:
        case IMetadata::Type::Float:
            return 4;
        case IMetadata::Type::Int64:
        case IMetadata::Type::Double:
        case IMetadata::Type::Rational:
            break;
    }
    return 8;  // and for a type that a later camera stack adds
}

template <typename T>
T item(IMetadata::IEntry const& entry, size_t index) {
    return entry.itemAt(index, Type2Type<T>());
}

void putItem(Encoder& out, IMetadata::IEntry const& entry, size_t index) {
    switch (entry.type()) {
        case IMetadata::Type::Byte:
            out.byte(item<uint8_t>(entry, index));
            break;
        case IMetadata::Type::Int32:
            out.signedNumber(item<int32_t>(entry, index));
            break;
        case IMetadata::Type::Float:
            // Bit by bit: a criterion may compare for equality.
            out.fixed(std::bit_cast<uint32_t>(item<float>(entry, index)));
            break;
        case IMetadata::Type::Int64:
            out.signedNumber(item<int64_t>(entry, index));
            break;
        case IMetadata::Type::Double:
            out.fixed(std::bit_cast<uint64_t>(item<double>(entry, index)));
            break;
        case IMetadata::Type::Rational: {
            auto const rational = item<Rational>(entry, index);
            out.signedNumber(rational.numerator);
            out.signedNumber(rational.denominator);
            break;
        }
    }
}

template <typename Buffer>
uint64_t flagsOf(Buffer const& buffer) {
    return (buffer->getStreamInfo() != nullptr ? flag::HAS_STREAM : 0) |
           (buffer->hasError() ? flag::HAS_ERROR : 0);
}

}  // namespace

bool readSensorTimestamp(android::sp<IMetaStreamBuffer> const& buffer, int64_t& ns) {
    if (buffer == nullptr) {
        return false;
    }
    ReadLock const locked(buffer);
    if (locked.get() == nullptr) {
        return false;
    }
    auto const entry = locked.get()->entryFor(ZEB_SENSOR_TIMESTAMP);
    ns = item<int64_t>(entry, 0);  // 0 where there is none, which nobody looks at
    return !entry.isEmpty();
}

void BufferEncoder::optionalStream(Encoder& out, IStreamInfo const* info) {
    out.flag(info != nullptr);
    if (info != nullptr) {
        stream(out, *info);
    }
}

void BufferEncoder::stream(Encoder& out, IStreamInfo const& info) {
    StreamId_T const id = info.getStreamId();
    char const* const name = info.getStreamName() != nullptr ? info.getStreamName() : "";
    auto const known = mStreams.find(&info);
    if (known != mStreams.end() && known->second.id == id && known->second.name == name) {
        out.number(known->second.number);
        return;
    }
    // By address, but not only: another stream may have been made where one was.
    if (mStreams.size() >= MOST_STREAMS) {
        mStreams.clear();
    }
    mStreams.insert_or_assign(&info, KnownStream{mNextStream, id, name});
    out.number(mNextStream++);
    out.signedNumber(id);
    out.text(name);
    // Policies get metadata by stream, in the order of the addresses.
    out.number(reinterpret_cast<uintptr_t>(&info));
}

void BufferEncoder::metadata(Encoder& out, IMetadata const& metadata) const {
    auto const isSmall = [this](IMetadata::IEntry const& entry) {
        return entry.count() <= mLargestEntryBytes / bytesOf(entry.type());
    };
    // Counted first: the number stands before the entries, and entries are cheap to look at twice.
    size_t small = 0;
    for (size_t i = 0; i < metadata.count(); ++i) {
        small += isSmall(metadata.entryAt(i)) ? 1 : 0;
    }
    out.number(small);
    int64_t lastTag = 0;
    for (size_t i = 0; i < metadata.count(); ++i) {
        auto const entry = metadata.entryAt(i);
        if (!isSmall(entry)) {
            continue;
        }
        out.step(entry.tag(), lastTag);
        out.number(entry.count() << 3 | static_cast<uint64_t>(entry.type()));
        for (size_t index = 0; index < entry.count(); ++index) {
            putItem(out, entry, index);
        }
    }
}

void BufferEncoder::metaBuffers(Encoder& out, MetaBuffers const& buffers) {
    out.number(buffers.size());
    for (auto const& buffer : buffers) {
        if (buffer == nullptr) {
            out.number(0);  // no flags: neither stream nor lock, as good as nothing
            continue;
        }
        ReadLock const locked(buffer);
        out.number(flagsOf(buffer) | (locked.get() != nullptr ? flag::IS_LOCKABLE : 0));
        if (auto const* const info = buffer->getStreamInfo()) {
            stream(out, *info);
        }
        if (locked.get() != nullptr) {
            metadata(out, *locked.get());
        }
    }
}

void BufferEncoder::beginHistory() {
    // One history back is enough: a frame that was not offered once is gone from the provider, or
    // comes back from the processor changed.
    mEarlier.swap(mCurrent);
    mCurrent.clear();
}

void BufferEncoder::gatherParts(HistoryBufferSet const& set) {
    mParts.clear();
    for (auto const& image : set.halImage) {
        mParts.push_back({image.get(), image != nullptr ? flagsOf(image) : 0, 0});
    }
    for (MetaBuffers const* const metas : {&set.halMeta, &set.appMeta}) {
        // Sets the two lists apart, else a buffer that moved from one to the other went unnoticed.
        mParts.push_back({nullptr, 0, metas->size()});
        for (auto const& meta : *metas) {
            Part& part = mParts.emplace_back(Part{meta.get(), 0, 0});
            if (meta != nullptr) {
                ReadLock const locked(meta);
                part.flags = flagsOf(meta) | (locked.get() != nullptr ? flag::IS_LOCKABLE : 0);
                // Their number only: comparing all of them would cost what writing them does.
                part.entries = locked.get() != nullptr ? locked.get()->count() : 0;
            }
        }
    }
}

void BufferEncoder::historyFrame(Encoder& out, HistoryBufferSet const& set) {
    gatherParts(set);
    // Histories come in one order, and known frames are taken out: the first is nearly always it.
    auto const earlier =
        std::find_if(mEarlier.begin(), mEarlier.end(), [&](KnownFrame const& known) {
            return known.frameNo == set.frameNo && known.requestNo == set.requestNo &&
                   known.timestamp == set.timestamp && known.parts == mParts;
        });
    if (earlier != mEarlier.end()) {
        out.number(earlier->number);
        mCurrent.push_back(std::move(*earlier));
        mEarlier.erase(earlier);
        return;
    }
    // Parts are copied, not moved: their memory is used for every frame.
    mCurrent.push_back({mNextFrame, set.frameNo, set.requestNo, set.timestamp, mParts});
    newFrame(out, set);
}

void BufferEncoder::looseFrame(Encoder& out, HistoryBufferSet const& set) {
    // Always new: a clone has buffers of its own, and no later history offers it.
    newFrame(out, set);
}

void BufferEncoder::newFrame(Encoder& out, HistoryBufferSet const& set) {
    out.number(mNextFrame++);
    out.number(set.frameNo);
    out.number(set.requestNo);
    out.step(set.timestamp, mLastTimestamp);
    out.number(set.halImage.size());
    for (auto const& image : set.halImage) {
        out.number(image != nullptr ? flagsOf(image) : 0);
        if (image != nullptr && image->getStreamInfo() != nullptr) {
            stream(out, *image->getStreamInfo());
        }
    }
    metaBuffers(out, set.halMeta);
    metaBuffers(out, set.appMeta);
}

}  // namespace NSCam::v3::pipeline::model::record
