#include <metadata/IMetadataEntry.h>

#include <cstring>
#include <stdexcept>

#include "ItemConversion.h"

namespace NSCam {

namespace {

using Type = MetadataType;

template <MetadataItem T>
constexpr Type TYPE_OF = std::is_same_v<T, uint8_t>   ? Type::Byte
                         : std::is_same_v<T, int32_t> ? Type::Int32
                         : std::is_same_v<T, float>   ? Type::Float
                         : std::is_same_v<T, int64_t> ? Type::Int64
                         : std::is_same_v<T, double>  ? Type::Double
                                                      : Type::Rational;

/// Calls `use` with the Type2Type of the item type.
template <typename Use>
auto withItemType(Type type, Use use) {
    switch (type) {
        case Type::Byte:
            return use(Type2Type<uint8_t>());
        case Type::Int32:
            return use(Type2Type<int32_t>());
        case Type::Float:
            return use(Type2Type<float>());
        case Type::Int64:
            return use(Type2Type<int64_t>());
        case Type::Double:
            return use(Type2Type<double>());
        case Type::Rational:  // after the switch, so that every path returns
            break;
    }
    return use(Type2Type<Rational>());
}

template <typename T>
T load(std::byte const* from) {
    T item;  // copied: the bytes are no objects of the type that could be read in place
    std::memcpy(&item, from, sizeof(item));
    return item;
}

}  // namespace

IMetadataEntry::IMetadataEntry(IMetadataEntry&& other) noexcept
    : mTag(other.mTag),
      mShape(std::exchange(other.mShape, {})),  // what was moved from is empty
      mInline(other.mInline),
      mView(other.mView),
      mOwned(std::move(other.mOwned)) {
}

IMetadataEntry& IMetadataEntry::operator=(IMetadataEntry const& other) {
    // The copy may fail half-way; the move cannot.
    return *this = IMetadataEntry(other);
}

IMetadataEntry& IMetadataEntry::operator=(IMetadataEntry&& other) noexcept {
    if (this != &other) {
        mTag = other.mTag;
        mShape = std::exchange(other.mShape, {});
        mInline = other.mInline;
        mView = other.mView;
        mOwned = std::move(other.mOwned);
    }
    return *this;
}

/// Appends one item of this entry's type, given as its bytes.
void IMetadataEntry::append(std::byte const* item) {
    if (count() == Shape::MAX_COUNT) {
        throw std::length_error("IMetadata::IEntry: too many items");
    }
    Shape const larger(type(), count() + 1);
    if (larger.isInline()) {
        std::memcpy(mInline.data() + mShape.bytes(), item, mShape.itemBytes());
    } else {
        // A view of a container's memory, or items that have outgrown the entry: from now on they
        // are the entry's own.
        if (mShape.isInline() || mView != nullptr) {
            mOwned.assign(items(), items() + mShape.bytes());
        }
        mOwned.insert(mOwned.end(), item, item + mShape.itemBytes());
        mView = nullptr;
    }
    mShape = larger;
}

template <MetadataItem T>
void IMetadataEntry::push_back(T const& item, Type2Type<T>) {
    // The first item decides on the type; later ones are converted to it.
    if (isEmpty()) {
        mShape = Shape(TYPE_OF<T>, 0);
        mView = nullptr;
    }
    withItemType(type(), [&]<typename Stored>(Type2Type<Stored>) {
        Stored const stored = convertItem<Stored>(item);
        append(reinterpret_cast<std::byte const*>(&stored));
    });
}

template <MetadataItem T>
T IMetadataEntry::itemAt(size_t index, Type2Type<T>) const {
    if (index >= count()) {
        return T{};
    }
    // Nearly every caller asks for the type that is stored.
    if (type() == TYPE_OF<T>) {
        return load<T>(items() + index * sizeof(T));
    }
    std::byte const* const at = items() + index * mShape.itemBytes();
    return withItemType(type(), [at]<typename Stored>(Type2Type<Stored>) {
        return convertItem<T>(load<Stored>(at));
    });
}

#define INSTANTIATE(T)                                                       \
    template void IMetadataEntry::push_back<T>(T const& item, Type2Type<T>); \
    template T IMetadataEntry::itemAt<T>(size_t index, Type2Type<T>) const;
INSTANTIATE(uint8_t)
INSTANTIATE(int32_t)
INSTANTIATE(float)
INSTANTIATE(int64_t)
INSTANTIATE(double)
INSTANTIATE(Rational)
#undef INSTANTIATE

}  // namespace NSCam
