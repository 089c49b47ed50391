const STEP = 0.25;
const ZOOM = 2;
const TAP = 6;

/// The shown part of the time line, moved by buttons, keys, wheel and touch. `limits`: {from, to,
/// least}, in s.
export class Navigation {
    constructor(charts, limits) {
        this.charts = charts;
        this.limits = limits;
        for (const chart of charts) {
            this.listenToWheel(chart);
            this.listenToPointers(chart);
            chart.over.addEventListener('dblclick', () => this.showAll());
        }
    }

    get from() { return this.charts[0].scales.x.min; }
    get to() { return this.charts[0].scales.x.max; }

    /// Shows a span, cut to what there is.
    show(from, to) {
        const {limits} = this;
        const span = Math.min(Math.max(to - from, limits.least), limits.to - limits.from);
        const begin = Math.min(Math.max((from + to - span) / 2, limits.from), limits.to - span);
        for (const chart of this.charts) {
            chart.setScale('x', {min: begin, max: begin + span});
        }
    }

    showAll() {
        this.show(this.limits.from, this.limits.to);
    }

    move(share) {
        const distance = (this.to - this.from) * share;
        this.show(this.from + distance, this.to + distance);
    }

    zoom(factor, centre = (this.from + this.to) / 2) {
        this.show(centre - (centre - this.from) * factor, centre + (this.to - centre) * factor);
    }

    /// The actions of buttons and keys.
    do(action) {
        const actions = {
            left: () => this.move(-STEP),
            right: () => this.move(STEP),
            in: () => this.zoom(1 / ZOOM),
            out: () => this.zoom(ZOOM),
            all: () => this.showAll(),
        };
        actions[action]?.();
        return action in actions;
    }

    key(event) {
        const action = {ArrowLeft: 'left', ArrowRight: 'right', '+': 'in', '=': 'in', '-': 'out',
            0: 'all'}[event.key];
        if (action && !event.ctrlKey && !event.metaKey && !event.altKey) {
            event.preventDefault();
            this.do(action);
        }
    }

    listenToWheel(chart) {
        chart.over.addEventListener('wheel', (event) => {
            if (event.ctrlKey || event.metaKey) {
                event.preventDefault();
                this.zoom(1.0015 ** event.deltaY, chart.posToVal(event.offsetX, 'x'));
            } else if (Math.abs(event.deltaX) > Math.abs(event.deltaY)) {
                event.preventDefault();
                this.move(event.deltaX / chart.over.clientWidth);
            }
        }, {passive: false});
    }

    /// Fingers move and pinch; so does a mouse with Shift, while without it the chart selects.
    listenToPointers(chart) {
        const pointers = new Map();
        const isMoving = (event) => event.pointerType !== 'mouse' || event.shiftKey;
        const place = () => {
            const xs = [...pointers.values()];
            const centre = xs.reduce((sum, x) => sum + x, 0) / xs.length;
            return {centre, spread: xs.length > 1 ? Math.abs(xs[0] - xs[1]) : 0};
        };
        chart.over.addEventListener('pointerdown', (event) => {
            if (isMoving(event)) {
                pointers.set(event.pointerId, event.clientX);
                chart.over.setPointerCapture(event.pointerId);
            }
        });
        chart.over.addEventListener('pointermove', (event) => {
            if (!pointers.has(event.pointerId)) {
                return;
            }
            const before = place();
            pointers.set(event.pointerId, event.clientX);
            const after = place();
            this.move((before.centre - after.centre) / chart.over.clientWidth);
            if (before.spread > TAP && after.spread > TAP) {
                const left = chart.over.getBoundingClientRect().left;
                this.zoom(before.spread / after.spread, chart.posToVal(after.centre - left, 'x'));
            }
        });
        for (const name of ['pointerup', 'pointercancel']) {
            chart.over.addEventListener(name, (event) => pointers.delete(event.pointerId));
        }
        // The chart's own selection must not see what moves the time line.
        chart.over.addEventListener('mousedown', (event) => {
            if (event.shiftKey) {
                event.stopImmediatePropagation();
            }
        }, {capture: true});
    }
}
