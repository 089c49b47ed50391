#include "Events.h"

#include <algorithm>

namespace zebcam::test {
namespace {

namespace gen = rc::gen;

constexpr std::array FROM_NAMES{"history", "in flight", "unknown", "no frame", "-"};
constexpr std::array POLICY_NAMES{"default", "cshot", "multiframe", "given"};
constexpr std::array OP_NAMES{"lock", "unlock", "release"};

/// Of any size, where the library would keep numbers in short lists small.
rc::Gen<uint32_t> upTo(uint32_t last) {
    return gen::resize(rc::kNominalSize, gen::inRange<uint32_t>(0, last + 1));
}

/// True once in `times`.
rc::Gen<bool> rarely(uint32_t times) {
    return gen::map(upTo(times - 1), [times](uint32_t n) { return n + 1 == times; });
}

/// One of the values; shrinks towards the first.
template <typename T>
rc::Gen<T> oneOf(std::vector<T> values) {
    auto const last = static_cast<uint32_t>(values.size() - 1);
    return gen::map(upTo(last), [values = std::move(values)](uint32_t n) { return values[n]; });
}

template <typename T>
rc::Gen<std::vector<T>> atMost(int count, rc::Gen<T> const& element) {
    return gen::resize(count, gen::container<std::vector<T>>(element));
}

/// Mostly none, else one or two out of [first, last].
rc::Gen<Faults> someOf(Fault first, Fault last) {
    std::vector<Fault> range;
    for (auto i = static_cast<int>(first); i <= static_cast<int>(last); ++i) {
        range.push_back(static_cast<Fault>(i));
    }
    return gen::weightedOneOf<Faults>({{2, gen::just(Faults())}, {1, atMost(2, oneOf(range))}});
}

rc::Gen<Pick> anyPick() {
    using enum From;
    return gen::build<Pick>(
        gen::set(&Pick::from, oneOf<From>({History, History, History, History, InFlight, InFlight,
                                           Skip, None, Unknown})),
        gen::set(&Pick::n, upTo(5)), gen::set(&Pick::clone, rarely(5)),
        gen::set(&Pick::meta, oneOf<uint32_t>({0, 0, 0, 0, 1, 2, 3})));
}

rc::Gen<CaptureSpec> anyCapture() {
    using enum Policy;
    auto const order =
        gen::build<Order>(gen::set(&Order::op, upTo(2)), gen::set(&Order::target, anyPick()));
    auto const frames = gen::mapcat(upTo(3), [](uint32_t more) {
        auto const bits = gen::weightedOneOf<uint32_t>({{3, gen::just(13U)}, {1, upTo(15)}});
        return gen::container<std::vector<uint32_t>>(more + 1, bits);
    });
    return gen::build<CaptureSpec>(
        gen::set(&CaptureSpec::policy, gen::weightedElement<Policy>({{3, Policy::Default},
                                                                     {1, Policy::CShot},
                                                                     {2, Policy::Multiframe},
                                                                     {6, Policy::Given}})),
        gen::set(&CaptureSpec::required, frames),
        gen::set(&CaptureSpec::timeoutMs, oneOf<uint32_t>({0, 100, 3000})),
        gen::set(&CaptureSpec::frameSync, rarely(4)),
        gen::set(&CaptureSpec::checkPureRaw, rarely(4)),
        gen::set(&CaptureSpec::sensorMode, oneOf<uint32_t>({0, 0, 0, 0, 1, 1, 2})),
        gen::set(&CaptureSpec::name, upTo(1)), gen::set(&CaptureSpec::picks, atMost(4, anyPick())),
        gen::set(&CaptureSpec::orders, atMost(3, order)));
}

rc::Gen<Event> plain(Kind kind, rc::Gen<uint32_t> const& n = gen::just(0U),
                     rc::Gen<Faults> const& faults = gen::just(Faults())) {
    return gen::build<Event>(gen::set(&Event::kind, gen::just(kind)), gen::set(&Event::n, n),
                             gen::set(&Event::faults, faults));
}

rc::Gen<Event> anyEvent() {
    auto const submit = gen::build<Event>(
        gen::set(&Event::kind, gen::just(Kind::Submit)), gen::set(&Event::capture, anyCapture()),
        gen::set(&Event::faults, someOf(Fault::NoBuilder, Fault::NameThrows)));
    auto const frame = gen::build<FrameSpec>(gen::set(&FrameSpec::ageMs, upTo(40)),
                                             gen::set(&FrameSpec::hasYuv, rarely(2)),
                                             gen::set(&FrameSpec::isPureRaw, rarely(6)));
    auto const arrive =
        gen::build<Event>(gen::set(&Event::kind, gen::just(Kind::Arrive)),
                          gen::set(&Event::n, upTo(3)), gen::set(&Event::frame, frame),
                          gen::set(&Event::faults, someOf(Fault::ImageError, Fault::NullBuffer)));
    auto const ms = oneOf<uint32_t>({0, 1, 33, 500, 2999, 3001});
    return gen::weightedOneOf<Event>(
        {{20, submit},
         {24, arrive},
         {8, plain(Kind::Announce)},
         {2, plain(Kind::Cancel, upTo(3))},
         {14, plain(Kind::Retry)},
         {6, plain(Kind::Result, upTo(9), someOf(Fault::UnlockableResult, Fault::NullResult))},
         {4, plain(Kind::Configure, upTo(2))},
         {2, plain(Kind::Dump)},
         {3, plain(Kind::Flush)},
         {6, plain(Kind::Pass, ms)},
         {2, plain(Kind::History, upTo(1))},
         {3, plain(Kind::Callback, upTo(2))},
         {4, plain(Kind::Finish)}});
}

void show(std::ostream& out, Pick const& pick) {
    out << ' ' << FROM_NAMES[static_cast<size_t>(pick.from)];
    if (pick.from < From::None) {
        out << '#' << pick.n;
    }
    out << (pick.clone ? " clone" : "");
    if (pick.meta != 0) {
        out << " meta " << pick.meta;
    }
}

void show(std::ostream& out, CaptureSpec const& capture) {
    out << ' ' << POLICY_NAMES[static_cast<size_t>(capture.policy)] << ", "
        << capture.required.size() << " frame(s) requiring";
    for (uint32_t const bits : capture.required) {
        out << ' ' << (bits == 0 ? "nothing" : "") << (bits & 1U ? "R" : "")
            << (bits & 2U ? "Y" : "") << (bits & 4U ? "H" : "") << (bits & 8U ? "A" : "");
    }
    out << (capture.frameSync ? ", frame sync" : "") << (capture.checkPureRaw ? ", pure raw" : "");
    if (capture.sensorMode != 0) {
        out << ", sensor mode " << capture.sensorMode;
    }
    if (capture.policy == Policy::Multiframe) {
        out << ", time-out " << capture.timeoutMs << " ms";
    }
    if (capture.policy != Policy::Given) {
        return;
    }
    out << ' ' << static_cast<char>('A' + capture.name)
        << (capture.picks.empty() && capture.orders.empty() ? " says nothing" : ":");
    for (size_t i = 0; i < capture.picks.size(); ++i) {
        out << (i == 0 ? "" : ";");
        show(out, capture.picks[i]);
    }
    for (Order const& order : capture.orders) {
        out << "; " << OP_NAMES[order.op];
        show(out, order.target);
    }
}

}  // namespace

bool has(Faults const& faults, Fault fault) {
    return std::find(faults.begin(), faults.end(), fault) != faults.end();
}

std::ostream& operator<<(std::ostream& out, Event const& event) {
    out << KIND_NAMES[static_cast<size_t>(event.kind)];
    if (event.kind == Kind::Submit) {
        show(out, event.capture);
    } else if (event.kind == Kind::Arrive) {
        out << '#' << event.n << " exposed " << event.frame.ageMs << " ms ago"
            << (event.frame.hasYuv ? ", with YUV" : "")
            << (event.frame.isPureRaw ? ", pure raw" : "");
    } else {
        out << ' ' << event.n << (event.kind == Kind::Pass ? " ms" : "");
    }
    for (Fault const fault : event.faults) {
        out << " [" << FAULT_NAMES[static_cast<size_t>(fault)] << ']';
    }
    return out;
}

std::ostream& operator<<(std::ostream& out, Events const& events) {
    for (size_t i = 0; i < events.list.size(); ++i) {
        out << "  " << i + 1 << ". " << events.list[i] << '\n';
    }
    return out;
}

rc::Gen<Events> anyEvents() {
    constexpr double LENGTHS = 2;  // for lists twice as long as the library's default
    return gen::map(gen::scale(LENGTHS, gen::container<std::vector<Event>>(anyEvent())),
                    [](std::vector<Event> list) { return Events{std::move(list)}; });
}

}  // namespace zebcam::test
