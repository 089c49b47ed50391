import {FONT, theme} from './chart.js';
import {toneOf} from './format.js';
import {rankOf} from './model.js';
import {drawMeasure, drawPictures, measureLanes, pictureAt, picturesLane} from './picturelanes.js';

const GAP = 8;
const BAR_PITCH = 6;
const FIRST_BAR = 34;

/// The captures' bars lie under their marks, in rows, so that those that overlap show.
const PRESS_SIZE = 7;
const BAR_HEIGHT = 4;
const pressY = (lane) => lane.top + 23;
const barY = (lane, row) => lane.top + FIRST_BAR + row * BAR_PITCH;
const pressHeight = (rows) => FIRST_BAR + rows * BAR_PITCH;

/// The lanes of the time line from the top, in CSS pixels from the plot's top.
export function lanesOf(model) {
    // A log knows none.
    const hasFrames = model.frames.count > 0;
    const wanted = [
        {name: 'captures', label: 'Captures', height: pressHeight(model.rows)},
        {name: 'tries', label: 'Tries', height: 14},
        ...model.shutters.length > 0 ? [{name: 'shutters', label: 'Shutters', height: 14}] : [],
        ...hasFrames ? [{name: 'choices', label: 'Chosen', height: 20}] : [],
        ...hasFrames && model.hasReasons ? [{name: 'refusals', label: 'Refused', height: 20}] : [],
        ...model.kept.length > 0 ? [{name: 'kept', label: 'Set aside', height: 20}] : [],
        ...model.injected.length > 0 ? [{name: 'injected', label: 'Injected', height: 14}] : [],
        ...picturesLane(model),
        ...hasFrames ? [{name: 'frames', label: 'Frames', height: 26}] : [],
        ...model.arrivals.length > 0 ? [{name: 'arrivals', label: 'Arrivals', height: 14}] : [],
        ...hasFrames ? [{name: 'focus', label: 'Focus', height: 16},
            {name: 'exposure', label: 'Exposure', height: 16}] : [],
        ...measureLanes(model),
    ];
    let top = GAP;
    return wanted.map((lane) => {
        const placed = {...lane, top, middle: top + lane.height / 2};
        top += lane.height + GAP;
        return placed;
    });
}

export function lanesHeight(lanes) {
    const last = lanes[lanes.length - 1];
    return last.top + last.height + GAP;
}

const REACH = 9;
const MANY = 3;

/// Lanes whose marks are items of the model's list of that name.
const MARKS = ['tries', 'shutters', 'choices', 'refusals', 'kept', 'injected', 'arrivals'];

const rankOfItem = (item) => rankOf((item.capture ?? item).served);

/// How far an item is from `time`. Within a span the ends are nearer: something else may stand there.
function distanceTo({time, press, until}, at, reach) {
    const begin = time ?? press;
    const toEnds = Math.min(Math.abs(begin - at), Math.abs((until ?? begin) - at));
    return begin < at && at < (until ?? begin) ? Math.min(toEnds, reach * 0.99) : toEnds;
}

/// The item nearest to `time` within reach, and how many others are; null when there is none.
/// Where marks stand for many, the worst is meant: of the others there are enough elsewhere.
function nearest(items, time, reach) {
    let best = null;
    let count = 0;
    for (const item of items) {
        const distance = distanceTo(item, time, reach);
        if (distance > reach) {
            continue;
        }
        ++count;
        if (best === null || distance < best.distance) {
            best = {distance, item};
        }
    }
    if (count > MANY) {
        const within = items.filter((item) => distanceTo(item, time, reach) <= reach);
        best.item = within.reduce((a, b) => (rankOfItem(b) > rankOfItem(a) ? b : a), best.item);
    }
    return best && {item: best.item, others: count - 1};
}

function captureAt(model, lane, time, y, reach) {
    const onMark = y < pressY(lane) + REACH ? nearest(model.placed, time, reach) : null;
    const isOnBar = ({row}) => y >= barY(lane, row) - 1 && y <= barY(lane, row) + BAR_HEIGHT + 1;
    const under = model.placed.find((capture) => isOnBar(capture) && capture.press <= time &&
        time <= capture.end);
    return onMark ?? (under ? {item: under, others: 0} : null);
}

function frameAt(model, time) {
    const {frames, interval} = model;
    const i = frames.atOrAfter(time + 1e-9) - 1;
    return i >= 0 && (frames.isThinned || time - frames.times[i] <= interval * 1.25)
        ? {item: i, others: 0} : null;
}

/// What lies at a place of the plot, in CSS pixels: {kind, item, others}, with how many other marks
/// there are; null for nothing.
export function hit(chart, model, lanes, x, y) {
    const lane = lanes.find(({top, height}) => y >= top - 4 && y < top + height + 4);
    if (!lane) {
        return null;
    }
    const time = chart.posToVal(x, 'x');
    const reach = chart.posToVal(x + REACH, 'x') - time;
    if (lane.name === 'captures') {
        const capture = captureAt(model, lane, time, y, reach);
        return capture && {kind: 'captures', ...capture};
    }
    if (lane.name === 'pictures') {
        const item = pictureAt(lane, x);
        return item === undefined ? null : {kind: 'pictures', item, others: 0};
    }
    const found = MARKS.includes(lane.name) ? nearest(model[lane.name], time, reach)
        : frameAt(model, time);
    return found && {kind: MARKS.includes(lane.name) ? lane.name : 'frames', ...found};
}

const MAX_CONNECTORS = 100;
const MARK_WIDTH = 14;
const STACK_PITCH = 7;
const MIN_FRAME_WIDTH = 3;
const RANK = {settled: 0, unknown: 1, moving: 2};

/// Draws the lanes on a chart, in CSS pixels from the plot's corner.
class LaneDrawing {
    constructor(chart, model, lanes, selected) {
        this.chart = chart;
        this.ctx = chart.ctx;
        this.model = model;
        this.lanes = Object.fromEntries(lanes.map((lane) => [lane.name, lane]));
        this.selected = selected;
        this.redraw = () => chart.redraw(false);
        this.width = chart.bbox.width / devicePixelRatio;
        this.height = chart.bbox.height / devicePixelRatio;
        this.from = chart.scales.x.min;
        this.to = chart.scales.x.max;
        this.scale = this.width / (this.to - this.from);
    }

    draw() {
        const {ctx, chart} = this;
        ctx.save();
        ctx.beginPath();
        ctx.rect(chart.bbox.left, chart.bbox.top, chart.bbox.width, chart.bbox.height);
        ctx.clip();
        ctx.translate(chart.bbox.left, chart.bbox.top);
        ctx.scale(devicePixelRatio, devicePixelRatio);
        ctx.font = FONT;
        ctx.textBaseline = 'middle';
        ctx.textAlign = 'left';
        this.drawSelection();
        this.drawFlushes();
        if (this.lanes.frames) {
            this.drawStrip(this.lanes.focus, (i) => this.model.frames.focus(i));
            this.drawStrip(this.lanes.exposure, (i) => this.model.frames.exposure(i));
            this.drawFrames();
            this.drawConnectors();
            this.drawChoices();
        }
        if (this.lanes.pictures) {
            drawPictures(this, this.lanes.pictures);
        }
        Object.values(this.lanes).filter(({scale}) => scale).forEach((lane) => drawMeasure(this, lane));
        this.drawCaptures();
        this.drawTries();
        this.drawTicks(this.lanes.shutters, this.model.shutters, 'accent', 2);
        this.drawTicks(this.lanes.injected, this.model.injected, 'injected', 3);
        this.drawTicks(this.lanes.arrivals, this.model.arrivals, 'frame', 1);
        this.drawMarks(this.lanes.refusals, this.model.refusals, (x, y) => this.cross(x, y));
        this.drawMarks(this.lanes.kept, this.model.kept, (x, y) => this.diamond(x, y));
        ctx.restore();
    }

    x(time) {
        return (time - this.from) * this.scale;
    }

    isVisible(begin, end = begin) {
        const margin = 10 / this.scale;
        return end >= this.from - margin && begin <= this.to + margin;
    }

    drawSelection() {
        if (this.selected && this.selected.press !== null) {
            this.ctx.fillStyle = theme().grid;
            this.ctx.fillRect(this.x(this.selected.press) - 1, 0, 2, this.height);
        }
    }

    drawFlushes() {
        const {ctx} = this;
        ctx.strokeStyle = theme().flushed;
        ctx.setLineDash([4, 4]);
        for (const time of this.model.flushes.filter((t) => this.isVisible(t))) {
            ctx.beginPath();
            ctx.moveTo(this.x(time), 0);
            ctx.lineTo(this.x(time), this.height);
            ctx.stroke();
        }
        ctx.setLineDash([]);
    }

    /// The frames in sight, with the time that each stands for: until the next, but no longer than
    /// an interval, so that gaps stay empty.
    * visibleFrames() {
        const {frames, interval} = this.model;
        const last = frames.atOrAfter(this.to);
        for (let i = Math.max(0, frames.atOrAfter(this.from) - 1); i < last; ++i) {
            const next = i + 1 < frames.count ? frames.times[i + 1] : Infinity;
            yield [i, frames.times[i], Math.min(next, this.standsUntil(i, next))];
        }
    }

    /// Of a thinned recording a frame stands for those left out after it, up to a gap.
    standsUntil(i, next) {
        const {frames, interval} = this.model;
        const longest = interval * 1.25;
        if (!frames.isThinned || next === Infinity) {
            return frames.times[i] + longest;
        }
        return next - Math.max(0, frames.intervalNs(i + 1) / 1e9 - longest);
    }

    /// A strip of states. Where many frames share a pixel, the worst of them shows.
    drawStrip(lane, stateOf) {
        for (const {state, left, right} of this.runsOf(stateOf)) {
            this.ctx.fillStyle = theme()[state];
            this.ctx.fillRect(left, lane.top, right - left, lane.height);
        }
    }

    runsOf(stateOf) {
        const runs = [];
        for (const [i, begin, end] of this.visibleFrames()) {
            const state = stateOf(i);
            const last = runs[runs.length - 1];
            let left = Math.round(this.x(begin));
            const right = Math.max(Math.round(this.x(end)), left + 1);
            if (last && left < last.right) {
                if (RANK[state] > RANK[last.state]) {
                    last.right = left;
                } else {
                    left = last.right;
                }
            }
            if (last && last.state === state && left <= last.right) {
                last.right = Math.max(last.right, right);
            } else if (left < right) {
                runs.push({state, left, right});
            }
        }
        return runs;
    }

    drawFrames() {
        const {frames, interval} = this.model;
        const lane = this.lanes.frames;
        const isDense = interval * this.scale < MIN_FRAME_WIDTH;
        const hasLabels = interval * this.scale > this.ctx.measureText('0000000').width;
        const height = hasLabels ? lane.height - 15 : lane.height;
        // Unusable ones come last, so that their neighbours do not hide them.
        for (const isError of [false, true]) {
            this.ctx.fillStyle = isError ? theme().error : theme().frame;
            for (const [i, begin, end] of this.visibleFrames()) {
                if (frames.get('hasError', i) === isError) {
                    const least = isDense && !isError ? 0 : 2;
                    const width = Math.max(this.frameWidth(i, begin, end, isDense), least);
                    this.ctx.fillRect(this.x(begin), lane.top, width, height);
                }
            }
        }
        if (hasLabels) {
            this.drawFrameNumbers(lane.top + lane.height - 6);
        }
    }

    /// As long as the exposure, where that is told and can be seen.
    frameWidth(i, begin, end, isDense) {
        const room = this.x(end) - this.x(begin);
        const exposure = (this.model.frames.get('exposureNs', i) ?? 0) / 1e9 * this.scale;
        return isDense ? room : Math.min(exposure, room - 1);
    }

    drawFrameNumbers(y) {
        this.ctx.fillStyle = theme().muted;
        for (const [i, begin] of this.visibleFrames()) {
            const text = String(this.model.frames.get('frameNo', i));
            const left = this.x(begin);
            if (left >= 0 && left + this.ctx.measureText(text).width <= this.width) {
                this.ctx.fillText(text, left, y);
            }
        }
    }

    drawConnectors() {
        // What lies further apart than all that is shown follows another clock.
        const visible = this.model.choices.filter(({time, capture}) =>
            this.isVisible(Math.min(time, capture.press), Math.max(time, capture.press)) &&
            Math.abs(time - capture.press) < this.to - this.from);
        if (visible.length > MAX_CONNECTORS) {
            return;
        }
        const {ctx} = this;
        ctx.lineWidth = 1;
        for (const {time, capture, frame} of visible) {
            ctx.strokeStyle = theme()[toneOf(frame.served)];
            ctx.beginPath();
            ctx.moveTo(this.x(capture.press), pressY(this.lanes.captures));
            ctx.lineTo(this.x(time), this.lanes.choices.middle);
            ctx.stroke();
        }
    }

    drawCaptures() {
        const lane = this.lanes.captures;
        const visible = this.model.placed.filter(({press, end}) => this.isVisible(press, end));
        for (const capture of visible) {
            this.ctx.fillStyle = theme()[toneOf(capture.served)];
            const x = this.x(capture.press);
            this.ctx.fillRect(x, barY(lane, capture.row), Math.max(1, this.x(capture.end) - x), BAR_HEIGHT);
        }
        const marks = visible.map((capture) => ({time: capture.press, served: capture.served}));
        if (this.isCrowded(marks)) {
            this.drawStacks(marks, lane.top, FIRST_BAR - 4);
            return;
        }
        let labelEnd = 0;
        for (const capture of visible) {
            const x = this.x(capture.press);
            this.ctx.fillStyle = theme()[toneOf(capture.served)];
            this.triangle(x, pressY(lane));
            labelEnd = this.drawNumber(capture, x, lane.top + 7, labelEnd);
        }
    }

    /// Whether a good part of the marks would lie on others.
    isCrowded(marks) {
        const visible = marks.filter(({time}) => this.isVisible(time));
        const places = new Set(visible.map(({time}) => Math.floor(this.x(time) / MARK_WIDTH)));
        return visible.length > 2 * MANY && places.size < visible.length * 0.75;
    }

    /// Counts by tone of marks that share a place, a column each. What is rare keeps some height, or
    /// it would be lost where it matters most.
    drawStacks(marks, top, height) {
        const columns = new Map();
        for (const {time, served} of marks.filter((mark) => this.isVisible(mark.time))) {
            const place = Math.floor(this.x(time) / STACK_PITCH);
            const counts = columns.get(place) ?? new Map();
            columns.set(place, counts.set(served, (counts.get(served) ?? 0) + 1));
        }
        const totalOf = (counts) => [...counts.values()].reduce((a, b) => a + b);
        const most = Math.max(...[...columns.values()].map(totalOf));
        for (const [place, counts] of columns) {
            let bottom = top + height;
            for (const [served, count] of [...counts].sort(([a], [b]) => rankOf(a) - rankOf(b))) {
                const share = Math.max(3, count / most * (height - 3 * (counts.size - 1)));
                this.ctx.fillStyle = theme()[toneOf(served)];
                this.ctx.fillRect(place * STACK_PITCH, bottom - share, STACK_PITCH - 1, share);
                bottom -= share;
            }
        }
    }

    /// Leaves a number out where it would not be readable; gives where the last one ends.
    drawNumber(capture, x, y, labelEnd) {
        const text = String(capture.requestNo);
        const width = this.ctx.measureText(text).width;
        const left = Math.max(1, Math.min(x - width / 2, this.width - width - 1));
        if (left < labelEnd || x < 0 || x > this.width) {
            return labelEnd;
        }
        this.ctx.fillStyle = capture === this.selected ? theme().accent : theme().ink;
        this.ctx.fillText(text, left, y);
        return left + width + 6;
    }

    drawChoices() {
        const lane = this.lanes.choices;
        const marks = this.model.choices.map(({time, frame}) => ({time, served: frame.served}));
        if (this.isCrowded(marks)) {
            this.drawStacks(marks, lane.top, lane.height);
            return;
        }
        for (const {time, served} of marks.filter((mark) => this.isVisible(mark.time))) {
            this.ctx.fillStyle = theme()[toneOf(served)];
            this.ctx.beginPath();
            this.ctx.arc(this.x(time), lane.middle, 5, 0, 2 * Math.PI);
            this.ctx.fill();
        }
    }

    /// A high tick where a try gave frames back, in the capture's tone; a low one where it did not.
    /// One that was repeated has a bar to the tick of its last repeat.
    drawTries() {
        const lane = this.lanes.tries;
        const bottom = lane.top + lane.height;
        for (const served of [false, true]) {
            const height = served ? lane.height : lane.height / 2;
            for (const {time, until, capture, attempt} of this.model.tries) {
                if (attempt.builtFrames.length > 0 !== served || !this.isVisible(time, until)) {
                    continue;
                }
                this.ctx.fillStyle = theme()[served ? toneOf(capture.served) : 'refused'];
                this.ctx.fillRect(this.x(time) - 1, bottom - height, served ? 3 : 1, height);
                if (attempt.repeats > 0) {
                    this.ctx.fillRect(this.x(time), bottom - 3, this.x(until) - this.x(time), 3);
                    this.ctx.fillRect(this.x(until) - 1, bottom - height, 1, height);
                }
            }
        }
    }

    drawTicks(lane, items, tone, width) {
        this.ctx.fillStyle = theme()[tone];
        for (const {time} of lane ? items : []) {
            if (this.isVisible(time)) {
                this.ctx.fillRect(this.x(time) - width / 2, lane.top, width, lane.height);
            }
        }
    }

    drawMarks(lane, marks, drawMark) {
        if (!lane) {
            return;
        }
        if (this.isCrowded(marks)) {
            this.drawDensity(lane, marks);
            return;
        }
        this.ctx.strokeStyle = theme().refused;
        this.ctx.lineWidth = 2;
        this.ctx.beginPath();
        for (const {time} of marks) {
            if (this.isVisible(time)) {
                drawMark(this.x(time), lane.middle);
            }
        }
        this.ctx.stroke();
    }

    /// Columns as high as there are verdicts in them.
    drawDensity(lane, marks) {
        const columns = new Map();
        for (const {time, verdicts} of marks.filter((mark) => this.isVisible(mark.time))) {
            const place = Math.floor(this.x(time) / STACK_PITCH);
            columns.set(place, (columns.get(place) ?? 0) + verdicts.length);
        }
        const most = Math.max(...columns.values());
        this.ctx.fillStyle = theme().refused;
        for (const [place, count] of columns) {
            const height = Math.max(3, count / most * lane.height);
            this.ctx.fillRect(place * STACK_PITCH, lane.top + lane.height - height, STACK_PITCH - 1, height);
        }
    }

    triangle(x, y) {
        this.ctx.beginPath();
        this.ctx.moveTo(x - PRESS_SIZE, y - PRESS_SIZE);
        this.ctx.lineTo(x + PRESS_SIZE, y - PRESS_SIZE);
        this.ctx.lineTo(x, y + PRESS_SIZE);
        this.ctx.fill();
    }

    cross(x, y) {
        const {ctx} = this;
        ctx.moveTo(x - 4, y - 4);
        ctx.lineTo(x + 4, y + 4);
        ctx.moveTo(x + 4, y - 4);
        ctx.lineTo(x - 4, y + 4);
    }

    diamond(x, y) {
        const {ctx} = this;
        ctx.moveTo(x, y - 5);
        ctx.lineTo(x + 5, y);
        ctx.lineTo(x, y + 5);
        ctx.lineTo(x - 5, y);
        ctx.closePath();
    }
}

export function drawLanes(chart, model, lanes, selected) {
    new LaneDrawing(chart, model, lanes, selected).draw();
}
