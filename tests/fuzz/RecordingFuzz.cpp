#include <sstream>

#include "Fuzz.h"
#include "recording/Recording.h"

using namespace zebcam;

/// A hint on the unit is all that a rate is checked for.
static tool::recording::InputOptions const kAnyRate{.anyRate = true};

/// What the reader takes is sound, and survives being written and read again.
int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    std::istringstream in(fuzz::textOf(data, size));
    tool::recording::Recording recording;
    try {
        recording = tool::recording::readRecording(in, "fuzz.csv", kAnyRate);
    } catch (tool::recording::RecordingError const&) {
        return 0;
    }
    auto const& frames = recording.frames;
    fuzz::require(frames.size() >= 2, "a recording has two frames");
    for (size_t i = 1; i < frames.size(); ++i) {
        fuzz::require(frames[i - 1].timestampNs < frames[i].timestampNs, "times ascend");
        fuzz::require(frames[i - 1].frameNo < frames[i].frameNo, "frame numbers ascend");
    }
    std::stringstream written;
    tool::recording::writeRecording(recording, written);
    fuzz::require(tool::recording::readRecording(written, "again.csv", kAnyRate).frames == frames,
                  "a recording that was written reads the same");
    return 0;
}
