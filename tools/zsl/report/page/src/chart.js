import uPlot from 'uplot';

import {byId, element, hideTooltip, show, showTooltip} from './dom.js';
import {axisLabels, counted, fixedRange, ms} from './format.js';

const NAMES = ['ink', 'muted', 'line', 'grid', 'panel', 'accent', 'at-once', 'waited', 'timed-out',
    'flushed', 'unanswered', 'pending', 'not-told', 'refused', 'injected', 'frame', 'settled', 'moving', 'unknown', 'error', 'series-1',
    'series-2'];

let colours = null;

/// The style's colours by name, as in the colour scheme that is on.
export function theme() {
    if (!colours) {
        const style = getComputedStyle(document.documentElement);
        colours = Object.fromEntries(
            NAMES.map((name) => [name, style.getPropertyValue(`--${name}`).trim()]));
    }
    return colours;
}

export function onThemeChange(redraw) {
    matchMedia('(prefers-color-scheme: dark)').addEventListener('change', () => {
        colours = null;
        redraw();
    });
}

export const FONT = '12px system-ui, -apple-system, "Segoe UI", Roboto, "Noto Sans", "DejaVu Sans", sans-serif';

/// An axis in the page's colours, with room between its labels.
export function axis(options = {}) {
    return {
        stroke: () => theme().muted,
        font: FONT,
        labelFont: FONT,
        labelSize: 22,
        gap: 6,
        space: 64,
        grid: {stroke: () => theme().grid, width: 1},
        ticks: {stroke: () => theme().line, width: 1, size: 5},
        values: (chart, values) => axisLabels(values),
        ...options,
    };
}

/// A chart as wide as its box, drawn again when that or the colour scheme changes.
export function makeChart(box, height, options, data) {
    const chart = new uPlot({
        width: box.clientWidth,
        height,
        legend: {show: false},
        ...options,
    }, data, box);
    new ResizeObserver(() => {
        if (box.clientWidth > 0 && box.clientWidth !== chart.width) {
            chart.setSize({width: box.clientWidth, height});
        }
    }).observe(box);
    onThemeChange(() => chart.redraw(false, true));
    return chart;
}

const WANTED_BINS = 24;
const LEAST_BINS = 11;
const HEIGHT = 250;

/// A round width of which about WANTED_BINS cover `span`.
function binWidth(span) {
    const raw = span / WANTED_BINS;
    const power = 10 ** Math.floor(Math.log10(raw));
    return [1, 2, 5, 10].map((factor) => factor * power).find((width) => width >= raw);
}

/// Counts by bins [left, left + width); times in ms. Some at both ends are empty, so that a lone bar
/// does not fill the chart.
export function histogramOf(values) {
    const min = values.reduce((a, b) => Math.min(a, b));
    const max = values.reduce((a, b) => Math.max(a, b));
    const width = max > min ? binWidth(max - min) : 1;
    const used = Math.floor(max / width) - Math.floor(min / width) + 1;
    const pad = Math.max(1, Math.ceil((LEAST_BINS - used) / 2));
    const first = Math.floor(min / width) - pad;
    const counts = new Array(used + 2 * pad).fill(0);
    for (const value of values) {
        ++counts[Math.floor(value / width) - first];
    }
    return {width, lefts: counts.map((_, i) => (first + i) * width), counts};
}

function drawMarks(chart, lag) {
    const {ctx, bbox} = chart;
    ctx.save();
    ctx.strokeStyle = theme().ink;
    ctx.lineWidth = devicePixelRatio * 1.5;
    for (const [ns, dash] of [[lag.medianNs, []], [lag.p95Ns, [5, 4]]]) {
        const x = Math.round(chart.valToPos(ns / 1e6, 'x', true));
        ctx.setLineDash(dash.map((length) => length * devicePixelRatio));
        ctx.beginPath();
        ctx.moveTo(x, bbox.top);
        ctx.lineTo(x, bbox.top + bbox.height);
        ctx.stroke();
    }
    ctx.restore();
}

function options(histogram, lag) {
    const {lefts, width} = histogram;
    const from = lefts[0];
    const to = lefts[lefts.length - 1] + width;
    return {
        cursor: {drag: {x: false, y: false}, points: {show: false}, y: false, x: false},
        scales: {x: {time: false, range: () => [from, to]}, y: {range: (u, min, max) => [0, max * 1.08]}},
        axes: [
            axis({label: 'Lag (ms)', size: 34}),
            axis({label: 'Frames', size: 46, space: 34, incrs: [1, 2, 5, 10, 20, 50, 100, 200, 500,
                1000, 2000, 5000, 10000, 20000, 50000, 100000]}),
        ],
        series: [{}, {
            fill: () => theme()['at-once'],
            width: 0,
            points: {show: false},
            paths: uPlot.paths.bars({size: [1], align: 1, gap: 1}),
        }],
        hooks: {draw: [(chart) => drawMarks(chart, lag)]},
    };
}

function explainBins(chart, histogram) {
    const {lefts, counts, width} = histogram;
    chart.over.addEventListener('pointermove', (event) => {
        const value = chart.posToVal(event.offsetX, 'x');
        const i = Math.floor((value - lefts[0]) / width);
        if (!(counts[i] > 0)) {
            hideTooltip();
            return;
        }
        const range = `${fixedRange(lefts[i], lefts[i] + width)} ms`;
        showTooltip([element('strong', {}, counted(counts[i], 'frame', 'frames')), range],
            event.clientX, event.clientY);
    });
    chart.over.addEventListener('pointerleave', hideTooltip);
}

export function showDistribution(model) {
    const {lag} = model.replay.summary;
    if (lag.count === 0) {
        return;
    }
    show('distribution');
    const lags = model.captures.flatMap((capture) => capture.frames)
        .filter((frame) => frame.lagNs !== null).map((frame) => frame.lagNs / 1e6);
    const histogram = histogramOf(lags);
    byId('distribution-legend').replaceChildren(
        element('span', {}, `least ${ms(lag.minNs)} ms`),
        element('span', {}, `\u2502 median ${ms(lag.medianNs)} ms`),
        element('span', {}, `\u2506 95th percentile ${ms(lag.p95Ns)} ms`),
        element('span', {}, `most ${ms(lag.maxNs)} ms`));
    const box = byId('histogram');
    box.setAttribute('role', 'img');
    box.setAttribute('aria-label', `Distribution of the lag of ${lags.length} frames, in ` +
        `${histogram.counts.length} steps of ${histogram.width} ms`);
    explainBins(makeChart(box, HEIGHT, options(histogram, lag),
        [histogram.lefts, histogram.counts]), histogram);
}
