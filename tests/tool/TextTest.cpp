#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>

#include "base/Decimal.h"
#include "base/Table.h"
#include "base/Text.h"
#include "base/TextStyle.h"

namespace zebcam::tool::base {
namespace {

TEST(Decimal, IsExactButForWhatAUnitRoundsAway) {
    struct {
        char const* text;
        int exponent;
        std::optional<int64_t> value;
    } const cases[] = {
        {"28670.33941", 9, 28'670'339'410'000},
        {"2.8e+13", 0, 28'000'000'000'000},
        {"0.4", 0, std::nullopt},
        {"-12.0", 0, -12},
        {"0.0005", 3, 1},
        {"-0.0005", 3, -1},
        {"0.00049", 3, 0},
        {"0.00005", 3, 0},
        {"9223372036854775807", 0, INT64_MAX},
        {"9223372036854775.8075", 3, std::nullopt},
        {"1e", 0, std::nullopt},
        {".", 0, std::nullopt},
    };
    for (auto const& [text, exponent, value] : cases) {
        EXPECT_EQ(scaledDecimal(text, exponent), value) << text;
    }
}

TEST(Table, FitsTheLineStepByStep) {
    TextStyle style{.columns = 40};
    Table table({{.title = "policy", .kind = Table::Kind::Text, .isKey = true},
                 {.title = "once", .group = "served"},
                 {.title = "waited", .group = "served"},
                 {.title = "median lag", .group = "lag (ms)"}});
    table.addRow({"default", "5", "12", "-66.82"});
    table.addBelow("    refused 3\n");
    EXPECT_EQ(table.text(style), R"(               served    lag (ms)
policy   once  waited  median lag
default     5      12      -66.82
    refused 3
)");
    style.columns = 32;
    EXPECT_EQ(table.text(style), R"(               served  lag (ms)
                       median
policy   once  waited     lag
default     5      12  -66.82
    refused 3
)");
    style.columns = 24;
    EXPECT_EQ(table.text(style), R"(               served
policy   once  waited
default     5      12

         lag (ms)
         median
policy      lag
default  -66.82
    refused 3
)");
}

TEST(Table, BreaksProseAndSeesThroughColours) {
    TextStyle const style{.columns = 34, .hasColour = true};
    Table table({{.title = "frame", .kind = Table::Kind::Text},
                 {.title = "why", .kind = Table::Kind::Prose}});
    table.addRow({style.paint("F2", Tone::Bad), "it began 12 \xc2\xb5s before the wanted instant"});
    EXPECT_EQ(table.text(style),
              "\033[1mframe\033[0m  \033[1mwhy\033[0m\n"
              "\033[31mF2\033[0m     it began 12 \xc2\xb5s before the\n"
              "       wanted instant\n");
}

}  // namespace
}  // namespace zebcam::tool::base
