#include "RecordingSession.h"

#include <cutils/properties.h>
#include <metadata/MetadataTags.h>
#include <metastore/IMetadataProvider.h>
#include <utils/Timers.h>

#include <algorithm>
#include <chrono>
#include <exception>
#include <utility>

namespace NSCam::v3::pipeline::model::record {

namespace {

// A caller whose builders are never completed must not make this grow for ever.
constexpr size_t MOST_SETS = 4096;

/// The device's timestamp source; -1 when its characteristics do not tell.
int64_t timestampSource(int openId) {
    auto const provider = NSMetadataProviderManager::valueForByDeviceId(openId);
    if (provider == nullptr) {
        return -1;
    }
    auto const entry =
        provider->getStaticCharacteristics().entryFor(ZEB_SENSOR_INFO_TIMESTAMP_SOURCE);
    return entry.isEmpty() ? -1 : entry.itemAt(0, Type2Type<uint8_t>());
}

}  // namespace

void HandOuts::add(HistoryBufferSet const& set, bool isClone) {
    Set added{set.frameNo, set.timestamp, isClone, {}};
    for (auto const& image : set.halImage) {
        if (image != nullptr) {
            added.images.push_back(image.get());
        }
    }
    // An image is in one set at a time: whatever had it before is over, unseen. Without images only
    // the number tells, and a clone has its original's.
    mSets.remove_if([&](Set const& other) {
        return added.images.empty() && other.images.empty()
                   ? !isClone && !other.isClone && other.frameNo == added.frameNo
                   : std::find_first_of(other.images.begin(), other.images.end(),
                                        added.images.begin(),
                                        added.images.end()) != other.images.end();
    });
    mSets.push_back(std::move(added));
    if (mSets.size() > MOST_SETS) {
        mSets.pop_front();
    }
}

template <typename Matches>
bool HandOuts::takeIf(Matches matches, Set& taken) {
    auto const found = std::find_if(mSets.begin(), mSets.end(), matches);
    if (found == mSets.end()) {
        return false;
    }
    taken = std::move(*found);
    mSets.erase(found);
    return true;
}

bool HandOuts::take(void const* image, Set& taken) {
    return takeIf(
        [image](Set const& set) {
            return std::find(set.images.begin(), set.images.end(), image) != set.images.end();
        },
        taken);
}

bool HandOuts::take(int64_t timestamp, Set& taken) {
    return takeIf([timestamp](Set const& set) { return set.timestamp == timestamp; }, taken);
}

bool HandOuts::takeBack(HistoryBufferSet const& set) {
    Set taken;
    for (auto const& image : set.halImage) {
        if (image != nullptr && take(image.get(), taken)) {
            return taken.isClone;
        }
    }
    // Every image was trimmed away.
    takeIf([&](Set const& other) { return other.frameNo == set.frameNo; }, taken);
    return taken.isClone;
}

ClockReading readClocks() {
    using namespace std::chrono;
    // The boot time first: the others are coded by their distance from it.
    return {systemTime(SYSTEM_TIME_BOOTTIME), systemTime(SYSTEM_TIME_MONOTONIC),
            duration_cast<nanoseconds>(system_clock::now().time_since_epoch()).count()};
}

std::string currentExceptionText() {
    try {
        throw;
    } catch (std::exception const& error) {
        return error.what();
    } catch (...) {
        return "unknown exception";
    }
}

RecordingSession::RecordingSession(std::unique_ptr<RecordFile> file,
                                   ZslRecorderOptions const& options)
    : mFile(std::move(file)),
      mLargestOperation(options.memoryBytes),
      // Smaller, and the sensor timestamp itself would be left out.
      mBuffers(std::max(options.largestEntryBytes, sizeof(int64_t))) {
}

void RecordingSession::start(int openId) noexcept {
    mThread.store(std::this_thread::get_id(), std::memory_order_relaxed);
    mIsOn = true;
    note([openId](RecordingSession& session) {
        Encoder& out = session.out();
        out.tag(Entry::HEADER);
        session.clock();
        out.signedNumber(openId);
        out.signedNumber(timestampSource(openId));
        out.number(PROPERTIES.size());
        // Now, for the processor reads some of them when it is made and never again.
        for (char const* const key : PROPERTIES) {
            std::array<char, PROPERTY_VALUE_MAX> value{};
            property_get(key, value.data(), "");
            out.text(key);
            out.text(value.data());
        }
    });
    end();
}

void RecordingSession::begin(Operation operation) noexcept {
    mThread.store(std::this_thread::get_id(), std::memory_order_relaxed);
    // Once for the operation: a file that ends in the middle of it makes no half records.
    mIsOn = isRunning();
    if (!mIsOn) {
        mFile->skip();
        return;
    }
    mOut.clear();  // keeps its memory: a recorded operation allocates next to nothing
    mCalls = {};
    // A retry has no instant of its own: it goes on with that of its submission.
    mAwaitsSubmissionClock = operation == Operation::SUBMIT;
    mAwaitsSelectionEnd = false;
    note([operation](RecordingSession& session) {
        session.mOut.tag(Entry::OPERATION);
        session.mOut.tag(operation);
        session.clock();
    });
}

void RecordingSession::end() noexcept {
    if (mIsOn) {
        mFile->put({mOut.data(), mOut.size()});
        mIsOn = false;
    }
    // Nobody's: what this thread does to the pipeline between operations is not recorded.
    mThread.store({}, std::memory_order_relaxed);
}

void RecordingSession::stop(ZslRecordingEnd why) noexcept {
    // The references of what follows would count things of this record, which nobody will have.
    mIsOn = false;
    mFile->skip();
    mFile->end(why);
}

void RecordingSession::submissionClock() {
    if (mAwaitsSubmissionClock) {
        mAwaitsSubmissionClock = false;
        item(Item::SUBMISSION_CLOCK);
        clock();
    }
}

void RecordingSession::selectionEnd() {
    if (mAwaitsSelectionEnd) {
        mAwaitsSelectionEnd = false;
        item(Item::SELECTION_END);
        clock();
    }
}

}  // namespace NSCam::v3::pipeline::model::record
