import {byId, element, show, swatch, tableHead} from './dom.js';
import {ms, orNone, seconds, toneOf, whole} from './format.js';

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
            element('td', {}, orNone(frame.historyFrame)),
            element('td', {}, ms(frame.lagNs)),
            element('td', {class: 'text'}, swatch(toneOf(frame.served)), frame.served),
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
