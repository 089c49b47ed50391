#include <algorithm>
#include <array>
#include <sstream>

#include "Fuzz.h"
#include "device/DeviceRecordingReader.h"

using namespace zebcam;
namespace record = tool::record;

namespace {

void append(std::string& text, uint32_t value) {
    for (int shift = 0; shift < 32; shift += 8) {
        text += static_cast<char>((value >> shift) & 0xff);
    }
}

uint32_t crc32(std::string const& text) {
    constexpr uint32_t POLYNOMIAL = 0xedb88320;
    uint32_t crc = 0xffffffff;
    for (char const c : text) {
        crc ^= static_cast<uint8_t>(c);
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc & 1) != 0 ? (crc >> 1) ^ POLYNOMIAL : crc >> 1;
        }
    }
    return ~crc;
}

/// A file with the entries in one sound block: mutations would rarely get past the checksum.
std::string fileOf(std::string const& entries) {
    std::string file(record::MAGIC.begin(), record::MAGIC.end());
    append(file, record::VERSION);
    append(file, record::BLOCK_MAGIC);
    append(file, static_cast<uint32_t>(entries.size()));
    append(file, crc32(entries));
    return file + entries;
}

}  // namespace

/// The input is a file if it begins like one, else the entries of a block. What the reader takes
/// refers only to what is there.
int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    std::string const text = fuzz::textOf(data, size);
    bool const isFile = text.starts_with("ZSLREC");
    std::istringstream in(isFile ? text : fileOf(text));
    tool::device::DeviceRecording recording;
    try {
        recording = tool::device::readDeviceRecording(in, "fuzz.zslrec");
    } catch (tool::device::DeviceRecordingError const&) {
        return 0;
    }
    for (auto const& frame : recording.frames) {
        for (auto const& image : frame.images) {
            fuzz::require(!image.stream || *image.stream < recording.streams.size(), "a stream");
        }
        for (auto const* metas : {&frame.halMetas, &frame.appMetas}) {
            for (auto const& meta : *metas) {
                fuzz::require(!meta.stream || *meta.stream < recording.streams.size(), "a stream");
            }
        }
    }
    for (auto const& operation : recording.operations) {
        for (auto const& attempt : operation.tries) {
            auto const frames = attempt.frames.value_or(std::vector<size_t>());
            fuzz::require(std::all_of(frames.begin(), frames.end(),
                                      [&](size_t i) { return i < recording.frames.size(); }),
                          "a frame that is known");
        }
        for (auto const& clone : operation.clones) {
            fuzz::require(clone.frame < recording.frames.size(), "a frame that is known");
        }
    }
    return 0;
}
