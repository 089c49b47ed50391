/// The sensor's frames. `data` holds a list for each column, or one value where all are equal.
export class Frames {
    constructor(data) {
        this.data = data;
        this.count = data.count;
        this.isThinned = data.total > data.count;
        this.times = Array.from({length: this.count}, (_, i) => this.get('timeNs', i) / 1e9);
        this.indexes = new Map(this.times.map((_, i) => [this.get('frameNo', i), i]));
    }

    get(column, i) {
        const values = this.data[column];
        return Array.isArray(values) ? values[i] : values;
    }

    /// The position of a frame number; undefined for none of the recording's.
    indexOf(frameNo) {
        return this.indexes.get(frameNo);
    }

    /// The position of the first frame at or after `time`, in s.
    atOrAfter(time) {
        let low = 0;
        let high = this.count;
        while (low < high) {
            const middle = (low + high) >> 1;
            if (this.times[middle] < time) {
                low = middle + 1;
            } else {
                high = middle;
            }
        }
        return low;
    }

    /// As the processor judges it: 'settled', 'moving' or 'unknown'.
    focus(i) {
        const mode = this.get('afMode', i);
        const state = this.get('afState', i);
        const lens = this.get('lensState', i);
        if (state === null || lens === null) {
            return 'unknown';
        }
        // Where no mode is told the state still says whether the focus ran.
        const hasAutoFocus = mode === null || (mode >= 1 && mode <= 4);
        const isScanning = state === 0 || state === 1 || state === 3;
        const isAtRest = lens === 0 && state === 0;
        return hasAutoFocus && (lens === 1 || (isScanning && !isAtRest)) ? 'moving' : 'settled';
    }

    /// From the frame before in the recording, of which the page may lack some; null: none.
    intervalNs(i) {
        if (this.isThinned) {
            return this.get('intervalNs', i);
        }
        return i > 0 ? this.get('timeNs', i) - this.get('timeNs', i - 1) : null;
    }

    exposure(i) {
        const stable = this.get('aeStable', i);
        if (stable === null) {
            return 'unknown';
        }
        return stable === 1 ? 'settled' : 'moving';
    }
}

const MAX_ROWS = 5;

/// From the worst; the first of a capture's stands for it.
const WORST_FIRST = ['unanswered', 'timedOut', 'flushed', 'waited', 'atOnce'];
const worst = (outcomes) => WORST_FIRST.find((outcome) => outcomes.includes(outcome)) ?? 'unanswered';

/// How much it matters that a capture is seen where many share a place.
export const rankOf = (outcome) => WORST_FIRST.length - WORST_FIRST.indexOf(outcome);

/// Tries with their numbers, as the processor made them: one stands for those that repeated it.
function numbered(tries) {
    let made = 0;
    return tries.map((attempt) => {
        const first = made + 1;
        made += 1 + attempt.repeats;
        return {...attempt, first, last: made};
    });
}

function captureOf(capture, originNs) {
    const waits = capture.frames.map((frame) => frame.waitNs);
    return {
        ...capture,
        tries: numbered(capture.tries),
        press: (capture.pressNs - originNs) / 1e9,
        served: worst(capture.frames.map((frame) => frame.served)),
        waitNs: waits.includes(null) ? null : Math.max(...waits),
    };
}

/// Everything that is not plainly taken, by what the time line shows of it: each mark is a frame
/// with all verdicts of that kind on it.
function marksOf(captures, frames, verdicts) {
    const byFrame = new Map();
    for (const capture of captures) {
        for (const attempt of capture.tries) {
            for (const candidate of attempt.explanation?.candidates ?? []) {
                const index = frames.indexOf(candidate.frameNo);
                if (!verdicts.includes(candidate.verdict) || index === undefined) {
                    continue;
                }
                const mark = byFrame.get(index) ?? {index, time: frames.times[index], verdicts: []};
                mark.verdicts.push({capture, attempt, candidate});
                byFrame.set(index, mark);
            }
        }
    }
    return [...byFrame.values()].sort((a, b) => a.time - b.time);
}

function choicesOf(captures) {
    const choices = [];
    for (const capture of captures) {
        for (const frame of capture.frames) {
            if (frame.lagNs !== null) {
                choices.push({time: capture.press + frame.lagNs / 1e9, capture, frame});
            }
        }
    }
    return choices.sort((a, b) => a.time - b.time);
}

function triesOf(captures, originNs) {
    return captures.flatMap((capture) => capture.tries.map((attempt) => (
        {time: (attempt.timeNs - originNs) / 1e9, capture, attempt})))
        .sort((a, b) => a.time - b.time);
}

function arrivalsOf(frames) {
    const arrivals = [];
    for (let index = 0; index < frames.count; ++index) {
        const ns = frames.get('arrivalNs', index) ?? null;
        if (ns !== null) {
            arrivals.push({time: ns / 1e9, index});
        }
    }
    return arrivals.sort((a, b) => a.time - b.time);
}

/// What faults have struck: frames at their start of exposure, captures at their press.
function injectedOf(frames, captures) {
    const struck = captures.filter((capture) => capture.faults.length > 0)
        .map((capture) => ({time: capture.press, capture, faults: capture.faults.join(', ')}));
    for (let index = 0; index < frames.count; ++index) {
        const faults = frames.get('faults', index);
        if (faults) {
            struck.push({time: frames.times[index], index, faults});
        }
    }
    return struck.sort((a, b) => a.time - b.time);
}

/// Gives each capture a row that is free from its press to its last answer, the last one if none
/// is; gives the number of rows.
function placeBars(captures) {
    const ends = [];
    for (const capture of captures) {
        let row = ends.findIndex((end) => end < capture.press);
        if (row < 0) {
            row = Math.min(ends.length, MAX_ROWS - 1);
        }
        capture.row = row;
        ends[row] = Math.max(ends[row] ?? 0, capture.end);
    }
    return Math.max(1, ends.length);
}

function lastInstant(frames, captures, replay, originNs) {
    let last = frames.times[frames.count - 1] ?? 0;
    for (const capture of captures) {
        last = Math.max(last, capture.press + (capture.waitNs ?? 0) / 1e9);
        for (const frame of capture.frames) {
            last = Math.max(last, ((frame.resultNs ?? originNs) - originNs) / 1e9);
        }
    }
    return last;
}

/// What the page shows of a replay. Times are in s from the first frame.
export function makeModel(data) {
    const {replay} = data;
    const originNs = replay.recording.firstTimestampNs;
    const frames = new Frames(data.sensor);
    const captures = replay.captures
        .map((capture) => captureOf(capture, originNs))
        .sort((a, b) => a.press - b.press);
    const end = lastInstant(frames, captures, replay, originNs);
    captures.forEach((capture, i) => {
        capture.index = i;
        capture.end = capture.waitNs === null ? end : capture.press + capture.waitNs / 1e9;
    });
    const rows = placeBars(captures);
    return {
        frames,
        captures,
        hasReasons: captures.some(({tries}) => tries.some(({explanation}) => explanation)),
        choices: choicesOf(captures),
        refusals: marksOf(captures, frames, ['refused']),
        kept: marksOf(captures, frames, ['parked', 'locked']),
        tries: triesOf(captures, originNs),
        arrivals: arrivalsOf(frames),
        injected: injectedOf(frames, captures),
        interval: replay.recording.medianIntervalNs / 1e9,
        end,
        rows,
        flushes: replay.options.flushAtNs.map((ns) => ns / 1e9),
        replay,
    };
}
