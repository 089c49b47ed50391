import {byId, element, show} from './dom.js';
import {whole} from './format.js';

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
        byId('refusals-body').replaceChildren(element('p', {}, 'No history frame was refused.'));
    } else {
        const rows = counts.map(([reason, count]) => {
            const bar = element('span', {class: 'bar'});
            bar.style.width = `${100 * count / counts[0][1]}%`;
            return element('tr', {}, element('th', {scope: 'row', class: 'text'}, reason),
                element('td', {}, whole(count)), element('td', {class: 'bars', 'aria-hidden': 'true'}, bar));
        });
        byId('refusals-body').replaceChildren(element('div', {class: 'scroll'},
            element('table', {}, element('tbody', {}, ...rows))));
    }
    show('refusals');
}
