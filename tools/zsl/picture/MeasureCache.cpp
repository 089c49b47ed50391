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
constexpr char kForm[] = "measures-2";
/// Of all files: an hour of video has some 17 MB.
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

std::optional<MeasuredVideo> read(fs::path const& path) {
    std::ifstream file(path);
    if (!file) {
        return std::nullopt;
    }
    try {
        MeasuredVideo video = fromJson(Json::parse(file));
        return video.timesNs.empty() ? std::nullopt : std::optional(std::move(video));
    } catch (Json::exception const&) {
        return std::nullopt;  // it is written anew
    }
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

void write(fs::path const& path, MeasuredVideo const& video) {
    std::error_code ignored;
    fs::create_directories(path.parent_path(), ignored);
    try {
        base::AtomicFile file(path.string());
        file.stream() << toJson(video).dump();
        file.commit();
    } catch (base::OutputError const&) {
        // Nobody asked for the file: the next one measures again.
    }
    prune(path.parent_path().parent_path());
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

MeasuredVideo measureOnce(VideoFile& video, std::function<void(size_t, size_t)> const& progress) {
    auto const folder = cacheFolder();
    if (!folder) {
        return measureVideo(video, progress);
    }
    fs::path const path = *folder / kForm / (video.contentKey() + ".json");
    if (auto known = read(path)) {
        std::error_code ignored;
        fs::last_write_time(path, fs::file_time_type::clock::now(), ignored);  // it was used
        known->path = video.name();
        return *std::move(known);
    }
    MeasuredVideo measured = measureVideo(video, progress);
    write(path, measured);
    return measured;
}

}  // namespace zebcam::tool::picture
