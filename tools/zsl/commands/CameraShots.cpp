#include "commands/CameraShots.h"

#include <fmt/format.h>
#include <utils/Timers.h>

#include <algorithm>
#include <exception>
#include <filesystem>
#include <iterator>
#include <nlohmann/json.hpp>
#include <utility>

#include "base/AtomicFile.h"
#include "base/InputError.h"
#include "base/Text.h"
#include "report/Reports.h"
#include "run/CapturePictures.h"

namespace zebcam::tool::commands {

namespace {

/// The latest ones; who takes more has the files.
constexpr size_t kMostCaptures = 10'000;
/// So many texts say it as well as more.
constexpr size_t kMostFailures = 10;
// Of the page's strip.
constexpr size_t kMostShown = 24;
constexpr uint32_t kShownWidth = 960;
constexpr int kShownQuality = 80;
// Of the report, which takes a third more than what is in it.
constexpr size_t kMostReportedBytes = 9'000'000;
constexpr uint32_t kReportedWidth = 200;
constexpr int kReportedQuality = 72;

/// Before anything is taken: the first captures of two runs have the same names.
void prepare(std::string const& folder) {
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error) {
        throw base::OutputError(
            fmt::format("--pictures {}: cannot be made: {}", folder, error.message()));
    }
    for (auto const& entry : std::filesystem::directory_iterator(folder, error)) {
        std::string const name = entry.path().filename();
        if (name.starts_with("capture-") && name.ends_with(".jpg")) {
            throw base::InputError(fmt::format(
                "--pictures {}: expected a folder without captures, found {}", folder, name));
        }
    }
    base::AtomicFile const probe(folder + "/capture-0001-press.jpg");
}

}  // namespace

CameraShots::CameraShots(run::CameraFrames& frames, std::optional<std::string> folder,
                         Copies copies, std::function<void(std::string const& line)> tell)
    : mFrames(frames),
      mFolder(std::move(folder)),
      mTell(std::move(tell)),
      mStartNs(pipeline::nowNs()),
      mCopies(copies) {
    if (mFolder) {
        prepare(*mFolder);
    }
}

void CameraShots::take(run::LiveFrame const& frame) {
    run::CameraShot shot = mFrames.shotOf(frame);
    pipeline::CaptureRecord& capture = shot.capture;
    pipeline::FrameOutcome& outcome = capture.frames.at(shot.index);
    if (shot.press) {
        capture.pressPictureFile =
            write(run::pictureName(capture.requestNo, std::nullopt), *shot.press->picture,
                  run::factsOf(shot.press->frame,
                               fmt::format("capture {}, press: frame", capture.requestNo),
                               capture.pressNs));
    }
    if (shot.picture != nullptr && outcome.chosen) {
        outcome.pictureFile = write(run::pictureName(capture.requestNo, shot.index), *shot.picture,
                                    run::factsOf(*outcome.chosen,
                                                 fmt::format("capture {}, frame {}: history frame",
                                                             capture.requestNo, shot.index),
                                                 capture.pressNs));
    }
    mTell(report::shotLine(shot, mStartNs));
    keep(shot);
    if (mCopies.forPage) {
        show(shot);
    }
    if (mCopies.forReport) {
        copy(shot);
    }
}

std::optional<std::string> CameraShots::write(std::string const& name,
                                              picture::Picture const& picture,
                                              picture::PictureFacts facts) {
    if (!mFolder) {
        return std::nullopt;
    }
    // People look for a picture by the day.
    *facts.timeNs += systemTime(SYSTEM_TIME_REALTIME) - systemTime(SYSTEM_TIME_BOOTTIME);
    std::string const path = *mFolder + "/" + name;
    try {
        base::AtomicFile file(path);
        file.stream() << picture::toJpeg(picture.pixels(picture::PixelKind::Rgb),
                                         run::CAPTURE_QUALITY, &facts);
        file.commit();
        return path;
    } catch (std::exception const& error) {
        // The others may have room, and the camera goes on.
        mTell(fmt::format("zsl camera: {}\n", error.what()));
        LockGuard const lock(mLock);
        if (mFailures.size() < kMostFailures) {
            mFailures.emplace_back(error.what());
        }
        return std::nullopt;
    }
}

void CameraShots::keep(run::CameraShot const& shot) {
    LockGuard const lock(mLock);
    auto const [place, isNew] = mCaptures.try_emplace(shot.capture.requestNo, shot.capture);
    pipeline::CaptureRecord& known = place->second;
    if (isNew) {
        known.tries.clear();
    }
    pipeline::FrameOutcome outcome = shot.capture.frames.at(shot.index);
    outcome.tryIndex.reset();
    for (pipeline::TryRecord const& attempt : shot.capture.tries) {
        auto const same =
            std::ranges::find(known.tries, attempt.timeNs, &pipeline::TryRecord::timeNs);
        outcome.tryIndex = static_cast<size_t>(same - known.tries.begin());
        if (same == known.tries.end()) {
            known.tries.push_back(attempt);
        }
    }
    known.frames.at(shot.index) = outcome;
    if (mCaptures.size() > kMostCaptures) {
        mCaptures.erase(mCaptures.begin());
    }
}

void CameraShots::show(run::CameraShot const& shot) {
    Shown shown{shot, {}};
    if (shot.picture != nullptr) {
        shown.jpeg = picture::toJpeg(shot.picture->pixels(picture::PixelKind::Rgb, kShownWidth),
                                     kShownQuality);
    }
    shown.shot.picture.reset();
    shown.shot.press.reset();
    LockGuard const lock(mLock);
    mShown.push_front(std::move(shown));
    if (mShown.size() > kMostShown) {
        mShown.pop_back();
    }
}

void CameraShots::copy(run::CameraShot const& shot) {
    std::vector<std::pair<uint32_t, std::shared_ptr<picture::Picture const>>> wanted;
    if (shot.press) {
        wanted.emplace_back(shot.press->frame.frameNo, shot.press->picture);
    }
    for (pipeline::TryRecord const& attempt : shot.capture.tries) {
        for (auto const* const frames : {&attempt.historyFrames, &attempt.lockedFrames}) {
            for (uint32_t const frameNo : *frames) {
                wanted.emplace_back(frameNo, mFrames.pictureOf(frameNo));
            }
        }
    }
    LockGuard const lock(mLock);
    for (auto const& [frameNo, picture] : wanted) {
        if (picture == nullptr || mReported.contains(frameNo) ||
            mReportedBytes > kMostReportedBytes) {
            continue;
        }
        picture::Pixels const pixels = picture->pixels(picture::PixelKind::Rgb, kReportedWidth);
        run::PictureCopy const& made = mReported[frameNo] = {
            picture::toJpeg(pixels, kReportedQuality), pixels.width, pixels.height};
        mReportedBytes += made.jpeg.size();
    }
}

std::optional<std::pair<recording::Recording, run::ReplayResult>> CameraShots::replayOf(
    run::LiveResult const& result) {
    recording::Recording recording = mFrames.recording();
    if (recording.frames.size() < 2) {
        return std::nullopt;
    }
    int64_t const firstNs = recording.frames.front().timestampNs;
    run::ReplayResult replay;
    replay.path = recording.path;
    replay.facts = recording::computeFacts(recording);
    replay.firstTimestampNs = firstNs;
    replay.options = result.options.replay;
    replay.offsetMs = result.offsetMs;
    std::ranges::copy_if(
        result.captures, std::back_inserter(replay.captures),
        [firstNs](pipeline::CaptureRecord const& capture) { return capture.pressNs >= firstNs; });
    replay.summary = run::summarize(replay.captures, result.offsetMs);
    replay.ledger = result.status.ledger;
    replay.unsettled = result.unsettled;
    replay.longestHeldNs = result.longestHeldNs;
    replay.droppedFrames = result.droppedFrames;
    replay.errorLines = result.errorLines;
    replay.failures = result.failures;
    if (result.camera && result.camera->hasBrokenOff) {
        replay.failures.push_back("the camera broke off: " + result.camera->end);
    }
    if (size_t const left = result.captures.size() - replay.captures.size(); left > 0) {
        replay.notes.push_back(
            fmt::format("{} earlier {} left out", left, left == 1 ? "capture is" : "captures are"));
    }
    LockGuard const lock(mLock);
    replay.pictures = std::move(mReported);
    return std::pair(std::move(recording), std::move(replay));
}

std::optional<std::string> CameraShots::shown(uint32_t requestNo, size_t index) const {
    LockGuard const lock(mLock);
    for (Shown const& shown : mShown) {
        if (shown.shot.capture.requestNo == requestNo && shown.shot.index == index &&
            !shown.jpeg.empty()) {
            return shown.jpeg;
        }
    }
    return std::nullopt;
}

std::string CameraShots::state() const {
    using Json = nlohmann::ordered_json;
    picture::CameraFacts const camera = mFrames.facts();
    Json captures = Json::array();
    {
        LockGuard const lock(mLock);
        for (Shown const& shown : mShown) {
            pipeline::CaptureRecord const& capture = shown.shot.capture;
            pipeline::FrameOutcome const& frame = capture.frames.at(shown.shot.index);
            auto const ms = [](std::optional<int64_t> ns) {
                return ns ? Json(static_cast<double>(*ns) / base::NS_PER_MS) : Json(nullptr);
            };
            bool const hasSharpness = frame.chosen && frame.chosen->picture && frame.sharpnessShare;
            captures.push_back(
                {{"requestNo", capture.requestNo},
                 {"index", shown.shot.index},
                 {"served", toString(frame.served)},
                 {"lagMs", ms(capture.lagNs(frame))},
                 {"waitedMs", ms(capture.waitNs(frame))},
                 {"sharpness",
                  hasSharpness ? Json(frame.chosen->picture->sharpness) : Json(nullptr)},
                 {"sharpnessShare", hasSharpness ? Json(*frame.sharpnessShare) : Json(nullptr)},
                 {"hasPicture", !shown.jpeg.empty()}});
        }
    }
    Json const state = {{"source", camera.source},
                        {"end", camera.end.empty() ? Json(nullptr) : Json(camera.end)},
                        {"troubles", report::cameraTroubles(camera)},
                        {"captures", std::move(captures)}};
    return state.dump(-1, ' ', true, Json::error_handler_t::replace);
}

void CameraShots::finish(run::LiveResult& result) {
    LockGuard const lock(mLock);
    std::vector<pipeline::CaptureRecord> kept;
    for (pipeline::CaptureRecord& capture : result.captures) {
        auto const found = mCaptures.find(capture.requestNo);
        if (found == mCaptures.end()) {
            continue;
        }
        pipeline::CaptureRecord& known = found->second;
        capture.pressFrame = known.pressFrame;
        capture.pressPictureFile = known.pressPictureFile;
        capture.tries = std::move(known.tries);
        for (size_t i = 0; i < capture.frames.size(); ++i) {
            pipeline::FrameOutcome& frame = capture.frames[i];
            pipeline::FrameOutcome& shown = known.frames[i];
            // Built and told are the same; what came with the result is the record's.
            shown.resultNs = frame.resultNs;
            shown.reportedNs = frame.reportedNs;
            frame = std::move(shown);
        }
        kept.push_back(std::move(capture));
    }
    result.captures = std::move(kept);
    result.failures.insert(result.failures.end(), mFailures.begin(), mFailures.end());
}

}  // namespace zebcam::tool::commands
