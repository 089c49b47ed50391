#include "log/ProcessorLine.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>
#include <limits>
#include <utility>

#include "base/Text.h"

namespace zebcam::tool::log {

namespace {

using Kind = ProcessorLine::Kind;

/// The lines that the processor and its policies write, as base::match() reads them. The first form
/// that fits counts. A line that no form fits is cut if one begins with the same function.
constexpr auto FORMS = std::to_array<std::pair<Kind, std::string_view>>({
    {Kind::TryBegin,
     "[selectBuf_Locked] IN:{ requestNo=<request> duration=<age> zsdTs=<zsd> pHBP=<provider> "
     "vFrameObj=<last>"},
    {Kind::Wanted,
     "<index>-{ required={ halImages{<images>} halMetas{<halMetas>} appMetas{<appMetas>} } "
     "pFB=<builder>(<name>) }<last>"},
    // Long inputs lose their end. Only here and below is a line that begins alike nothing else.
    {Kind::Cut, "<index>-{ required=<>"},
    {Kind::BadStream, "[getHistoryBuffers] <name>: X"},
    {Kind::PureRaw, "[isMatched] [isPDPureRaw] tag(<>) val=<found> target=<wanted> bc=<>"},
    {Kind::NotRaw, "[isMatched] [isPDPureRaw] tag(<>) not found!<>"},
    {Kind::BadSet, "[getHistoryBuffers] hbs[F<frame>] is problematic<>"},
    {Kind::Selector,
     "[selectBuf_Locked] selector(<selector>) historyBuffers(#<sets>) lockedBuffers(#<locked>)"},

    {Kind::SensorModes,
     "[containRequiredSensorMode] cannot find required sensor<> : history = {<found>}, "
     "required = {<wanted>}<>"},
    {Kind::Uninteresting, "[containRequiredSensorMode] requiredSensorMode ok<>"},
    {Kind::MissingTag, "[containRequiredSensorMode] tag(<>) <name> not found!"},
    {Kind::MissingTag, "[containRequiredSensorMode] tag(<name>) not found!"},
    {Kind::AssumedGood, "[isMatched] [<function>] tag(<name>) not found!<>"},
    {Kind::TagValue, "[isMatched] [<function>] tag(<>) val=<found> target=<wanted> bc=<>"},
    {Kind::MissingTag, "[isAFStable] tag(<name>) not found!<>"},
    {Kind::FocusLetPass, "[isAFStable] AF fail: <found> but result<>"},
    {Kind::Uninteresting, "[isAFStable] AF ok: <>"},
    {Kind::TimeRefusal,
     "[operator()] [<selector>] hbs[F<frame>] Ts(<timestamp>) > zsd(<zsd>), shutterDelay=<age>ms "
     "X"},
    {Kind::Refusal, "[operator()] [<selector>] hbs[F<frame>] <function> X"},
    {Kind::FailedStream, "[operator()] <name>: X"},
    {Kind::Uninteresting, "[operator()] cannot lock metadata"},

    {Kind::UsesLatest, "[select] [<selector>] future ts, use latest"},
    {Kind::Taken, "[select] [<selector>] zslReqNo(<request>) hbs[F<frame>] O => select"},
    {Kind::NotTaken, "[select] [<selector>] zslReqNo(<request>) hbs[F<frame>] X"},
    {Kind::StartsOver,
     "[select] [<selector>] zslReqNo(<request>) hbs[F<frame>] X => break continuous, start over"},
    {Kind::Rejected,
     "[select] [<selector>] zslReqNo(<request>) hbs[F<frame>] X => <function>: <found>"},
    {Kind::PolicyBegin, "[select] [<selector>] zslReqNo(<request>) frameSize(<>"},
    {Kind::PolicyEnd,
     "[select] [<selector>] zslReqNo(<request>) durationMs(<age>) #select(<sets>/<>"},
    {Kind::EmptyHistory, "[select] [<selector>] zslReqNo(<request>) durationMs(<age>) hfs(<>"},

    {Kind::SelectorSkipped, "[selectBuf_Locked] selectOut: no need<>"},
    {Kind::Selected, "[selectBuf_Locked] selectOut: <selection>"},
    {Kind::EarlierSelection, "[selectBuf_Locked] pre-selectOut: <selection>"},
    {Kind::OrderInFlight, "[lockBuffersForSelector] inflight hbs[F<frame>] to <order>"},
    {Kind::OrderInFlight, "[unlockBuffersForSelector] inflight hbs[F<frame>] to <order>"},
    {Kind::OrderInFlight, "[releaseBuffersForSelector] inflight hbs[F<frame>] to <order>"},
    {Kind::OrderNotFound, "[lockBuffersForSelector] cannot find hbs[F<frame>] to <order>"},
    {Kind::OrderNotFound, "[unlockBuffersForSelector] cannot find hbs[F<frame>] to <order>"},
    {Kind::OrderNotFound, "[releaseBuffersForSelector] cannot find hbs[F<frame>] to <order>"},
    {Kind::NotInHistory, "[getSelectedHbs] cannot get hbs[F<frame>]"},
    {Kind::NotInHistory, "[getClonedHbs] cannot get hbs[F<frame>]"},
    {Kind::LacksStreams, "[getSelectedHbs] hbs[F<frame>] does not contain<>"},
    {Kind::LacksStreams, "[getClonedHbs] hbs[F<frame>] does not contain<>"},
    {Kind::Uninteresting, "[getSelectedHbs] get hbs[F<>"},
    {Kind::Uninteresting, "[getClonedHbs] clone hbs[F<>"},
    {Kind::TimedOut, "[prepareTimedoutParams] ZSL TIMED_OUT!"},
    {Kind::Uninteresting, "[getTimedoutHbs] TIMEDOUT: get hbs[F<>"},
    {Kind::OutCount, "[selectBuf_Locked] OUT(#<sets>):"},
    {Kind::OutFrame, "[selectBuf_Locked] { hbs={ F<frame> <>} pFB=<> }"},
    {Kind::OutNoHistory, "[selectBuf_Locked] { hbs=X pFB=<> }"},
    {Kind::LeftInFlight, "[selectBuf_Locked] Inflight(Sel#<>, Op#<>): <selection>"},
    {Kind::Uninteresting, "[selectBuf_Locked] Debug1: <>"},
    {Kind::Uninteresting, "[selectBuf_Locked] no selector for requestNo:<>"},
    {Kind::Uninteresting, "[selectBuf_Locked] duplicate selection!<>"},
    {Kind::LockedOf, "dump locked [<selector>]"},
    {Kind::Cut, "dump locked [<>"},
    {Kind::BufferSet,
     "<>{ F<frame> R<> Ts<> halImage{<images>} halMeta{<halMetas>} appMeta{<appMetas>} }<>"},

    {Kind::StreamName, "[prepareHalImage] reset (0x<images>:<name>)-><>"},
    {Kind::StreamName, "[prepareHalMeta] prepare (0x<images>:<name>)<>"},
    {Kind::StreamName, "[prepareAppMeta] prepare (0x<images>:<name>)<>"},
    {Kind::ProviderFlight, "  in flight: <found>"},
    {Kind::ProviderDump, "  here: <>"},
    {Kind::ProviderDump, "  out: F<frame> <>"},
    {Kind::ProviderDump, "  lost: F<frame> <>"},
    {Kind::ProviderDump, "<name>: capacity <sets>, dropped <sets>"},

    {Kind::EarlyShutter,
     "[callbackFakeShutter] cb fakeShutter (reqNo:<request>, timestamp:"
     "<timestamp>)"},
    {Kind::Cut, "[callbackFakeShutter] cb fakeShutter<>"},
    {Kind::Served, "[submitZslRequest] [requestNo:<request>]: success. (selected:#<>, <>"},
    {Kind::Waiting,
     "[submitZslRequest] [requestNo:<request>]: fail. (selected:#<>, preselect:#<>, "
     "remaining:#<sets>) => add to pending [fakeShutter:<timestamp>;<>"},
    {Kind::Served,
     "[processZslPendingRequest] [requestNo:<>]: success. (reqNo:<request>, selected:#<>, <>"},
    {Kind::Waiting,
     "[processZslPendingRequest] [requestNo:<>]: fail. (reqNo:<request>, selected:#<>, "
     "preselect:#<>, remaining:#<sets>) => <>"},
    {Kind::Flushed, "[flush] [requestNo:<request>]: change pending<>"},
    {Kind::FlushReturn, "[flush] return and release lockedBuffers of [<selector>](#<sets>)"},
    {Kind::Uninteresting, "[flush] bad pFrameBuilder<>"},

    {Kind::Uninteresting, "[callbackFakeShutter] <>"},
    {Kind::Uninteresting, "[onFrameUpdated] <>"},
    {Kind::Uninteresting, "[prepareFrames] <>"},
    {Kind::Uninteresting, "[prepareSelectedParams] <>"},
    {Kind::Uninteresting, "[buildFrame_Locked] <>"},
    {Kind::Uninteresting, "[prepareHalImage] <>"},
    {Kind::Uninteresting, "[prepareHalMeta] <>"},
    {Kind::Uninteresting, "[prepareAppMeta] <>"},
    {Kind::Uninteresting, "[appendAdditionalMeta] <>"},
    {Kind::Uninteresting, "[createInstance] <>"},
    {Kind::Uninteresting, "[ZslProcessor] <>"},
    {Kind::Uninteresting, "[getTimeSource] <>"},
    {Kind::Uninteresting, "[configure] <>"},
    {Kind::Uninteresting, "[HistoryLease] <>"},
    {Kind::Uninteresting, "[~HistoryLease] <>"},

    // Of any function: where an operation begins and ends, and what somebody else threw.
    {Kind::Uninteresting, "[<function>] +"},
    {Kind::Uninteresting, "[<function>] -"},
    {Kind::Uninteresting, "[<function>] [requestNo:<>]: exception of <>"},
    {Kind::Uninteresting, "[Assert] <>"},
    {Kind::Uninteresting, "[Fatal] <>"},
});

std::vector<std::string> idsOf(std::string_view text) {
    std::vector<std::string> ids;
    size_t begin = text.find_first_not_of(' ');
    while (begin != std::string_view::npos) {
        size_t const end = std::min(text.find(' ', begin), text.size());
        ids.emplace_back(text.substr(begin, end - begin));
        begin = text.find_first_not_of(' ', end);
    }
    return ids;
}

/// Reads `{ selected={ 0-[F105 addMeta(#0)] } ops={ F103(0) }}`; false when it is something else.
bool readSelection(std::string_view text, Selection& selection) {
    std::string_view frames;
    std::string_view orders;
    uint64_t index = 0;
    int64_t frameNo = 0;
    uint64_t order = 0;
    base::FormFields const fields = {{"frames", &frames},
                                     {"orders", &orders},
                                     {"index", &index},
                                     {"frame", &frameNo},
                                     {"order", &order}};
    constexpr int64_t LOWEST = std::numeric_limits<int32_t>::min();
    // Each pass below takes an entry off the front and leaves the rest in the field of its name.
    if (!base::match(text, "{ selected={ <frames>} ops={ <orders>}}", fields)) {
        return false;
    }
    while (!frames.empty()) {
        if (!base::match(frames, "<index>-[F<frame> addMeta(#<>)] <frames>", fields) ||
            frameNo < LOWEST || frameNo > UINT32_MAX) {
            return false;
        }
        // Numbers are printed with a sign, from 2^31 up as negative ones; -1 stands for a frame
        // that is to be built without a history frame.
        selection.frames[index] =
            frameNo != -1 ? std::optional(static_cast<uint32_t>(frameNo)) : std::nullopt;
    }
    while (!orders.empty()) {
        if (!base::match(orders, "F<frame>(<order>) <orders>", fields) || order > 2) {
            return false;
        }
        selection.orders[static_cast<uint32_t>(frameNo)] = static_cast<Order::Kind>(order);
    }
    return true;
}

/// A criterion of a policy that is newer than this tool has a name like the others.
bool isFunctionName(std::string_view text) {
    constexpr size_t LONGEST = 60;
    return !text.empty() && text.size() <= LONGEST &&
           std::all_of(text.begin(), text.end(),
                       [](unsigned char c) { return std::isalnum(c) != 0 || c == '_'; });
}

/// A library's policy names its criteria for people, with blanks too.
bool isCriterionName(std::string_view text) {
    constexpr size_t LONGEST = 40;
    return !text.empty() && text.size() <= LONGEST && text.find_first_not_of(' ') == 0;
}

/// Looks at what is more than a number or a text; `rest` ends the line.
bool readRest(ProcessorLine& line, std::string_view rest) {
    switch (line.kind) {
        case Kind::TryBegin:
        case Kind::Wanted:
            line.isLast = rest == " }";
            return line.isLast || rest.empty();
        case Kind::Selected:
        case Kind::EarlierSelection:
        case Kind::LeftInFlight:
            return readSelection(rest, line.selection);
        case Kind::OrderInFlight:
        case Kind::OrderNotFound:
            for (auto const kind : {Order::Kind::Lock, Order::Kind::Unlock, Order::Kind::Release}) {
                if (rest == toString(kind)) {
                    line.order = kind;
                    return true;
                }
            }
            return false;
        case Kind::Refusal:
            return isFunctionName(line.function);
        case Kind::Rejected:
            return isCriterionName(line.function);
        default:
            return true;
    }
}

}  // namespace

StreamList ProcessorLine::streams() const {
    return {idsOf(halImages), idsOf(halMetas), idsOf(appMetas)};
}

std::vector<uint32_t> ProcessorLine::frames() const {
    std::vector<uint32_t> numbers;
    for (std::string const& text : idsOf(found)) {
        uint32_t number = 0;
        if (base::match(text, "F<number>", {{"number", &number}})) {
            numbers.push_back(number);
        }
    }
    return numbers;
}

std::string_view withoutSource(std::string_view text) {
    if (!text.ends_with('}')) {
        return text;
    }
    // From the right: the line's own text may have braces too.
    size_t const source = text.rfind("){#");
    size_t const start = source == std::string_view::npos ? source : text.rfind(" (", source);
    return start == std::string_view::npos ? text : text.substr(0, start);
}

ProcessorLine parseProcessorLine(std::string_view text) {
    text = withoutSource(text);
    ProcessorLine line;
    std::string_view rest;
    base::FormFields const fields = {{"request", &line.requestNo},
                                     {"frame", &line.frameNo},
                                     {"index", &line.index},
                                     {"sets", &line.sets},
                                     {"locked", &line.lockedSets},
                                     {"age", &line.ageMs},
                                     {"timestamp", &line.timestampNs},
                                     {"zsd", &line.zsdTimestampNs},
                                     {"selector", &line.selector},
                                     {"function", &line.function},
                                     {"name", &line.name},
                                     {"found", &line.found},
                                     {"wanted", &line.wanted},
                                     {"images", &line.halImages},
                                     {"halMetas", &line.halMetas},
                                     {"appMetas", &line.appMetas},
                                     {"selection", &rest},
                                     {"order", &rest},
                                     {"last", &rest}};
    // Most lines begin with a function in brackets, dumps do not. To know which saves most of the
    // work, and keeps a set that somebody else prints in a line from being taken for a dump.
    size_t const nameEnd = text.starts_with('[') ? text.find("] ") : std::string_view::npos;
    bool const hasFunction = nameEnd != std::string_view::npos;
    std::string_view const function = hasFunction ? text.substr(0, nameEnd + 1) : "";
    bool isKnown = false;
    for (auto const& [kind, form] : FORMS) {
        // Two bytes tell most of them apart: the forms are many, and so are the lines.
        bool const isOfAny = form.starts_with("[<");
        if (form.starts_with('[') != hasFunction ||
            (hasFunction && !isOfAny && !form.starts_with(function))) {
            continue;
        }
        line.kind = kind;
        if (base::match(text, form, fields) && readRest(line, rest)) {
            return line;
        }
        isKnown = isKnown || (hasFunction && !isOfAny);
    }
    line.kind = isKnown ? Kind::Cut : Kind::Unrecognised;
    return line;
}

}  // namespace zebcam::tool::log
