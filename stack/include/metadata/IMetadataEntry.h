#pragma once

#include <metadata/Type2Type.h>

#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace NSCam {

/// A rational number, as Android's camera metadata has it.
struct Rational {
    int32_t numerator = 0;
    int32_t denominator = 1;

    bool operator==(Rational const&) const = default;
};

/// Item types, numbered as in Android's camera metadata.
enum class MetadataType : uint8_t {
    Byte = 0,
    Int32 = 1,
    Float = 2,
    Int64 = 3,
    Double = 4,
    Rational = 5
};

/// The types of which an entry holds items.
template <typename T>
concept MetadataItem =
    std::same_as<T, uint8_t> || std::same_as<T, int32_t> || std::same_as<T, float> ||
    std::same_as<T, int64_t> || std::same_as<T, double> || std::same_as<T, Rational>;

/// How many items of which type, in one word, and what space they need.
class MetadataShape {
public:
    /// Items of at most this many bytes are stored in place.
    static constexpr size_t INLINE_BYTES = 8;
    static constexpr size_t MAX_COUNT = (size_t{1} << 28) - 1;

    MetadataShape() = default;
    MetadataShape(MetadataType type, size_t count)
        : mBits(static_cast<uint32_t>(count << 4) | static_cast<uint32_t>(type)) {
        if (bytes() > INLINE_BYTES) {
            mBits |= LARGE_BIT;
        }
    }

    MetadataType type() const { return static_cast<MetadataType>(mBits & TYPE_BITS); }
    size_t count() const { return mBits >> 4; }
    size_t itemBytes() const { return (ITEM_BYTES >> (4 * (mBits & TYPE_BITS))) & 0xf; }
    size_t bytes() const { return count() * itemBytes(); }
    bool isInline() const { return (mBits & LARGE_BIT) == 0; }

    /// Bytes that the items occupy in a payload area: 0 for those in place, else a multiple of 8,
    /// so that every item of the area is aligned.
    size_t areaBytes() const { return isInline() ? 0 : (bytes() + 7) & ~size_t{7}; }

private:
    static constexpr uint32_t TYPE_BITS = 0x7;
    static constexpr uint32_t LARGE_BIT = 0x8;
    static constexpr uint32_t ITEM_BYTES = 0x888441;  ///< a digit a type, Byte the lowest

    uint32_t mBits = 0;
};

/**
 * One entry: a tag and items of one type.
 *
 * An entry got from a container is a view into it and valid until the container is changed or
 * destroyed; one that push_back made owns its items. A copy of a view is a view.
 */
class IMetadataEntry {
public:
    using Tag = uint32_t;

    IMetadataEntry() = default;
    explicit IMetadataEntry(Tag tag) : mTag(tag) {}
    IMetadataEntry(IMetadataEntry const&) = default;
    IMetadataEntry(IMetadataEntry&& other) noexcept;  ///< leaves `other` without items
    IMetadataEntry& operator=(IMetadataEntry const& other);
    IMetadataEntry& operator=(IMetadataEntry&& other) noexcept;
    ~IMetadataEntry() = default;

    Tag tag() const { return mTag; }
    MetadataType type() const { return mShape.type(); }  ///< Byte while there are no items
    size_t count() const { return mShape.count(); }
    bool isEmpty() const { return count() == 0; }

    /// Appends an item. The first item decides the type; later ones are converted to it as itemAt
    /// does. Turns a view into an owner.
    /// @throws std::length_error past 2^28 - 1 items.
    template <MetadataItem T>
    void push_back(T const& item, Type2Type<T>);

    /**
     * The item at `index` as a T; T{} past the end.
     *
     * An item of another type is converted: an integer gets the nearest value in its range, with
     * fractions cut off and 0 for a NaN; a Rational gets numerator and denominator in lowest
     * terms, and one with denominator 0 counts as 0.
     */
    template <MetadataItem T>
    T itemAt(size_t index, Type2Type<T>) const;

private:
    friend class IMetadata;  // makes views, and stores what an entry holds

    using Shape = MetadataShape;
    using InlineItems = std::array<std::byte, Shape::INLINE_BYTES>;

    /// A view of a container's entry: `view` where the shape says that the items are not in place.
    IMetadataEntry(Tag tag, Shape shape, InlineItems const& inlineItems, std::byte const* view)
        : mTag(tag), mShape(shape), mInline(inlineItems), mView(view) {}
    std::byte const* items() const {
        return mShape.isInline() ? mInline.data() : mView != nullptr ? mView : mOwned.data();
    }
    void append(std::byte const* item);

    Tag mTag = 0;
    Shape mShape;
    /// Where the items are: here if the shape says so, else in the container that is viewed, else
    /// in mOwned.
    alignas(8) InlineItems mInline{};
    std::byte const* mView = nullptr;
    std::vector<std::byte> mOwned;
};

}  // namespace NSCam
