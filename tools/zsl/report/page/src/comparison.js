import {byId, definitions, element, show, svgElement} from './dom.js';
import {axisLabels, ms, number, orNone, whole, words} from './format.js';

const WIDTH = 180;
const AXIS_LABELS = 5;

const inMs = (ns) => orNone(ns === null ? null : number(ns / 1e6, 0));

/// Settings: those that all rows share stand above the table, the others in it.
const SETTINGS = [
    {label: 'Offset (ms)', text: ({offsetNs}) => inMs(offsetNs)},
    {label: 'Frames', text: ({framesPerCapture}) => whole(framesPerCapture)},
    {label: 'History', text: ({historySize}) => whole(historySize)},
    {label: 'Frame sync', text: ({frameSync}) => (frameSync ? 'yes' : 'no')},
];

/// The reasons by frequency, as `time 12, focus 3`.
function refusals(counts) {
    const reasons = Object.entries(counts ?? {})
        .filter(([reason, count]) => reason !== 'total' && count > 0)
        .sort((a, b) => b[1] - a[1])
        .map(([reason, count]) => `${words(reason)} ${whole(count)}`);
    return reasons.length > 0 ? `refused: ${reasons.join(', ')}` : '';
}

/// What is known of the frames that a run chose.
function chosenFrames(summary) {
    const {chosen, distance} = summary ?? {};
    const settled = (what, share) => (share?.told > 0
        ? `${what} settled in ${whole(share.count)} of ${whole(share.told)}` : '');
    const parts = [
        settled('focus', chosen?.focusSettled), settled('exposure', chosen?.exposureSettled),
        chosen?.exposure.count > 0 ? `median exposure ${ms(chosen.exposure.medianNs)} ms` : '',
        chosen?.iso.count > 0 ? `median ISO ${number(chosen.iso.median, 0)}` : '',
        distance?.count > 0 ? `median ${ms(distance.medianNs)} ms from the wanted instant` : ''];
    const told = parts.filter(Boolean).join(', ');
    return told ? `chosen: ${told}` : '';
}

/// The policy by its own name, with its options.
function policyOf({policy, policyName, policyOptions}) {
    const options = Object.entries(policyOptions ?? {}).map(([name, value]) => `${name}=${value}`);
    return [policyName ? `${policyName} (${policy.split('/').pop()})` : policy, ...options].join(' ');
}

/// The numbers of a row, under a heading that neighbours share.
const NUMBERS = [
    ['Frames', 'At once', ({summary}) => whole(summary?.atOnce)],
    ['Frames', 'Waited', ({summary}) => whole(summary?.waited)],
    ['Frames', 'Timed out', ({summary}) => whole(summary?.timedOut)],
    ['Frames', 'Flushed', ({summary}) => whole(summary?.flushed)],
    ['Lag (ms)', 'Min', ({summary}) => ms(summary?.lag.minNs)],
    ['Lag (ms)', 'Median', ({summary}) => ms(summary?.lag.medianNs)],
    ['Lag (ms)', '95 %', ({summary}) => ms(summary?.lag.p95Ns)],
    ['Lag (ms)', 'Max', ({summary}) => ms(summary?.lag.maxNs)],
    ['Wait (ms)', 'Median', ({summary}) => ms(summary?.wait.medianNs)],
    ['Wait (ms)', 'Max', ({summary}) => ms(summary?.wait.maxNs)],
    ['', 'Longest held', ({ledger}) => ms(ledger?.longestHeldNs)],
].map(([group, label, text]) => ({group, label, text}));

/// A drawing's scale of lags that all rows share, with its labels; null where there are none.
function lagScale(rows) {
    const lags = rows.filter(({summary}) => summary?.lag.count > 0)
        .flatMap(({summary}) => [summary.lag.minNs, summary.lag.maxNs]);
    if (lags.length === 0) {
        return null;
    }
    const [least, most] = [Math.min(0, ...lags), Math.max(0, ...lags)];
    const raw = (most - least || 1e6) / (AXIS_LABELS - 1);
    const power = 10 ** Math.floor(Math.log10(raw));
    const step = [1, 2, 5, 10].map((factor) => factor * power).find((size) => size >= raw);
    const first = Math.floor(least / step);
    const last = Math.max(first + 1, Math.ceil(most / step));
    const ticks = Array.from({length: last - first + 1}, (_, i) => (first + i) * step);
    return {place: (lag) => (lag / step - first) / (last - first) * WIDTH, ticks};
}

function line(tone, x1, x2, y1, y2) {
    return svgElement('line', {class: tone, x1, x2, y1, y2});
}

function drawing(height, ...parts) {
    return svgElement('svg', {class: 'range', viewBox: `-24 0 ${WIDTH + 48} ${height}`, width: WIDTH + 48,
        height, 'aria-hidden': 'true'}, ...parts);
}

function lagAxis({place, ticks}) {
    const texts = axisLabels(ticks.map((tick) => tick / 1e6));
    return drawing(16, ...ticks.map((tick, i) => svgElement('text',
        {x: place(tick), y: 12, 'text-anchor': 'middle'}, texts[i])));
}

function lagRange(summary, {place, ticks}) {
    const grid = ticks.map((tick) => line(tick === 0 ? 'zero' : 'grid', place(tick), place(tick), 0, 18));
    if (!(summary?.lag.count > 0)) {
        return drawing(18, ...grid);
    }
    const {minNs, medianNs, p95Ns, maxNs} = summary.lag;
    const [min, median, p95, max] = [minNs, medianNs, p95Ns, maxNs].map(place);
    return drawing(18, ...grid, line('span', min, max, 9, 9), line('box', median, p95, 9, 9),
        line('median', median, median, 3, 15));
}

/// The headings: groups over the columns that they join.
function headOf(settings, scale) {
    const plain = (label, isText, ...more) => element('th',
        {scope: 'col', rowSpan: 2, class: isText ? 'text' : ''}, label, ...more);
    const groups = [...new Set(NUMBERS.map(({group}) => group))].filter(Boolean);
    const grouped = NUMBERS.filter(({group}) => group);
    return element('thead', {},
        element('tr', {}, plain('Policy', true), ...settings.map(({label}) => plain(label, false)),
            plain('Result', true), ...scale ? [plain('Lag (ms)', true, lagAxis(scale))] : [],
            ...groups.map((group) => element('th', {scope: 'colgroup', class: 'over',
                colSpan: grouped.filter((column) => column.group === group).length}, group)),
            ...NUMBERS.filter(({group}) => !group).map(({label}) => plain(label, false))),
        element('tr', {}, ...grouped.map(({label}) => element('th', {scope: 'col'}, label))));
}

function rowsOf(data, settings, scale) {
    const row = element('tr', {},
        element('th', {scope: 'row', class: 'text', title: data.options.policy}, policyOf(data.options)),
        ...settings.map(({text}) => element('td', {}, text(data.options))),
        element('td', {class: `text status-${data.status}`}, data.status),
        ...scale ? [element('td', {}, lagRange(data.summary, scale))] : [],
        ...NUMBERS.map(({text}) => element('td', {}, text(data))));
    const broken = data.brokenLimits.map(({limit, found}) =>
        `--fail-if ${limit}: found ${found === null ? 'no value' : number(found, 2)}`);
    const why = [...data.problems, ...broken, refusals(data.refusals), chosenFrames(data.summary)].filter(Boolean).join('; ');
    if (!why) {
        return [row];
    }
    const span = row.children.length;
    return [row, element('tr', {class: 'further'}, element('td', {class: 'text why', colSpan: span},
        element('span', {}, why)))];
}

function groupOf(recording, rows, settings, scale) {
    const made = rows.flatMap((data) => rowsOf(data, settings, scale));
    const head = element('th', {scope: 'rowgroup', class: 'text', colSpan: made[0].children.length},
        element('span', {}, recording));
    return element('tbody', {}, element('tr', {class: 'group'}, head), ...made);
}

function byRecording(rows) {
    const groups = new Map();
    for (const data of rows) {
        const {path} = data.recording;
        groups.set(path, [...groups.get(path) ?? [], data]);
    }
    return [...groups];
}

/// What is the same in all rows; of a setting that differs, that it stands in the table.
function showSettings({rows, limits}, settings) {
    const runs = rows.filter(({summary}) => summary);
    const captures = [...new Set(runs.map(({summary}) => whole(summary.captures)))];
    byId('comparison-settings').replaceChildren(definitions([
        ['Captures', captures.length === 1 ? captures[0] : captures.length === 0 ? '' : 'differ'],
        ...SETTINGS.map((setting) => [setting.label, runs.length === 0 ? ''
            : settings.includes(setting) ? 'differs, see below' : setting.text(runs[0].options)]),
        ['Limits', limits.length > 0 ? limits.join(', ') : 'none'],
    ]));
}

/// Says that a table goes on to the right, while it does.
function hintAtScroll(box, hint) {
    const update = () => { hint.hidden = box.scrollWidth <= box.clientWidth + 1; };
    new ResizeObserver(update).observe(box);
    update();
}

export function showComparison(comparison) {
    const {rows} = comparison;
    const runs = rows.filter(({summary}) => summary).map(({options}) => options);
    const settings = SETTINGS.filter(
        ({text}) => runs.some((options) => text(options) !== text(runs[0])));
    const scale = lagScale(rows);
    const table = byId('comparison-table');
    table.replaceChildren(headOf(settings, scale),
        ...byRecording(rows).map(([name, group]) => groupOf(name, group, settings, scale)));
    showSettings(comparison, settings);
    byId('comparison-note').textContent = 'The lag\u2019s line reaches from the least to the most, ' +
        'its bar from the median (stroke) to the 95th percentile; the strong line is the press. ' +
        'All rows share one scale.';
    show('comparison');
    hintAtScroll(table.parentElement, byId('comparison-hint'));
}
