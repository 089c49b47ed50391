#include "World.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "Given.h"

namespace zebcam::test {
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

World::World(Tried& tried) : mTried(tried) {
    constexpr size_t CAPACITY = 6;
    history = std::make_shared<HistoryProvider>(CAPACITY);
    start(false);
    configure(0);
}

World::~World() {
    platform::setTraceSink(nullptr, 0);
    for (auto const& builder : mAllBuilders) {
        builder->finish();
    }
    zsl.clear();
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
    std::map<Kind, std::function<void()>> const deeds{
        {Kind::Submit, [&] { submit(event); }},
        {Kind::Announce,
         [&] {
             mInFlight.push_back(mNextFrameNo);
             history->announce(mNextFrameNo++);
         }},
        {Kind::Arrive, [&] { arrive(event); }},
        {Kind::Cancel, [&] { cancel(event.n); }},
        {Kind::Retry, [&] { receive([&] { return zsl->processZslPendingRequest(0); }); }},
        {Kind::Result, [&] { result(event); }},
        {Kind::Configure, [&] { configure(event.n); }},
        {Kind::Dump, [&] { dump(); }},
        {Kind::Flush, [&] { flush(); }},
        {Kind::Pass, [&] { clock.advance(event.n * MS); }},
        {Kind::History, [&] { history->setHasHistory(event.n == 0); }},
        {Kind::Callback,
         [&] {
             mListenerThrows = event.n == 1;
             mListener = event.n == 2 ? nullptr : mListener;
         }},
        {Kind::Finish, [&] { finishFrames(); }},
    };
    deeds.at(event.kind)();
    checkState();
}

void World::close() {
    for (auto& [requestNo, press] : mPresses) {
        press.hasFrameWithoutBuilder = false;
    }
    history->setHasHistory(true);
    constexpr int64_t LONGER_THAN_ANY_TIMEOUT_MS = 3001;
    clock.advance(LONGER_THAN_ANY_TIMEOUT_MS * MS);
    receive([this] { return zsl->processZslPendingRequest(0); });
    require(pending().empty(), "a capture that is too old is still pending");
    flush();
    for (auto const& [requestNo, press] : mPresses) {
        require(press.open.empty(), fmt::format("capture {} was not answered", requestNo));
    }
    finishFrames();
    checkState();
    require(history->ledger()->totals().balances(), "the ledger does not balance");
}

void World::submit(Event const& event) {
    uint32_t const requestNo = mNextRequestNo++;
    Press& press = mPresses[requestNo];
    press.requestNo = requestNo;
    press.spec = event.capture;
    press.sinceNs = clock.bootTimeNs();
    Capture capture = makeCapture(event, press);
    capture.params.pStreamIdMap = &capture.modes;
    capture.params.pvRequiredSensorIds = &capture.sensors;
    history->setCurrentRequest(requestNo);
    mSubmitted = &press;
    receive([&] { return zsl->submitZslRequest(std::move(capture.params)); }, &press);
    checkSubmitted(press);
    mSubmitted = nullptr;
}

void World::cancel(uint32_t n) {
    if (mInFlight.empty()) {
        return;
    }
    auto const frame = mInFlight.begin() + n % mInFlight.size();
    history->cancel(*frame);
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
    zsl->onFrameUpdated(press.requestNo, result);
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
    int const status = zsl->configure({.pParsedStreamInfo_P1 = &streams, .pCallback = listener});
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
    auto const totals = history->ledger()->totals();
    bool const isBroken = std::any_of(mPresses.begin(), mPresses.end(), [&](auto const& press) {
        return press.second.hasFrameWithoutBuilder;
    });
    bool gaveSomething = false;
    receive([&] {
        auto groups = zsl->flush();
        gaveSomething = !groups.empty();
        return groups;
    });
    if (!pending().empty()) {
        require(isBroken, "flush left a capture pending");
        require(!gaveSomething && dump() == before, "a flush that was refused changed something");
        return;
    }
    auto const after = history->ledger()->totals();
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
