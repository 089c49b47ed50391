import {byId, element, show, svgElement, tableHead} from './dom.js';
import {ms, number, orNone, whole, words} from './format.js';

const WIDTH = 100;

/// Settings that are told where they differ.
const SETTINGS = [
    {label: 'Offset', text: ({offsetNs}) => orNone(offsetNs === null ? null : offsetNs / 1e6)},
    {label: 'Frames', text: ({framesPerCapture}) => whole(framesPerCapture)},
    {label: 'History', text: ({historySize}) => whole(historySize)},
    {label: 'Frame sync', text: ({frameSync}) => (frameSync ? 'yes' : 'no')},
];

/// The reasons by frequency, as `time 12, focus 3`.
function refusals(counts) {
    if (!counts) {
        return orNone(null);
    }
    const reasons = Object.entries(counts)
        .filter(([reason, count]) => reason !== 'total' && count > 0)
        .sort((a, b) => b[1] - a[1])
        .map(([reason, count]) => `${words(reason)} ${whole(count)}`);
    return reasons.length > 0 ? reasons.join(', ') : 'none';
}

const NUMBERS = [
    {label: 'At once', text: ({summary}) => whole(summary?.atOnce)},
    {label: 'Waited', text: ({summary}) => whole(summary?.waited)},
    {label: 'Timed out', text: ({summary}) => whole(summary?.timedOut)},
    {label: 'Flushed', text: ({summary}) => whole(summary?.flushed)},
    {label: 'Lag min', text: ({summary}) => ms(summary?.lag.minNs)},
    {label: 'Lag median', text: ({summary}) => ms(summary?.lag.medianNs)},
    {label: 'Lag 95 %', text: ({summary}) => ms(summary?.lag.p95Ns)},
    {label: 'Lag max', text: ({summary}) => ms(summary?.lag.maxNs)},
    {label: 'Wait median', text: ({summary}) => ms(summary?.wait.medianNs)},
    {label: 'Wait max', text: ({summary}) => ms(summary?.wait.maxNs)},
    {label: 'Longest held', text: ({ledger}) => ms(ledger?.longestHeldNs)},
    {label: 'Refusals', text: (row) => refusals(row.refusals), isText: true},
];

/// The place of lags in a drawing that all rows share; null where there are none.
function lagScale(rows) {
    const lags = rows.filter(({summary}) => summary?.lag.count > 0)
        .flatMap(({summary}) => [summary.lag.minNs, summary.lag.maxNs]);
    if (lags.length === 0) {
        return null;
    }
    const low = Math.min(0, ...lags);
    const span = Math.max(0, ...lags) - low || 1;
    return (lag) => (lag - low) / span * WIDTH;
}

function lagRange(summary, scale) {
    if (!scale || !(summary?.lag.count > 0)) {
        return '';
    }
    const {minNs, medianNs, p95Ns, maxNs} = summary.lag;
    const [min, median, p95, max] = [minNs, medianNs, p95Ns, maxNs].map(scale);
    const line = (tone, x1, x2, y1, y2) => svgElement('line', {class: tone, x1, x2, y1, y2,
        'vector-effect': 'non-scaling-stroke'});
    return svgElement('svg', {class: 'range', viewBox: `0 0 ${WIDTH} 18`,
        preserveAspectRatio: 'none', 'aria-hidden': 'true'},
    line('zero', scale(0), scale(0), 0, 18), line('span', min, max, 9, 9),
    line('box', median, p95, 9, 9), line('median', median, median, 3, 15));
}

function rowsOf(data, settings, scale) {
    const cells = settings.map(({text}) => element('td', {}, text(data.options)));
    const texts = NUMBERS.map((column) => element('td',
        {class: column.isText ? 'text wrap' : ''}, column.text(data)));
    const row = element('tr', {},
        element('th', {scope: 'row', class: 'text'}, data.options.policy), ...cells,
        element('td', {class: `text status-${data.status}`}, data.status),
        element('td', {}, lagRange(data.summary, scale)), ...texts);
    const broken = data.brokenLimits.map(({limit, found}) =>
        `--fail-if ${limit}: found ${found === null ? 'no value' : number(found, 2)}`);
    const why = [...data.problems, ...broken].join('; ');
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
        const {path} = data.recording;
        groups.set(path, [...groups.get(path) ?? [], data]);
    }
    return [...groups];
}

export function showComparison(rows) {
    const runs = rows.filter(({summary}) => summary).map(({options}) => options);
    const settings = SETTINGS.filter(
        ({text}) => runs.some((options) => text(options) !== text(runs[0])));
    const scale = lagScale(rows);
    byId('comparison-table').replaceChildren(
        tableHead([{label: 'Policy', isText: true}, ...settings,
            {label: 'Result', isText: true}, {label: 'Lag', isText: true}, ...NUMBERS]),
        ...byRecording(rows).map(([name, group]) => groupOf(name, group, settings, scale)));
    byId('comparison-note').textContent = 'The lag\u2019s line reaches from the least to the most, ' +
        'its bar from the median (stroke) to the 95th percentile; the faint stroke is the press. ' +
        'All rows share one scale. Times are in ms.';
    show('comparison');
}
