import {byId, element, show, svgElement, tableHead} from './dom.js';
import {number, orNone, whole} from './format.js';

const SETTINGS = [['offsetMs', 'Offset'],
    ['framesPerCapture', 'Frames'], ['historyFrames', 'History'], ['frameSync', 'Frame sync']];
const REASON = 'refused_';
const WIDTH = 100;

const count = (field) => (numbers) => orNone(numbers && whole(numbers[field]));
const time = (field) => (numbers) => number(numbers?.[field], 2);

/// The reasons by frequency, as `time 12, focus 3`.
function refusals(numbers) {
    if (!numbers) {
        return orNone(null);
    }
    const reasons = Object.entries(numbers)
        .filter(([field, value]) => field.startsWith(REASON) && value > 0)
        .sort((a, b) => b[1] - a[1])
        .map(([field, value]) => `${field.slice(REASON.length).replaceAll('_', ' ')} ${whole(value)}`);
    return reasons.length > 0 ? reasons.join(', ') : 'none';
}

const NUMBERS = [
    {label: 'At once', text: count('at_once')},
    {label: 'Waited', text: count('waited')},
    {label: 'Timed out', text: count('timed_out')},
    {label: 'Flushed', text: count('flushed')},
    {label: 'Lag min', text: time('min_lag_ms')},
    {label: 'Lag median', text: time('median_lag_ms')},
    {label: 'Lag 95 %', text: time('p95_lag_ms')},
    {label: 'Lag max', text: time('max_lag_ms')},
    {label: 'Wait median', text: time('median_wait_ms')},
    {label: 'Wait max', text: time('max_wait_ms')},
    {label: 'Longest held', text: time('max_held_ms')},
    {label: 'Refusals', text: refusals, isText: true},
];

/// The place of lags in a drawing that all rows share; null where there are none.
function lagScale(rows) {
    const lags = rows.flatMap(({numbers}) => [numbers?.min_lag_ms, numbers?.max_lag_ms])
        .filter((lag) => lag !== null && lag !== undefined);
    if (lags.length === 0) {
        return null;
    }
    const low = Math.min(0, ...lags);
    const span = Math.max(0, ...lags) - low || 1;
    return (lag) => (lag - low) / span * WIDTH;
}

function lagRange(numbers, scale) {
    if (!scale || !numbers || numbers.min_lag_ms === null) {
        return '';
    }
    const [min, median, p95, max] = ['min_lag_ms', 'median_lag_ms', 'p95_lag_ms', 'max_lag_ms']
        .map((field) => scale(numbers[field]));
    const line = (tone, x1, x2, y1, y2) => svgElement('line', {class: tone, x1, x2, y1, y2,
        'vector-effect': 'non-scaling-stroke'});
    return svgElement('svg', {class: 'range', viewBox: `0 0 ${WIDTH} 18`,
        preserveAspectRatio: 'none', 'aria-hidden': 'true'},
    line('zero', scale(0), scale(0), 0, 18), line('span', min, max, 9, 9),
    line('box', median, p95, 9, 9), line('median', median, median, 3, 15));
}

function rowsOf(data, settings, scale) {
    const {numbers} = data;
    const cells = settings.map(([key]) => element('td', {},
        key === 'frameSync' ? (data[key] ? 'yes' : 'no') : orNone(data[key])));
    const texts = NUMBERS.map((column) => element('td',
        {class: column.isText ? 'text wrap' : ''}, column.text(numbers)));
    const row = element('tr', {},
        element('th', {scope: 'row', class: 'text'}, data.policy), ...cells,
        element('td', {class: `text status-${data.status}`}, data.status),
        element('td', {}, lagRange(numbers, scale)), ...texts);
    const why = [...data.problems, ...data.broken].join('; ');
    if (!why) {
        return [row];
    }
    const span = row.children.length;
    return [row, element('tr', {class: 'further'}, element('td', {class: 'text why', colSpan: span}, why))];
}

function groupOf(recording, rows, settings, scale) {
    const made = rows.flatMap((data) => rowsOf(data, settings, scale));
    const head = element('th', {scope: 'rowgroup', class: 'text', colSpan: made[0].children.length},
        recording);
    return element('tbody', {}, element('tr', {class: 'group'}, head), ...made);
}

function byRecording(rows) {
    const groups = new Map();
    for (const data of rows) {
        groups.set(data.recording, [...groups.get(data.recording) ?? [], data]);
    }
    return [...groups];
}

export function showComparison(rows) {
    const runs = rows.filter((data) => data.numbers);
    const settings = SETTINGS.filter(([key]) => runs.some((data) => data[key] !== runs[0][key]));
    const scale = lagScale(rows);
    byId('comparison-table').replaceChildren(
        tableHead([{label: 'Policy', isText: true}, ...settings.map(([, label]) => ({label})),
            {label: 'Result', isText: true}, {label: 'Lag', isText: true}, ...NUMBERS]),
        ...byRecording(rows).map(([name, group]) => groupOf(name, group, settings, scale)));
    byId('comparison-note').textContent = 'The lag\u2019s line reaches from the least to the most, ' +
        'its bar from the median (stroke) to the 95th percentile; the faint stroke is the press. ' +
        'All rows share one scale. Times are in ms.';
    show('comparison');
}
