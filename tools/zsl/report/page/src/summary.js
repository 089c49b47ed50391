import {byId, definitions, element, show, swatch} from './dom.js';
import {counted, ms, number, OUTCOMES, seconds, timeAndUnit, toneOf, whole, words} from './format.js';

function tile(label, field, value, unit, tone) {
    const head = element('div', {class: 'label'}, label);
    if (tone) {
        head.prepend(swatch(tone));
    }
    const text = element('div', {class: 'value'}, element('span', {'data-field': field}, value));
    if (unit) {
        text.append(element('span', {class: 'unit'}, ` ${unit}`));
    }
    return element('div', {class: 'tile'}, head, text);
}

function tiles(model) {
    const {summary} = model.replay;
    const made = [tile('Answered', 'answeredCaptures', whole(summary.answeredCaptures),
        `of ${whole(summary.captures)}`)];
    for (const outcome of OUTCOMES.filter((each) => each in summary)) {
        const count = summary[outcome];
        if (outcome !== 'unanswered' || count > 0) {
            const label = words(outcome);
            made.push(tile(label[0].toUpperCase() + label.slice(1), outcome, whole(count), count === 1 ? 'frame' : 'frames',
                toneOf(outcome)));
        }
    }
    if (summary.withoutHistory > 0) {
        made.push(tile('No history', 'withoutHistory', whole(summary.withoutHistory),
            summary.withoutHistory === 1 ? 'frame' : 'frames'));
    }
    if (summary.lag.count > 0) {
        made.push(tile('Median lag', 'lag.medianNs', ...timeAndUnit(summary.lag.medianNs)));
        made.push(tile('95 % lag', 'lag.p95Ns', ...timeAndUnit(summary.lag.p95Ns)));
    }
    made.push(tile('Longest wait', 'wait.maxNs', ...timeAndUnit(summary.wait.maxNs)));
    return made;
}

/// `counts` by tone.
function showShares(counts) {
    byId('shares').replaceChildren(...counts.filter(([, count]) => count > 0).map(([tone, count]) => {
        const share = element('span', {class: tone});
        share.style.flexGrow = count;
        return share;
    }));
    show('summary');
}

export function showSummary(model) {
    const {summary} = model.replay;
    byId('tiles').replaceChildren(...tiles(model));
    showShares(OUTCOMES.map((outcome) => [toneOf(outcome), summary[outcome] ?? 0]));
}

/// What became of a log's captures, by their outcomes.
export function showLogSummary({captures, log}) {
    const outcomes = captures.map(({outcome, isCertain}) => (outcome === 'unknown' ||
        (outcome === 'pending' && !isCertain) ? 'notTold' : outcome));
    const counts = [['served', 'at-once'], ['timedOut', 'timed-out'], ['flushed', 'flushed'],
        ['pending', 'pending'], ['notTold', 'not-told']]
        .map(([outcome, tone]) => ({outcome, tone, count: outcomes.filter((each) => each === outcome).length}));
    const longest = captures.reduce((most, {waitNs}) => (most === null || waitNs > most ? waitNs : most), null);
    byId('tiles').replaceChildren(
        ...counts.filter(({outcome, count}) => count > 0 || ['served', 'timedOut', 'flushed'].includes(outcome))
            .map(({outcome, tone, count}) => {
                const label = words(outcome);
                return tile(label[0].toUpperCase() + label.slice(1), outcome, whole(count),
                    `of ${whole(captures.length)}`, tone);
            }),
        ...longest === null ? [] : [tile('Longest wait', 'waitNs', ...timeAndUnit(longest))],
        tile('Error lines', 'errorLines', whole(log.errorLines)));
    showShares(counts.map(({tone, count}) => [tone, count]));
}

const STATES = {afMode: 'AF mode', afState: 'AF state', lensState: 'lens state',
    aeStable: 'AE stable', frameSync: 'frame sync', sensorId: 'sensor id', sensorMode: 'sensor mode'};

function missingText(missing) {
    return Object.entries(STATES)
        .filter(([key]) => missing[key] > 0)
        .map(([key, name]) => `${name} in ${counted(missing[key], 'frame', 'frames')}`)
        .join(', ');
}

/// The recording's own and those that faults made of good ones.
function unusableText(recording, faults) {
    const injected = faults?.strikes['image-error'] ?? 0;
    return [[recording.framesWithError, 'in the recording'], [injected, 'injected']]
        .filter(([count]) => count > 0).map(([count, where]) => `${whole(count)} ${where}`).join(', ');
}

function recordingFacts({recording, faults}) {
    const gaps = recording.gaps === 0 ? 'none'
        : `${whole(recording.gaps)}, up to ${ms(recording.largestGapNs)} ms`;
    return definitions([
        ['File', recording.path],
        ['Frames', whole(recording.frames)],
        ['Length', `${seconds(recording.lengthNs)} s`],
        ['Rate', `${number(recording.framesPerSecond, 2)} frames/s`],
        ['Interval', `median ${ms(recording.medianIntervalNs)} ms, from ` +
            `${ms(recording.minIntervalNs)} to ${ms(recording.maxIntervalNs)} ms`],
        ['Jitter', `${ms(recording.jitterNs)} ms`],
        ['Gaps', gaps],
        ['Missing states', missingText(recording.missingStates)],
        ['Unusable images', unusableText(recording, faults)],
        ['Notes', recording.notes.join('; ')],
    ]);
}

function faultsText(faults) {
    const strikes = Object.entries(faults.strikes).map(([kind, count]) => `${kind} ${whole(count)}`);
    return `${strikes.join(', ')} (random seed ${faults.randomSeed})`;
}

function settings(options, faults) {
    const delay = (ns, fallback) => (ns === null ? fallback : `${ms(ns)} ms`);
    const times = (list) => list.map((ns) => `${seconds(ns)} s`).join(', ');
    const properties = Object.entries(options.properties).map(([key, value]) => `${key}=${value}`);
    return definitions([
        ['Policy', options.policy],
        ['Time-out', options.timeoutNs === null ? '' : `${whole(options.timeoutNs / 1e6)} ms`],
        ['Frames per capture', whole(options.framesPerCapture)],
        ['History', counted(options.historySize, 'frame', 'frames')],
        ['ZSL offset', `${whole(options.offsetNs / 1e6)} ms`],
        ['Frame sync', options.frameSync ? 'wanted' : ''],
        ['Delivery delay', delay(options.deliveryDelayNs, 'the frame\u2019s duration')],
        ['Reprocessing', delay(options.reprocessDelayNs, 'the median interval')],
        ['Flushes', times(options.flushAtNs)],
        ['Properties', properties.join(' ')],
        ['Faults', faults ? faultsText(faults) : ''],
    ]);
}

function ledgerFacts(replay) {
    const {ledger, summary} = replay;
    const out = ledger.withProcessor + ledger.withFrameBuilder;
    return definitions([
        ['Handed out', whole(ledger.handedOut)],
        ['Given back', `${whole(ledger.returned)} returned, ${whole(ledger.consumed)} consumed, ` +
            `${whole(ledger.released)} released`],
        ['Still out', whole(out)],
        ['Lost', whole(ledger.lost)],
        ['Longest held', `${ms(ledger.longestHeldNs)} ms`],
        ['Left the history', `${counted(summary.droppedFrames, 'frame', 'frames')} unused`],
        ['Error lines', whole(summary.logErrorLines)],
    ]);
}

const titled = (title, body) => element('div', {}, element('h3', {}, title), body);

export function showLogFacts({log, flushReturns, errors}) {
    const lines = definitions([
        ['File', log.path ?? 'standard input'],
        ['Lines', whole(log.lines)],
        ...[['Of the processor', 'processor'], ['Of others', 'foreign'], ['Errors', 'error'], ['Cut', 'cut'],
            ['Out of order', 'outOfOrder'], ['Of another thread in a try', 'interleaved'],
            ['Of no known capture', 'unassigned'], ['The provider\u2019s dumps', 'dump'],
            ['Not recognised', 'unrecognised']]
            .map(([term, kind]) => [term, log[`${kind}Lines`] > 0 ? whole(log[`${kind}Lines`]) : '']),
    ]);
    const texts = [
        ...flushReturns.map(({line, selector, sets}) =>
            `line ${line}: a flush gave back ${counted(sets, 'set', 'sets')} that ${selector} kept locked`),
        ...errors.map(({line, text}) => `line ${line}: ${text}`)];
    byId('facts-title').textContent = 'Log';
    byId('facts-body').replaceChildren(titled('How its lines were taken', lines), ...texts.length === 0 ? []
        : [titled('Outside the captures', element('ul', {}, ...texts.map((text) => element('li', {}, text))))]);
    show('facts');
}

export function showFacts(replay) {
    byId('facts-body').replaceChildren(
        titled('Recording', recordingFacts(replay)),
        element('div', {}, titled('Replay', settings(replay.options, replay.faults)),
            titled('Buffer sets', ledgerFacts(replay))));
    byId('dumps').replaceChildren(...replay.dumps.map((dump) => element('details', {},
        element('summary', {}, `Dump at ${seconds(dump.timeNs)} s`),
        element('pre', {}, dump.lines.join('\n')))));
    show('facts');
}
