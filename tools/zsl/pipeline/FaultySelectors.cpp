#include "pipeline/FaultySelectors.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <stdexcept>
#include <utility>

namespace zebcam::tool::pipeline {

using NSCam::ZslPolicy::ISelector;

namespace {

using In = ISelector::SelectInputParams;
using Out = ISelector::SelectOutputParams;

/// Further than any recording's next frames.
constexpr uint32_t kNowhere = 1'000'000;

class ThrowingSelector final : public ISelector {
public:
    explicit ThrowingSelector(size_t capture) : mCapture(capture) {}

    char const* getName() const override { return "ThrowingPolicy"; }
    Out select(In const& /*in*/) const override {
        throw std::runtime_error(fmt::format("the policy of capture {} fails", mCapture + 1));
    }

private:
    size_t const mCapture;
};

uint32_t newestOf(In const& in) {
    return in.historyFrames.empty() ? 0 : in.historyFrames.rbegin()->first;
}

/// Serves every index with `frameNo`.
Out serveAll(In const& in, uint32_t frameNo) {
    Out out;
    for (auto const& [index, info] : in.frameInfos) {
        out.selected[index] = {frameNo, false, {}};
    }
    return out;
}

Out serveWithNothing(In const& in) {
    return serveAll(in, newestOf(in) + kNowhere);
}

Out serveAllWithOne(In const& in) {
    return in.historyFrames.empty() ? Out{} : serveAll(in, newestOf(in));
}

Out serveAndLetGo(In const& in) {
    Out out = serveAllWithOne(in);
    out.ops[newestOf(in)] = Out::RELEASE;
    return out;
}

Out orderStrangers(In const& in) {
    uint32_t const stranger = newestOf(in) + kNowhere;
    return {{}, {{stranger, Out::LOCK}, {stranger + 1, Out::UNLOCK}, {stranger + 2, Out::RELEASE}}};
}

Out waitForOldestInFlight(In const& in) {
    auto const oldest =
        std::min_element(in.inflightInfos.begin(), in.inflightInfos.end(),
                         [](auto const& a, auto const& b) { return a.frameNo < b.frameNo; });
    return oldest == in.inflightInfos.end() ? Out{} : serveAll(in, oldest->frameNo);
}

Out keepAll(In const& in) {
    Out out;
    for (auto const& [frameNo, frame] : in.historyFrames) {
        out.ops[frameNo] = frame.isLocked ? Out::UNLOCK : Out::LOCK;
    }
    return out;
}

class NonsenseSelector final : public ISelector {
public:
    NonsenseSelector(size_t capture, std::shared_ptr<FaultInjector const> injector)
        : mCapture(capture), mInjector(std::move(injector)) {}

    char const* getName() const override { return "NonsensePolicy"; }
    Out select(In const& in) const override {
        constexpr std::array kAnswers = {serveWithNothing, serveAllWithOne,       serveAndLetGo,
                                         orderStrangers,   waitForOldestInFlight, keepAll};
        uint64_t const choice = mInjector->pick(FaultKind::PolicyNonsense, kAnswers.size(),
                                                mCapture, mTimesAsked.fetch_add(1));
        return kAnswers.at(choice)(in);
    }

private:
    size_t const mCapture;
    std::shared_ptr<FaultInjector const> const mInjector;
    mutable std::atomic<uint64_t> mTimesAsked = 0;
};

}  // namespace

std::shared_ptr<ISelector> makeFaultySelector(PolicyFault fault, size_t capture,
                                              std::shared_ptr<FaultInjector const> injector) {
    switch (fault) {
        case PolicyFault::None:
            break;
        case PolicyFault::Throws:
            return std::make_shared<ThrowingSelector>(capture);
        case PolicyFault::Nonsense:
            return std::make_shared<NonsenseSelector>(capture, std::move(injector));
    }
    return nullptr;
}

}  // namespace zebcam::tool::pipeline
