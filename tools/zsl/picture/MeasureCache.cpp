#include "picture/MeasureCache.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "base/AtomicFile.h"

namespace zebcam::tool::picture {

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;

/// To be raised when a measure comes to something else, or the form of the file changes.
constexpr char kForm[] = "measures-3";
/// Of all files: an hour of video has some 9 MB.
constexpr uintmax_t kMostBytes = 128'000'000;

Json toJson(MeasuredVideo const& video) {
    Json sharpness = Json::array(), motion = sharpness, brightness = sharpness, clipped = sharpness;
    for (recording::PictureMeasures const& measures : video.measures) {
        sharpness.push_back(measures.sharpness);
        motion.push_back(measures.motion ? Json(*measures.motion) : Json(nullptr));
        brightness.push_back(measures.brightness);
        clipped.push_back(measures.clipped);
    }
    return {{"width", video.width},
            {"height", video.height},
            {"rotation", video.rotation},
            {"timesNs", video.timesNs},
            {"sharpness", std::move(sharpness)},
            {"motion", std::move(motion)},
            {"brightness", std::move(brightness)},
            {"clipped", std::move(clipped)}};
}

/// Throws what the library throws for a file of another form.
MeasuredVideo fromJson(Json const& json) {
    MeasuredVideo video;
    video.width = json.at("width");
    video.height = json.at("height");
    video.rotation = json.at("rotation");
    video.timesNs = json.at("timesNs").get<std::vector<int64_t>>();
    for (size_t i = 0; i < video.timesNs.size(); ++i) {
        Json const& motion = json.at("motion").at(i);
        video.measures.push_back(
            {json.at("sharpness").at(i).get<float>(),
             motion.is_null() ? std::nullopt : std::optional(motion.get<float>()),
             json.at("brightness").at(i).get<float>(), json.at("clipped").at(i).get<float>()});
    }
    return video;
}

struct CachedFile {
    fs::file_time_type usedAt;
    uintmax_t bytes = 0;
    fs::path path;
};

/// Removes those files of `folder`, of any form, that were not used for longest, until what is left
/// is as small as it has to be. Another process may do so at the same time.
void prune(fs::path const& folder) {
    std::error_code error;
    std::vector<CachedFile> files;
    uintmax_t bytes = 0;
    for (fs::recursive_directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error)) {
        std::error_code gone;
        if (entry->is_regular_file(gone)) {
            files.push_back({entry->last_write_time(gone), entry->file_size(gone), entry->path()});
            bytes += gone ? 0 : files.back().bytes;
        }
    }
    std::ranges::sort(files, {}, &CachedFile::usedAt);
    for (CachedFile const& file : files) {
        if (bytes <= kMostBytes) {
            break;
        }
        fs::remove(file.path, error);
        bytes -= std::min(bytes, file.bytes);
    }
}

}  // namespace

std::optional<fs::path> cacheFolder() {
    // An empty one counts as unset, and one that is no absolute path is to be ignored.
    for (auto const& [variable, below] :
         {std::pair{"XDG_CACHE_HOME", "zsl"}, {"HOME", ".cache/zsl"}}) {
        char const* const folder = std::getenv(variable);
        if (folder != nullptr && fs::path(folder).is_absolute()) {
            return fs::path(folder) / below;
        }
    }
    return std::nullopt;
}

MeasureCache::MeasureCache(VideoFile& video, bool isUsed) : mName(video.name()) {
    if (auto const folder = isUsed ? cacheFolder() : std::nullopt) {
        mPath = *folder / kForm / (video.contentKey() + ".json");
    }
}

std::optional<MeasuredVideo> MeasureCache::read() const {
    std::ifstream file(mPath.value_or(""));
    if (!file) {
        return std::nullopt;
    }
    try {
        MeasuredVideo video = fromJson(Json::parse(file));
        video.path = mName;
        std::error_code ignored;
        fs::last_write_time(*mPath, fs::file_time_type::clock::now(), ignored);  // it was used
        return video.timesNs.empty() ? std::nullopt : std::optional(std::move(video));
    } catch (Json::exception const&) {
        return std::nullopt;  // it is written anew
    }
}

void MeasureCache::write(MeasuredVideo const& video) const {
    if (!mPath) {
        return;
    }
    std::error_code ignored;
    fs::create_directories(mPath->parent_path(), ignored);
    try {
        base::AtomicFile file(mPath->string());
        file.stream() << toJson(video).dump();
        file.commit();
    } catch (base::OutputError const&) {
        // Nobody asked for the file: the next one measures again.
    }
    prune(mPath->parent_path().parent_path());
}

}  // namespace zebcam::tool::picture
