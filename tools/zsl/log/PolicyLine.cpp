#include "log/PolicyLine.h"

#include <algorithm>
#include <array>
#include <utility>

#include "log/ProcessorLine.h"

namespace zebcam::tool::log::line {

namespace {

Criterion criterionOf(std::string_view function) {
    constexpr std::array<std::pair<std::string_view, Criterion>, 5> CRITERIA{{
        {"containsRequiredStreamBuffer", Criterion::Streams},
        {"containRequiredSensorMode", Criterion::SensorMode},
        {"isAFStable", Criterion::Focus},
        {"isAESoftStable", Criterion::Exposure},
        {"isFameSync", Criterion::FrameSync},
    }};
    auto const found = std::find_if(CRITERIA.begin(), CRITERIA.end(),
                                    [&](auto const& entry) { return entry.first == function; });
    return found != CRITERIA.end() ? found->second : Criterion::Unknown;
}

}  // namespace

Any parseReason(std::string_view text) {
    std::string_view name;
    Refusal refusal;
    TextScan scan(text);
    if (scan.lit("[").until("] hbs[F", name).num(refusal.frameNo).lit("] ").isGood()) {
        if (scan.has("Ts(")) {
            refusal.criterion = Criterion::Time;
            scan.num(refusal.timestampNs).lit(") > zsd(").num(refusal.zsdTimestampNs);
            scan.lit("), shutterDelay=").num(refusal.delayMs).lit("ms X");
        } else if (scan.until(" X", name).isGood()) {
            refusal.criterion = criterionOf(name);
        }
        return scan.isDone() ? Any(refusal) : Any(Cut());
    }
    if (text.ends_with(": X")) {
        return FailedStream{text.substr(0, text.size() - 3)};
    }
    return text == "cannot lock metadata" ? Any(Uninteresting()) : Any(Cut());
}

Any parsePolicy(std::string_view text) {
    std::string_view selector;
    uint32_t requestNo = 0;
    TextScan scan(text);
    if (!scan.lit("[").until("] ", selector).isGood()) {
        return Cut();
    }
    if (!scan.has("zslReqNo(")) {
        return scan.rest() == "future ts, use latest" ? Any(PolicyNote{scan.rest()}) : Any(Cut());
    }
    scan.num(requestNo).lit(") ");
    if (scan.has("hbs[F")) {
        Judgement judgement{requestNo, 0, false, false, selector};
        scan.num(judgement.frameNo).lit("] ");
        std::string_view const verdict = scan.rest();
        judgement.isTaken = verdict == "O => select";
        judgement.startsOver = verdict == "X => break continuous, start over";
        bool const isWhole = judgement.isTaken || judgement.startsOver || verdict == "X";
        return scan.isGood() && isWhole ? Any(judgement) : Any(Cut());
    }
    PolicyEnd end{requestNo, selector, std::nullopt, false};
    if (scan.has("frameSize(")) {
        return end;
    }
    int64_t ageMs = 0;
    size_t frames = 0;
    scan.lit("durationMs(").num(ageMs).lit(") ");
    end.ageMs = ageMs;
    end.lacksHistory = scan.has("hfs(");
    if (!end.lacksHistory) {
        scan.lit("#select(");
    }
    scan.num(frames);
    return scan.isGood() ? Any(end) : Any(Cut());
}

Any parseMatch(std::string_view text) {
    TagValue match;
    std::string_view tag;
    TextScan scan(text);
    if (!scan.lit("[").until("] tag(", match.criterion).until(") ", tag).isGood()) {
        return Cut();
    }
    if (scan.has("not found!")) {
        return MissingTag{tag, match.criterion};
    }
    scan.lit("val=").until(" target=", match.value).until(" bc=", match.target);
    return scan.isGood() ? Any(match) : Any(Cut());
}

Any parseSensorMode(std::string_view text) {
    TextScan scan(text);
    std::string_view skipped;
    if (scan.has("requiredSensorMode ok")) {
        return Uninteresting();
    }
    if (scan.has("tag(")) {
        MissingTag missing;
        bool const isWhole = scan.until(") ", missing.tag).isGood() && text.ends_with("not found!");
        return isWhole ? Any(missing) : Any(Cut());
    }
    SensorModes modes;
    scan.lit("cannot find required sensor").until(" : history = {", skipped);
    scan.until("}, required = {", modes.history).until("}", modes.required);
    return scan.isGood() ? Any(modes) : Any(Cut());
}

Any parseFocus(std::string_view text) {
    TextScan scan(text);
    FocusLetPass focus;
    MissingTag missing;
    if (scan.has("AF ok: ")) {
        return Uninteresting();
    }
    if (scan.has("AF fail: ")) {
        return scan.until(" but result", focus.state).isGood() ? Any(focus) : Any(Cut());
    }
    return scan.lit("tag(").until(") not found!", missing.tag).isGood() ? Any(missing) : Any(Cut());
}

}  // namespace zebcam::tool::log::line
