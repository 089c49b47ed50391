import uPlot from 'uplot';

import {axisLabels} from './format.js';
import {onThemeChange, theme} from './theme.js';

export const FONT = '12px system-ui, -apple-system, "Segoe UI", Roboto, "Noto Sans", "DejaVu Sans", sans-serif';

/// An axis in the page's colours, with room between its labels.
export function axis(options = {}) {
    return {
        stroke: () => theme().muted,
        font: FONT,
        labelFont: FONT,
        labelSize: 22,
        gap: 6,
        space: 64,
        grid: {stroke: () => theme().grid, width: 1},
        ticks: {stroke: () => theme().line, width: 1, size: 5},
        values: (chart, values) => axisLabels(values),
        ...options,
    };
}

/// A chart as wide as its box, drawn again when that or the colour scheme changes.
export function makeChart(box, height, options, data) {
    const chart = new uPlot({
        width: box.clientWidth,
        height,
        legend: {show: false},
        ...options,
    }, data, box);
    new ResizeObserver(() => {
        if (box.clientWidth > 0 && box.clientWidth !== chart.width) {
            chart.setSize({width: box.clientWidth, height});
        }
    }).observe(box);
    onThemeChange(() => chart.redraw(false, true));
    return chart;
}
