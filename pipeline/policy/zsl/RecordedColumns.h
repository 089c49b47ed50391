#pragma once

#include <metadata/IMetadata.h>
#include <policy/zsl/ISelector.h>

#include <cstdint>
#include <optional>
#include <string_view>

namespace NSCam::ZslPolicy {

/// Where the tags of recordedColumnTag() lie: vendor tags, which vendors count up from 0x80000000
/// and do not reach.
inline constexpr IMetadata::Tag RECORDED_COLUMN_FIRST = 0xb0000000;
inline constexpr IMetadata::Tag RECORDED_COLUMN_LAST = 0xbfffffff;

/// The tag under which the application results of a replay carry a column of the recording that is
/// no state of Android's, for instance `Sharpness`. It follows from the column's name alone (as its
/// header has it, with any unit): the same in every recording, wherever the column stands. A hash:
/// 32-bit FNV-1a, folded to 28 bits.
constexpr IMetadata::Tag recordedColumnTag(std::string_view name) {
    uint32_t hash = 0x811c9dc5;
    for (char const c : name) {
        hash = (hash ^ static_cast<uint8_t>(c)) * 0x01000193;
    }
    return RECORDED_COLUMN_FIRST | ((hash >> 28) ^ (hash & 0x0fffffff));
}

/// What that column says of a frame, whose `appMetas` these are; nothing where the cell is empty,
/// the recording has no such column, or the frame is a device's.
inline std::optional<double> recordedColumn(ISelector::MetaMap const& metas,
                                            std::string_view name) {
    for (auto const& [info, metadata] : metas) {
        if (metadata == nullptr) {
            continue;
        }
        IMetadata::IEntry const entry = metadata->entryFor(recordedColumnTag(name));
        if (!entry.isEmpty()) {
            return entry.itemAt(0, Type2Type<double>());  // whole numbers are converted
        }
    }
    return std::nullopt;
}

}  // namespace NSCam::ZslPolicy
