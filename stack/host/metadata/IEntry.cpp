#include <metadata/IMetadataEntry.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <numeric>
#include <stdexcept>
#include <type_traits>
#include <utility>

namespace NSCam {

namespace {

/// The fraction nearest to `value` whose denominator is a power of two up to 2^30.
Rational toRational(double value) {
    constexpr double MAX = std::numeric_limits<int32_t>::max();
    if (std::isnan(value)) {
        return {};
    }
    value = std::clamp(value, -MAX, MAX);
    int32_t denominator = 1 << 30;
    while (denominator > 1 && std::abs(value) * denominator > MAX) {
        denominator /= 2;
    }
    int32_t const numerator = static_cast<int32_t>(std::lround(value * denominator));
    int32_t const divisor = std::gcd(numerator, denominator);
    return {numerator / divisor, denominator / divisor};
}

/// An item as another type; IEntry::itemAt says how.
template <MetadataItem To, MetadataItem From>
To convertItem(From const& value) {
    if constexpr (std::is_same_v<To, From>) {
        return value;
    } else if constexpr (std::is_same_v<From, Rational>) {
        return value.denominator == 0
                   ? To{}
                   : convertItem<To>(static_cast<double>(value.numerator) / value.denominator);
    } else if constexpr (std::is_same_v<To, Rational>) {
        return std::is_integral_v<From> ? Rational{convertItem<int32_t>(value), 1}
                                        : toRational(static_cast<double>(value));
    } else if constexpr (std::is_floating_point_v<To>) {
        return static_cast<To>(value);
    } else if constexpr (std::is_integral_v<From>) {
        using Limits = std::numeric_limits<To>;
        return std::in_range<To>(value) ? static_cast<To>(value)
               : value < 0              ? Limits::min()
                                        : Limits::max();
    } else {
        using Limits = std::numeric_limits<To>;
        // max() itself may have no exact floating form; the power of two above it does.
        From const end = std::ldexp(From{1}, Limits::digits);
        return std::isnan(value)                          ? To{}
               : value < static_cast<From>(Limits::min()) ? Limits::min()
               : value >= end                             ? Limits::max()
                                                          : static_cast<To>(value);
    }
}

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
