import {definitions, element} from './dom.js';
import {afMode, afState, counted, lensState, measure, ms, number, orNone, seconds, verdictText, whole, words} from './format.js';

const MAX_LINES = 8;

function list(lines) {
    const shown = lines.slice(0, MAX_LINES).map((line) => element('li', {}, line));
    if (lines.length > MAX_LINES) {
        shown.push(element('li', {}, `and ${lines.length - MAX_LINES} more`));
    }
    return element('ul', {}, ...shown);
}

/// A capture that waits judges a frame anew in each try, mostly alike.
function verdictLines(verdicts) {
    const alike = new Map();
    for (const {capture, attempt, candidate} of verdicts) {
        const text = verdictText(capture, candidate);
        const key = `${capture.requestNo} ${text}`;
        const entry = alike.get(key) ?? {capture, text, first: attempt.first};
        entry.last = attempt.last;
        alike.set(key, entry);
    }
    return [...alike.values()].map(({capture, text, first, last}) => {
        const tries = first === last ? `try ${first}` : `tries ${first} to ${last}`;
        return `capture ${capture.requestNo}, ${tries}: ${text}`;
    });
}

function captureTip(capture) {
    const frames = capture.frames.map((frame) => {
        const lag = frame.lagNs === null ? '' : `, ${ms(frame.lagNs)} ms`;
        const chosen = frame.frameNo === null ? 'no history frame' : `history frame ${frame.frameNo}${lag}`;
        const waited = frame.waitNs > 0 ? ` after ${ms(frame.waitNs)} ms` : '';
        return `frame ${orNone(frame.index)} ${words(frame.served)}${waited}: ${chosen}`;
    });
    const faults = capture.faults.length > 0 ? `; injected: ${capture.faults.join(', ')}` : '';
    return [element('strong', {}, `Capture ${capture.requestNo}`),
        `${capture.origin === 'press' ? 'pressed' : 'wanted instant'} at ${seconds(capture.press * 1e9)} s${faults}`,
        list(frames)];
}

/// Of a frame, if the page has one; the tip says all about it.
function pictureOf({pictures}, frameNo) {
    if (!pictures?.has(frameNo)) {
        return [];
    }
    const picture = pictures.image(frameNo, '');
    picture.className = 'tip-picture';
    return [picture];
}

function choiceTip(model, {time, capture, frame}) {
    return [element('strong', {}, `Frame ${frame.frameNo} for capture ${capture.requestNo}`),
        ...pictureOf(model, frame.frameNo),
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

function tryTip(model, {time, until, capture, attempt}) {
    const refused = attempt.explanation?.candidates.filter((c) => c.verdict === 'refused').length;
    const {first, last} = attempt;
    const span = (from, to, text) => (first === last ? text(from) : `${text(from)} to ${text(to)}`);
    const age = (at) => ms(at * 1e9 - capture.press * 1e9);
    const which = first === last ? `Try ${first}` : `Tries ${first} to ${last}`;
    return [element('strong', {}, `${which} of capture ${capture.requestNo}`), definitions([
        ['Time', `${span(time, until, (at) => seconds(at * 1e9))} s`],
        ['Age', `${span(time, until, age)} ms after the press`],
        ['Served', counted(attempt.builtFrames.length, 'frame', 'frames')],
        ['Refused', refused === undefined ? '' : counted(refused, 'frame', 'frames')],
        ['Made', attempt.repeats > 0 ? `${whole(1 + attempt.repeats)} times, all alike` : ''],
        ['Injected', attempt.faults.join(', ')],
    ])];
}

function shutterTip({time, capture}) {
    return [element('strong', {}, `Early shutter of capture ${capture.requestNo}`),
        `tells ${seconds(time * 1e9)} s, ${ms((time - capture.press) * 1e9)} ms from the ${capture.origin}`];
}

function arrivalTip({frames}, {time, index}) {
    const age = time * 1e9 - frames.get('timeNs', index);
    return [element('strong', {}, `Frame ${frames.get('frameNo', index)} arrived`),
        `${seconds(time * 1e9)} s, ${ms(age)} ms after it began`];
}

function injectedTip({frames}, {capture, index, faults}) {
    const what = capture ? `Capture ${capture.requestNo}` : `Frame ${frames.get('frameNo', index)}`;
    return [element('strong', {}, what), `injected: ${faults}`];
}

const told = (value, text) => (value === null ? 'not told' : text(value));

function frameTip(model, i) {
    const {frames} = model;
    const get = (column) => frames.get(column, i);
    const measured = (column, text) => ((get(column) ?? null) === null ? '' : text(get(column)));
    const focus = {settled: 'settled', moving: 'not settled', unknown: 'not told'}[frames.focus(i)];
    const exposure = {settled: 'stable', moving: 'not stable', unknown: 'stability not told'};
    const time = frames.times[i];
    const distance = get('focusDistance');
    return [element('strong', {}, `Frame ${get('frameNo')}`), ...pictureOf(model, get('frameNo')), definitions([
        ['Time', `${seconds(time * 1e9)} s`],
        ['Interval', frames.intervalNs(i) === null ? '' : `${ms(frames.intervalNs(i))} ms`],
        ['Arrived', get('arrivalNs') === null ? '' : `${ms(get('arrivalNs') - get('timeNs'))} ms after it began`],
        ['Exposure', `${told(get('exposureNs'), (ns) => `${ms(ns)} ms`)}, ${exposure[frames.exposure(i)]}`],
        ['ISO', get('iso')],
        ['Focus', distance === null ? focus : `${focus}, ${number(distance, 2)} diopters`],
        ['AF mode', afMode(get('afMode'))],
        ['AF state', afState(get('afState'))],
        ['Lens', lensState(get('lensState'))],
        ['Sharpness', measured('sharpness', measure)],
        ['Motion', measured('motion', measure)],
        ['Brightness', measured('brightness', measure)],
        ['Clipped', measured('clipped', (share) => number(share, 4))],
        ['Frame sync', get('frameSync') === null ? 'not told' : ''],
        ['Image', get('hasError') ? 'unusable' : ''],
        ['Injected', get('faults') ?? ''],
    ])];
}

/// The tooltip's content for what hit() found.
export function tipOf(model, found) {
    const tip = contentOf(model, found);
    return found.others > 0 ? [...tip, element('p', {class: 'others'},
        `${whole(found.others)} more ${found.others === 1 ? 'mark' : 'marks'} here: zoom in`)] : tip;
}

function contentOf(model, {kind, item}) {
    switch (kind) {
        case 'captures':
            return captureTip(item);
        case 'tries':
            return tryTip(model, item);
        case 'shutters':
            return shutterTip(item);
        case 'arrivals':
            return arrivalTip(model, item);
        case 'injected':
            return injectedTip(model, item);
        case 'choices':
            return choiceTip(model, item);
        case 'refusals':
            return markTip(model, item, 'refused');
        case 'kept':
            return markTip(model, item, 'set aside');
        default:
            return frameTip(model, item);
    }
}
