#pragma once

#include <rapidcheck.h>

#include <array>
#include <cstdint>
#include <ostream>
#include <string_view>
#include <vector>

/// What may happen to a processor, as values that can be generated, shrunk and printed. Numbers
/// that choose among what is there ("the n-th") wrap around, so that every order makes sense.
namespace zebcam::test {

enum class Fault : uint8_t {
    // of a sensor frame
    ImageError,
    MissingImage,
    MissingMeta,
    MissingTags,
    AbsurdTags,
    AbsurdTime,
    UnlockableMeta,
    NullBuffer,
    // of a capture
    NoBuilder,
    NoSettings,
    NoProvider,
    DummyFrame,
    UnlockableControl,
    // of a policy
    Throws,
    ThrowsOnce,
    NameThrows,
    // of a result
    UnlockableResult,
    NullResult,
    // of the surroundings
    NoHistory,
    CallbackThrows,
    CallbackGone,
    NeverComes,
    // found in a policy's answers
    UnknownFrame,
    SameFrameTwice,
    OrderWithoutFrame,
    UnknownStream,
};
inline constexpr std::array FAULT_NAMES{
    "image error",         "missing image", "missing metadata", "missing tags",
    "absurd tags",         "absurd time",   "unlockable",       "null buffer",
    "no builder",          "no settings",   "no provider",      "dummy frame",
    "unlockable control",  "throws",        "throws once",      "name throws",
    "unlockable result",   "null result",   "no history",       "callback throws",
    "callback gone",       "never comes",   "unknown frame",    "same frame twice",
    "order without frame", "unknown stream"};
using Faults = std::vector<Fault>;
bool has(Faults const& faults, Fault fault);

enum class From : uint8_t { History, InFlight, Unknown, None, Skip };  ///< Skip: no answer

/// A policy's choice for one frame, or the target of its order.
struct Pick {
    From from = From::History;
    uint32_t n = 0;
    bool clone = false;
    uint32_t meta = 0;  ///< additional metadata: 0 none, 1 known, 2 unknown stream, 3 null
};
struct Order {
    uint32_t op = 0;  ///< SelectOutputParams::OpT
    Pick target;
};

enum class Policy : uint8_t { Default, CShot, Multiframe, Given };

struct FrameSpec {
    uint32_t ageMs = 0;  ///< exposed so long ago
    bool hasYuv = false;
    bool isPureRaw = false;
};

struct CaptureSpec {
    Policy policy = Policy::Default;
    std::vector<uint32_t> required;  ///< a set of bits for each frame: RAW, YUV, HAL, APP
    uint32_t timeoutMs = 0;
    bool frameSync = false;
    bool checkPureRaw = false;
    uint32_t sensorMode = 0;  ///< 0: any, 1: the frames' mode, 2: another
    // of a given policy
    uint32_t name = 0;
    std::vector<Pick> picks;
    std::vector<Order> orders;
};

enum class Kind : uint8_t {
    Submit,
    Announce,
    Arrive,
    Cancel,
    Retry,
    Result,
    Configure,
    Dump,
    Flush,
    Pass,
    History,
    Callback,
    Finish,
};
inline constexpr std::array KIND_NAMES{"submit",  "announce",  "arrive", "cancel", "retry",
                                       "result",  "configure", "dump",   "flush",  "pass",
                                       "history", "callback",  "finish"};

struct Event {
    Kind kind = Kind::Retry;
    uint32_t n = 0;  ///< which one, or ms for Pass, or how for Configure, History and Callback
    CaptureSpec capture;
    FrameSpec frame;
    Faults faults;
};

struct Events {
    std::vector<Event> list;
};
std::ostream& operator<<(std::ostream& out, Event const& event);
std::ostream& operator<<(std::ostream& out, Events const& events);  ///< a line an event

rc::Gen<Events> anyEvents();

}  // namespace zebcam::test
