const NAMES = ['ink', 'muted', 'line', 'grid', 'panel', 'accent', 'at-once', 'waited', 'timed-out',
    'flushed', 'unanswered', 'refused', 'frame', 'settled', 'moving', 'unknown', 'error', 'series-1',
    'series-2'];

let colours = null;

/// The style's colours by name, as in the colour scheme that is on.
export function theme() {
    if (!colours) {
        const style = getComputedStyle(document.documentElement);
        colours = Object.fromEntries(
            NAMES.map((name) => [name, style.getPropertyValue(`--${name}`).trim()]));
    }
    return colours;
}

export function onThemeChange(redraw) {
    matchMedia('(prefers-color-scheme: dark)').addEventListener('change', () => {
        colours = null;
        redraw();
    });
}
