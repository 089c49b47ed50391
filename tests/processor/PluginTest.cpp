#include <dlfcn.h>

#include <functional>

#include "ZslFixture.h"

namespace zebcam::test {
namespace {

constexpr char LIBRARY[] = "libzebcam_zsl_customselector.so";

bool isLoaded() {
    std::unique_ptr<void, int (*)(void*)> const handle(dlopen(LIBRARY, RTLD_LAZY | RTLD_NOLOAD),
                                                       dlclose);
    return handle != nullptr;
}

/// The library is looked for when a process starts, hence the new processes.
class PluginTest : public ZslTest {
protected:
    void SetUp() override {}
    void TearDown() override {
        unsetenv("LD_LIBRARY_PATH");
        ZslTest::TearDown();
    }
    static void usePlugin(char const* folder) { setenv("LD_LIBRARY_PATH", folder, 1); }
};

TEST_F(PluginTest, LibraryWithEntryPointIsLoadedButNotAsked) {
    usePlugin(PLUGIN_WITH_CREATE);
    for (char const* mode : {"-1", "0", "1"}) {
        EXPECT_PASSES_IN_NEW_PROCESS([this, mode] {
            setProperty("vendor.debug.camera.zsl.custom.select", mode);
            EXPECT_FALSE(isLoaded());
            start();
            EXPECT_TRUE(isLoaded());
            EXPECT_EQ(nullptr, getenv("CUSTOM_SELECTOR_CREATED"));
            EXPECT_EQ(0U, logged("mCustomLibHandle((nil))"));
            EXPECT_EQ(1U, logged("mpCustomSelector((nil))"));
            push({11, 12});
            EXPECT_EQ("[5.0=F11][6.0=F12]",
                      submit(capture(5)) + submit(capture(6).by(answering({choose({{0, 12}})}))));
            EXPECT_EQ(1U, logged("] selector(DefaultSelector)"));
            EXPECT_EQ(0, zsl->configure(config()));
            EXPECT_TRUE(isLoaded());
            zsl.clear();
            EXPECT_FALSE(isLoaded());
        });
    }
}

TEST_F(PluginTest, LibraryWithoutEntryPointMakesConfigureThrow) {
    usePlugin(PLUGIN_WITHOUT_CREATE);
    EXPECT_PASSES_IN_NEW_PROCESS([this] {
        start(false);
        EXPECT_THROW(zsl->configure(config()), std::bad_function_call);
        EXPECT_EQ(1U, logged("[configure] CustomSelector - dlsym fail: "));
        EXPECT_NE(std::string::npos, line("dlsym fail").find("create")) << line("dlsym fail");
        EXPECT_FALSE(zsl->hasZslPendingRequest()) << "the lock is free";
        push({11});
        EXPECT_EQ("[5.0=F11]", submit(capture(5).by(answering({choose({{0, 11}})}))));
    });
}

TEST_F(PluginTest, LibraryMayGoOnceItsCaptureIsServed) {
    start();
    void* const library =
        dlopen((std::string(PLUGIN_THROWS) + "/" + LIBRARY).c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(nullptr, library) << dlerror();
    auto const create = reinterpret_cast<ISelector* (*)()>(dlsym(library, "create"));
    push({11});
    EXPECT_EQ("", submit(capture(5).by(std::shared_ptr<ISelector>(create()))));
    EXPECT_EQ("[5.0=F11]", passMs(3001));
    EXPECT_EQ(2U,
              logged("exception of Thrower: { selected={ 0-[F-1 addMeta(#1)] } ops={ F103(0) }}"));
    EXPECT_EQ(0, dlclose(library));
    EXPECT_FALSE(isLoaded());
    EXPECT_EQ("", retry());
    zsl.clear();
}

TEST_F(PluginTest, MissingLibraryIsFine) {
    start();
    EXPECT_EQ(1U, logged("[configure] mCustomLibHandle((nil)) mpCustomSelector((nil))"));
    EXPECT_EQ(nullptr, dlerror()) << "the failed load left an error behind";
    EXPECT_EQ(0U, logged("dlsym"));
}

}  // namespace
}  // namespace zebcam::test
