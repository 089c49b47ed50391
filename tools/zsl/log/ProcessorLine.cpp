#include "log/ProcessorLine.h"

#include <algorithm>
#include <utility>

#include "log/PolicyLine.h"

namespace zebcam::tool::log::line {

namespace {

std::vector<std::string> idsOf(std::string_view text) {
    std::vector<std::string> ids;
    while (true) {
        size_t const start = text.find_first_not_of(' ');
        if (start == std::string_view::npos) {
            return ids;
        }
        size_t const end = std::min(text.find(' ', start), text.size());
        ids.emplace_back(text.substr(start, end - start));
        text.remove_prefix(end);
    }
}

TextScan& takeIds(TextScan& scan, std::string_view name, std::vector<std::string>& ids) {
    std::string_view text;
    if (scan.lit(name).lit("{").until("}", text).isGood()) {
        ids = idsOf(text);
    }
    return scan;
}

/// `{ F12 R10 Ts1000 halImage{ 10000000a } halMeta{ } appMeta{ } }`
std::optional<BufferSet> takeSet(TextScan& scan) {
    BufferSet set;
    uint32_t requestNo = 0;
    int64_t timestampNs = 0;
    scan.lit("{ F").num(set.frameNo).lit(" R").num(requestNo).lit(" Ts").num(timestampNs);
    takeIds(scan, " halImage", set.streams.halImages);
    takeIds(scan, " halMeta", set.streams.halMetas);
    takeIds(scan, " appMeta", set.streams.appMetas).lit(" }");
    return scan.isGood() ? std::optional(std::move(set)) : std::nullopt;
}

/// `{ selected={ 0-[F105 addMeta(#0)] } ops={ F103(0) }}`
std::optional<Selection> takeSelection(TextScan& scan) {
    Selection selection;
    scan.lit("{ selected={ ");
    while (scan.isGood() && !scan.has("} ops={ ")) {
        uint64_t index = 0;
        int64_t frameNo = 0;
        size_t metas = 0;
        if (scan.num(index).lit("-[F").num(frameNo).lit(" addMeta(#").num(metas).isGood()) {
            scan.lit(")] ");
            selection.frames[index] =
                frameNo >= 0 ? std::optional(static_cast<uint32_t>(frameNo)) : std::nullopt;
        }
    }
    while (scan.isGood() && !scan.has("}}")) {
        uint32_t frameNo = 0;
        uint32_t order = 0;
        if (scan.lit("F").num(frameNo).lit("(").num(order).lit(") ").isGood() && order <= 2) {
            selection.orders[frameNo] = static_cast<Order::Kind>(order);
        }
    }
    return scan.isGood() ? std::optional(std::move(selection)) : std::nullopt;
}

template <typename Form>
Any selectionAs(TextScan scan) {
    auto selection = takeSelection(scan);
    return selection ? Any(Form{std::move(*selection)}) : Any(Cut());
}

Any parseWanted(std::string_view text) {
    Wanted wanted;
    std::string_view address;
    std::string_view type;
    TextScan scan(text);
    scan.num(wanted.frame.index).lit("-{ required={ ");
    takeIds(scan, "halImages", wanted.frame.streams.halImages);
    takeIds(scan, " halMetas", wanted.frame.streams.halMetas);
    takeIds(scan, " appMetas", wanted.frame.streams.appMetas).lit(" } pFB=");
    if (!scan.until("(", address).until(") }", type).isGood()) {
        return Cut();
    }
    wanted.frame.type = type;
    wanted.isLast = scan.has(" }");
    return scan.isDone() ? Any(std::move(wanted)) : Any(Cut());
}

Any parseBegin(TextScan scan) {
    TryBegin begin;
    std::string_view provider;
    scan.lit("{ requestNo=").num(begin.requestNo).lit(" duration=").num(begin.ageMs);
    scan.lit(" zsdTs=").num(begin.zsdTimestampNs).lit(" pHBP=").until(" vFrameObj=", provider);
    begin.isLast = scan.has(" }");
    return scan.isDone() ? Any(begin) : Any(Cut());
}

Any parseOutFrame(TextScan scan) {
    OutFrame frame;
    if (!scan.has("X")) {
        frame.set = takeSet(scan);
    }
    std::string_view rest;
    bool const isWhole = scan.lit(" pFB=").until(" }", rest).isDone();
    return isWhole ? Any(std::move(frame)) : Any(Cut());
}

Any parseDriver(std::string_view text) {
    TextScan scan(text);
    if (scan.has("IN:")) {
        return parseBegin(scan);
    }
    if (scan.has("selectOut: no need")) {
        return SelectorSkipped();
    }
    if (scan.has("selectOut: ")) {
        return selectionAs<Selected>(scan);
    }
    if (scan.has("pre-selectOut: ")) {
        return selectionAs<EarlierSelection>(scan);
    }
    if (scan.has("{ hbs=")) {
        return parseOutFrame(scan);
    }
    size_t first = 0;
    size_t second = 0;
    if (scan.has("Inflight(Sel#")) {
        return scan.num(first).lit(", Op#").num(second).lit("): ").isGood()
                   ? selectionAs<LeftInFlight>(scan)
                   : Any(Cut());
    }
    if (scan.has("OUT(#")) {
        return scan.num(first).lit("):").isDone() ? Any(OutCount{first}) : Any(Cut());
    }
    std::string_view name;
    if (scan.has("selector(")) {
        scan.until(") historyBuffers(#", name).num(first).lit(") lockedBuffers(#").num(second);
        return scan.lit(")").isDone() ? Any(Selector{name, first, second}) : Any(Cut());
    }
    bool const isKnown = scan.has("Debug1: ") || scan.has("no selector for requestNo:") ||
                         scan.has("duplicate selection!");
    return isKnown ? Any(Uninteresting()) : Any(Cut());
}

Any parseHistory(std::string_view text) {
    BadSet set;
    TextScan scan(text);
    if (scan.has("hbs[F")) {
        return scan.num(set.frameNo).lit("] is problematic").isGood() ? Any(set) : Any(Cut());
    }
    return text.ends_with(": X") ? Any(BadStream{text.substr(0, text.size() - 3)}) : Any(Cut());
}

Any parseOrder(std::string_view text) {
    OrderFate order;
    TextScan scan(text);
    if (scan.has("inflight hbs[F")) {
        order.fate = Order::Fate::InFlight;
    } else {
        scan.lit("cannot find hbs[F");
        order.fate = Order::Fate::NotFound;
    }
    scan.num(order.frameNo).lit("] to ");
    for (auto const& [name, kind] : {std::pair{"lock", Order::Kind::Lock},
                                     {"unlock", Order::Kind::Unlock},
                                     {"release", Order::Kind::Release}}) {
        if (scan.isGood() && scan.rest() == name) {
            order.kind = kind;
            return order;
        }
    }
    return Cut();
}

Any parseHandOver(std::string_view text) {
    HandOverFailed failure;
    TextScan scan(text);
    if (scan.has("get hbs[F") || scan.has("clone hbs[F")) {
        return Uninteresting();
    }
    if (scan.has("cannot get hbs[F")) {
        return scan.num(failure.frameNo).lit("]").isDone() ? Any(failure) : Any(Cut());
    }
    failure.lacksStreams = true;
    scan.lit("hbs[F").num(failure.frameNo).lit("] does not contain");
    return scan.isGood() ? Any(failure) : Any(Cut());
}

Any parseTimeout(std::string_view text) {
    if (text.starts_with("TIMEDOUT: get hbs[F")) {
        return Uninteresting();
    }
    return text == "ZSL TIMED_OUT!" ? Any(TimedOut()) : Any(Cut());
}

Any parseShutter(std::string_view text) {
    EarlyShutter shutter;
    TextScan scan(text);
    if (!scan.has("cb fakeShutter (reqNo:")) {
        return Uninteresting();
    }
    scan.num(shutter.requestNo).lit(", timestamp:").num(shutter.timestampNs);
    return scan.lit(")").isDone() ? Any(shutter) : Any(Cut());
}

Any parseResult(std::string_view text, bool isRetry) {
    Result result;
    size_t count = 0;
    TextScan scan(text);
    scan.lit("[requestNo:").num(result.requestNo).lit("]: ");
    result.isServed = scan.has("success. (");
    if (!result.isServed) {
        scan.lit("fail. (");
    }
    if (isRetry) {
        scan.lit("reqNo:").num(result.requestNo).lit(", ");
    }
    scan.lit("selected:#").num(count).lit(", ");
    if (!result.isServed) {
        size_t remaining = 0;
        scan.lit("preselect:#").num(count).lit(", remaining:#").num(remaining).lit(") => ");
        result.remaining = remaining;
        int64_t shutterNs = 0;
        if (scan.has("add to pending [fakeShutter:") && scan.num(shutterNs).isGood()) {
            result.earlyShutterNs = shutterNs;
        }
    }
    return scan.isGood() ? Any(result) : Any(Cut());
}

Any parseSubmission(std::string_view text) {
    return parseResult(text, false);
}

Any parseRetry(std::string_view text) {
    return parseResult(text, true);
}

Any parseFlush(std::string_view text) {
    TextScan scan(text);
    if (scan.has("[requestNo:")) {
        Flushed flushed;
        return scan.num(flushed.requestNo).lit("]: change pending").isGood() ? Any(flushed)
                                                                             : Any(Cut());
    }
    if (scan.has("bad pFrameBuilder")) {
        return Uninteresting();
    }
    FlushedLocked locked;
    scan.lit("return and release lockedBuffers of [").until("](#", locked.selector);
    return scan.num(locked.sets).lit(")").isDone() ? Any(locked) : Any(Cut());
}

Any parseOther(std::string_view) {
    return Uninteresting();
}

using Parser = Any (*)(std::string_view);

std::map<std::string_view, Parser> const& parsers() {
    static std::map<std::string_view, Parser> const PARSERS{
        {"selectBuf_Locked", parseDriver},
        {"operator()", parseReason},
        {"select", parsePolicy},
        {"isMatched", parseMatch},
        {"containRequiredSensorMode", parseSensorMode},
        {"isAFStable", parseFocus},
        {"getHistoryBuffers", parseHistory},
        {"lockBuffersForSelector", parseOrder},
        {"unlockBuffersForSelector", parseOrder},
        {"releaseBuffersForSelector", parseOrder},
        {"getSelectedHbs", parseHandOver},
        {"getClonedHbs", parseHandOver},
        {"getTimedoutHbs", parseTimeout},
        {"prepareTimedoutParams", parseTimeout},
        {"callbackFakeShutter", parseShutter},
        {"submitZslRequest", parseSubmission},
        {"processZslPendingRequest", parseRetry},
        {"flush", parseFlush},
        {"onFrameUpdated", parseOther},
        {"prepareFrames", parseOther},
        {"prepareSelectedParams", parseOther},
        {"buildFrame_Locked", parseOther},
        {"prepareHalImage", parseOther},
        {"prepareHalMeta", parseOther},
        {"prepareAppMeta", parseOther},
        {"appendAdditionalMeta", parseOther},
        {"createInstance", parseOther},
        {"ZslProcessor", parseOther},
        {"getTimeSource", parseOther},
        {"configure", parseOther},
        {"HistoryLease", parseOther},
        {"~HistoryLease", parseOther},
    };
    return PARSERS;
}

Any parseDump(std::string_view text) {
    TextScan scan(text);
    std::string_view selector;
    if (scan.has("dump locked [")) {
        return scan.until("]", selector).isDone() ? Any(LockedOf{selector}) : Any(Cut());
    }
    if (size_t const at = text.find("{ F"); at != std::string_view::npos) {
        TextScan setScan(text.substr(at));
        if (auto set = takeSet(setScan)) {
            return std::move(*set);
        }
    }
    uint64_t index = 0;
    return TextScan(text).num(index).lit("-{ required=").isGood() ? parseWanted(text)
                                                                  : Any(Unrecognised());
}

}  // namespace

std::string_view withoutSource(std::string_view text) {
    if (!text.ends_with('}')) {
        return text;
    }
    size_t const source = text.rfind("){#");
    size_t const start = source == std::string_view::npos ? source : text.rfind(" (", source);
    return start == std::string_view::npos ? text : text.substr(0, start);
}

Any parse(std::string_view text) {
    text = withoutSource(text);
    TextScan scan(text);
    std::string_view function;
    if (scan.has("[Assert] ") || scan.has("[Fatal] ")) {
        return Uninteresting();
    }
    if (!scan.lit("[").until("] ", function).isGood()) {
        return parseDump(text);
    }
    auto const parser = parsers().find(function);
    if (parser == parsers().end()) {
        return Unrecognised();
    }
    return scan.rest() == "+" || scan.rest() == "-" ? Any(Uninteresting())
                                                    : parser->second(scan.rest());
}

}  // namespace zebcam::tool::log::line
