#include "report/TextBlocks.h"

#include <fmt/format.h>

#include "base/Text.h"

namespace zebcam::tool::report {

namespace {

constexpr size_t kColumns = 100;
constexpr size_t kLabelWidth = 11;

}  // namespace

std::string labelled(std::string_view label, std::string_view text) {
    std::string out = fmt::format("{:<{}}", label, kLabelWidth);
    size_t const width = kColumns - kLabelWidth;
    while (text.size() > width) {
        size_t cut = text.rfind(' ', width);
        if (cut == std::string_view::npos) {
            cut = text.find(' ');
        }
        if (cut == std::string_view::npos) {
            break;
        }
        out += fmt::format("{}\n{:{}}", text.substr(0, cut), "", kLabelWidth);
        text.remove_prefix(cut + 1);
    }
    out += text;
    return out + "\n";
}

std::string counted(size_t count, std::string_view one, std::string_view many) {
    return fmt::format("{} {}", count, count == 1 ? one : many);
}

std::string ledgerText(host::BufferLedger::Totals const& totals,
                       std::vector<host::LedgerLine> const& unsettled, int64_t startNs) {
    std::string text = labelled(
        "Ledger", fmt::format("{} handed out, {} returned, {} consumed, {} released; "
                              "{} still out, {} lost",
                              totals.handedOut, totals.returned, totals.consumed, totals.released,
                              totals.withProcessor + totals.withFrameBuilder, totals.lost));
    for (host::LedgerLine const& line : unsettled) {
        text += labelled(
            "", fmt::format("frame {}, handed out for capture {} at {} s: {}", line.frameNo,
                            line.forRequestNo, base::formatSeconds(line.sinceNs - startNs),
                            host::toString(line.holder)));
    }
    return text;
}

}  // namespace zebcam::tool::report
