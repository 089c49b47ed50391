#pragma once

#include <metadata/IMetadataEntry.h>  // IWYU pragma: export
#include <metadata/MetadataTags.h>    // IWYU pragma: export

#include <cstddef>
#include <memory>

namespace NSCam {

/**
 * A set of typed entries, each under a tag, in ascending tag order.
 *
 * A value: copies are independent, and one that was moved from is empty and as good as new. Not
 * thread-safe, but any number of threads may read one that nobody changes. An operation that
 * throws (std::bad_alloc, std::length_error) leaves its target as it was.
 *
 * Copying costs one allocation and a bulk copy, merging one allocation and a pass over both sides,
 * a look-up a binary search and no allocation.
 */
class IMetadata {
public:
    using IEntry = IMetadataEntry;
    using Tag = IEntry::Tag;
    using Type = MetadataType;

    IMetadata();
    IMetadata(IMetadata const&);
    IMetadata(IMetadata&&) noexcept;
    IMetadata& operator=(IMetadata const&);
    IMetadata& operator=(IMetadata&&) noexcept;
    ~IMetadata();

    /// Number of entries.
    size_t count() const { return mUse.slots; }
    bool isEmpty() const { return count() == 0; }

    /// The entry at a position, in ascending tag order; an empty one past the end. Constant time.
    IEntry entryAt(size_t index) const;

    /// The entry of a tag; an empty one under that tag when the tag is absent.
    IEntry entryFor(Tag tag) const;

    /// Sets the entry of `tag` to the items of `entry`, which may be a view of this container.
    /// 0, or -EINVAL for an entry without items; nothing is changed then.
    int update(Tag tag, IEntry const& entry);

    /// Removes the entry of `tag`. 0, or -ENOENT when the tag was absent.
    int remove(Tag tag);

    void clear();

    /// Takes over every entry of `other`; where both have a tag, `other` wins.
    IMetadata& operator+=(IMetadata const& other);

private:
    using Shape = MetadataShape;
    struct Slot;

    /// How a block is used. Sizes of the payload area are in bytes.
    struct Use {
        size_t slots = 0;
        size_t slotCapacity = 0;
        size_t payload = 0;  ///< from the start of the area; holds no gaps but the slack
        size_t payloadCapacity = 0;
        size_t slack = 0;  ///< bytes of `payload` that no entry uses any more
    };

    IMetadata(size_t slotCapacity, size_t payloadCapacity);

    static IMetadata rewritten(IMetadata const& from, size_t slotCapacity, size_t payloadCapacity);
    void place(size_t index, bool isNew, Tag tag, IEntry const& entry);
    bool isMostlySlack() const { return mUse.slack > mUse.payload / 2; }
    /// What of the payload area goes into a new block.
    size_t keptPayload() const { return mUse.payload - (isMostlySlack() ? mUse.slack : 0); }
    Slot* slots() const { return reinterpret_cast<Slot*>(mBlock.get()); }
    std::byte* payload() const { return mBlock.get() + mUse.slotCapacity * SLOT_BYTES; }

    static constexpr size_t SLOT_BYTES = 16;

    /**
     * The sorted slots, one an entry, then the payload area with the items too large for a slot.
     *
     * Items that were replaced or removed stay in the area as slack. Whoever writes a block anew
     * (a copy, a merge, growth) leaves the slack behind once it is more than half of the area, so
     * that a block never grows for the sake of slack.
     */
    std::unique_ptr<std::byte[]> mBlock;
    Use mUse;
};

}  // namespace NSCam
