import {axis, makeChart, theme} from './chart.js';
import {byId, element, hideTooltip, show, showTooltip, svgElement} from './dom.js';
import {enlargeFrame} from './film.js';
import {OUTCOMES, seconds, toneOf, whole, words} from './format.js';
import {drawLanes, hit, lanesHeight, lanesOf} from './lanes.js';
import {Navigation} from './navigation.js';
import {tipOf} from './tips.js';

const GUTTER = 66;
const AXIS = 52;
const SENSOR_HEIGHT = 190;
const LEAST_INTERVALS = 4;

const inMs = (ns) => (ns === null ? null : ns / 1e6);

const SHAPES = {
    press: (tone) => svgElement('path', {d: 'M0 1H12L6 12Z', class: tone, 'stroke-width': 0}),
    choice: (tone) => svgElement('circle', {cx: 6, cy: 6, r: 5, class: tone, 'stroke-width': 0}),
    refusal: (tone) => svgElement('path', {d: 'M2 2 10 10M10 2 2 10', class: `${tone} open`}),
    kept: (tone) => svgElement('path', {d: 'M6 1 11 6 6 11 1 6Z', class: `${tone} open`}),
    state: (tone) => svgElement('rect', {width: 12, height: 12, class: tone, 'stroke-width': 0}),
};

function legendEntry(shape, tone, label) {
    const picture = svgElement('svg', {viewBox: '0 0 12 12', 'aria-hidden': 'true'}, SHAPES[shape](''));
    return element('li', {class: tone}, picture, label);
}

function showLegend(model) {
    const outcomes = OUTCOMES.filter((outcome) => model.captures.some(
        (capture) => capture.frames.some((frame) => frame.served === outcome)));
    const {frames} = model;
    const has = (state) => frames.times.some(
        (_, i) => frames.focus(i) === state || frames.exposure(i) === state);
    const hasError = frames.times.some((_, i) => frames.get('hasError', i));
    byId('timeline-legend').replaceChildren(
        ...outcomes.map((outcome) => legendEntry('press', toneOf(outcome),
            `${model.isLog ? 'wanted instant' : 'press'}, ${words(outcome)}`)),
        ...model.choices.length > 0 ? [legendEntry('choice', '', 'chosen')] : [],
        ...model.injected.length > 0 ? [legendEntry('state', 'injected', 'injected fault')] : [],
        ...model.refusals.length > 0 ? [legendEntry('refusal', 'refused', 'refused')] : [],
        ...model.kept.length > 0 ? [legendEntry('kept', 'refused', 'in flight or locked')] : [],
        ...hasError ? [legendEntry('state', 'error', 'unusable image')] : [],
        ...has('settled') ? [legendEntry('state', 'settled', 'settled')] : [],
        ...has('moving') ? [legendEntry('state', 'moving', 'not settled')] : [],
        ...has('unknown') ? [legendEntry('state', 'unknown', 'not told')] : []);
}

function showThinning({replay, frames}) {
    const hint = byId('thinned');
    hint.hidden = !frames.isThinned;
    hint.textContent = !frames.isThinned ? '' : `Of the ${whole(replay.recording.frames)} frames the ${whole(frames.count)} are drawn ` +
        'that lie around the captures or tell most of their surroundings: errors, gaps, moving states.';
}

function labelLanes(chart, lanes) {
    for (const lane of lanes) {
        const label = element('div', {class: 'lane-label', 'data-lane': lane.name}, lane.label,
            ...lane.scale ? [lane.scale] : []);
        label.style.top = `${lane.middle - (lane.scale ? 15 : 8)}px`;
        chart.root.querySelector('.u-wrap').append(label);
    }
}

export class Timeline {
    constructor(model, onSelect) {
        this.model = model;
        this.onSelect = onSelect;
        this.lanes = lanesOf(model);
        this.selected = null;
        const pad = Math.max(model.interval, (model.end - model.begin) * 0.01);
        this.limits = {from: model.begin - pad, to: model.end + pad, least: model.interval * LEAST_INTERVALS};
        show('timeline');
        showLegend(model);
        showThinning(model);
        this.chart = this.makeLanes();
        byId('sensor').hidden = byId('sensor-legend').hidden = model.isLog === true;
        this.sensor = model.isLog ? null : this.makeSensor();
        this.navigation = new Navigation([this.chart, this.sensor].filter(Boolean), this.limits);
        this.connect();
    }

    select(capture, mayMove) {
        this.selected = capture;
        if (mayMove && capture.press !== null) {
            this.goTo(capture);
        }
        this.chart.redraw(false);
    }

    /// Shows a capture from the oldest frame that it chose to its last answer.
    goTo(capture) {
        const times = capture.frames.filter((frame) => frame.lagNs !== null)
            .map((frame) => capture.press + frame.lagNs / 1e9);
        const from = Math.min(capture.press, ...times);
        const to = Math.max(capture.waitNs === null ? capture.press : capture.end, ...times);
        const margin = Math.max((to - from) * 0.2, this.model.interval * 8);
        this.navigation.show(from - margin, to + margin);
    }

    options(axes, series, more = {}) {
        return {
            cursor: {y: false, points: {show: false}, drag: {x: true, y: false, dist: 4},
                sync: {key: 'time', scales: ['x', null], setSeries: false},
                bind: {dblclick: () => null}},
            padding: [0, 22, 0, 0],
            scales: {x: {time: false, auto: false, min: this.limits.from, max: this.limits.to},
                ...more.scales},
            axes,
            series,
            hooks: {...more.hooks, setScale: [(chart, key) => this.follow(chart, key)]},
        };
    }

    makeLanes() {
        const box = byId('lanes');
        const frames = this.model.isLog ? '' : `${whole(this.model.frames.count)} frames and `;
        box.setAttribute('aria-label', `Time line of ${frames}` +
            `${whole(this.model.placed.length)} captures; the table of captures tells the same`);
        const blank = axis({size: GUTTER, values: () => [], ticks: {show: false}, grid: {show: false}});
        const options = this.options(
            [axis({label: `Time from the first ${this.model.isLog ? 'wanted instant' : 'frame'} (s)`,
                size: AXIS - 22}), blank],
            [{}, {paths: () => null, points: {show: false}}],
            {
                scales: {y: {auto: false, range: [0, 1]}},
                hooks: {draw: [(chart) => drawLanes(chart, this.model, this.lanes, this.selected)]},
            });
        const {from, to} = this.limits;
        const times = this.model.frames.count > 0 ? this.model.frames.times : [from, to];
        const chart = makeChart(box, lanesHeight(this.lanes) + AXIS, options,
            [times, times.map(() => null)]);
        labelLanes(chart, this.lanes);
        return chart;
    }

    makeSensor() {
        const {frames} = this.model;
        const intervals = frames.times.map((_, i) => inMs(frames.intervalNs(i)));
        const exposures = frames.times.map((_, i) => inMs(frames.get('exposureNs', i)));
        const hasExposure = exposures.some((exposure) => exposure > 0);
        const line = (tone) => ({stroke: () => theme()[tone], width: 1.5, points: {show: false}});
        const legend = (tone, text) => element('span', {class: tone},
            element('span', {class: `swatch ${tone}`, 'aria-hidden': 'true'}), text);
        byId('sensor-legend').replaceChildren(legend('series-1', 'interval to the frame before'),
            ...hasExposure ? [legend('series-2', 'exposure time')] : []);
        const box = byId('sensor');
        box.setAttribute('role', 'img');
        box.setAttribute('aria-label', 'Interval and exposure time of the frames');
        return makeChart(box, SENSOR_HEIGHT, this.options(
            [axis({label: 'Time from the first frame (s)', size: AXIS - 22}),
                axis({label: 'Time (ms)', size: GUTTER - 22, space: 28})],
            [{}, line('series-1'), ...hasExposure ? [line('series-2')] : []],
            {scales: {y: {range: (chart, min, max) => [0, (max || 1) * 1.1]}}}),
        [frames.times, intervals, ...hasExposure ? [exposures] : []]);
    }

    /// Both charts show the same time, inside the limits.
    follow(chart, key) {
        if (key !== 'x' || !this.navigation || this.isFollowing) {
            return;
        }
        this.isFollowing = true;
        this.navigation.show(chart.scales.x.min, chart.scales.x.max);
        this.isFollowing = false;
        this.showRange();
        hideTooltip();
    }

    showRange() {
        const {from, to} = this.navigation;
        byId('range').textContent = `${seconds(from * 1e9)} s to ${seconds(to * 1e9)} s`;
    }

    connect() {
        this.showRange();
        const {over} = this.chart;
        const find = (event) => hit(this.chart, this.model, this.lanes, event.offsetX, event.offsetY);
        over.addEventListener('pointermove', (event) => {
            const found = event.buttons === 0 ? find(event) : null;
            over.style.cursor = {captures: 'pointer', pictures: 'zoom-in'}[found?.kind] ?? '';
            if (found) {
                showTooltip(tipOf(this.model, found), event.clientX, event.clientY);
            } else {
                hideTooltip();
            }
        });
        over.addEventListener('pointerleave', hideTooltip);
        over.addEventListener('click', (event) => {
            const found = find(event);
            if (found?.kind === 'pictures') {
                hideTooltip();
                enlargeFrame(this.model, this.model.frames.get('frameNo', found.item));
            } else if (found) {
                showTooltip(tipOf(this.model, found), event.clientX, event.clientY);
            }
            const capture = found?.kind === 'captures' ? found.item : found?.item.capture;
            if (capture) {
                this.onSelect(capture, false);
            }
        });
        byId('lanes').addEventListener('keydown', (event) => this.navigation.key(event));
        document.querySelector('#timeline .tools').addEventListener('click', (event) => {
            const action = event.target.dataset.do;
            if (action && !this.navigation.do(action)) {
                this.step(action === 'next' ? 1 : -1);
            }
        });
    }

    step(direction) {
        const {placed} = this.model;
        if (placed.length === 0) {
            return;
        }
        const at = this.selected ? placed.indexOf(this.selected) + direction : 0;
        this.onSelect(placed[(at + placed.length) % placed.length], true);
    }
}
