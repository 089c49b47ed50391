#include <metadata/IMetadata.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>
#include <utility>

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

namespace {

/// memcpy that may be called for nothing, where a pointer may be null.
void copyBytes(void* to, void const* from, size_t bytes) {
    if (bytes != 0) {
        std::memcpy(to, from, bytes);
    }
}

/// The last of `count` (at least one) sorted slots whose tag is not above `tag`; the first if all
/// are above. Every look-up spends most of its time here: steps are in bytes, which saves a
/// multiplication each, and nothing but the loop itself is a branch.
template <typename Slot>
[[gnu::always_inline]] inline Slot const* lastUpTo(Slot const* slots, size_t count,
                                                   IMetadata::Tag tag) {
    auto const ahead = [](Slot const* slot, size_t bytes) {
        return reinterpret_cast<Slot const*>(reinterpret_cast<std::byte const*>(slot) + bytes);
    };
    Slot const* found = slots;
    size_t step = sizeof(Slot) << (std::bit_width(count) - 1);
    // Two overlapping ranges of a power of two cover all: the front one, and the one at the back.
    if (size_t const back = count * sizeof(Slot) - step; ahead(slots, back)->tag <= tag) {
        found = ahead(slots, back);
    }
    for (step /= 2; step >= sizeof(Slot); step /= 2) {
        Slot const* const next = ahead(found, step);
        found = next->tag <= tag ? next : found;
    }
    return found;
}

/// Position of the first of the sorted slots whose tag is not below `tag`.
template <typename Slot>
size_t lowerBound(Slot const* slots, size_t count, IMetadata::Tag tag) {
    // Entries often come in ascending order.
    if (count == 0 || slots[count - 1].tag < tag) {
        return count;
    }
    Slot const* const slot = lastUpTo(slots, count, tag);
    return static_cast<size_t>(slot - slots) + (slot->tag < tag ? 1 : 0);
}

}  // namespace

IMetadata::IMetadata() = default;

IMetadata::~IMetadata() = default;

IMetadata::IMetadata(size_t slotCapacity, size_t payloadCapacity)
    : mBlock(std::make_unique_for_overwrite<std::byte[]>(slotCapacity * sizeof(Slot) +
                                                         payloadCapacity)) {
    static_assert(sizeof(Slot) == SLOT_BYTES && std::is_trivially_copyable_v<Slot>);
    mUse.slotCapacity = slotCapacity;
    mUse.payloadCapacity = payloadCapacity;
}

IMetadata::IMetadata(IMetadata const& other) {
    if (!other.isEmpty()) {
        *this = rewritten(other, other.mUse.slots, other.keptPayload());
    }
}

IMetadata::IMetadata(IMetadata&& other) noexcept
    : mBlock(std::move(other.mBlock)), mUse(std::exchange(other.mUse, {})) {
}

IMetadata& IMetadata::operator=(IMetadata const& other) {
    if (this != &other) {
        *this = IMetadata(other);
    }
    return *this;
}

IMetadata& IMetadata::operator=(IMetadata&& other) noexcept {
    // By way of a temporary: a container moved onto itself keeps its entries.
    IMetadata taken(std::move(other));
    std::swap(mBlock, taken.mBlock);
    std::swap(mUse, taken.mUse);
    return *this;
}

/// A copy with the given capacities, which must suffice for the slots and the kept payload.
IMetadata IMetadata::rewritten(IMetadata const& from, size_t slotCapacity, size_t payloadCapacity) {
    IMetadata to(slotCapacity, payloadCapacity);
    to.mUse.slots = from.mUse.slots;
    copyBytes(to.slots(), from.slots(), from.mUse.slots * sizeof(Slot));
    if (!from.isMostlySlack()) {
        to.mUse.payload = from.mUse.payload;
        to.mUse.slack = from.mUse.slack;
        copyBytes(to.payload(), from.payload(), from.mUse.payload);
        return to;
    }
    for (Slot* slot = to.slots(); slot != to.slots() + to.mUse.slots; ++slot) {
        if (!slot->shape.isInline()) {
            std::memcpy(to.payload() + to.mUse.payload, from.payload() + slot->offset,
                        slot->shape.bytes());
            slot->offset = to.mUse.payload;
            to.mUse.payload += slot->shape.areaBytes();
        }
    }
    return to;
}

IMetadata::IEntry IMetadata::entryAt(size_t index) const {
    return index < mUse.slots ? slots()[index].view(payload()) : IEntry();
}

IMetadata::IEntry IMetadata::entryFor(Tag tag) const {
    if (isEmpty()) {
        return IEntry(tag);
    }
    Slot const* const slot = lastUpTo(slots(), mUse.slots, tag);
    return slot->tag == tag ? slot->view(payload()) : IEntry(tag);
}

int IMetadata::update(Tag tag, IEntry const& entry) {
    if (entry.isEmpty()) {
        return -EINVAL;
    }
    size_t const index = lowerBound(slots(), mUse.slots, tag);
    bool const isNew = index == mUse.slots || slots()[index].tag != tag;
    size_t const room = isNew ? 0 : slots()[index].shape.areaBytes();
    size_t const need = entry.mShape.areaBytes();
    size_t const morePayload = need > room ? need : 0;
    size_t const moreSlots = isNew ? 1 : 0;
    if (mUse.slots + moreSlots <= mUse.slotCapacity &&
        mUse.payload + morePayload <= mUse.payloadCapacity) {
        place(index, isNew, tag, entry);
        return 0;
    }
    auto const grown = [](size_t needed, size_t capacity, size_t least) {
        return needed <= capacity ? capacity : std::max(needed + needed / 2, least);
    };
    IMetadata larger = rewritten(*this, grown(mUse.slots + moreSlots, mUse.slotCapacity, 16),
                                 grown(keptPayload() + morePayload, mUse.payloadCapacity, 256));
    // The old block, which `entry` may look into, lives until the items are in the new one.
    larger.place(index, isNew, tag, entry);
    *this = std::move(larger);
    return 0;
}

/// Writes the entry at its position, for which there must be room.
void IMetadata::place(size_t index, bool isNew, Tag tag, IEntry const& entry) {
    Slot* const slot = slots() + index;
    size_t const room = isNew ? 0 : slot->shape.areaBytes();
    size_t const need = entry.mShape.areaBytes();
    if (isNew) {
        Slot* const end = slots() + mUse.slots;
        std::copy_backward(slot, end, end + 1);
        slot->tag = tag;
        ++mUse.slots;
    }
    slot->shape = entry.mShape;
    if (need == 0) {
        slot->items = entry.mInline;
        mUse.slack += room;
        return;
    }
    if (need <= room) {
        mUse.slack += room - need;
    } else {
        mUse.slack += room;
        slot->offset = mUse.payload;
        mUse.payload += need;
    }
    // The items may be those of this very entry.
    std::memmove(payload() + slot->offset, entry.items(), entry.mShape.bytes());
}

int IMetadata::remove(Tag tag) {
    size_t const index = lowerBound(slots(), mUse.slots, tag);
    if (index == mUse.slots || slots()[index].tag != tag) {
        return -ENOENT;
    }
    Slot* const slot = slots() + index;
    mUse.slack += slot->shape.areaBytes();
    std::copy(slot + 1, slots() + mUse.slots, slot);
    --mUse.slots;
    return 0;
}

void IMetadata::clear() {
    *this = IMetadata();
}

IMetadata& IMetadata::operator+=(IMetadata const& other) {
    if (this == &other || other.isEmpty()) {
        return *this;
    }
    if (isEmpty()) {
        return *this = other;
    }
    if (isMostlySlack()) {
        *this = IMetadata(*this);
    }
    if (other.isMostlySlack()) {
        return *this += IMetadata(other);
    }
    IMetadata merged(mUse.slots + other.mUse.slots, mUse.payload + other.mUse.payload);
    size_t const shift = mUse.payload;  // their items come after mine
    size_t overridden = 0;
    Slot* out = merged.slots();
    Slot const* mine = slots();
    Slot const* const myEnd = mine + mUse.slots;
    Slot const* theirs = other.slots();
    Slot const* const theirEnd = theirs + other.mUse.slots;
    while (mine != myEnd && theirs != theirEnd) {
        if (mine->tag < theirs->tag) {
            *out++ = *mine++;
            continue;
        }
        if (mine->tag == theirs->tag) {
            overridden += mine->shape.areaBytes();
            ++mine;
        }
        *out++ = theirs++->shifted(shift);
    }
    out = std::copy(mine, myEnd, out);
    out = std::transform(theirs, theirEnd, out,
                         [=](Slot const& slot) { return slot.shifted(shift); });
    merged.mUse.slots = static_cast<size_t>(out - merged.slots());
    merged.mUse.payload = merged.mUse.payloadCapacity;
    merged.mUse.slack = mUse.slack + other.mUse.slack + overridden;
    copyBytes(merged.payload(), payload(), mUse.payload);
    copyBytes(merged.payload() + shift, other.payload(), other.mUse.payload);
    return *this = std::move(merged);
}

}  // namespace NSCam
