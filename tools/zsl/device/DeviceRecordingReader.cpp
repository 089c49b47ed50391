#include "device/DeviceRecordingReader.h"

#include <fmt/format.h>
#include <recorder/Crc32.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <span>
#include <system_error>

#include "device/EntryDecoder.h"

namespace zebcam::tool::device {

namespace {

using Bytes = std::span<uint8_t const>;

uint32_t word(Bytes bytes, size_t at) {
    uint32_t value = 0;
    for (size_t i = 0; i < 4; ++i) {
        value |= uint32_t{bytes[at + i]} << (8 * i);
    }
    return value;
}

/// Goes through the blocks of a file.
class BlockReader {
public:
    BlockReader(Bytes file, DeviceRecording& recording)
        : mFile(file), mRecording(recording), mEntries(recording) {}

    /// Stops where a block is not whole and does not look for the next one: things are named by
    /// how many came before them, and decisions follow from all that came before, so that what
    /// comes after a hole says nothing.
    void read() {
        checkStart();
        while (mAt < mFile.size()) {
            std::optional<Bytes> const content = nextBlock();
            if (!content) {
                break;
            }
            readEntries(*content);
            mAt += content->size();
        }
        if (!mEntries.hasHeader()) {
            throw DeviceRecordingError(
                mRecording.path, mAt, "a whole block with the header",
                mRecording.notes.empty() ? "the end of the file" : mRecording.notes.front());
        }
        if (!mEntries.isComplete() && mRecording.notes.empty()) {
            note("the recording has no end: its process was stopped");
        }
    }

private:
    void checkStart() {
        if (mFile.size() < record::FILE_HEADER_BYTES ||
            !std::equal(record::MAGIC.begin(), record::MAGIC.end(), mFile.begin())) {
            throw DeviceRecordingError(mRecording.path, 0, "a recording of a device",
                                       fmt::format("{} bytes of something else", mFile.size()));
        }
        uint32_t const version = word(mFile, record::MAGIC.size());
        if (version != record::VERSION) {
            throw DeviceRecordingError(mRecording.path, record::MAGIC.size(),
                                       fmt::format("version {}", record::VERSION),
                                       fmt::format("version {}", version));
        }
        mAt = record::FILE_HEADER_BYTES;
    }

    /// The content of the block at mAt, which moves to it; none, with a note, when it is not whole.
    std::optional<Bytes> nextBlock() {
        Bytes const rest = mFile.subspan(mAt);
        if (rest.size() < record::BLOCK_HEADER_BYTES) {
            note(fmt::format("the file is cut off at byte {}", mFile.size()));
            return std::nullopt;
        }
        if (word(rest, 0) != record::BLOCK_MAGIC) {
            note(fmt::format("the file is damaged at byte {}: no block begins there", mAt));
            return std::nullopt;
        }
        size_t const size = word(rest, 4);
        // A damaged length looks the same; either way nothing follows that could be used.
        if (size > rest.size() - record::BLOCK_HEADER_BYTES) {
            note(fmt::format("the file is cut off at byte {}", mFile.size()));
            return std::nullopt;
        }
        Bytes const content = rest.subspan(record::BLOCK_HEADER_BYTES, size);
        record::Crc32 crc;
        crc.add(content.data(), content.size());
        if (crc.value() != word(rest, 8)) {
            note(fmt::format(
                "the file is damaged between bytes {} and {}: checksum {:08x}, "
                "expected {:08x}",
                mAt, mAt + record::BLOCK_HEADER_BYTES + size, crc.value(), word(rest, 8)));
            return std::nullopt;
        }
        mAt += record::BLOCK_HEADER_BYTES;
        return content;
    }

    void readEntries(Bytes content) {
        for (size_t at = 0; at < content.size();) {
            size_t const left = content.size() - at;
            size_t const size = left < record::ENTRY_HEADER_BYTES ? left : word(content, at);
            // The checksum was right, so that a recorder of another make wrote this.
            if (left < record::ENTRY_HEADER_BYTES || size > left - record::ENTRY_HEADER_BYTES) {
                throw DeviceRecordingError(mRecording.path, mAt + at, "a whole entry",
                                           fmt::format("{} bytes", left));
            }
            at += record::ENTRY_HEADER_BYTES;
            Decoder entry(content.subspan(at, size), mAt + at, mRecording.path);
            mEntries.decode(entry);
            at += size;
        }
    }

    void note(std::string const& text) {
        mRecording.notes.push_back(
            fmt::format("{}; {} operations are whole", text, mRecording.operations.size()));
    }

    Bytes const mFile;
    DeviceRecording& mRecording;
    EntryDecoder mEntries;
    size_t mAt = 0;
};

}  // namespace

DeviceRecording readDeviceRecording(std::string const& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw DeviceRecordingError(path, 0, "a file that can be read", std::strerror(errno));
    }
    return readDeviceRecording(file, path);
}

DeviceRecording readDeviceRecording(std::istream& in, std::string const& name) {
    std::string const file(std::istreambuf_iterator<char>(in), {});
    if (in.bad()) {
        throw DeviceRecordingError(name, file.size(), "to read on", "a failure of the file");
    }
    DeviceRecording recording;
    recording.path = name;
    recording.fileBytes = file.size();
    BlockReader({reinterpret_cast<uint8_t const*>(file.data()), file.size()}, recording).read();
    return recording;
}

}  // namespace zebcam::tool::device
