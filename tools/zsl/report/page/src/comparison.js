import {byId, definitions, element, show, svgElement} from './dom.js';
import {axisLabels, counted, ms, number, orNone, whole, words} from './format.js';
import {changeOf, fillTable, showRanking, showSince} from './standing.js';

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

/// The reasons by frequency, as `time 12, focus 3`; a policy's own by their names.
function refusals(refused) {
    const {own = [], ...counts} = refused ?? {};
    const known = Object.entries(counts)
        .filter(([word]) => word !== 'total' && (word !== 'unknown' || own.length === 0))
        .map(([word, count]) => ({criterion: words(word), count}));
    const reasons = [...known, ...own].filter(({count}) => count > 0)
        .sort((a, b) => b.count - a.count)
        .map(({criterion, count}) => `${criterion} ${whole(count)}`);
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

/// The policy, with its options.
function policyOf(name, {policyOptions}) {
    const options = Object.entries(policyOptions ?? {}).map(([key, value]) => `${key}=${value}`);
    return [name, ...options].join(' ');
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

/// Why a run is not in order, and what it did beside its numbers.
function remarksOf({problems, brokenLimits, refusals: counts, summary}, changes) {
    const broken = (brokenLimits ?? []).map(({limit, found}) =>
        `--fail-if ${limit}: found ${found === null ? 'no value' : number(found, 2)}`);
    const worse = changes.filter(({trend}) => trend === 'worse').map(changeOf);
    return [...problems ?? [], ...broken,
        worse.length > 0 ? `worse than the baseline: ${worse.join(', ')}` : '',
        refusals(counts), chosenFrames(summary)].filter(Boolean).join('; ');
}

/// Where a run has a page of its own, beside this one or wherever it lies from here.
const addressOf = (link) => link.split('/').map(encodeURIComponent).join('/');

/// `run`: {data, policy, status, link, changes}.
function rowsOf({data, policy, status, link, changes}, settings, scale) {
    const name = policyOf(policy, data.options);
    const row = element('tr', {},
        element('th', {scope: 'row', class: 'text', title: data.options.policy},
            link ? element('a', {class: 'name', href: addressOf(link)}, name)
                : element('span', {class: 'name'}, name)),
        ...settings.map(({text}) => element('td', {}, text(data.options))),
        element('td', {class: `text status-${status}`}, orNone(status)),
        ...scale ? [element('td', {}, lagRange(data.summary, scale))] : [],
        ...NUMBERS.map(({text}) => element('td', {}, text(data))));
    const why = remarksOf(data, changes);
    if (!why) {
        return [row];
    }
    const span = row.children.length;
    return [row, element('tr', {class: 'further'}, element('td', {class: 'text why', colSpan: span},
        element('span', {}, why)))];
}

/// Rows below a heading, if they have one.
function groupOf(heading, runs, settings, scale) {
    const made = runs.flatMap((run) => rowsOf(run, settings, scale));
    if (heading) {
        made.unshift(element('tr', {class: 'group'},
            element('th', {scope: 'rowgroup', class: 'text', colSpan: made[0].children.length},
                element('span', {}, heading))));
    }
    return element('tbody', {}, ...made);
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
    show('settings');
}

/// A function that finds the changes of a row or of a total.
function changesBy(changes) {
    const found = new Map();
    for (const change of changes) {
        const key = change.total === null ? `row ${change.row}` : `total ${change.total}`;
        found.set(key, [...found.get(key) ?? [], change]);
    }
    return (kind, i) => found.get(`${kind} ${i}`) ?? [];
}

/// `data`: the page's, whose settings are those of each recording's rows, in their order.
export function showComparison({comparison, settings: named, links, since}) {
    const {rows, totals, baseline} = comparison;
    const options = rows.filter(({summary}) => summary).map((row) => row.options);
    const settings = SETTINGS.filter(
        ({text}) => options.some((each) => text(each) !== text(options[0])));
    const scale = lagScale(rows);
    const changesOf = changesBy(baseline?.changes ?? []);
    showSettings(comparison, settings);
    showSince(comparison, named, since);
    showRanking(comparison, named);
    const count = totals.recordings + totals.leftOutRecordings;
    if (count > 1) {
        byId('totals-title').textContent = `Total of ${counted(totals.recordings, 'recording', 'recordings')}`;
        const sums = totals.rows.map((data, i) => {
            const changes = changesOf('total', i);
            const isWorse = changes.some(({trend}) => trend === 'worse');
            return {data, policy: named[i].policy, status: isWorse ? 'worse' : '', changes};
        });
        fillTable('totals', totals.leftOutRecordings === 0 ? ''
            : `Without ${counted(totals.leftOutRecordings, 'recording', 'recordings')} in which a run failed.`,
        headOf(settings, scale), groupOf('', sums, settings, scale));
    }
    const runs = rows.map((data, i) => ({data, policy: named[i % named.length].policy,
        status: data.status, link: links[i], changes: changesOf('row', i)}));
    const groups = Array.from({length: count}, (_, i) => runs.slice(i * named.length, (i + 1) * named.length));
    fillTable('comparison', 'The lag\u2019s line reaches from the least to the most, ' +
        'its bar from the median (stroke) to the 95th percentile; the strong line is the press. ' +
        `All rows share one scale.${links.some(Boolean) ? ' A policy\u2019s name leads to the run\u2019s own page.' : ''}`,
    headOf(settings, scale),
    ...groups.map((group) => groupOf(group[0].data.recording.path, group, settings, scale)));
}
