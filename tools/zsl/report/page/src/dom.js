export const byId = (id) => document.getElementById(id);

/// An element with properties and children; texts are never read as HTML. `class` and names with a
/// dash become attributes.
export function element(name, properties = {}, ...children) {
    const made = document.createElement(name);
    for (const [key, value] of Object.entries(properties)) {
        if (key === 'class' || key.includes('-')) {
            made.setAttribute(key, value);
        } else {
            made[key] = value;
        }
    }
    made.append(...children);
    return made;
}

export function svgElement(name, attributes = {}, ...children) {
    const made = document.createElementNS('http://www.w3.org/2000/svg', name);
    for (const [key, value] of Object.entries(attributes)) {
        made.setAttribute(key, value);
    }
    made.append(...children);
    return made;
}

export function swatch(tone) {
    return element('span', {class: `swatch ${tone}`, 'aria-hidden': 'true'});
}

/// Rows of `[term, text]`; those without text are left out.
export function definitions(rows) {
    const list = element('dl');
    for (const [term, text] of rows) {
        if (text !== null && text !== undefined && text !== '') {
            list.append(element('dt', {}, term), element('dd', {}, text));
        }
    }
    return list;
}

/// `columns`: {label, isText}. The rows are made by the caller.
export function tableHead(columns) {
    return element('thead', {}, element('tr', {}, ...columns.map((column) => element(
        'th', {scope: 'col', class: column.isText ? 'text' : ''}, column.label))));
}

export function show(id) {
    byId(id).hidden = false;
}

const GAP = 14;
const MARGIN = 8;

/// Shows `content` beside a place of the window, inside of it.
export function showTooltip(content, clientX, clientY) {
    const box = byId('tooltip');
    box.replaceChildren(...content);
    box.hidden = false;
    box.style.left = '0';
    box.style.top = '0';
    const {width, height} = box.getBoundingClientRect();
    const {clientWidth, clientHeight} = document.documentElement;
    let left = clientX + GAP;
    if (left + width > clientWidth - MARGIN) {
        left = clientX - GAP - width;
    }
    left = Math.max(MARGIN, Math.min(left, clientWidth - MARGIN - width));
    let top = clientY + GAP;
    if (top + height > clientHeight - MARGIN) {
        top = Math.max(MARGIN, clientY - GAP - height);
    }
    box.style.left = `${left + scrollX}px`;
    box.style.top = `${top + scrollY}px`;
}

export function hideTooltip() {
    byId('tooltip').hidden = true;
}
