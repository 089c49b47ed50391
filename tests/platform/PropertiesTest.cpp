#include <cutils/properties.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <platform/Properties.h>

#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <string>

#include "platform/TempFile.h"

namespace zebcam::test {
namespace {

using platform::clearProperty;
using platform::loadProperties;
using testing::HasSubstr;

constexpr char KEY[] = "test.properties.value";

TEST(PropertiesTest, ReadsNumbersAsThePlatformDoes) {
    constexpr int DEFAULT = -77;
    struct {
        char const* text;
        int64_t as64;
        std::optional<int32_t> as32 = {};  ///< where it differs
    } const CASES[] = {
        {"42", 42},
        {"-42", -42},
        {"  42", 42},
        {"42abc", 42},
        {"0x1F", 31},
        {"017", 15},
        {"08", 0},
        {"", DEFAULT},
        {"2147483648", 2147483648, DEFAULT},
        {"-2147483649", -2147483649, DEFAULT},
        {"9223372036854775807", INT64_MAX, DEFAULT},
        {"9223372036854775808", DEFAULT},
    };
    for (auto const& c : CASES) {
        SCOPED_TRACE(c.text);
        ASSERT_EQ(property_set(KEY, c.text), 0);
        EXPECT_EQ(property_get_int64(KEY, DEFAULT), c.as64);
        EXPECT_EQ(property_get_int32(KEY, DEFAULT), c.as32.value_or(static_cast<int>(c.as64)));
    }
    clearProperty(KEY);
    EXPECT_EQ(property_get_int32(KEY, DEFAULT), DEFAULT);
    EXPECT_EQ(property_get_int64(nullptr, DEFAULT), DEFAULT);
}

TEST(PropertiesTest, ReadsBooleansByExactWord) {
    struct {
        char const* text;
        int value;  ///< -1: the default
    } const CASES[] = {{"1", 1},    {"true", 1}, {"on", 1},    {"0", 0}, {"no", 0},
                       {" on", -1}, {"2", -1},   {"TRUE", -1}, {"", -1}};
    for (auto const& c : CASES) {
        SCOPED_TRACE(c.text);
        ASSERT_EQ(property_set(KEY, c.text), 0);
        EXPECT_EQ(property_get_bool(KEY, 0), c.value == 1);
        EXPECT_EQ(property_get_bool(KEY, 1), c.value != 0);
    }
}

TEST(PropertiesTest, KeepsWhatFitsAndRefusesTheRest) {
    std::string const longest(PROP_VALUE_MAX - 1, 'v');
    std::string const longKey = "persist.vendor." + std::string(200, 'k');
    char value[PROP_VALUE_MAX];

    EXPECT_EQ(property_set(longKey.c_str(), longest.c_str()), 0);
    EXPECT_EQ(property_get(longKey.c_str(), value, "default"), PROP_VALUE_MAX - 1);
    EXPECT_EQ(value, longest);

    EXPECT_LT(property_set(longKey.c_str(), (longest + "v").c_str()), 0);
    EXPECT_LT(property_set("", "1"), 0);
    EXPECT_LT(property_set(nullptr, "1"), 0);
    EXPECT_LT(property_set("a key", "1"), 0);
    EXPECT_EQ(property_set(longKey.c_str(), nullptr), 0);
    EXPECT_EQ(property_get(longKey.c_str(), value, "default"), 7) << "empty counts as unset";
    EXPECT_STREQ(value, "default");
    EXPECT_EQ(property_get(longKey.c_str(), value, (longest + "vv").c_str()), PROP_VALUE_MAX - 1);
}

TEST(PropertiesTest, LoadsAFileWhollyOrNotAtAll) {
    TempFile const good("good.prop",
                        "# camera\n\n  test.file.a = 12 \r\n#test.file.a=13\n"
                        "test.file.b=x=y");
    loadProperties(good.path);
    char value[PROP_VALUE_MAX];
    EXPECT_EQ(property_get_int32("test.file.a", 0), 12);
    property_get("test.file.b", value, "");
    EXPECT_STREQ(value, "x=y");

    std::string const tooLong = "test.file.long=" + std::string(PROP_VALUE_MAX, 'v');
    struct {
        std::string line;
        char const* problem;
    } const CASES[] = {{"test.file.x", "expected key=value, found 'test.file.x'"},
                       {"test file=5", "the key 'test file' has a character"},
                       {tooLong, "the value of 'test.file.long' has 92 bytes, at most 91 fit"}};
    for (auto const& c : CASES) {
        SCOPED_TRACE(c.line);
        TempFile const bad("bad.prop", "test.file.new=1\n# note\n" + c.line + "\n");
        try {
            loadProperties(bad.path);
            ADD_FAILURE() << "accepted";
        } catch (std::runtime_error const& e) {
            EXPECT_THAT(e.what(), HasSubstr(bad.path + ":3: " + c.problem));
        }
        EXPECT_EQ(property_get_int32("test.file.new", 0), 0);
    }
    EXPECT_THROW(loadProperties(testing::TempDir() + "no such file"), std::runtime_error);
}

TEST(PropertiesDeathTest, StartsWithTheFileOfTheEnvironment) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");  // a new process, with its first use to come
    TempFile const start("start.prop", "test.start.a=5\nnonsense\ntest.start.b=6\n");
    setenv(platform::PROPERTY_FILE_VARIABLE, start.path.c_str(), 1);
    EXPECT_EXIT(
        {
            int const both =
                property_get_int32("test.start.a", 0) * 10 + property_get_int32("test.start.b", 0);
            std::remove(start.path.c_str());
            std::exit(both);
        },
        testing::ExitedWithCode(56), "start.prop:2: expected key=value.*skipped");
    unsetenv(platform::PROPERTY_FILE_VARIABLE);
}

}  // namespace
}  // namespace zebcam::test
