#pragma once

#include <host/BufferLedger.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace zebcam::tool::report {

/// `text` under a label, in lines of at most 100 columns, broken at blanks.
std::string labelled(std::string_view label, std::string_view text);

/// `1 frame`, `2 frames`.
std::string counted(size_t count, std::string_view one, std::string_view many);

/// The ledger's totals, and each buffer set that did not come back, with its time from boot time
/// `startNs` on.
std::string ledgerText(host::BufferLedger::Totals const& totals,
                       std::vector<host::LedgerLine> const& unsettled, int64_t startNs);

}  // namespace zebcam::tool::report
