#include <debugutils/IDebuggee.h>
#include <host/Debuggees.h>
#include <metastore/IMetadataProvider.h>

#include "processor/ZslFixture.h"

namespace zebcam::test {
namespace {

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
    LinePrinter printer;
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
    constexpr uint32_t TAG = 0x1234;
    IMetadata metadata;
    put<int32_t>(metadata, TAG, 30);
    auto first = std::make_unique<DeviceRegistration>(3, metadata);
    auto const held = valueForByDeviceId(3);
    auto second = std::make_unique<DeviceRegistration>(3, IMetadata());
    first.reset();
    auto const latest = valueForByDeviceId(3);
    ASSERT_NE(latest, nullptr) << "the replaced one took the new one away";
    EXPECT_TRUE(latest->getStaticCharacteristics().isEmpty());
    second.reset();
    EXPECT_EQ(valueForByDeviceId(3), nullptr);
    EXPECT_EQ(valueOf<int32_t>(held->getStaticCharacteristics(), TAG), 30) << "it is held";
}

}  // namespace
}  // namespace zebcam::test
