import {Pictures} from './pictures.js';

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
const WORST_FIRST = ['unanswered', 'timedOut', 'flushed', 'pending', 'notTold', 'waited', 'atOnce'];
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

/// `press`: the instant from which the capture's times count, named by `origin`; null: it has no
/// place on the time line.
function captureOf(all, originNs) {
    const capture = {origin: 'press', isPlaced: true, ...all};
    const waits = capture.frames.map((frame) => frame.waitNs);
    return {
        ...capture,
        tries: numbered(capture.tries),
        press: capture.isPlaced ? (capture.pressNs - originNs) / 1e9 : null,
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
        {time: (attempt.timeNs - originNs) / 1e9,
            until: ((attempt.lastRepeatNs ?? attempt.timeNs) - originNs) / 1e9, capture, attempt})))
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

function shuttersOf(captures, originNs) {
    return captures.filter(({earlyShutterNs}) => earlyShutterNs !== null)
        .map((capture) => ({time: (capture.earlyShutterNs - originNs) / 1e9, capture}))
        .sort((a, b) => a.time - b.time);
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

function lastInstant(frames, captures, originNs) {
    let last = frames.times[frames.count - 1] ?? 0;
    for (const capture of captures) {
        last = Math.max(last, capture.press + (capture.waitNs ?? 0) / 1e9);
        for (const frame of capture.frames) {
            last = Math.max(last, ((frame.resultNs ?? originNs) - originNs) / 1e9);
        }
    }
    return last;
}

/// Where each capture stands in the page's address: numbers start again with a new session.
function nameAnchors(captures) {
    const used = new Map();
    for (const capture of captures) {
        const count = (used.get(capture.requestNo) ?? 0) + 1;
        used.set(capture.requestNo, count);
        capture.anchor = `#capture-${capture.requestNo}${count > 1 ? `-${count}` : ''}`;
    }
}

/// What all pages with captures show. Times are in s from `originNs`.
function modelOf(data, all, frames, originNs) {
    const captures = all.map((capture) => captureOf(capture, originNs))
        .sort((a, b) => (a.press ?? Infinity) - (b.press ?? Infinity));
    const placed = captures.filter(({press}) => press !== null);
    const end = lastInstant(frames, placed, originNs);
    captures.forEach((capture, i) => { capture.index = i; });
    placed.forEach((capture) => {
        capture.end = capture.waitNs === null ? end : capture.press + capture.waitNs / 1e9;
    });
    nameAnchors(captures);
    const rows = placeBars(placed);
    return {
        frames,
        captures,
        placed,
        hasReasons: captures.some(({tries}) => tries.some(({explanation}) => explanation)),
        choices: choicesOf(placed),
        refusals: marksOf(captures, frames, ['refused']),
        kept: marksOf(captures, frames, ['parked', 'locked']),
        tries: triesOf(placed, originNs),
        shutters: shuttersOf(placed, originNs),
        arrivals: arrivalsOf(frames),
        injected: injectedOf(frames, placed),
        begin: frames.times[0] ?? placed[0]?.press ?? 0,
        end,
        rows,
        ...data,
    };
}

/// What the page shows of a replay. Times are in s from the first frame.
export function modelOfReplay({replay, sensor, pictures}) {
    const {recording, options} = replay;
    return modelOf({
        replay,
        pictures: pictures?.length > 0 ? new Pictures(pictures) : null,
        interval: recording.medianIntervalNs / 1e9,
        flushes: options.flushAtNs.map((ns) => ns / 1e9),
    }, replay.captures, new Frames(sensor), recording.firstTimestampNs);
}

/// A capture of a log: its frames and tries with what the log tells of them. What no line tells to
/// have come back waits, or nobody knows.
function toldCapture(told, record) {
    const open = told.outcome === 'pending' && told.isCertain ? 'pending' : 'notTold';
    const whole = {served: told.tries.length > 1 ? 'waited' : 'atOnce', timedOut: 'timedOut',
        flushed: 'flushed'}[told.outcome] ?? open;
    const nothing = {index: null, served: whole, frameNo: null, lagNs: null, waitNs: null, resultNs: null};
    // Where no try tells it, what frames were held against does; when the tries were, nobody knows.
    const timed = told.tries.flatMap(({candidates}) => candidates).find(({wanted}) => wanted?.op === '>=');
    return {
        ...record,
        ...told,
        origin: 'wanted instant',
        isPlaced: record.pressNs !== null,
        pressNs: record.pressNs ?? timed?.wanted.ns ?? null,
        tries: record.tries.map((attempt, i) => ({...attempt, explanation: told.tries[i]})),
        frames: record.frames.length === 0 ? [nothing] : record.frames.map(
            (frame) => (frame.served === 'unanswered' ? {...frame, served: open} : frame)),
    };
}

/// A log has no recording; marks are as far apart as at the usual rate.
const USUAL_INTERVAL = 1 / 30;

/// What the page shows of a log. Times are in s from the first wanted instant.
export function modelOfLog({explain, captures}) {
    const instants = captures.map(({pressNs}) => pressNs).filter((ns) => ns !== null);
    return modelOf({isLog: true, interval: USUAL_INTERVAL, flushes: []},
        explain.captures.map((told, i) => toldCapture(told, captures[i])),
        new Frames({count: 0, total: 0}), instants.reduce((a, b) => Math.min(a, b), Infinity));
}
