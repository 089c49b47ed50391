#include <metadata/IMetadata.h>

#include <array>
#include <cerrno>
#include <map>
#include <utility>
#include <vector>

#include "Fuzz.h"

using namespace zebcam;
using NSCam::IMetadata;
using NSCam::Type2Type;

namespace {

/// What an entry holds, in small integers, which every item type can represent.
using Items = std::pair<IMetadata::Type, std::vector<int32_t>>;
using Model = std::map<IMetadata::Tag, Items>;

/// A container and what it must hold.
struct Pair {
    IMetadata metadata;
    Model model;
};

class Bytes {
public:
    Bytes(uint8_t const* data, size_t size) : mData(data), mEnd(data + size) {}
    bool isAtEnd() const { return mData == mEnd; }
    uint8_t next(uint8_t below) { return isAtEnd() ? 0 : static_cast<uint8_t>(*mData++ % below); }

private:
    uint8_t const* mData;
    uint8_t const* const mEnd;
};

template <typename T>
IMetadata::IEntry entryOf(IMetadata::Tag tag, std::vector<int32_t> const& items) {
    IMetadata::IEntry entry(tag);
    for (int32_t const item : items) {
        if constexpr (std::is_same_v<T, NSCam::Rational>) {
            entry.push_back(T{item, 1}, Type2Type<T>());
        } else {
            entry.push_back(static_cast<T>(item), Type2Type<T>());
        }
    }
    return entry;
}

void update(Bytes& bytes, Pair& target) {
    static constexpr std::array MAKERS{entryOf<uint8_t>, entryOf<int32_t>,
                                       entryOf<float>,   entryOf<int64_t>,
                                       entryOf<double>,  entryOf<NSCam::Rational>};
    IMetadata::Tag const tag = bytes.next(24);
    uint8_t const type = bytes.next(MAKERS.size());
    // Mostly few, so that entries change between their slot and the payload area.
    uint8_t const size = bytes.next(60);
    std::vector<int32_t> items(size < 40 ? size % 5 : size);
    for (int32_t& item : items) {
        item = bytes.next(128);
    }
    int const status = target.metadata.update(tag, MAKERS[type](tag, items));
    fuzz::require(status == (items.empty() ? -EINVAL : 0),
                  "only entries without items are refused");
    if (!items.empty()) {
        target.model[tag] = {static_cast<IMetadata::Type>(type), items};
    }
}

/// An entry goes to another tag, possibly of the same container, as a view.
void move(Bytes& bytes, Pair const& source, Pair& target) {
    IMetadata::Tag const from = bytes.next(24);
    IMetadata::Tag const to = bytes.next(24);
    bool const isThere = source.model.count(from) != 0;
    int const status = target.metadata.update(to, source.metadata.entryFor(from));
    fuzz::require(status == (isThere ? 0 : -EINVAL), "what is there can be copied");
    if (isThere) {
        auto const items = source.model.at(from);
        target.model[to] = items;
    }
}

void remove(Bytes& bytes, Pair& target) {
    IMetadata::Tag const tag = bytes.next(24);
    bool const wasThere = target.model.erase(tag) != 0;
    fuzz::require(target.metadata.remove(tag) == (wasThere ? 0 : -ENOENT), "a removal tells");
}

void check(Pair const& pair) {
    fuzz::require(pair.metadata.count() == pair.model.size(), "as many entries");
    size_t at = 0;
    for (auto const& [tag, items] : pair.model) {
        auto const entry = pair.metadata.entryAt(at++);
        fuzz::require(entry.tag() == tag && entry.type() == items.first, "the same tag and type");
        fuzz::require(entry.count() == items.second.size(), "as many items");
        for (size_t i = 0; i < entry.count(); ++i) {
            fuzz::require(entry.itemAt(i, Type2Type<int32_t>()) == items.second[i], "the item");
        }
        fuzz::require(pair.metadata.entryFor(tag).count() == entry.count(), "found by its tag");
    }
}

void operate(Bytes& bytes, Pair& a, Pair& b) {
    switch (bytes.next(8)) {
        case 0:
        case 1:
            return update(bytes, a);
        case 2:
            return move(bytes, bytes.next(2) == 0 ? a : b, a);
        case 3:
            return remove(bytes, a);
        case 4:
            a.metadata += b.metadata;
            a.metadata += a.metadata;
            for (auto const& [tag, items] : b.model) {
                a.model[tag] = items;
            }
            return;
        case 5:
            a = b;
            a.metadata = static_cast<IMetadata const&>(a.metadata);
            return;
        case 6:
            a = std::exchange(b, Pair());
            return;
        default:
            a.metadata.clear();
            a.model.clear();
    }
}

}  // namespace

/// Two containers do what two maps do, also when they meet themselves.
int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    Bytes bytes(data, size);
    std::array<Pair, 2> pairs;
    while (!bytes.isAtEnd()) {
        size_t const target = bytes.next(2);
        operate(bytes, pairs[target], pairs[1 - target]);
        check(pairs[0]);
        check(pairs[1]);
    }
    return 0;
}
