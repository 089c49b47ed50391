// Who is best in which field, and what changed since a baseline.

import {byId, element, show, tableHead} from './dom.js';
import {number, orNone, whole} from './format.js';

const MOST_CHANGES = 300; // more is for a program to read
const TRENDS = ['worse', 'tolerated', 'better', 'other'];
const AS_GOOD = 0.005; // of a ratio: what is as near says more by itself

/// Says that a table goes on to the right, while it does.
function hintAtScroll(box) {
    const hint = box.previousElementSibling;
    const update = () => { hint.hidden = box.scrollWidth <= box.clientWidth + 1; };
    new ResizeObserver(update).observe(box);
    update();
}

/// Fills and shows the section that consists of a table with a note above it.
export function fillTable(section, note, ...parts) {
    const table = byId(`${section}-table`);
    table.replaceChildren(...parts);
    byId(`${section}-note`).textContent = note;
    show(section);
    hintAtScroll(table.parentElement);
}

/// A field's value: measures have a decimal, so that they stand below each other; counts have none.
function valueOf(field, value) {
    return Number.isInteger(value) && !/_(ms|percent)$/.test(field) ? whole(value) : number(value, 1);
}

/// `max_wait_ms 66.7, was 33.3`.
export const changeOf = ({field, was, is}) =>
    `${field} ${is === null ? 'has no value' : valueOf(field, is)}, was ${was === null ? 'none' : valueOf(field, was)}`;

/// By how much a value has changed; empty where that cannot be said.
function shareOf({was, is}) {
    if (was === null || is === null || was === 0) {
        return '';
    }
    const percent = 100 * (is - was) / Math.abs(was);
    return `${percent > 0 ? '+' : ''}${number(percent, 1)} %`;
}

/// `summary` tells how things stand; without a baseline there is none.
export function showSince({rows, baseline}, settings, summary) {
    if (!baseline) {
        return;
    }
    const changes = TRENDS.flatMap((trend) => baseline.changes.filter((change) => change.trend === trend));
    const more = changes.length - MOST_CHANGES;
    const lines = changes.slice(0, MOST_CHANGES).map((change) => {
        const {row, total, field, was, is, trend} = change;
        const name = settings[(row ?? total) % settings.length].name;
        return element('tr', {},
            element('th', {scope: 'row', class: 'text'}, element('span', {class: 'name'},
                total === null ? rows[row].recording.path : 'all recordings')),
            element('td', {class: 'text wrap'}, name), element('td', {class: 'text'}, field),
            ...[was, is].map((value) => element('td', {}, valueOf(field, value))),
            element('td', {}, orNone(shareOf(change))),
            element('td', {class: `text status-${trend}`}, trend));
    });
    const head = tableHead([['Recording', true], ['Setting', true], ['Field', true], ['Was'], ['Is'],
        ['Change'], ['', true]].map(([label, isText]) => ({label, isText})));
    fillTable('since', `${summary}${more > 0 ? `. And ${whole(more)} more, which --json tells.` : ''}`,
        ...lines.length > 0 ? [head, element('tbody', {}, ...lines)] : []);
}

/// A row for each field in which the settings differ: the best, and how far the others are from it.
export function showRanking({rankings}, settings) {
    const lines = rankings.map(({field, places}) => {
        const best = places.filter(({value}) => value === places[0].value);
        const others = places.slice(best.length).map(({total, value, ratio}) =>
            `${settings[total].name} ${valueOf(field, value)}` +
            (ratio !== null && ratio !== 0 && Math.abs(ratio - 1) >= AS_GOOD ? ` (\u00d7${number(ratio, 2)})` : ''));
        return element('tr', {}, element('th', {scope: 'row', class: 'text'}, element('span', {class: 'name'}, field)),
            element('td', {class: 'text wrap status-ok'},
                `${best.map(({total}) => settings[total].name).join(', ')} ${valueOf(field, places[0].value)}`),
            element('td', {class: 'text wrap'}, others.join(', ')));
    });
    if (lines.length > 0) {
        fillTable('ranking', 'Of the totals, in each field that has a better end and in which the settings ' +
            'differ; \u00d7 is the ratio to the best.',
        tableHead([{label: 'Field', isText: true}, {label: 'Best', isText: true},
            {label: 'Then', isText: true}]), element('tbody', {}, ...lines));
    }
}
