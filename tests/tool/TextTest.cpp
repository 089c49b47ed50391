#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/Table.h"
#include "base/Text.h"
#include "base/TextStyle.h"

namespace zebcam::tool::base {
namespace {

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
