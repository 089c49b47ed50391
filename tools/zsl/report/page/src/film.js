import {byId, element} from './dom.js';
import {measure, ms, number, reasonOf, sharpnessText, toneOf, wholeMs} from './format.js';
import {openViewer} from './viewer.js';

/// The tries that gave a capture its frames.
function decidingTries({frames, tries}) {
    const served = new Set(frames.map((frame) => frame.try));
    return tries.filter((_, i) => served.has(i));
}

function verdictOf(capture, tries, frameNo, offered) {
    const got = capture.frames.filter((frame) => frame.frameNo === frameNo);
    if (got.length > 0) {
        const which = capture.frames.length > 1 ? ` for frame ${got.map(({index}) => index).join(', ')}` : '';
        return `${got[0].served === 'timedOut' ? 'given after the time-out' : 'chosen'}${which}`;
    }
    const candidate = tries.flatMap(({explanation}) => explanation?.candidates ?? [])
        .findLast((each) => each.frameNo === frameNo);
    if (candidate) {
        return candidate.verdict === 'refused' ? `refused: ${reasonOf(candidate)}`
            : `${candidate.verdict} ${reasonOf(candidate)}`.trim();
    }
    if (offered.has(frameNo)) {
        return 'not taken';
    }
    return tries.some(({inFlightFrames}) => inFlightFrames.includes(frameNo)) ? 'still in flight'
        : 'not in the history';
}

function describe({frameNo, lagNs, sharpness, share, verdict, isPress}) {
    const side = lagNs > 0 ? 'after' : 'before';
    return [`frame ${frameNo}`, ...lagNs === null ? [] : [`${wholeMs(Math.abs(lagNs))} ms ${side} the press`],
        ...sharpnessText({sharpness, share}) ? [`sharpness ${sharpnessText({sharpness, share})}`] : [], verdict,
        ...isPress ? ['press frame'] : []].join(', ');
}

/// What a capture could choose from when it did, in order of time, and the press frame: that alone of
/// one that never could.
export function filmOf(model, capture) {
    const {frames} = model;
    const tries = decidingTries(capture);
    const offered = new Set(tries.flatMap(({historyFrames, lockedFrames}) => [...historyFrames, ...lockedFrames]));
    const press = capture.pressFrame ?? null;
    const chosen = new Map(capture.frames.filter(({frameNo}) => frameNo !== null)
        .map((frame) => [frame.frameNo, frame]));
    const numbers = new Set([...offered, ...chosen.keys(), ...press === null ? [] : [press]]);
    const film = [...numbers].map((frameNo) => {
        const index = frames.indexOf(frameNo);
        const isKnown = index !== undefined;
        return {
            frameNo,
            index,
            time: isKnown ? frames.times[index] : null,
            lagNs: isKnown ? Math.round((frames.times[index] - capture.press) * 1e9) : null,
            sharpness: isKnown ? frames.get('sharpness', index) : null,
            // As it was when it was chosen; of several tries the histories differ.
            share: chosen.get(frameNo)?.chosen?.picture?.sharpnessShare ?? null,
            served: chosen.get(frameNo)?.served ?? null,
            isOffered: offered.has(frameNo) || chosen.has(frameNo),
            isPress: frameNo === press,
            verdict: verdictOf(capture, tries.length > 0 ? tries : capture.tries.slice(-1), frameNo, offered),
        };
    }).sort((a, b) => (a.time ?? -Infinity) - (b.time ?? -Infinity) || a.frameNo - b.frameNo);
    const sharpest = film.filter(({isOffered, sharpness}) => isOffered && sharpness !== null)
        .reduce((best, frame) => (best && best.sharpness >= frame.sharpness ? best : frame), null);
    for (const frame of film) {
        frame.isSharpest = frame === sharpest;
        frame.share ??= sharpest && frame.sharpness !== null ? frame.sharpness / sharpest.sharpness : null;
        frame.text = describe(frame);
    }
    return film;
}

const badge = (tone, text) => element('span', {class: `badge ${tone}`}, text);

/// What a frame is, beside its number.
export function badgesOf({served, isPress, isSharpest}) {
    return [...served ? [badge(toneOf(served), served === 'timedOut' ? 'given' : 'chosen')] : [], ...isPress ? [badge('press', 'press')] : [],
        ...isSharpest ? [badge('sharpest', 'sharpest')] : []];
}

function shareBar({share}) {
    const bar = element('span', {class: 'share'}, element('span'));
    bar.firstChild.style.width = `${100 * Math.min(1, share ?? 0)}%`;
    return bar;
}

/// A frame's picture, which opens the film there; of a frame without one its empty place. It tells
/// screen readers all that stands below it.
function pictureOf(model, capture, film, frame) {
    const {pictures} = model;
    const picture = pictures.has(frame.frameNo)
        ? element('button', {type: 'button', class: 'picture', title: 'Enlarge',
            onclick: () => openViewer(model, capture, film, frame)}, pictures.image(frame.frameNo, frame.text))
        : element('div', {class: 'picture empty', role: 'img', 'aria-label': `${frame.text}, no picture`},
            String(frame.frameNo));
    picture.style.setProperty('--aspect', pictures.aspect);
    return picture;
}

/// Of a frame of a capture, if it got one from the history.
export function chosenPicture(model, capture, {frameNo}) {
    const film = frameNo === null ? [] : filmOf(model, capture);
    return film.filter((frame) => frame.frameNo === frameNo)
        .map((frame) => pictureOf(model, capture, film, frame));
}

function shot(model, capture, film, frame) {
    return element('li', {class: `shot ${frame.served ? `served ${toneOf(frame.served)}` : ''}`, 'data-frame': frame.frameNo},
        pictureOf(model, capture, film, frame),
        element('div', {class: 'about-shot', 'aria-hidden': 'true'}, shareBar(frame),
            element('div', {class: 'names'}, element('strong', {}, String(frame.frameNo)), ...badgesOf(frame)),
            element('div', {}, `${ms(frame.lagNs)} ms`),
            ...frame.sharpness === null ? [] : [element('div', {}, `sharpness ${measure(frame.sharpness)}`)],
            ...frame.share === null ? [] : [element('div', {}, `${number(frame.share, 2)} of best`)],
            element('div', {class: 'verdict-text'}, frame.verdict)));
}

/// The film strip of a capture, for the page; none where the page has no pictures.
export function filmStrip(model, capture) {
    if (!model.pictures || capture.press === null) {
        return [];
    }
    const film = filmOf(model, capture);
    const strip = element('ol', {class: 'film', tabIndex: 0, 'aria-label': `Pictures of capture ${capture.requestNo}`},
        ...film.map((frame) => shot(model, capture, film, frame)));
    strip.style.setProperty('--aspect', model.pictures.aspect);
    return [strip];
}

/// Enlarges a frame in the film of the capture that got it, else of the first that could have.
export function enlargeFrame(model, frameNo) {
    const isIn = (capture) => filmOf(model, capture).some((frame) => frame.frameNo === frameNo);
    const capture = model.placed.find(({frames}) => frames.some((frame) => frame.frameNo === frameNo)) ??
        model.placed.find(isIn);
    if (capture) {
        const film = filmOf(model, capture);
        openViewer(model, capture, film, film.find((frame) => frame.frameNo === frameNo));
    }
}

/// A long history is wider than the page: what was chosen is to be seen at once.
export function centreChosen() {
    const strip = byId('details-body').querySelector('.film');
    const chosen = strip?.querySelector('.served');
    if (chosen) {
        strip.scrollLeft = chosen.offsetLeft + chosen.offsetWidth / 2 - strip.clientWidth / 2;
    }
}
