import {byId, element, show, swatch, tableHead} from './dom.js';
import {centreChosen, chosenPicture, filmStrip} from './film.js';
import {chosenText, counted, ms, orNone, reasonOf, seconds, toneOf, valueFrom, whole, wholeMs, words} from './format.js';

const ROWS = 30;
const columnsOf = ({isLog, pictures}) => [{label: 'Capture'}, {label: isLog ? 'Wanted instant (s)' : 'Pressed (s)'},
    {label: 'Frame'}, {label: 'History frame'}, ...pictures ? [{label: 'Picture', isText: true}] : [], ...isLog ? [] : [{label: 'Lag (ms)'}],
    {label: 'Served', isText: true}, {label: 'Waited (ms)'}, {label: 'Tries'}, {label: 'Early shutter (ms)'}];

const pressText = ({press}) => seconds(press === null ? null : press * 1e9);

/// The table of the captures, a page at a time; a number is a link to its capture.
export class CaptureTable {
    constructor(model, onSelect) {
        this.captures = model.captures;
        const tellsChosen = model.captures.some(({frames}) => frames.some(({chosen}) => chosenText(chosen)));
        this.chosenOf = tellsChosen ? ({chosen}) => orNone(chosenText(chosen)) : null;
        this.faultsOf = model.replay?.faults ? faultTexts(model) : null;
        this.pictureOf = model.pictures ? (capture, frame) => chosenPicture(model, capture, frame) : null;
        this.hasLag = !model.isLog;
        this.waitOf = model.isLog ? ({waitNs}) => wholeMs(waitNs) : ({waitNs}) => ms(waitNs);
        this.onSelect = onSelect;
        this.pageSize = Math.max(1, Math.floor(ROWS / (model.captures[0]?.frames.length ?? 1)));
        this.page = 0;
        this.selected = null;
        this.body = element('tbody');
        byId('captures-table').replaceChildren(tableHead([...columnsOf(model),
            ...this.chosenOf ? [{label: 'Chosen frame', isText: true}] : [],
            ...this.faultsOf ? [{label: 'Injected', isText: true}] : []]), this.body);
        this.draw();
        show('captures');
    }

    select(capture) {
        this.selected = capture;
        this.page = Math.floor(capture.index / this.pageSize);
        this.draw();
    }

    draw() {
        const begin = this.page * this.pageSize;
        const rows = this.captures.slice(begin, begin + this.pageSize)
            .flatMap((capture) => this.rowsOf(capture));
        this.body.replaceChildren(...rows);
        byId('captures-pager').replaceChildren(...this.pager());
    }

    linkTo(capture) {
        const link = element('a', {href: capture.anchor, title: 'Why these frames?',
            onclick: (event) => { event.preventDefault(); this.onSelect(capture); }},
        String(capture.requestNo));
        link.setAttribute('aria-label', `Capture ${capture.requestNo}: why these frames?`);
        return link;
    }

    rowsOf(capture) {
        const shutter = capture.earlyShutterNs === null || capture.pressNs === null ? null
            : capture.earlyShutterNs - capture.pressNs;
        return capture.frames.map((frame, i) => element('tr',
            {class: `${i > 0 ? 'further' : ''} ${capture === this.selected ? 'selected' : ''}`},
            element('td', {}, i === 0 ? this.linkTo(capture) : ''),
            element('td', {}, i === 0 ? pressText(capture) : ''),
            element('td', {}, orNone(frame.index)),
            element('td', {}, orNone(frame.frameNo)),
            ...this.pictureOf ? [element('td', {class: 'text'}, ...this.pictureOf(capture, frame))] : [],
            ...this.hasLag ? [element('td', {}, ms(frame.lagNs))] : [],
            element('td', {class: 'text'}, swatch(toneOf(frame.served)), words(frame.served)),
            element('td', {}, this.waitOf(frame)),
            element('td', {}, i === 0 ? String(capture.tries.at(-1)?.last ?? 0) : ''),
            element('td', {}, i === 0 ? ms(shutter) : ''),
            ...this.chosenOf ? [element('td', {class: 'text wrap chosen'}, this.chosenOf(frame))] : [],
            ...this.faultsOf ? [element('td', {class: 'text wrap injected-text'}, this.faultsOf(capture, i))] : []));
    }

    pager() {
        const pages = Math.ceil(this.captures.length / this.pageSize);
        if (pages < 2) {
            return [];
        }
        const turn = (label, page) => element('button', {type: 'button',
            disabled: page < 0 || page >= pages,
            onclick: () => { this.page = page; this.draw(); }}, label);
        const begin = this.page * this.pageSize;
        const end = Math.min(begin + this.pageSize, this.captures.length);
        return [turn('Previous', this.page - 1), turn('Next', this.page + 1),
            `Captures ${whole(begin + 1)} to ${whole(end)} of ${whole(this.captures.length)}`];
    }
}

/// What struck a capture, told with its first frame, and the history frame that it got.
function faultTexts({replay}) {
    const byFrame = new Map(replay.faults.frames.map(({frameNo, faults}) => [frameNo, faults]));
    return (capture, i) => {
        const {frameNo} = capture.frames[i];
        const struck = byFrame.get(frameNo);
        return [...i === 0 && capture.faults.length > 0 ? [capture.faults.join(', ')] : [],
            ...struck ? [`frame ${frameNo}: ${struck.join(', ')}`] : []].join('; ');
    };
}

/// `hasLag`: the times of frames are known; `isOne`: of one try only.
const candidateColumns = (hasLag, isOne) => [{label: 'History frame'}, ...hasLag ? [{label: 'Lag (ms)'}] : [],
    ...['Verdict', 'Reason', ...isOne ? [] : ['Tries'], 'Wanted', 'Found'].map((label) => ({label, isText: true}))];

/// `tries`: in which of several it was looked at; empty when it is one.
function candidateRow(capture, frames, candidate, tries) {
    const index = frames.indexOf(candidate.frameNo);
    const lag = index === undefined ? null : (frames.times[index] - capture.press) * 1e9;
    const found = [valueFrom(capture, candidate.found), candidate.stream && `in ${candidate.stream}`]
        .filter(Boolean).join(' ');
    return element('tr', {},
        element('td', {}, String(candidate.frameNo)),
        ...frames.count > 0 ? [element('td', {}, ms(lag))] : [],
        element('td', {class: 'text'}, candidate.verdict),
        element('td', {class: 'text'}, reasonOf(candidate)),
        ...tries ? [element('td', {class: 'text'}, tries)] : [],
        element('td', {class: 'text wrap'}, orNone(valueFrom(capture, candidate.wanted))),
        element('td', {class: 'text wrap'}, [orNone(found), ...candidate.notes].join('; ')));
}

/// The verdicts of tries, each once, with the numbers of the tries that gave it.
function verdictsOf(tries) {
    const verdicts = new Map();
    for (const attempt of tries) {
        for (const candidate of attempt.explanation?.candidates ?? []) {
            const key = JSON.stringify(candidate);
            const entry = verdicts.get(key) ?? {candidate, first: attempt.first};
            entry.last = attempt.last;
            verdicts.set(key, entry);
        }
    }
    return [...verdicts.values()];
}

function candidatesTable(capture, frames, tries) {
    const isOne = tries.length === 1 && tries[0].repeats === 0;
    const columns = candidateColumns(frames.count > 0, isOne);
    const rows = verdictsOf(tries).map(({candidate, first, last}) => candidateRow(capture, frames,
        candidate, isOne ? '' : first === last ? String(first) : `${first} to ${last}`));
    return element('div', {class: 'scroll', tabIndex: 0}, element('table', {}, tableHead(columns),
        element('tbody', {}, ...rows)));
}

const SHOWN_NUMBERS = 24;

function numbers(list) {
    if (list.length <= SHOWN_NUMBERS) {
        return list.length === 0 ? 'none' : list.join(' ');
    }
    return `${list.slice(0, SHOWN_NUMBERS).join(' ')} and ${list.length - SHOWN_NUMBERS} more`;
}

/// Of a log's try only those are known that were looked at.
function offered({isLog}, attempt) {
    const {historySets, lockedSets} = attempt.explanation ?? {};
    const lists = [...isLog ? [`Looked at: ${numbers(attempt.historyFrames)}`]
        : [`History: ${numbers(attempt.historyFrames)}`],
    ...isLog && historySets !== null
        ? [`of ${whole(historySets)} in the history and ${whole(lockedSets)} locked`] : [],
    `in flight: ${numbers(attempt.inFlightFrames)}`,
    ...attempt.lockedFrames.length > 0 ? [`locked: ${numbers(attempt.lockedFrames)}`] : []];
    return element('p', {class: 'more'}, `${lists.join('; ')}.`);
}

/// What came of a try, in short; tries that follow each other with the same are folded.
function outcomeOf({explanation, builtFrames, faults}) {
    const struck = faults.length > 0 ? [`injected: ${faults.join(', ')}`] : [];
    if (!explanation) {
        return [`${counted(builtFrames.length, 'frame', 'frames')} served`, ...struck];
    }
    const counts = new Map();
    for (const candidate of explanation.candidates.filter((c) => c.verdict === 'refused')) {
        counts.set(reasonOf(candidate), (counts.get(reasonOf(candidate)) ?? 0) + 1);
    }
    const refused = [...counts].map(([reason, count]) => `${reason} ${count}`).join(', ');
    return [explanation.isTimedOut ? 'timed out' : words(explanation.outcome),
        ...refused ? [`refused for ${refused}`] : [],
        ...explanation.selector ? [explanation.selector] : [], ...struck];
}

function foldedTries(capture) {
    const folded = [];
    for (const attempt of capture.tries) {
        const outcome = outcomeOf(attempt).join(' \u00b7 ');
        const last = folded[folded.length - 1];
        if (last && last.outcome === outcome && attempt.builtFrames.length === 0) {
            last.tries.push(attempt);
        } else {
            folded.push({outcome, tries: [attempt]});
        }
    }
    return folded;
}

/// After the press, in ns; null: the log does not tell.
function agesOf(capture, {timeNs, lastRepeatNs, explanation}) {
    return capture.origin === 'press' ? [timeNs - capture.pressNs, (lastRepeatNs ?? timeNs) - capture.pressNs]
        : [explanation.ageNs, explanation.ageNs];
}

/// Of a log's tries, where they stand in it.
function placeOf([{explanation: begin}, ...rest]) {
    const end = rest.at(-1)?.explanation ?? begin;
    const time = begin?.time ? `${begin.time}${end !== begin && end.time ? ` to ${end.time}` : ''}, ` : '';
    return begin?.line ? [`${time}${end === begin ? `line ${begin.line}` : `lines ${begin.line} to ${end.line}`}`] : [];
}

function triesHead(capture, {outcome, tries}) {
    const {first} = tries[0];
    const last = tries[tries.length - 1];
    const made = last.last - first + 1;
    const [[from], [, to]] = [agesOf(capture, tries[0]), agesOf(capture, last)];
    const age = capture.origin === 'press' ? ms : wholeMs;
    const when = from === null || to === null ? ''
        : `, ${made === 1 ? age(from) : `${age(from)} to ${age(to)}`} ms after the press`;
    return [`${made === 1 ? `Try ${first}` : `Tries ${first} to ${last.last}`}${when}`, ...placeOf(tries),
        ...made === 1 ? [] : [`${whole(made)} times the same`], outcome].join(' \u00b7 ');
}

function triesBody(model, capture, tries) {
    const explained = tries.map(({explanation}) => explanation).filter(Boolean);
    const texts = new Set(explained.flatMap(({notes, errors}) => [...notes, ...errors]));
    return [...tries.length === 1 ? [offered(model, tries[0])] : [],
        ...explained.some(({candidates}) => candidates.length > 0)
            ? [candidatesTable(capture, model.frames, tries)] : [],
        ...[...texts].map((text) => element('p', {class: 'more'}, text))];
}

function triesDetails(model, capture, fold, isOpen) {
    const box = element('details', {}, element('summary', {}, triesHead(capture, fold)));
    // Made when it opens: most are never looked at.
    box.addEventListener('toggle', () => {
        if (box.open && box.children.length === 1) {
            box.append(...triesBody(model, capture, fold.tries));
        }
    });
    box.open = isOpen;
    return box;
}

function leadOf(capture) {
    const served = capture.frames.filter(({index}) => index !== null).map((frame) => {
        const lag = frame.lagNs === null ? '' : `, ${ms(frame.lagNs)} ms from the press`;
        const what = frame.frameNo === null ? 'no history frame' : `history frame ${frame.frameNo}${lag}`;
        return `frame ${frame.index} ${words(frame.served)}: ${what}`;
    });
    const when = capture.origin === 'press' ? `Pressed at ${pressText(capture)} s`
        : `Wanted instant ${capture.press === null ? 'not told' : `at ${pressText(capture)} s`}`;
    const process = capture.pid ? [`process ${capture.pid}`] : [];
    return element('p', {class: 'note'}, `${[when, ...process, ...served].join('; ')}.`,
        ...capture.faults.length > 0 ? [' ', element('span', {class: 'injected-text'},
            `Injected: ${capture.faults.join(', ')}.`)] : []);
}

export function showDetails(model, capture) {
    const title = byId('details-title');
    title.replaceChildren(`Capture ${capture.requestNo}: why these frames? `,
        element('a', {class: 'anchor', href: capture.anchor, title: 'Link to this capture'}, '#'));
    const answer = (capture.answer ?? '').split('\n').filter(Boolean)
        .map((line) => element('p', {class: 'answer'}, line));
    const folds = foldedTries(capture);
    // The last one tells how it ended.
    byId('details-body').replaceChildren(...answer, ...filmStrip(model, capture), leadOf(capture), ...folds.map(
        (fold, i) => triesDetails(model, capture, fold, i === folds.length - 1)));
    show('details');
    centreChosen();
}

function countByReason(model) {
    const counts = new Map();
    for (const attempt of model.captures.flatMap(({tries}) => tries)) {
        for (const {criterion} of attempt.explanation?.candidates.filter((c) => c.verdict === 'refused') ?? []) {
            counts.set(criterion, (counts.get(criterion) ?? 0) + 1 + attempt.repeats);
        }
    }
    return [...counts].sort((a, b) => b[1] - a[1]);
}

export function showRefusals(model) {
    if (!model.hasReasons) {
        return;
    }
    const counts = countByReason(model);
    if (counts.length === 0) {
        // A policy that passes over frames without a word did refuse them.
        const isSilent = model.captures.some(({tries}) => tries.some((attempt) =>
            (attempt.historyFrames.length > 0 || attempt.explanation?.historySets > 0) &&
            attempt.builtFrames.length === 0));
        byId('refusals-body').replaceChildren(element('p', {},
            isSilent ? 'The policy gives no reasons.' : 'No history frame was refused.'));
    } else {
        const rows = counts.map(([reason, count]) => {
            const bar = element('span', {class: 'bar'});
            bar.style.width = `${100 * count / counts[0][1]}%`;
            return element('tr', {}, element('th', {scope: 'row', class: 'text'}, words(reason)),
                element('td', {}, whole(count)), element('td', {class: 'bars', 'aria-hidden': 'true'}, bar));
        });
        byId('refusals-body').replaceChildren(element('div', {class: 'scroll'},
            element('table', {}, element('tbody', {}, ...rows))));
    }
    show('refusals');
}
