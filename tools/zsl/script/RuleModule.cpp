// The module `zsl`, of which the rules know captures and frames.

#include <fmt/format.h>
#include <metadata/MetadataTags.h>
#include <policy/zsl/PictureMeasures.h>
#include <policy/zsl/Reasons.h>
#include <policy/zsl/RecordedColumns.h>
#include <pybind11/embed.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <map>
#include <stdexcept>

#include "base/Text.h"
#include "recording/FrameStates.h"
#include "script/RuleCall.h"

namespace py = pybind11;

namespace zebcam::tool::script {

namespace {

using NSCam::IMetadata;
using Streams = std::set<int64_t>;
using SensorModes = std::map<int32_t, int32_t>;

constexpr double kNsPerMs = 1e6;

/// A frame of the history; in Python a `Frame`. Like the call, it outlives what it tells of.
class RuleFrame {
public:
    RuleFrame(std::shared_ptr<RuleCall> call, ISelector::HistoryFrame const& frame)
        : mCall(std::move(call)), mFrame(frame), mNumber(frame.frameNo) {}

    uint32_t number() const { return mNumber; }
    RuleCall const& call() const { return *mCall; }
    ISelector::HistoryFrame const& get() const {
        mCall->in();  // throws when the frame is gone
        mCall->lookAt(mNumber);
        return mFrame;
    }
    /// What the first of the application's results tells that tells it.
    template <typename T>
    std::optional<T> app(IMetadata::Tag tag) const {
        return find<T>(get().appMetas, tag);
    }
    template <typename T>
    std::optional<T> hal(IMetadata::Tag tag) const {
        return find<T>(get().halMetas, tag);
    }

private:
    template <typename T>
    static std::optional<T> find(ISelector::MetaMap const& metas, IMetadata::Tag tag) {
        for (auto const& [info, metadata] : metas) {
            if (metadata == nullptr) {
                continue;
            }
            IMetadata::IEntry const entry = metadata->entryFor(tag);
            if (!entry.isEmpty()) {
                return entry.itemAt(0, NSCam::Type2Type<T>());
            }
        }
        return std::nullopt;
    }

    std::shared_ptr<RuleCall> mCall;
    ISelector::HistoryFrame const& mFrame;
    uint32_t mNumber;
};

/// A frame that the capture wants; in Python a `Wanted`.
struct WantedFrame {
    uint64_t index;
    NSCam::ZslPolicy::RequiredStreams streams;
    SensorModes sensorModes;
};

double msBetween(int64_t fromNs, int64_t toNs) {
    // Not of integers: the times of broken frames may be anything, and a difference may overflow.
    return (static_cast<double>(toNs) - static_cast<double>(fromNs)) / kNsPerMs;
}

int64_t pressNs(RuleCall const& call) {
    // As the processor's own sum, it wraps around.
    return static_cast<int64_t>(static_cast<uint64_t>(call.in().zsdTs) +
                                static_cast<uint64_t>(call.settings().offsetMs) *
                                    static_cast<uint64_t>(base::NS_PER_MS));
}

std::string typeName(py::handle object) {
    return py::str(py::type::of(object).attr("__name__"));
}

std::optional<uint32_t> numberOf(py::handle frame) {
    if (py::isinstance<RuleFrame>(frame)) {
        return frame.cast<RuleFrame const&>().number();
    }
    // Python's truth values are numbers to it; here they are slips.
    if (!py::isinstance<py::int_>(frame) || py::isinstance<py::bool_>(frame)) {
        return std::nullopt;
    }
    try {
        return frame.cast<uint32_t>();
    } catch (py::cast_error const&) {
        return std::nullopt;
    }
}

std::string describe(RuleFrame const& frame) {
    return fmt::format("<Frame {}, {:+.1f} ms from the wanted instant>", frame.number(),
                       msBetween(frame.call().in().zsdTs, frame.get().timestamp));
}

std::vector<WantedFrame> wantedFrames(RuleCall const& call) {
    std::vector<WantedFrame> wanted;
    for (auto const& [index, info] : call.in().frameInfos) {
        WantedFrame& frame = wanted.emplace_back(WantedFrame{index, *info.requiredStreams, {}});
        for (auto const& [sensor, mode] : *info.requiredSensorModes) {
            frame.sensorModes[static_cast<int32_t>(sensor)] = static_cast<int32_t>(mode);
        }
    }
    return wanted;
}

Streams metaStreams(ISelector::MetaMap const& metas) {
    Streams ids;
    for (auto const& [info, metadata] : metas) {
        ids.insert(info->getStreamId());
    }
    return ids;
}

Streams imageStreams(RuleFrame const& frame) {
    Streams ids;
    for (auto const* info : frame.get().halImages) {
        ids.insert(info->getStreamId());
    }
    return ids;
}

bool isReadable(RuleFrame const& frame) {
    auto const isThere = [](auto const& entry) { return entry.second != nullptr; };
    auto const& [app, hal] = std::tie(frame.get().appMetas, frame.get().halMetas);
    return std::all_of(app.begin(), app.end(), isThere) &&
           std::all_of(hal.begin(), hal.end(), isThere);
}

SensorModes sensorModes(RuleFrame const& frame) {
    SensorModes modes;
    for (auto const& [info, metadata] : frame.get().halMetas) {
        if (metadata == nullptr) {
            continue;
        }
        auto const sensor = metadata->entryFor(NSCam::ZEB_HAL_REQUEST_SENSOR_ID);
        auto const mode = metadata->entryFor(NSCam::ZEB_P1NODE_SENSOR_MODE);
        if (!sensor.isEmpty() && !mode.isEmpty()) {
            NSCam::Type2Type<int32_t> const type;
            modes[sensor.itemAt(0, type)] = mode.itemAt(0, type);
        }
    }
    return modes;
}

std::optional<double> recordedColumn(RuleFrame const& frame, std::string const& name) {
    return NSCam::ZslPolicy::recordedColumn(frame.get().appMetas, name);
}

std::optional<double> sharpness(RuleFrame const& frame) {
    std::optional<double> const measured = frame.app<float>(NSCam::ZslPolicy::PICTURE_SHARPNESS);
    return measured ? measured : recordedColumn(frame, "Sharpness");
}

/// Android's word for the state under `Tag`.
template <IMetadata::Tag Tag, std::string (*Name)(uint8_t)>
std::optional<std::string> state(RuleFrame const& frame) {
    auto const value = frame.app<uint8_t>(Tag);
    return value ? std::optional(Name(*value)) : std::nullopt;
}

template <IMetadata::Tag Tag, typename T>
std::optional<T> appValue(RuleFrame const& frame) {
    return frame.app<T>(Tag);
}

/// Whether the number under `Tag` is `Good`.
template <IMetadata::Tag Tag, typename T, T Good>
std::optional<bool> halState(RuleFrame const& frame) {
    auto const value = frame.hal<T>(Tag);
    return value ? std::optional(*value == Good) : std::nullopt;
}

void bindFrame(py::module_& module) {
    namespace zsl = NSCam::ZslPolicy;
    using namespace NSCam;
    py::class_<RuleFrame>(module, "Frame")
        .def("__repr__", describe)
        .def_property_readonly("number", &RuleFrame::number)
        .def_property_readonly("request", [](RuleFrame const& f) { return f.get().requestNo; })
        .def_property_readonly("timestamp_ns", [](RuleFrame const& f) { return f.get().timestamp; })
        .def_property_readonly(
            "from_wanted_ms",
            [](RuleFrame const& f) { return msBetween(f.call().in().zsdTs, f.get().timestamp); })
        .def_property_readonly(
            "lag_ms",
            [](RuleFrame const& f) { return msBetween(pressNs(f.call()), f.get().timestamp); })
        .def_property_readonly("exposure_ns", appValue<ANDROID_SENSOR_EXPOSURE_TIME, int64_t>)
        .def_property_readonly("iso", appValue<ANDROID_SENSOR_SENSITIVITY, int32_t>)
        .def_property_readonly("focus_distance", appValue<ANDROID_LENS_FOCUS_DISTANCE, float>)
        .def_property_readonly("af_mode", state<ANDROID_CONTROL_AF_MODE, recording::afModeName>)
        .def_property_readonly("af_state", state<ANDROID_CONTROL_AF_STATE, recording::afStateName>)
        .def_property_readonly("lens_state", state<ANDROID_LENS_STATE, recording::lensStateName>)
        .def_property_readonly("is_exposure_settled", halState<ZEB_3A_AE_SOFT_STABLE, int32_t, 1>)
        .def_property_readonly("is_synchronised", halState<ZEB_FRAME_SYNC_RESULT, int64_t, 0>)
        .def_property_readonly("sharpness", sharpness)
        .def_property_readonly("motion", appValue<zsl::PICTURE_MOTION, float>)
        .def_property_readonly("brightness", appValue<zsl::PICTURE_BRIGHTNESS, float>)
        .def_property_readonly("clipped", appValue<zsl::PICTURE_CLIPPED, float>)
        .def_property_readonly("images", imageStreams)
        .def_property_readonly("hal_results",
                               [](RuleFrame const& f) { return metaStreams(f.get().halMetas); })
        .def_property_readonly("app_results",
                               [](RuleFrame const& f) { return metaStreams(f.get().appMetas); })
        .def_property_readonly("sensor_modes", sensorModes)
        .def_property_readonly("is_readable", isReadable)
        .def_property_readonly("is_locked", [](RuleFrame const& f) { return f.get().isLocked; })
        .def("column", recordedColumn, py::arg("name"));
}

void bindCapture(py::module_& module) {
    py::class_<WantedFrame>(module, "Wanted")
        .def_readonly("index", &WantedFrame::index)
        .def_property_readonly("images", [](WantedFrame const& w) { return w.streams.halImages; })
        .def_property_readonly("hal_results",
                               [](WantedFrame const& w) { return w.streams.halMetas; })
        .def_property_readonly("app_results",
                               [](WantedFrame const& w) { return w.streams.appMetas; })
        .def_readonly("sensor_modes", &WantedFrame::sensorModes);

    using Out = ISelector::SelectOutputParams;
    auto const order = [](Out::OpT op) {
        return [op](RuleCall& call, py::handle frame) { call.order(frame, op); };
    };
    py::class_<RuleCall, std::shared_ptr<RuleCall>>(module, "Capture")
        .def_property_readonly("number", [](RuleCall const& c) { return c.in().requestNo; })
        .def_property_readonly("age_ms", [](RuleCall const& c) { return c.in().durationMs; })
        .def_property_readonly("timeout_ms",
                               [](RuleCall const& c) { return c.settings().timeoutMs; })
        .def_property_readonly("offset_ms", [](RuleCall const& c) { return c.settings().offsetMs; })
        .def_property_readonly("wanted_ns", [](RuleCall const& c) { return c.in().zsdTs; })
        .def_property_readonly("press_ns", pressNs)
        .def_property_readonly("wanted", wantedFrames)
        .def_property_readonly("needs_sync", [](RuleCall const& c) { return c.in().needFrameSync; })
        .def_property_readonly("in_flight",
                               [](RuleCall const& c) {
                                   std::vector<uint32_t> numbers;
                                   for (auto const& info : c.in().inflightInfos) {
                                       numbers.push_back(info.frameNo);
                                   }
                                   return numbers;
                               })
        .def("reject", &RuleCall::reject, py::arg("frame"), py::arg("criterion"),
             py::arg("found") = "passed over")
        .def("lock", order(Out::LOCK), py::arg("frame"))
        .def("unlock", order(Out::UNLOCK), py::arg("frame"))
        .def("release", order(Out::RELEASE), py::arg("frame"))
        .def("clone", &RuleCall::clone, py::arg("frame"));
}

std::string textOf(py::handle object) {
    return py::str(object);
}

/// `text` as a value of the default's type. Throws ValueError, which says what was expected.
py::object parse(std::string const& name, std::string const& text, py::handle byDefault,
                 py::handle least, py::handle most, py::handle words) {
    auto const refuse = [&](std::string const& expected) {
        throw py::value_error(fmt::format("option {}: expected {}, found {}", name, expected,
                                          base::quoteContent(text)));
    };
    py::str value(text);
    if (!words.is_none()) {
        if (!py::bool_(words.attr("__contains__")(value))) {
            refuse("one of " + textOf(py::str(", ").attr("join")(words)));
        }
        return value;
    }
    if (py::isinstance<py::str>(byDefault)) {
        return value;
    }
    bool const isWhole = py::isinstance<py::int_>(byDefault);
    std::string expected = isWhole ? "a whole number" : "a number";
    if (!least.is_none() || !most.is_none()) {
        expected += " from " + textOf(least) + " to " + textOf(most);
    }
    py::object number;
    try {
        number = isWhole ? py::object(py::int_(value)) : py::object(py::float_(value));
    } catch (py::error_already_set const&) {
        refuse(expected);
    }
    // What is no number compares with none, also not with itself.
    if (!number.equal(number) || (!least.is_none() && number < least) ||
        (!most.is_none() && number > most)) {
        refuse(expected);
    }
    return number;
}

py::object option(std::string const& name, py::object const& byDefault, py::handle least,
                  py::handle most, py::handle words) {
    OptionSource* const source = OptionSource::current();
    if (source == nullptr) {
        throw std::runtime_error("zsl.option() is for the top level of a rule's file");
    }
    source->names.push_back(name);
    auto const text = source->settings.option(name);
    return text ? parse(name, *text, byDefault, least, most, words) : byDefault;
}

}  // namespace

PYBIND11_EMBEDDED_MODULE(zsl, module) {
    module.attr("NO_FRAME") = ISelector::ZslFrameResult::NO_FRAME;
    bindFrame(module);
    bindCapture(module);
    module.def("option", option, py::arg("name"), py::arg("default"), py::kw_only(),
               py::arg("least") = py::none(), py::arg("most") = py::none(),
               py::arg("words") = py::none());
}

OptionSource*& OptionSource::current() {
    static OptionSource* source = nullptr;
    return source;
}

RuleCall::In const& RuleCall::in() const {
    if (mIn == nullptr) {
        throw std::runtime_error("captures and frames can be asked during choose() only");
    }
    return *mIn;
}

py::list RuleCall::frames() {
    py::list frames;
    for (auto const& [frameNo, frame] : in().historyFrames) {
        frames.append(RuleFrame(shared_from_this(), frame));
    }
    return frames;
}

std::string RuleCall::place() const {
    return fmt::format("capture {}{}", in().requestNo,
                       mLookedAt ? fmt::format(", frame {}", *mLookedAt) : "");
}

uint32_t RuleCall::knownFrame(py::handle frame) const {
    auto const number = numberOf(frame);
    if (!number) {
        throw py::type_error("expected a frame or its number, found " +
                             std::string(py::repr(frame)));
    }
    auto const& flying = in().inflightInfos;
    bool const isFlying = std::any_of(flying.begin(), flying.end(),
                                      [&](auto const& info) { return info.frameNo == *number; });
    if (!isFlying && in().historyFrames.count(*number) == 0) {
        throw py::value_error(
            fmt::format("frame {} is neither in the history nor in flight", *number));
    }
    return *number;
}

void RuleCall::reject(py::handle frame, std::string const& criterion, py::handle found) const {
    auto const history = in().historyFrames.find(knownFrame(frame));
    if (history == in().historyFrames.end()) {
        throw py::value_error(
            fmt::format("frame {} is in flight: what is refused of it?", *numberOf(frame)));
    }
    constexpr size_t LONGEST = 40;  // as NSCam::ZslPolicy::reject has it
    if (criterion.empty() || criterion.size() > LONGEST || criterion.front() == ' ' ||
        criterion.find_first_of(":\n") != std::string::npos) {
        throw py::value_error(
            fmt::format("expected a criterion of 1 to {} characters without a colon, found {}",
                        LONGEST, base::quoteContent(criterion)));
    }
    NSCam::ZslPolicy::reject(mPolicy, in(), history->second, criterion.c_str(),
                             base::printable(py::str(found).cast<std::string>()));
}

void RuleCall::order(py::handle frame, Out::OpT order) {
    mOut.ops[knownFrame(frame)] = order;
}

void RuleCall::clone(py::handle frame) {
    mClones.insert(knownFrame(frame));
}

RuleCall::Out RuleCall::answer(py::handle returned) {
    std::vector<py::handle> chosen;
    if (py::isinstance<py::list>(returned) || py::isinstance<py::tuple>(returned)) {
        chosen.assign(returned.begin(), returned.end());
    } else {
        chosen.push_back(returned);
    }
    if (chosen.size() > in().frameInfos.size()) {
        throw std::runtime_error(fmt::format("returned {} frames, but {} are wanted", chosen.size(),
                                             in().frameInfos.size()));
    }
    auto wanted = in().frameInfos.begin();
    std::set<uint32_t> taken;
    for (py::handle const frame : chosen) {
        uint64_t const index = (wanted++)->first;
        if (frame.is_none()) {
            continue;  // it waits
        }
        if (!numberOf(frame)) {
            throw std::runtime_error(
                fmt::format("returned {}: expected a frame, its number, a list of them, or None",
                            typeName(returned)));
        }
        uint32_t const number = *numberOf(frame);
        bool const isClone = mClones.count(number) > 0;
        if (number != ISelector::ZslFrameResult::NO_FRAME) {
            knownFrame(frame);
            if (!taken.insert(number).second && !isClone) {
                throw std::runtime_error(
                    fmt::format("returned frame {} twice, without capture.clone()", number));
            }
        }
        mOut.selected[index] = {number, isClone, {}};
    }
    return std::move(mOut);
}

}  // namespace zebcam::tool::script
