#include "Tape.h"

#include <cutils/properties.h>
#include <metadata/MetadataTags.h>
#include <metastore/IMetadataProvider.h>
#include <utils/Timers.h>

#include <algorithm>
#include <chrono>
#include <exception>

namespace NSCam::v3::pipeline::model::record {

namespace {

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

ClockReading readClocks() {
    using namespace std::chrono;
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

Tape::Tape(std::unique_ptr<RecordFile> file, ZslRecorderOptions const& options)
    : mFile(std::move(file)),
      mLargestOperation(options.memoryBytes),
      mDescriber(std::max(options.largestEntryBytes, sizeof(int64_t))) {
}

void Tape::start(int openId) noexcept {
    mThread.store(std::this_thread::get_id(), std::memory_order_relaxed);
    mIsOn = true;
    note([openId](Tape& tape) {
        Encoder& out = tape.out();
        out.tag(Entry::HEADER);
        tape.clock();
        out.signedNumber(openId);
        out.signedNumber(timestampSource(openId));
        out.number(PROPERTIES.size());
        for (char const* const key : PROPERTIES) {
            std::array<char, PROPERTY_VALUE_MAX> value{};
            property_get(key, value.data(), "");
            out.text(key);
            out.text(value.data());
        }
    });
    end();
}

void Tape::begin(Operation operation) noexcept {
    mThread.store(std::this_thread::get_id(), std::memory_order_relaxed);
    mIsOn = isRunning();
    if (!mIsOn) {
        mFile->skip();
        return;
    }
    mOut.clear();
    mCalls = {};
    mAwaitsSubmissionClock = operation == Operation::SUBMIT;
    mAwaitsSelectionEnd = false;
    note([operation](Tape& tape) {
        tape.mOut.tag(Entry::OPERATION);
        tape.mOut.tag(operation);
        tape.clock();
    });
}

void Tape::end() noexcept {
    if (mIsOn) {
        mFile->put({mOut.data(), mOut.size()});
        mIsOn = false;
    }
    mThread.store({}, std::memory_order_relaxed);
}

void Tape::stop(ZslRecordingEnd why) noexcept {
    mIsOn = false;
    mFile->skip();
    mFile->end(why);
}

void Tape::submissionClock() {
    if (mAwaitsSubmissionClock) {
        mAwaitsSubmissionClock = false;
        item(Item::SUBMISSION_CLOCK);
        clock();
    }
}

void Tape::selectionEnd() {
    if (mAwaitsSelectionEnd) {
        mAwaitsSelectionEnd = false;
        item(Item::SELECTION_END);
        clock();
    }
}

}  // namespace NSCam::v3::pipeline::model::record
