"""BestShotSelector as a rule in Python, for trying changes of it at a desk.

It has the same parameters and chooses, locks and explains as the C++ beside it does; a test holds
that. What it is for and what the parameters mean, docs/policies.md tells.
"""

import math
from typing import NamedTuple

import zsl

# After 3000 ms a capture is served without its policy, which could then give nothing back.
LONGEST_WAIT_MS = 2900

COST_PER_S = zsl.option("cost_per_s", 1.5, least=0, most=1000)
MIN_SHARE = zsl.option("min_share", 0.85, least=0, most=1)
MAX_AGE_MS = zsl.option("max_age_ms", 1000, least=0, most=60_000)
MAX_WAIT_MS = zsl.option("max_wait_ms", 200, least=0, most=LONGEST_WAIT_MS)
HOLD_MS = zsl.option("hold_ms", 0, least=0, most=LONGEST_WAIT_MS)
MAX_LOCKS = zsl.option("max_locks", 4, least=0, most=1000)
BURST = zsl.option("burst", "run", words=("run", "spread"))

# What each waiting capture wants to be kept: {(number, wanted instant): {(number, time) of frames}}.
# All captures share one list of locked frames, and only this tells whom nobody wants any more.
kept = {}


class Candidate(NamedTuple):
    """A frame that may serve, and what speaks for it and against it; also a run by its means."""

    frame: object
    share: float  # of the sharpness of the sharpest one
    cost: float  # of its distance from the wanted instant

    @property
    def score(self):
        return self.share - self.cost


def seconds_between(from_ns, to_ns):
    return (float(to_ns) - float(from_ns)) / 1e9


def tells_focus(frame, wanted):
    told = (frame.af_mode, frame.af_state, frame.lens_state)
    return None not in told or not wanted.app_results & frame.app_results


def carries(frame, wanted):
    return (wanted.images <= frame.images and wanted.hal_results <= frame.hal_results
            and wanted.app_results <= frame.app_results)


def has_modes(frame, wanted):
    modes = frame.sensor_modes
    return all(modes.get(sensor) == mode for sensor, mode in wanted.sensor_modes.items())


def failure_of(capture, frame, wanted):
    """The criterion that the frame fails, and how; None: it may serve the wanted one."""
    if float(capture.wanted_ns) - float(frame.timestamp_ns) > MAX_AGE_MS * 1e6:
        return "time", "too much older than the wanted instant"
    if not tells_focus(frame, wanted):
        return "focus", "not told"
    if not frame.is_readable or frame.is_exposure_settled is False:
        return "exposure", "not settled"
    if not carries(frame, wanted):
        return "streams", "one is missing"
    if not has_modes(frame, wanted):
        return "sensor mode", "another one"
    if capture.needs_sync and frame.is_synchronised is False:
        return "sync", "out of step"
    return None


def estimates(frames):
    """The sharpness of frames that nobody measured, by what blurs pictures."""
    exposures = [frame.exposure_ns if (frame.exposure_ns or 0) > 0 else None for frame in frames]
    shortest = min((exposure for exposure in exposures if exposure), default=None)
    found, scans, moves = [], 1, 1
    # From the newest on: a focus goes looking because it was lost before.
    for frame, exposure in zip(reversed(frames), reversed(exposures)):
        scans = 0.5 if frame.af_state in ("passive scan", "active scan") else scans
        moves = 0.5 if frame.lens_state == "moving" else moves
        found.append(scans * moves / (exposure / shortest if exposure else 1))
    return found[::-1]


def sharpness_shares(frames):
    """The sharpness of each frame by that of the sharpest one."""
    measured = [frame.sharpness for frame in frames]
    measured = [s if s is not None and math.isfinite(s) and s >= 0 else None for s in measured]
    known = [s for s in measured if s is not None]
    # One that is not measured is not taken for being unknown.
    shares = [min(known) if s is None else s for s in measured] if known else estimates(frames)
    most = max(shares, default=0)
    return [share / most if most > 0 else 1 for share in shares]


def candidates_of(capture, frames):
    usable = [frame for frame in frames
              if any(not failure_of(capture, frame, wanted) for wanted in capture.wanted)]
    wanted_ns = capture.wanted_ns
    first_ns = next((f.timestamp_ns for f in usable if f.timestamp_ns >= wanted_ns), None)
    return [Candidate(frame, share, COST_PER_S * (
                seconds_between(frame.timestamp_ns, wanted_ns) if frame.timestamp_ns < wanted_ns
                else seconds_between(first_ns, frame.timestamp_ns)))
            for frame, share in zip(usable, sharpness_shares(usable))]


def longest_step(frames):
    """The most by which neighbours may be apart, in s; a step of two intervals lacks a frame."""
    times = [frame.timestamp_ns for frame in frames]
    steps = [seconds_between(a, b) for a, b in zip(times, times[1:]) if b > a]
    return 1.5 * min(steps, default=math.inf)


def fits(candidate, wanted):
    frame = candidate.frame
    return carries(frame, wanted) and has_modes(frame, wanted) and tells_focus(frame, wanted)


def best_run(candidates, wanted, step):
    """The best candidates in a row, no more than `step` apart; each run stands for its means."""
    size = len(wanted)
    runs = []
    for start in range(len(candidates) - size + 1):
        run = candidates[start:start + size]
        times = [candidate.frame.timestamp_ns for candidate in run]
        if (all(map(fits, run, wanted))
                and all(seconds_between(a, b) <= step for a, b in zip(times, times[1:]))):
            share, cost = 0, 0
            for candidate in run:
                share += candidate.share / size
                cost += candidate.cost / size
            runs.append((Candidate(run[0].frame, share, cost), run))
    sharpest = max((mean.share for mean, run in runs), default=0)
    runs = [(mean, run) for mean, run in runs if mean.share >= MIN_SHARE * sharpest]
    return max(runs, key=lambda each: each[0].score)[1] if runs else []


def best_spread(candidates, wanted):
    """The best of each of as many parts of the same size as frames are wanted."""
    choice = []
    for part, each in enumerate(wanted):
        begin = part * len(candidates) // len(wanted)
        end = (part + 1) * len(candidates) // len(wanted)
        choice += best_run(candidates[begin:end], [each], math.inf)
    return choice if len(choice) == len(wanted) else []


def best(candidates, wanted, frames):
    if BURST == "spread":
        return best_spread(candidates, wanted)
    return best_run(candidates, wanted, longest_step(frames))


def forced(candidates, wanted, frames):
    """What a capture gets that can wait no longer: neighbours or not, and if too few, all."""
    choice = best(candidates, wanted, frames) or best_run(candidates, wanted, math.inf)
    if not choice:
        for candidate in candidates:
            if len(choice) < len(wanted) and fits(candidate, wanted[len(choice)]):
                choice.append(candidate)
    return choice


def key_of(frame):
    return frame.number, frame.timestamp_ns


def is_kept(frame):
    return any(key_of(frame) in keys for keys in kept.values())


def keep(capture, frames, promising, excepted):
    """Keeps what is promising for the capture instead of what it had kept so far."""
    kept.pop((capture.number, capture.wanted_ns), None)
    taken = sum(frame.is_locked and is_kept(frame) for frame in frames)
    # Half at most: the history has to go on for the captures to come.
    room = max(min(MAX_LOCKS, len(frames) // 2) - taken, 0)
    keys = [key_of(c.frame) for c in promising if key_of(c.frame) not in excepted][:room]
    if keys:
        kept[capture.number, capture.wanted_ns] = set(keys)


def give_orders(capture, frames, promising, chosen):
    # Of a capture that was flushed nobody hears any more.
    oldest = float(capture.wanted_ns) + (capture.age_ms - 2 * LONGEST_WAIT_MS) * 1e6
    for key in [key for key in kept if key[1] < oldest]:
        del kept[key]
    # What should be locked and does not look so was delivered again, and hides the one that is.
    twice = {key_of(frame) for frame in frames if not frame.is_locked and is_kept(frame)}
    for keys in kept.values():
        keys -= twice
    keep(capture, frames, promising, twice)
    for frame in frames:
        if key_of(frame) in twice:
            (capture.release if frame in chosen else capture.unlock)(frame)
        elif frame not in chosen and frame.is_locked != is_kept(frame):
            (capture.unlock if frame.is_locked else capture.lock)(frame)


def score_text(candidate):
    return f"{candidate.share:.2f} of the sharpest, minus {candidate.cost:.2f} for the time"


def reject(capture, candidate, choice):
    """Says why a candidate is not what the capture gets."""
    frame, share, _ = candidate
    if not choice:
        capture.reject(frame, "wait", "the history cannot give all that is wanted yet")
    elif len(choice) > 1:
        capture.reject(frame, BURST, score_text(candidate))
    elif share < MIN_SHARE:
        capture.reject(frame, "sharpness", f"{share:.2f} < {MIN_SHARE:.2f} of the sharpest")
    else:
        capture.reject(frame, "score", f"{score_text(candidate)} < "
                                       f"{choice[0].share:.2f} - {choice[0].cost:.2f}")


def choose(capture, frames):
    wanted = capture.wanted
    candidates = candidates_of(capture, frames)
    reaches = bool(candidates) and candidates[-1].frame.timestamp_ns >= capture.wanted_ns
    is_due = reaches and capture.age_ms >= HOLD_MS
    choice = best(candidates, wanted, frames) if is_due else []
    if not choice and capture.age_ms >= max(MAX_WAIT_MS, HOLD_MS):
        choice = forced(candidates, wanted, frames)
    chosen = [candidate.frame for candidate in choice]
    promising = [] if choice else forced(candidates, wanted, frames)
    give_orders(capture, frames, promising, chosen)
    by_frame = {candidate.frame.number: candidate for candidate in candidates}
    for frame in frames:
        if frame not in chosen:
            if frame.number in by_frame:
                reject(capture, by_frame[frame.number], choice)
            else:
                capture.reject(frame, *failure_of(capture, frame, wanted[0]))
    return chosen
