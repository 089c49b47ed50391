const NONE = '\u2013';
const MINUS = '\u2212';

/// Half away from zero, as in the text: toFixed() rounds the nearest double, which may lie below.
function fixed(value, decimals, unit = 1) {
    const steps = Math.round(Math.abs(value) / (unit / 10 ** decimals));
    const text = (steps / 10 ** decimals).toFixed(decimals);
    return value < 0 && steps !== 0 ? MINUS + text : text;
}

const isMissing = (value) => value === null || value === undefined;

export const ms = (ns) => (isMissing(ns) ? NONE : fixed(ns, 2, 1e6));
export const wholeMs = (ns) => (isMissing(ns) ? NONE : whole(Math.round(ns / 1e6)));
export const seconds = (ns) => (isMissing(ns) ? NONE : fixed(ns, 3, 1e9));
const LONG_TIMES = [[3600e9, 'h'], [60e9, 'min'], [10e9, 's']];

/// A time and its unit, which grows with it so that the number stays short.
export function timeAndUnit(ns) {
    const [unit, name] = LONG_TIMES.find(([least]) => Math.abs(ns ?? 0) >= least) ?? [1e6, 'ms'];
    return [isMissing(ns) ? NONE : fixed(ns, 2, name === 's' ? 1e9 : unit), name];
}

export const number = (value, decimals) => (isMissing(value) ? NONE : fixed(value, decimals));
/// Of a picture: small ones differ in their decimals.
export const measure = (value) => number(value, Math.abs(value) >= 99.5 ? 0 : Math.abs(value) >= 9.95 ? 1 : 2);

/// `9.20 (0.76 of best)`; empty where it is not known.
export const sharpnessText = ({sharpness, share}) => (isMissing(sharpness) ? ''
    : `${measure(sharpness)}${isMissing(share) ? '' : ` (${number(share, 2)}\u00a0of\u00a0best)`}`);

export const orNone = (value) => (isMissing(value) || value === '' ? NONE : String(value));
export const whole = (value) => (isMissing(value) ? NONE : value.toLocaleString('en-US'));

export function counted(count, one, many) {
    return `${whole(count)} ${count === 1 ? one : many}`;
}

/// Labels of an axis, with as many decimals as the step between them needs.
export function axisLabels(values) {
    const step = values.length > 1 ? Math.abs(values[1] - values[0]) : 1;
    const decimals = Math.min(6, Math.max(0, Math.ceil(-Math.log10(step) - 1e-6)));
    const isHalf = Math.abs(step * 10 ** decimals % 1) > 1e-6;
    return values.map((value) => fixed(value, isHalf ? decimals + 1 : decimals));
}

/// How a frame can be served, in the data's words; the page writes them apart.
export const OUTCOMES = ['atOnce', 'waited', 'timedOut', 'flushed', 'unanswered', 'pending', 'notTold'];
const apart = (word, separator) => word.replace(/[A-Z]/g, (c) => separator + c.toLowerCase());
export const words = (word) => apart(word, ' ');
export const toneOf = (word) => apart(word, '-');

/// What a frame was held against, or what it had; empty for nothing. Instants count from the
/// capture's: absolute ones have 14 digits.
export function valueFrom({pressNs, origin}, value) {
    if (!value) {
        return '';
    }
    const number = isMissing(value.ns) ? value.value : isMissing(pressNs) ? `${value.ns} ns`
        : `${origin} ${value.ns < pressNs ? '' : '+'}${ms(value.ns - pressNs)} ms`;
    return value.text ?? (value.op ? `${value.op} ${number}` : String(number));
}

/// What a candidate is for or why it was refused.
export function reasonOf(candidate) {
    if (candidate.criterion) {
        return words(candidate.criterion);
    }
    return candidate.index === null ? '' : `for frame ${candidate.index}`;
}

/// A verdict with what was wanted and found.
export function verdictText(capture, candidate) {
    const reason = reasonOf(candidate);
    let why = candidate.verdict === 'refused' ? reason : `${candidate.verdict} ${reason}`.trim();
    const values = [['wanted', candidate.wanted], ['found', candidate.found]]
        .filter(([, value]) => value).map(([what, value]) => `${what} ${valueFrom(capture, value)}`).join(', ');
    if (values) {
        why += `: ${values}`;
    }
    return why;
}

const AF_MODES = ['off', 'auto', 'macro', 'continuous video', 'continuous picture', 'EDOF'];
const AF_STATES = ['inactive', 'passive scan', 'passive focused', 'active scan', 'focused, locked',
    'not focused, locked', 'passive unfocused'];
const LENS_STATES = ['stationary', 'moving'];

/// What the sensor told of a chosen frame, as `10.01 ms, ISO 82, focus settled`; of what it did not
/// tell nothing.
export function chosenText(chosen) {
    const sharpness = sharpnessText({...chosen?.picture, share: chosen?.picture?.sharpnessShare});
    const parts = !chosen ? [] : [
        isMissing(chosen.exposureNs) ? '' : `${ms(chosen.exposureNs)} ms`,
        isMissing(chosen.iso) ? '' : `ISO ${chosen.iso}`,
        isMissing(chosen.focusDistance) ? '' : `${fixed(chosen.focusDistance, 2)} dpt`,
        isMissing(chosen.isFocusSettled) ? '' : `focus ${chosen.isFocusSettled ? 'settled' : 'moving'}`,
        isMissing(chosen.isExposureSettled) ? '' : `AE ${chosen.isExposureSettled ? 'stable' : 'unstable'}`,
        sharpness ? `sharpness ${sharpness}` : '',
        chosen.hasImageError ? 'unusable' : ''];
    return parts.filter(Boolean).join(', ');
}

const named = (names, value) => (isMissing(value) ? 'not told' : names[value] ?? String(value));
export const afMode = (value) => named(AF_MODES, value);
export const afState = (value) => named(AF_STATES, value);
export const lensState = (value) => named(LENS_STATES, value);

/// `from` to `to` with the decimals that tell them apart.
export function fixedRange(from, to) {
    return axisLabels([from, to]).join(' to ');
}
