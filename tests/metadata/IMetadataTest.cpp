#include <gtest/gtest.h>
#include <metadata/IMetadata.h>

#include <array>
#include <limits>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace NSCam {
namespace {

using Tag = IMetadata::Tag;
using Type = IMetadata::Type;
using IEntry = IMetadata::IEntry;

/// What an entry holds, in small integers, which every item type can represent.
struct ModelEntry {
    Type type = Type::Byte;
    std::vector<int32_t> items;
};
using Model = std::map<Tag, ModelEntry>;

template <typename T>
T itemOf(int32_t value) {
    if constexpr (std::is_same_v<T, Rational>) {
        return {value, 1};
    } else {
        return static_cast<T>(value);
    }
}

template <typename T>
IEntry entryOf(Tag tag, std::vector<int32_t> const& items) {
    IEntry entry(tag);
    for (int32_t const item : items) {
        entry.push_back(itemOf<T>(item), Type2Type<T>());
    }
    return entry;
}

IEntry toEntry(Tag tag, ModelEntry const& model) {
    static constexpr std::array<IEntry (*)(Tag, std::vector<int32_t> const&), 6> BY_TYPE{
        entryOf<uint8_t>, entryOf<int32_t>, entryOf<float>,
        entryOf<int64_t>, entryOf<double>,  entryOf<Rational>};
    return BY_TYPE[static_cast<size_t>(model.type)](tag, model.items);
}

testing::AssertionResult isSame(IEntry const& entry, Tag tag, ModelEntry const& model) {
    bool same =
        entry.tag() == tag && entry.type() == model.type && entry.count() == model.items.size();
    for (size_t i = 0; same && i < model.items.size(); ++i) {
        same = entry.itemAt(i, Type2Type<int32_t>()) == model.items[i];
    }
    return same ? testing::AssertionSuccess()
                : testing::AssertionFailure() << "tag " << tag << ": " << entry.count()
                                              << " items, expected " << model.items.size();
}

testing::AssertionResult isSame(IMetadata const& metadata, Model const& model) {
    if (metadata.count() != model.size()) {
        return testing::AssertionFailure()
               << metadata.count() << " entries, expected " << model.size();
    }
    size_t index = 0;
    for (auto const& [tag, entry] : model) {
        for (IEntry const& found : {metadata.entryAt(index), metadata.entryFor(tag)}) {
            if (auto same = isSame(found, tag, entry); !same) {
                return same;
            }
        }
        ++index;
    }
    return testing::AssertionSuccess();
}

class RandomOperations {
public:
    explicit RandomOperations(unsigned number) : mRandom(number) {}

    /// Does one operation to both and returns its name.
    std::string step(IMetadata& metadata, Model& model) {
        Tag const tag = below(40);
        switch (below(10)) {
            case 0: {
                EXPECT_EQ(metadata.remove(tag) == 0, model.erase(tag) == 1);
                return "remove";
            }
            case 1: {
                Tag const from = below(40);
                EXPECT_EQ(metadata.update(tag, metadata.entryFor(from)) == 0, model.contains(from));
                if (model.contains(from)) {
                    model[tag] = ModelEntry(model[from]);
                }
                return "update from a view of itself";
            }
            case 2: {
                auto [other, otherModel] = make();
                metadata += other;
                otherModel.merge(model);
                model = std::move(otherModel);
                return "merge";
            }
            case 3: {
                IMetadata& self = metadata;
                metadata += self;
                metadata = self;
                return "merge with itself";
            }
            case 4: {
                IMetadata copy(metadata);
                metadata.clear();
                metadata = copy;
                return "copy";
            }
            default: {
                ModelEntry const entry = makeEntry();
                EXPECT_EQ(metadata.update(tag, toEntry(tag, entry)), 0);
                model[tag] = entry;
                return "update";
            }
        }
    }

private:
    uint32_t below(uint32_t end) {
        return std::uniform_int_distribution<uint32_t>(0, end - 1)(mRandom);
    }

    ModelEntry makeEntry() {
        ModelEntry entry{static_cast<Type>(below(6)), {}};
        // Mostly few items, so that entries change between the slot and the payload area.
        for (uint32_t left = 1 + below(below(3) == 0 ? 60 : 4); left > 0; --left) {
            entry.items.push_back(static_cast<int32_t>(below(256)));
        }
        return entry;
    }

    std::pair<IMetadata, Model> make() {
        std::pair<IMetadata, Model> made;
        for (uint32_t left = below(20); left > 0; --left) {
            Tag const tag = below(40);
            ModelEntry const entry = makeEntry();
            made.first.update(tag, toEntry(tag, entry));
            made.second[tag] = entry;
        }
        return made;
    }

    std::mt19937 mRandom;
};

TEST(IMetadata, AgreesWithAMapWhateverIsDoneToIt) {
    for (unsigned run = 0; run < 20; ++run) {
        RandomOperations operations(run);
        IMetadata metadata;
        Model model;
        for (unsigned i = 0; i < 300; ++i) {
            std::string const operation = operations.step(metadata, model);
            ASSERT_TRUE(isSame(metadata, model)) << operation << ", run " << run << ", step " << i;
        }
    }
}

TEST(IMetadata, RefusesWhatItCannotDoAndStaysAsItWas) {
    IMetadata metadata;
    EXPECT_NE(metadata.remove(1), 0);
    EXPECT_NE(metadata.update(1, IEntry(1)), 0);
    EXPECT_TRUE(metadata.isEmpty());
    EXPECT_TRUE(metadata.entryAt(0).isEmpty());

    metadata.update(7, entryOf<int32_t>(7, {1, 2, 3}));
    EXPECT_NE(metadata.update(7, metadata.entryFor(8)), 0);
    EXPECT_TRUE(metadata.entryAt(1).isEmpty());
    EXPECT_TRUE(isSame(metadata, {{7, {Type::Int32, {1, 2, 3}}}}));
}

TEST(IMetadata, AppendingToAViewLeavesTheContainerAlone) {
    for (std::vector<int32_t> const& items : {std::vector<int32_t>{3}, std::vector(60, 3)}) {
        IMetadata metadata;
        metadata.update(1, entryOf<int32_t>(1, items));
        IEntry view = metadata.entryFor(1);
        view.push_back(4.75, Type2Type<double>());
        EXPECT_EQ(view.type(), Type::Int32) << "the first item decides";
        EXPECT_EQ(view.itemAt(items.size(), Type2Type<int32_t>()), 4);
        EXPECT_TRUE(isSame(metadata, {{1, {Type::Int32, items}}}));
    }
}

TEST(IMetadata, IsEmptyAndUsableAfterAMove) {
    Model const model{{7, {Type::Int32, {1, 2, 3}}}, {9, {Type::Byte, {4}}}};
    IMetadata from;
    for (auto const& [tag, entry] : model) {
        from.update(tag, toEntry(tag, entry));
    }
    IMetadata to(std::move(from));
    EXPECT_TRUE(isSame(to, model));
    EXPECT_TRUE(isSame(from, {}));
    from += to;
    EXPECT_TRUE(isSame(from, model));

    IMetadata& self = to;
    to = std::move(self);
    EXPECT_TRUE(isSame(to, model)) << "moved onto itself";

    IEntry entry = toEntry(7, model.at(7));
    IEntry const moved(std::move(entry));
    IEntry taken = toEntry(9, model.at(9));
    taken = moved;
    IEntry& itself = taken;
    taken = std::move(itself);
    EXPECT_TRUE(isSame(taken, 7, model.at(7)));
    EXPECT_EQ(entry.itemAt(2, Type2Type<int32_t>()), 0);
    entry.push_back<uint8_t>(5, {});
    EXPECT_TRUE(isSame(entry, 7, {Type::Byte, {5}}));
}

template <typename To, typename From>
To convert(From item) {
    IEntry entry(1);
    entry.push_back(item, Type2Type<From>());
    return entry.itemAt(0, Type2Type<To>());
}

TEST(IMetadataEntry, ConvertsToTheNearestValue) {
    constexpr int64_t BIG = int64_t{1} << 40;
    constexpr double NOT_A_NUMBER = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ((convert<uint8_t, int32_t>(300)), 255);
    EXPECT_EQ((convert<int32_t>(-BIG)), std::numeric_limits<int32_t>::min());
    EXPECT_EQ((convert<int32_t>(-2.9)), -2);
    EXPECT_EQ((convert<int32_t>(NOT_A_NUMBER)), 0);
    EXPECT_EQ((convert<int64_t>(0x1p63F)), std::numeric_limits<int64_t>::max());
    EXPECT_EQ((convert<int64_t>(-std::numeric_limits<double>::infinity())),
              std::numeric_limits<int64_t>::min());
    EXPECT_EQ((convert<int32_t>(Rational{7, -2})), -3);
    EXPECT_EQ((convert<double>(Rational{7, 0})), 0.0);
    EXPECT_EQ((convert<Rational>(-0.375F)), (Rational{-3, 8}));
    EXPECT_EQ((convert<Rational>(1e12)), (Rational{std::numeric_limits<int32_t>::max(), 1}));
}

}  // namespace
}  // namespace NSCam
