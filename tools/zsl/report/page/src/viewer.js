import {byId, definitions, element} from './dom.js';
import {measure, ms, number, sharpnessText, verdictText} from './format.js';

/// What the dialog shows: one frame of a capture's film.
let shown = null;

/// The last verdict that tells what was wanted and found; else in the strip's words.
function verdictOf(capture, {frameNo, served, verdict}) {
    const candidate = served ? null : capture.tries
        .flatMap(({explanation}) => explanation?.candidates ?? [])
        .findLast((each) => each.frameNo === frameNo && each.verdict === 'refused');
    return candidate ? `refused: ${verdictText(capture, candidate)}` : verdict;
}

function factsOf({frames}, capture, frame) {
    const get = (column) => (frame.index === undefined ? null : frames.get(column, frame.index) ?? null);
    const text = (column, show) => (get(column) === null ? '' : show(get(column)));
    return definitions([
        ['Lag', `${ms(frame.lagNs)} ms`],
        ['Sharpness', sharpnessText(frame)],
        ['Verdict', verdictOf(capture, frame)],
        ['Motion', text('motion', measure)],
        ['Brightness', text('brightness', measure)],
        ['Clipped', text('clipped', (share) => number(share, 4))],
        ['Exposure', text('exposureNs', (ns) => `${ms(ns)} ms`)],
        ['ISO', text('iso', String)],
    ]);
}

function figure({model, capture}, frame, title) {
    return element('figure', {}, model.pictures.image(frame.frameNo, frame.text),
        element('figcaption', {}, element('h3', {}, title), factsOf(model, capture, frame)));
}

/// Beside a chosen frame the sharpest, beside another the chosen one: what there was and what came.
function besideOf({model, film, frame}) {
    const beside = frame.served ? film.find(({isSharpest}) => isSharpest) : film.find(({served}) => served);
    return beside && beside !== frame && model.pictures.has(beside.frameNo) ? beside : null;
}

const namesOf = ({served, isPress, isSharpest}) => [...served ? ['chosen'] : [],
    ...isPress ? ['press'] : [], ...isSharpest ? ['sharpest'] : []].join(', ');

const titleOf = (frame) => `Frame ${frame.frameNo}${namesOf(frame) ? `: ${namesOf(frame)}` : ''}`;

function draw() {
    const {capture, film, frame, model} = shown;
    const beside = besideOf(shown);
    byId('viewer-title').textContent = `Capture ${capture.requestNo}, frame ${frame.frameNo}`;
    byId('viewer-pictures').replaceChildren(figure(shown, frame, titleOf(frame)),
        ...beside ? [figure(shown, beside, titleOf(beside))] : []);
    const steps = film.filter(({frameNo}) => model.pictures.has(frameNo));
    for (const [action, end] of [['earlier', steps[0]], ['later', steps.at(-1)]]) {
        // Not disabled: that would take the focus from it, and with it the keys.
        byId('viewer').querySelector(`[data-do=${action}]`).setAttribute('aria-disabled', String(frame === end));
    }
}

function go(frame) {
    if (frame) {
        shown.frame = frame;
        draw();
    }
}

/// To the next picture on that side, past frames that have none.
function step(direction) {
    const {film, frame, model} = shown;
    const way = direction > 0 ? film.slice(film.indexOf(frame) + 1) : film.slice(0, film.indexOf(frame)).reverse();
    go(way.find(({frameNo}) => model.pictures.has(frameNo)));
}

const ACTIONS = {
    earlier: () => step(-1),
    later: () => step(1),
    close: () => byId('viewer').close(),
};
const KEYS = {ArrowLeft: 'earlier', ArrowRight: 'later'};

function connect(dialog) {
    dialog.addEventListener('keydown', (event) => {
        if (KEYS[event.key] && !event.ctrlKey && !event.metaKey && !event.altKey) {
            event.preventDefault();
            ACTIONS[KEYS[event.key]]();
        }
    });
    dialog.addEventListener('click', ({target}) => {
        // Outside of the dialog's content lies what it hides.
        (ACTIONS[target.dataset.do] ?? (target === dialog ? ACTIONS.close : () => {}))();
    });
}

/// Enlarges a frame of a capture's film. The browser gives the focus back where it was.
export function openViewer(model, capture, film, frame) {
    const dialog = byId('viewer');
    if (!shown) {
        connect(dialog);
    }
    shown = {model, capture, film, frame};
    draw();
    dialog.showModal();
}
