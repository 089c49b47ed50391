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
