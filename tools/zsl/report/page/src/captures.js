import {byId, element, show, swatch, tableHead} from './dom.js';
import {counted, ms, orNone, seconds, toneOf, valueText, whole, words} from './format.js';

const ROWS = 30;
const COLUMNS = [{label: 'Capture'}, {label: 'Pressed (s)'}, {label: 'Frame'},
    {label: 'History frame'}, {label: 'Lag (ms)'}, {label: 'Served', isText: true},
    {label: 'Waited (ms)'}, {label: 'Tries'}, {label: 'Early shutter (ms)'}];

/// The table of the captures, a page at a time; a number is a button that selects its capture.
export class CaptureTable {
    constructor(model, onSelect) {
        this.captures = model.captures;
        this.onSelect = onSelect;
        this.pageSize = Math.max(1, Math.floor(ROWS / (model.captures[0]?.frames.length ?? 1)));
        this.page = 0;
        this.selected = null;
        this.body = element('tbody');
        byId('captures-table').replaceChildren(tableHead(COLUMNS), this.body);
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

    rowsOf(capture) {
        const number = element('button', {type: 'button', class: 'link',
            title: 'Show this capture', onclick: () => this.onSelect(capture)},
        String(capture.requestNo));
        number.setAttribute('aria-label', `Capture ${capture.requestNo}: show`);
        const shutter = capture.earlyShutterNs === null ? null
            : capture.earlyShutterNs - capture.pressNs;
        return capture.frames.map((frame, i) => element('tr',
            {class: `${i > 0 ? 'further' : ''} ${capture === this.selected ? 'selected' : ''}`},
            element('td', {}, i === 0 ? number : ''),
            element('td', {}, i === 0 ? seconds(capture.press * 1e9) : ''),
            element('td', {}, String(frame.index)),
            element('td', {}, orNone(frame.frameNo)),
            element('td', {}, ms(frame.lagNs)),
            element('td', {class: 'text'}, swatch(toneOf(frame.served)), words(frame.served)),
            element('td', {}, ms(frame.waitNs)),
            element('td', {}, i === 0 ? String(capture.tries.length) : ''),
            element('td', {}, i === 0 ? ms(shutter) : '')));
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

const CANDIDATE_COLUMNS = [{label: 'History frame'}, {label: 'Lag (ms)'}, {label: 'Verdict', isText: true},
    {label: 'Reason', isText: true}, {label: 'Wanted', isText: true}, {label: 'Found', isText: true}];

/// What a candidate is for or why it was refused.
export function reasonOf(candidate) {
    if (candidate.criterion) {
        return words(candidate.criterion);
    }
    return candidate.index === null ? '' : `for frame ${candidate.index}`;
}

function candidateRow(capture, frames, candidate) {
    const index = frames.indexOf(candidate.frameNo);
    const lag = index === undefined ? null : (frames.times[index] - capture.press) * 1e9;
    const found = [valueText(candidate.found), candidate.stream && `in ${candidate.stream}`]
        .filter(Boolean).join(' ');
    return element('tr', {},
        element('td', {}, String(candidate.frameNo)),
        element('td', {}, ms(lag)),
        element('td', {class: 'text'}, candidate.verdict),
        element('td', {class: 'text'}, reasonOf(candidate)),
        element('td', {class: 'text wrap'}, orNone(valueText(candidate.wanted))),
        element('td', {class: 'text wrap'}, [orNone(found), ...candidate.notes].join('; ')));
}

function candidatesTable(capture, frames, candidates) {
    return element('div', {class: 'scroll', tabIndex: 0}, element('table', {}, tableHead(CANDIDATE_COLUMNS),
        element('tbody', {}, ...candidates.map((c) => candidateRow(capture, frames, c)))));
}

const SHOWN_NUMBERS = 24;

function numbers(list) {
    if (list.length <= SHOWN_NUMBERS) {
        return list.length === 0 ? 'none' : list.join(' ');
    }
    return `${list.slice(0, SHOWN_NUMBERS).join(' ')} and ${list.length - SHOWN_NUMBERS} more`;
}

function offered(attempt) {
    const lists = [`History: ${numbers(attempt.historyFrames)}`,
        `in flight: ${numbers(attempt.inFlightFrames)}`];
    if (attempt.lockedFrames.length > 0) {
        lists.push(`locked: ${numbers(attempt.lockedFrames)}`);
    }
    return element('p', {class: 'more'}, `${lists.join('; ')}.`);
}

function tryHead(attempt, i) {
    const explained = attempt.explanation;
    const parts = [`Try ${i + 1}, ${attempt.ageNs / 1e6} ms after the press`];
    if (explained) {
        const refused = explained.candidates.filter((c) => c.verdict === 'refused').length;
        parts.push(explained.isTimedOut ? 'timed out' : words(explained.outcome));
        if (refused > 0) {
            parts.push(`${refused} refused`);
        }
        if (explained.selector) {
            parts.push(explained.selector);
        }
    } else {
        parts.push(`${counted(attempt.builtFrames.length, 'frame', 'frames')} served`);
    }
    return parts.join(' \u00b7 ');
}

function tryDetails(capture, frames, attempt, i, isOpen) {
    const explained = attempt.explanation;
    const box = element('details', {}, element('summary', {}, tryHead(attempt, i)));
    // Made when it opens: a capture that waits for seconds has a hundred tries.
    box.addEventListener('toggle', () => {
        if (!box.open || box.children.length > 1) {
            return;
        }
        box.append(offered(attempt));
        if (explained?.candidates.length > 0) {
            box.append(candidatesTable(capture, frames, explained.candidates));
        }
        for (const text of [...explained?.notes ?? [], ...explained?.errors ?? []]) {
            box.append(element('p', {class: 'more'}, text));
        }
    });
    box.open = isOpen;
    return box;
}

export function showDetails(model, capture) {
    byId('details-title').textContent = `Capture ${capture.requestNo}: why these frames?`;
    const served = capture.frames.map((frame) => {
        const what = frame.frameNo === null ? 'no history frame'
            : `history frame ${frame.frameNo}, ${ms(frame.lagNs)} ms from the press`;
        return `frame ${frame.index} ${words(frame.served)}: ${what}`;
    });
    const lead = element('p', {class: 'note'},
        `Pressed at ${seconds(capture.press * 1e9)} s; ${served.join('; ')}.`);
    byId('details-body').replaceChildren(lead, ...capture.tries.map(
        (attempt, i) => tryDetails(capture, model.frames, attempt, i, i === 0)));
    show('details');
}

function countByReason(model) {
    const counts = new Map();
    for (const {verdicts} of model.refusals) {
        for (const {candidate} of verdicts) {
            counts.set(candidate.criterion, (counts.get(candidate.criterion) ?? 0) + 1);
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
            attempt.historyFrames.length > 0 && attempt.builtFrames.length === 0));
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
