import {byId, element} from './dom.js';
import {whole} from './format.js';

const SHOWN_DETAILS = 5;
const TITLES = {good: 'Good', doubtful: 'Doubtful', bad: 'Bad'};

const sentence = (text) => `${text[0].toUpperCase()}${text.slice(1)}${/[.?!]$/.test(text) ? '' : '.'}`;

const listOf = (lines) => element('ul', {}, ...lines.map((line) => element('li', {}, line)));

function detailsOf(details) {
    const rest = details.slice(SHOWN_DETAILS);
    const more = rest.length === 0 ? [] : [element('details', {},
        element('summary', {}, `${whole(rest.length)} more`), listOf(rest))];
    return [listOf(details.slice(0, SHOWN_DETAILS)), ...more];
}

function reasonOf(reason) {
    const box = element('div', {class: `reason ${reason.word === 'injectedFaults' ? 'remark' : reason.level}`,
        'data-word': reason.word}, element('p', {}, sentence(reason.text)));
    if (reason.details.length > 0) {
        box.append(...detailsOf(reason.details));
    }
    return box;
}

/// How the run is to be taken, and why: what a reader must know before any number.
export function showVerdict({level, reasons}) {
    const box = byId('verdict');
    box.className = `verdict ${level}`;
    box.replaceChildren(element('p', {class: 'level'}, TITLES[level]),
        element('div', {class: 'reasons'}, ...reasons.map(reasonOf)));
    box.hidden = false;
}

/// By which tool, when and how the result was made.
export function showProvenance({version, run}, more = []) {
    const date = run.date?.replace('T', ' ').replace('Z', ' UTC');
    const tool = `zsl ${version}${run.revision ? ` (${run.revision})` : ''}`;
    byId('about').textContent = [...more, tool, date].filter(Boolean).join(' \u00b7 ');
    byId('command').textContent = run.commandLine ?? '';
}
