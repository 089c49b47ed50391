#include <debugutils/IDebuggee.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <host/Debuggees.h>
#include <host/DeviceRegistration.h>
#include <metastore/IMetadataProvider.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "stack/StackFixture.h"

namespace zebcam::test {
namespace {

using host::DeviceRegistration;
using NSCam::IDebuggeeManager;
using NSCam::NSMetadataProviderManager::valueForByDeviceId;
using testing::ElementsAre;

class Debuggee final : public NSCam::IDebuggee {
public:
    explicit Debuggee(std::string name, std::function<void()> onDebug = {})
        : mName(std::move(name)), mOnDebug(std::move(onDebug)) {}
    std::string debuggeeName() const override { return mName; }
    void debug(android::Printer& printer, std::vector<std::string> const& options) override {
        if (mOnDebug) {
            mOnDebug();
        }
        printer.printLine((mName + " with " + std::to_string(options.size())).c_str());
    }

private:
    std::string const mName;
    std::function<void()> const mOnDebug;
};

TEST(DebuggeeManagerTest, DumpsByPriorityAndLetsADebuggeeDetachMeanwhile) {
    auto* const manager = IDebuggeeManager::get();
    ASSERT_NE(manager, nullptr);
    std::shared_ptr<NSCam::IDebuggeeCookie> late;
    auto const late1 = manager->attach(std::make_shared<Debuggee>("late1"), 5);
    auto const early =
        manager->attach(std::make_shared<Debuggee>("early", [&] { manager->detach(late); }), -1);
    late = manager->attach(std::make_shared<Debuggee>("late2"), 5);
    EXPECT_EQ(manager->attach(nullptr, 0), nullptr);
    Lines printer;
    host::dumpDebuggees(printer, {"--verbose"});
    EXPECT_THAT(printer.lines, ElementsAre("early", "early with 1", "late1", "late1 with 1",
                                           "late2", "late2 with 1"));
    EXPECT_THAT(host::debuggeeNames(), ElementsAre("early", "late1"));
    manager->detach(nullptr);
    manager->detach(early);
    manager->detach(late1);
    EXPECT_THAT(host::debuggeeNames(), testing::IsEmpty());
}

TEST(DeviceRegistrationTest, TheLatestRegistrationHolds) {
    auto const valueOfDevice = [](int32_t openId) -> std::optional<int32_t> {
        auto const provider = valueForByDeviceId(openId);
        return provider == nullptr ? std::nullopt
                                   : std::optional(valueOf(provider->getStaticCharacteristics()));
    };
    auto first = std::make_unique<DeviceRegistration>(3, metadataOf(30));
    auto const held = valueForByDeviceId(3);
    EXPECT_EQ(valueOfDevice(3), 30);
    auto second = std::make_unique<DeviceRegistration>(3, metadataOf(31));
    EXPECT_EQ(valueOfDevice(3), 31);
    first.reset();
    EXPECT_EQ(valueOfDevice(3), 31) << "the replaced one took the new one away";
    second.reset();
    EXPECT_EQ(valueOfDevice(3), std::nullopt);
    EXPECT_EQ(valueOf(held->getStaticCharacteristics()), 30) << "a held provider changed";
}

}  // namespace
}  // namespace zebcam::test
