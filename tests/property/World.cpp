#include "World.h"

#include <fmt/format.h>
#include <ulog/ULogger.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "Given.h"
#include "Listener.h"

namespace zebcam::test {
namespace {

constexpr int32_t OPEN_ID = 5;
constexpr size_t CAPACITY = 6;

IMetadata realtime() {
    IMetadata characteristics;
    put<uint8_t>(characteristics, ZEB_SENSOR_INFO_TIMESTAMP_SOURCE, 1);
    return characteristics;
}

}  // namespace

std::string Tried::summary() const {
    auto const list = [](std::map<std::string, uint64_t> const& counts, std::string const& what) {
        uint64_t total = 0;
        std::string kinds;
        for (auto const& [name, count] : counts) {
            total += count;
            kinds += fmt::format("{}{} {}", kinds.empty() ? "" : ", ", name, count);
        }
        return total == 0 ? "" : fmt::format(", {} {} ({})", total, what, kinds);
    };
    return fmt::format("{} cases", cases) + list(events, "events") + list(faults, "faults");
}

World::World(Tried& tried)
    : mTried(tried),
      mLog(LogSettings::camera(::NSCam::Utils::ULog::LOG_LEVEL_DEBUG),
           [this](LogLine const& line) {
               mToldThrown += line.level == ::NSCam::Utils::ULog::LOG_LEVEL_ERROR &&
                              line.message.ends_with(PluginFailure().what());
           }),
      mDevice(OPEN_ID, realtime()),
      mHistory(std::make_shared<HistoryProvider>(CAPACITY)),
      mZsl(IZslProcessor::createInstance(OPEN_ID, "property")) {
    constexpr uint64_t CAMERA_TRACE_TAG = 0x400;
    platform::setTraceSink(&mTrace, CAMERA_TRACE_TAG);
    configure(0);
}

World::~World() {
    platform::setTraceSink(nullptr, 0);
    for (auto const& builder : mAllBuilders) {
        builder->finish();
    }
    mZsl.clear();
    MetaStreamBuffer::forgetLockErrors();
}

void World::count(Event const& event) {
    ++mTried.events[KIND_NAMES[static_cast<size_t>(event.kind)]];
    for (Fault const fault : event.faults) {
        mTried.fault(fault);
    }
    if (event.n != 0 && event.kind == Kind::History) {
        mTried.fault(Fault::NoHistory);
    }
    if (event.n != 0 && event.kind == Kind::Callback) {
        mTried.fault(event.n == 2 ? Fault::CallbackGone : Fault::CallbackThrows);
    }
}

void World::happen(Event const& event) {
    count(event);
    switch (event.kind) {
        case Kind::Submit:
            submit(event);
            break;
        case Kind::Announce:
            mInFlight.push_back(mNextFrameNo);
            mHistory->announce(mNextFrameNo++);
            break;
        case Kind::Arrive:
            arrive(event);
            break;
        case Kind::Cancel:
            cancel(event.n);
            break;
        case Kind::Retry:
            receive([this] { return mZsl->processZslPendingRequest(0); });
            break;
        case Kind::Result:
            result(event);
            break;
        case Kind::Configure:
            configure(event.n);
            break;
        case Kind::Dump:
            dump();
            break;
        case Kind::Flush:
            flush();
            break;
        case Kind::Pass:
            mClock.advance(event.n * MS);
            break;
        case Kind::History:
            mHistory->setHasHistory(event.n == 0);
            break;
        case Kind::Callback:
            mListenerThrows = event.n == 1;
            mListener = event.n == 2 ? nullptr : mListener;
            break;
        case Kind::Finish:
            finishFrames();
            break;
    }
    checkState();
}

void World::close() {
    for (auto& [requestNo, press] : mPresses) {
        press.hasFrameWithoutBuilder = false;
    }
    mHistory->setHasHistory(true);
    constexpr int64_t LONGER_THAN_ANY_TIMEOUT_MS = 3001;
    mClock.advance(LONGER_THAN_ANY_TIMEOUT_MS * MS);
    receive([this] { return mZsl->processZslPendingRequest(0); });
    require(pending().empty(), "a capture that is too old is still pending");
    flush();
    for (auto const& [requestNo, press] : mPresses) {
        require(press.open.empty(), fmt::format("capture {} was not answered", requestNo));
    }
    finishFrames();
    checkState();
    require(mHistory->ledger()->totals().balances(), "the ledger does not balance");
}

void World::submit(Event const& event) {
    uint32_t const requestNo = mNextRequestNo++;
    Press& press = mPresses[requestNo];
    press.requestNo = requestNo;
    press.spec = event.capture;
    press.sinceNs = mClock.bootTimeNs();
    Capture capture = makeCapture(event, press);
    capture.params.pStreamIdMap = &capture.modes;
    capture.params.pvRequiredSensorIds = &capture.sensors;
    mHistory->setCurrentRequest(requestNo);
    mSubmitted = &press;
    receive([&] { return mZsl->submitZslRequest(std::move(capture.params)); }, &press);
    checkSubmitted(press);
    mSubmitted = nullptr;
}

void World::cancel(uint32_t n) {
    if (mInFlight.empty()) {
        return;
    }
    auto const frame = mInFlight.begin() + n % mInFlight.size();
    mHistory->cancel(*frame);
    mInFlight.erase(frame);
    mTried.fault(Fault::NeverComes);
}

void World::result(Event const& event) {
    if (mPresses.empty()) {
        return;
    }
    Press& press = std::next(mPresses.begin(), event.n % mPresses.size())->second;
    auto const waiting = pending();
    bool const isPending = std::count(waiting.begin(), waiting.end(), press.requestNo) != 0;
    if (press.ended) {
        return;
    }
    IMetadata metadata;
    put<int64_t>(metadata, ZEB_SENSOR_TIMESTAMP, 1);
    IAppCallback::Result result;
    result.requestNo = press.requestNo;
    result.isFrameEnd = press.ended = !isPending && press.open.empty();
    auto const app = metaBuffer(APP, metadata);
    auto const hal = metaBuffer(HAL, metadata);
    result.outputAppMetas = {app};
    result.outputHalMetas = {hal};
    if (has(event.faults, Fault::NullResult)) {
        result.outputAppMetas.insert(result.outputAppMetas.begin(), nullptr);
    }
    if (has(event.faults, Fault::UnlockableResult)) {
        auto const extra = metaBuffer(EXTRA_APP, metadata);
        extra->setLockable(false);
        result.outputAppMetas.insert(result.outputAppMetas.begin(), extra);
    }
    mZsl->onFrameUpdated(press.requestNo, result);
    bool const isTold = valueOf<int64_t>(app->snapshot(), ZEB_SENSOR_TIMESTAMP).has_value();
    require(press.shutters == 0 || !isTold, "a result after an early shutter has a timestamp");
    require(press.waited || isTold || isPending, "a result without early shutter lost its time");
    require(valueOf<int64_t>(hal->snapshot(), ZEB_SENSOR_TIMESTAMP) == 1, "a HAL result changed");
}

void World::configure(uint32_t how) {
    auto const before = dump();
    pipeline::policy::ParsedStreamInfoMap_P1 streams;
    if (how != 2) {
        streams[0].pAppMeta_DynamicP1 = metaStream(how == 0 ? APP : EXTRA_APP);
    }
    android::sp<Listener> const listener = new Listener(*this);
    bool const mustRefuse = !pending().empty();
    int const status = mZsl->configure({.pParsedStreamInfo_P1 = &streams, .pCallback = listener});
    require(status == (mustRefuse ? -ENOSYS : 0), "configure answered " + std::to_string(status));
    require(dump() == before, "configure changed what is pending");
    if (mustRefuse) {
        mRefused.push_back(listener);
    } else {
        mListener = listener;
        mStreams = streams;
    }
}

void World::flush() {
    auto const before = dump();
    auto const totals = mHistory->ledger()->totals();
    bool const isBroken = std::any_of(mPresses.begin(), mPresses.end(), [&](auto const& press) {
        return press.second.hasFrameWithoutBuilder;
    });
    bool gaveSomething = false;
    receive([&] {
        auto groups = mZsl->flush();
        gaveSomething = !groups.empty();
        return groups;
    });
    if (!pending().empty()) {
        require(isBroken, "flush left a capture pending");
        require(!gaveSomething && dump() == before, "a flush that was refused changed something");
        return;
    }
    auto const after = mHistory->ledger()->totals();
    require(after.withProcessor == 0, "sets are with the processor after a flush");
    require(after.released == totals.released + totals.withProcessor,
            "flush did not release exactly what was locked");
    mReleased = after.released;
    mOrderedLocks.clear();
    mLocksInFlight.clear();
}

void World::finishFrames() {
    for (auto const& builder : mWithPipeline) {
        builder->finish();
    }
    mWithPipeline.clear();
}

}  // namespace zebcam::test
