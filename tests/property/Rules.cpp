#include <fmt/format.h>
#include <ulog/ULogger.h>

#include <algorithm>

#include "Given.h"

namespace zebcam::test {

void World::receive(std::function<ZslFrameBuilders()> const& operation, Press* submitted) {
    ZslFrameBuilders groups;
    try {
        groups = operation();
    } catch (PluginFailure const&) {
        throw BrokenRule("an exception of a plug-in left an operation");
    }
    for (LogLine const& line : log) {
        mToldThrown += line.level == ::NSCam::Utils::ULog::LOG_LEVEL_ERROR &&
                       line.message.ends_with(PluginFailure().what());
    }
    log.clear();
    require(mToldThrown == mThrown, "an exception of a plug-in cost no error line, or several");
    for (auto const& group : groups) {
        for (auto const& builder : group) {
            answer(builder, submitted);
            require(mOwners[builder.get()] == mOwners[group.front().get()], "a mixed group");
        }
    }
}

void World::answer(std::shared_ptr<IFrameBuilder> const& builder, Press const* submitted) {
    require(mOwners.count(builder.get()) != 0, "an answer that nobody asked for");
    Press& press = mPresses[mOwners[builder.get()]];
    auto const built = std::dynamic_pointer_cast<FrameBuilder>(builder);
    require(press.open.erase(built.get()) == 1,
            fmt::format("a frame of capture {} was answered twice", press.requestNo));
    require(built->timestamp() && built->builtFromHistory(), "an answer that was not built");
    mWithPipeline.push_back(built);
    if (&press != submitted) {
        require(press.shutters == 0 || press.builtAtOnce.count(built.get()) != 0 ||
                    built->timestamp() == press.shutterNs,
                "a frame does not carry its early shutter's time");
    }
    checkBuilt(press, *built);
}

void World::hear(Listener const& listener, IAppCallback::Result const& result) {
    watch([&] {
        require(mSubmitted != nullptr && result.requestNo == mSubmitted->requestNo,
                "an early shutter of a capture that is not being submitted");
        require(&listener == mListener.get(), "a callback was told that does not count");
        require(result.outputAppMetas.size() == 1 && !mStreams.empty(), "a strange early shutter");
        auto const& buffer = hostBuffer(result.outputAppMetas[0]);
        require(buffer.getStreamInfo() == mStreams[0].pAppMeta_DynamicP1.get(),
                "an early shutter on a stream that is not configured");
        auto const time = valueOf<int64_t>(buffer.snapshot(), ZEB_SENSOR_TIMESTAMP);
        require(time && buffer.isFinished(), "an early shutter without time");
        ++mSubmitted->shutters;
        mSubmitted->shutterNs = *time;
    });
    if (mListenerThrows) {
        ++mThrown;
        throw PluginFailure();
    }
}

void World::watch(std::function<void()> const& check) {
    try {
        check();
    } catch (BrokenRule const& broken) {
        mBrokenInside = broken.what();
    }
}

void World::checkSubmitted(Press& press) {
    auto const waiting = pending();
    press.waited = std::count(waiting.begin(), waiting.end(), press.requestNo) != 0;
    for (FrameBuilder* const builder : press.open) {
        if (builder->timestamp()) {
            press.builtAtOnce.insert(builder);
        }
    }
    bool const canHear = mListener != nullptr && !mStreams.empty();
    require(press.shutters == (press.waited && canHear ? 1U : 0U),
            fmt::format("capture {} {} and had {} early shutter(s)", press.requestNo,
                        press.waited ? "waits" : "was served at once", press.shutters));
}

void World::checkBuilt(Press const& press, FrameBuilder& builder) {
    std::set<StreamId_T> images;
    for (auto const& [id, image] : builder.halImages()) {
        images.insert(id);
        for (auto const& other : mWithPipeline) {
            require(other.get() == &builder || other->halImages().count(id) == 0 ||
                        other->halImages().at(id) != image,
                    "two frames have one image");
        }
    }
    auto const wanted =
        *builder.builtFromHistory() ? press.images.at(&builder) : std::set<StreamId_T>();
    require(images == wanted, "a frame has other images than it requires");
}

void World::checkInput(Press const& press, ISelector::SelectInputParams const& in) {
    require(in.requestNo == press.requestNo && !in.frameInfos.empty(), "a wrong question");
    require(in.durationMs == (clock.bootTimeNs() - press.sinceNs) / MS, "a wrong duration");
    require(in.zsdTs == press.sinceNs, "a wrong instant");
    for (auto const& [frameNo, frame] : in.historyFrames) {
        require(!mErrorFrames.count(frameNo), "a frame with an image error is offered");
        // What is locked was judged by the capture that locked it.
        require(!press.spec.checkPureRaw || frame.isLocked || !mPureRawFrames.count(frameNo),
                "a pure-raw frame is offered");
        require(!frame.isLocked || mOrderedLocks.count(frameNo), "nobody locked this frame");
    }
}

void World::checkState() {
    require(mBrokenInside.empty(), mBrokenInside);
    checkLedger();
    require(MetaStreamBuffer::outstandingLocks().empty(), "a metadata lock is held");
    require(trace.depth == 0, "a trace section is open");
    auto const waiting = pending();
    require(zsl->hasZslPendingRequest() == !waiting.empty(), "the dump lists other captures");
    require(std::is_sorted(waiting.begin(), waiting.end()), "the captures are out of order");
    for (auto const& [requestNo, press] : mPresses) {
        bool const waits = std::count(waiting.begin(), waiting.end(), requestNo) != 0;
        require(waits || press.open.empty(),
                fmt::format("capture {} neither waits nor was answered", requestNo));
        require(!waits || !press.open.empty() || press.hasFrameWithoutBuilder,
                fmt::format("capture {} was answered and waits", requestNo));
    }
}

void World::checkLedger() {
    auto const ledger = history->ledger();
    require(ledger->totals().lost == 0, "a set was lost");
    require(history->strayReturns() == 0, "a set was given back that was not out");
    require(mMayRelease || ledger->totals().released == mReleased,
            "a set was let go for good without a reason");
    mReleased = ledger->totals().released;
    for (LedgerLine const& line : ledger->unsettled()) {
        require(line.holder != BufferHolder::Processor ||
                    (!line.isClone && mOrderedLocks.count(line.frameNo) != 0),
                fmt::format("F{} is with the processor, and nobody locked it", line.frameNo));
    }
}

std::vector<std::string> World::dump() const {
    LinePrinter printer;
    zsl->debug(printer, {});
    return printer.lines;
}

std::vector<uint32_t> World::pending() const {
    constexpr std::string_view HEAD = "  requestNo:";
    std::vector<uint32_t> numbers;
    for (std::string const& line : dump()) {
        if (line.starts_with(HEAD)) {
            numbers.push_back(static_cast<uint32_t>(std::stoul(line.substr(HEAD.size()))));
        }
    }
    return numbers;
}

}  // namespace zebcam::test
