import {byId, element, show, swatch} from './dom.js';
import {counted, ms, OUTCOMES, toneOf, whole} from './format.js';

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

function verdict(replay) {
    const {summary, ledger} = replay;
    const bad = [];
    if (summary.unanswered > 0) {
        bad.push(`${counted(summary.unanswered, 'frame was', 'frames were')} never answered.`);
    }
    if (!ledger.balances) {
        const out = ledger.withProcessor + ledger.withFrameBuilder;
        bad.push(`The buffer ledger does not balance: ${counted(out, 'set', 'sets')} still out, ` +
            `${whole(ledger.lost)} lost.`);
    }
    bad.push(...summary.failures);
    if (bad.length > 0) {
        return bad.map((text) => element('p', {class: 'bad'}, text));
    }
    const text = 'Every capture was answered and the buffer ledger balances.';
    return [element('p', {}, text)];
}

const FIELDS = {'at once': 'atOnce', waited: 'waited', 'timed out': 'timedOut', flushed: 'flushed',
    unanswered: 'unanswered'};

function longestWait(captures) {
    const waits = captures.flatMap((capture) => capture.frames.map((frame) => frame.waitNs));
    return waits.reduce((longest, wait) => (wait !== null && wait > (longest ?? -1) ? wait : longest),
        null);
}

function tiles(model) {
    const {summary} = model.replay;
    const made = [tile('Answered', 'answeredCaptures', whole(summary.answeredCaptures),
        `of ${whole(summary.captures)}`)];
    for (const outcome of OUTCOMES) {
        const count = summary[FIELDS[outcome]];
        if (outcome !== 'unanswered' || count > 0) {
            const label = outcome[0].toUpperCase() + outcome.slice(1);
            made.push(tile(label, FIELDS[outcome], whole(count), count === 1 ? 'frame' : 'frames',
                toneOf(outcome)));
        }
    }
    if (summary.withoutHistory > 0) {
        made.push(tile('No history', 'withoutHistory', whole(summary.withoutHistory),
            summary.withoutHistory === 1 ? 'frame' : 'frames'));
    }
    if (summary.lag) {
        made.push(tile('Median lag', 'lag.medianNs', ms(summary.lag.medianNs), 'ms'));
        made.push(tile('95 % lag', 'lag.p95Ns', ms(summary.lag.p95Ns), 'ms'));
    }
    made.push(tile('Longest wait', 'longestWait', ms(longestWait(model.captures)), 'ms'));
    return made;
}

export function showSummary(model) {
    const {summary} = model.replay;
    byId('verdict').replaceChildren(...verdict(model.replay));
    byId('tiles').replaceChildren(...tiles(model));
    const shares = OUTCOMES.filter((outcome) => summary[FIELDS[outcome]] > 0).map((outcome) => {
        const share = element('span', {class: toneOf(outcome)});
        share.style.flexGrow = summary[FIELDS[outcome]];
        return share;
    });
    byId('shares').replaceChildren(...shares);
    show('summary');
}
