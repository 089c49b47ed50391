#pragma once

#include <metadata/IMetadata.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace NSCam {

/// A container's record of one entry. Four of them share a cache line.
struct IMetadata::Slot {
    Tag tag;
    Shape shape;
    union {
        std::array<std::byte, Shape::INLINE_BYTES> items;  ///< where shape.isInline()
        uint64_t offset;                                   ///< else, into the payload area
    };

    /// A view of the entry; `payload` is the area that an offset counts in.
    IEntry view(std::byte const* payload) const {
        return {tag, shape, items, shape.isInline() ? nullptr : payload + offset};
    }

    /// The same with its items, if they are in a payload area, further on in it.
    Slot shifted(size_t by) const {
        Slot slot = *this;
        if (!shape.isInline()) {
            slot.offset += by;
        }
        return slot;
    }
};

}  // namespace NSCam
