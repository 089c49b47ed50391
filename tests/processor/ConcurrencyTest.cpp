#include <thread>

#include "ZslFixture.h"

namespace zebcam::test {
namespace {

/// Captures, arrivals, retries, results, flushes and dumps at once: whatever the order, TearDown
/// finds every buffer set and every capture is answered exactly once.
TEST_F(ZslTest, OperationsMayComeFromAnyThread) {
    constexpr uint32_t CAPTURES = 60;
    std::mutex lock;
    std::map<std::shared_ptr<IFrameBuilder>, int> handedOut;
    auto const take = [&](ZslFrameBuilders const& result) {
        std::lock_guard const guard(lock);
        for (auto const& group : result) {
            for (auto const& builder : group) {
                ++handedOut[builder];
            }
        }
    };
    std::vector<Capture> captures;
    for (uint32_t i = 0; i < CAPTURES; ++i) {
        captures.push_back(capture(i, 2));
    }
    std::vector<std::thread> threads;
    for (uint32_t part : {0U, 1U}) {
        threads.emplace_back([&, part] {
            for (uint32_t i = part; i < CAPTURES; i += 2) {
                auto params = captures[i].params;
                take(zsl->submitZslRequest(std::move(params)));
                zsl->onFrameUpdated(i, {});
            }
        });
    }
    threads.emplace_back([&] {
        for (uint32_t i = 1; i <= CAPTURES; ++i) {
            history->announce(i + 2);
            push({i});
            take(zsl->processZslPendingRequest(i));
        }
    });
    threads.emplace_back([&] {
        LinePrinter printer;
        for (int i = 0; i < 20; ++i) {
            zsl->debug(printer, {});
            take(i % 10 == 9 ? zsl->flush() : ZslFrameBuilders());
            zsl->hasZslPendingRequest();
        }
    });
    for (auto& thread : threads) {
        thread.join();
    }
    take(zsl->flush());
    EXPECT_EQ(CAPTURES * 2, handedOut.size());
    for (auto const& [builder, times] : handedOut) {
        EXPECT_EQ(1, times);
        dynamic_cast<FrameBuilder&>(*builder).finish();
    }
}

}  // namespace
}  // namespace zebcam::test
