import {reasonOf} from './captures.js';
import {definitions, element} from './dom.js';
import {afMode, afState, lensState, ms, number, seconds, valueText, words} from './format.js';

const MAX_LINES = 8;

function list(lines) {
    const shown = lines.slice(0, MAX_LINES).map((line) => element('li', {}, line));
    if (lines.length > MAX_LINES) {
        shown.push(element('li', {}, `and ${lines.length - MAX_LINES} more`));
    }
    return element('ul', {}, ...shown);
}

function verdictText(candidate) {
    const reason = reasonOf(candidate);
    let why = candidate.verdict === 'refused' ? reason : `${candidate.verdict} ${reason}`.trim();
    const values = [['wanted', candidate.wanted], ['found', candidate.found]]
        .filter(([, value]) => value).map(([what, value]) => `${what} ${valueText(value)}`).join(', ');
    if (values) {
        why += `: ${values}`;
    }
    return why;
}

/// A capture that waits judges a frame anew in each try, mostly alike.
function verdictLines(verdicts) {
    const alike = new Map();
    for (const {capture, attempt, candidate} of verdicts) {
        const text = verdictText(candidate);
        const key = `${capture.requestNo} ${text}`;
        const entry = alike.get(key) ?? {capture, text, first: attempt, last: attempt};
        entry.last = attempt;
        alike.set(key, entry);
    }
    return [...alike.values()].map(({capture, text, first, last}) => {
        const tries = first === last ? `try ${first}` : `tries ${first} to ${last}`;
        return `capture ${capture.requestNo}, ${tries}: ${text}`;
    });
}

function captureTip(capture) {
    const frames = capture.frames.map((frame) => {
        const chosen = frame.frameNo === null ? 'no history frame'
            : `history frame ${frame.frameNo}, ${ms(frame.lagNs)} ms`;
        const waited = frame.waitNs > 0 ? ` after ${ms(frame.waitNs)} ms` : '';
        return `frame ${frame.index} ${words(frame.served)}${waited}: ${chosen}`;
    });
    return [element('strong', {}, `Capture ${capture.requestNo}`),
        `pressed at ${seconds(capture.press * 1e9)} s`, list(frames)];
}

function choiceTip({time, capture, frame}) {
    return [element('strong', {}, `Frame ${frame.frameNo} for capture ${capture.requestNo}`),
        definitions([
            ['Time', `${seconds(time * 1e9)} s`],
            ['Lag', `${ms(frame.lagNs)} ms`],
            ['Served', words(frame.served)],
            ['Waited', `${ms(frame.waitNs)} ms`],
        ])];
}

function markTip(model, mark, title) {
    const frameNo = model.frames.get('frameNo', mark.index);
    return [element('strong', {}, `Frame ${frameNo} ${title}`),
        `${seconds(mark.time * 1e9)} s`, list(verdictLines(mark.verdicts))];
}

function frameTip({frames}, i) {
    const get = (column) => frames.get(column, i);
    const focus = {settled: 'settled', moving: 'not settled', unknown: 'not told'}[frames.focus(i)];
    const exposure = {settled: 'stable', moving: 'not stable', unknown: 'stability not told'};
    const time = frames.times[i];
    const distance = get('focusDistance');
    return [element('strong', {}, `Frame ${get('frameNo')}`), definitions([
        ['Time', `${seconds(time * 1e9)} s`],
        ['Interval', i > 0 ? `${ms((time - frames.times[i - 1]) * 1e9)} ms` : ''],
        ['Exposure', `${ms(get('exposureNs'))} ms, ${exposure[frames.exposure(i)]}`],
        ['ISO', get('iso')],
        ['Focus', distance === null ? focus : `${focus}, ${number(distance, 2)} diopters`],
        ['AF mode', afMode(get('afMode'))],
        ['AF state', afState(get('afState'))],
        ['Lens', lensState(get('lensState'))],
        ['Frame sync', get('frameSync') === null ? 'not told' : ''],
        ['Image', get('hasError') ? 'unusable' : ''],
    ])];
}

/// The tooltip's content for what hit() found.
export function tipOf(model, {kind, item}) {
    switch (kind) {
        case 'captures':
            return captureTip(item);
        case 'choices':
            return choiceTip(item);
        case 'refusals':
            return markTip(model, item, 'refused');
        case 'kept':
            return markTip(model, item, 'set aside');
        default:
            return frameTip(model, item);
    }
}
