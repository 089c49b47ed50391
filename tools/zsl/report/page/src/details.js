import {byId, element, show, tableHead} from './dom.js';
import {counted, ms, orNone, seconds} from './format.js';

const COLUMNS = [{label: 'History frame'}, {label: 'Lag (ms)'}, {label: 'Verdict', isText: true},
    {label: 'Reason', isText: true}, {label: 'Wanted', isText: true}, {label: 'Found', isText: true}];

/// What a candidate is for or why it was refused.
export function reasonOf(candidate) {
    if (candidate.criterion) {
        return candidate.criterion;
    }
    return candidate.index === null ? '' : `for frame ${candidate.index}`;
}

function candidateRow(capture, frames, candidate) {
    const index = frames.indexOf(candidate.frameNo);
    const lag = index === undefined ? null : (frames.times[index] - capture.press) * 1e9;
    const found = [candidate.found, candidate.stream && `in ${candidate.stream}`]
        .filter(Boolean).join(' ');
    return element('tr', {},
        element('td', {}, String(candidate.frameNo)),
        element('td', {}, ms(lag)),
        element('td', {class: 'text'}, candidate.verdict),
        element('td', {class: 'text'}, reasonOf(candidate)),
        element('td', {class: 'text wrap'}, orNone(candidate.wanted)),
        element('td', {class: 'text wrap'}, [orNone(found), ...candidate.notes].join('; ')));
}

function candidatesTable(capture, frames, candidates) {
    return element('div', {class: 'scroll', tabIndex: 0}, element('table', {}, tableHead(COLUMNS),
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
    const parts = [`Try ${i + 1}, ${attempt.ageMs} ms after the press`];
    if (explained) {
        const refused = explained.candidates.filter((c) => c.verdict === 'refused').length;
        parts.push(explained.timedOut ? 'timed out' : explained.outcome, `${refused} refused`);
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
        const what = frame.historyFrame === null ? 'no history frame'
            : `history frame ${frame.historyFrame}, ${ms(frame.lagNs)} ms from the press`;
        return `frame ${frame.index} ${frame.served}: ${what}`;
    });
    const lead = element('p', {class: 'note'},
        `Pressed at ${seconds(capture.press * 1e9)} s; ${served.join('; ')}.`);
    byId('details-body').replaceChildren(lead, ...capture.tries.map(
        (attempt, i) => tryDetails(capture, model.frames, attempt, i, i === 0)));
    show('details');
}
