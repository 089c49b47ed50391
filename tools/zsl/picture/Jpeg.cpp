#include "picture/Jpeg.h"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <libexif/exif-data.h>
#include <libexif/exif-utils.h>
#include <turbojpeg.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <stdexcept>

#include "base/Text.h"

namespace zebcam::tool::picture {

namespace {

template <auto Free>
struct FreedBy {
    template <typename T>
    void operator()(T* object) const {
        Free(object);
    }
};

constexpr ExifByteOrder kOrder = EXIF_BYTE_ORDER_INTEL;
constexpr uint32_t kSrgb = 1;

/// An EXIF block that is being written.
class Exif {
public:
    Exif() : mData(exif_data_new()), mMemory(exif_mem_new_default()) {
        exif_data_set_byte_order(mData.get(), kOrder);
        exif_data_set_data_type(mData.get(), EXIF_DATA_TYPE_COMPRESSED);
    }

    void addText(ExifIfd part, ExifTag tag, std::string const& text) {
        Entry const entry = add(part, tag);
        entry->format = EXIF_FORMAT_ASCII;
        entry->components = text.size() + 1;
        entry->size = static_cast<unsigned>(entry->components);
        entry->data = static_cast<unsigned char*>(exif_mem_alloc(mMemory.get(), entry->size));
        std::memcpy(entry->data, text.c_str(), entry->size);
    }

    /// Of the tag's own form.
    void addNumber(ExifTag tag, uint32_t number) {
        Entry const entry = add(EXIF_IFD_EXIF, tag);
        exif_entry_initialize(entry.get(), tag);
        if (entry->format == EXIF_FORMAT_SHORT) {
            exif_set_short(entry->data, kOrder, static_cast<ExifShort>(number));
        } else {
            exif_set_long(entry->data, kOrder, number);
        }
    }

    void addRatio(ExifTag tag, ExifRational ratio) {
        Entry const entry = add(EXIF_IFD_EXIF, tag);
        exif_entry_initialize(entry.get(), tag);
        exif_set_rational(entry->data, kOrder, ratio);
    }

    void addVersion(char const (&version)[5]) {
        Entry const entry = add(EXIF_IFD_EXIF, EXIF_TAG_EXIF_VERSION);
        exif_entry_initialize(entry.get(), EXIF_TAG_EXIF_VERSION);
        std::memcpy(entry->data, version, entry->size);
    }

    /// With what the standard gives it.
    void addDefault(ExifIfd part, ExifTag tag) { exif_entry_initialize(add(part, tag).get(), tag); }

    std::string bytes() const {
        unsigned char* data = nullptr;
        unsigned size = 0;
        exif_data_save_data(mData.get(), &data, &size);
        std::unique_ptr<unsigned char, FreedBy<std::free>> const owned(data);
        return {reinterpret_cast<char const*>(data), size};
    }

private:
    using Entry = std::unique_ptr<ExifEntry, FreedBy<exif_entry_unref>>;

    Entry add(ExifIfd part, ExifTag tag) {
        Entry entry(exif_entry_new_mem(mMemory.get()));
        entry->tag = tag;  // before it is added, by which entries are sorted
        exif_content_add_entry(mData->ifd[part], entry.get());
        return entry;
    }

    std::unique_ptr<ExifData, FreedBy<exif_data_unref>> const mData;
    std::unique_ptr<ExifMem, FreedBy<exif_mem_unref>> const mMemory;
};

void addTime(Exif& exif, int64_t timeNs) {
    std::chrono::nanoseconds const time(timeNs);
    auto const seconds = std::chrono::floor<std::chrono::seconds>(time);
    exif.addText(EXIF_IFD_EXIF, EXIF_TAG_DATE_TIME_ORIGINAL,
                 fmt::format("{:%Y:%m:%d %H:%M:%S}",
                             fmt::gmtime(static_cast<std::time_t>(seconds.count()))));
    exif.addText(EXIF_IFD_EXIF, EXIF_TAG_SUB_SEC_TIME_ORIGINAL,
                 fmt::format("{:09}", (time - seconds).count()));
    exif.addText(EXIF_IFD_EXIF, EXIF_TAG_OFFSET_TIME_ORIGINAL, "+00:00");
}

/// In thousandths, of which 32 bits hold enough.
ExifRational thousandths(double value) {
    constexpr double kMost = std::numeric_limits<uint32_t>::max();
    return {static_cast<ExifLong>(std::clamp(std::round(value * 1'000), 0.0, kMost)), 1'000};
}

/// Infinity has a value of its own.
ExifRational distanceOf(float diopters) {
    constexpr ExifRational kInfinity = {std::numeric_limits<uint32_t>::max(), 1};
    return diopters > 0 ? thousandths(1 / static_cast<double>(diopters)) : kInfinity;
}

std::string exifOf(Pixels const& rgb, PictureFacts const& facts) {
    Exif exif;
    exif.addDefault(EXIF_IFD_0, EXIF_TAG_ORIENTATION);
    exif.addVersion("0231");  // which has offsets of times
    exif.addNumber(EXIF_TAG_COLOR_SPACE, kSrgb);
    exif.addNumber(EXIF_TAG_PIXEL_X_DIMENSION, rgb.width);
    exif.addNumber(EXIF_TAG_PIXEL_Y_DIMENSION, rgb.height);
    if (!facts.description.empty()) {
        exif.addText(EXIF_IFD_0, EXIF_TAG_IMAGE_DESCRIPTION, facts.description);
    }
    if (facts.timeNs) {
        addTime(exif, *facts.timeNs);
    }
    if (facts.exposureNs) {
        exif.addRatio(EXIF_TAG_EXPOSURE_TIME,
                      {static_cast<ExifLong>(std::clamp<int64_t>(
                           *facts.exposureNs / 1'000, 0, std::numeric_limits<uint32_t>::max())),
                       static_cast<ExifLong>(base::NS_PER_SECOND / 1'000)});
    }
    if (facts.iso) {
        exif.addNumber(EXIF_TAG_ISO_SPEED_RATINGS,
                       static_cast<uint32_t>(std::clamp<int32_t>(
                           *facts.iso, 0, std::numeric_limits<ExifShort>::max())));
    }
    if (facts.focalLengthMm) {
        exif.addRatio(EXIF_TAG_FOCAL_LENGTH,
                      thousandths(static_cast<double>(*facts.focalLengthMm)));
    }
    if (facts.focusDistance) {
        exif.addRatio(EXIF_TAG_SUBJECT_DISTANCE, distanceOf(*facts.focusDistance));
    }
    return exif.bytes();
}

}  // namespace

std::string toJpeg(Pixels const& rgb, int quality, PictureFacts const* facts) {
    std::unique_ptr<void, FreedBy<tjDestroy>> const compressor(tjInitCompress());
    unsigned char* data = nullptr;
    unsigned long size = 0;
    int const status =
        tjCompress2(compressor.get(), rgb.bytes.data(), static_cast<int>(rgb.width), 0,
                    static_cast<int>(rgb.height), TJPF_RGB, &data, &size, TJSAMP_420, quality, 0);
    std::unique_ptr<unsigned char, FreedBy<tjFree>> const owned(data);
    if (status != 0) {
        throw std::runtime_error(fmt::format("a picture of {} x {} cannot be written as JPEG: {}",
                                             rgb.width, rgb.height,
                                             tjGetErrorStr2(compressor.get())));
    }
    std::string jpeg(reinterpret_cast<char const*>(data), size);
    if (facts != nullptr) {
        std::string const exif = exifOf(rgb, *facts);
        // The length of a segment counts itself.
        size_t const length = exif.size() + 2;
        std::string const head = {'\xFF', '\xE1', static_cast<char>(length >> 8),
                                  static_cast<char>(length & 0xFF)};
        constexpr size_t kStartOfImage = 2;  // which comes first
        jpeg.insert(kStartOfImage, head + exif);
    }
    return jpeg;
}

}  // namespace zebcam::tool::picture
