import {byId} from './dom.js';

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
