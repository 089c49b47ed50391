import {BAR_HEIGHT, barY, pressY} from './lanes.js';

const REACH = 9;

/// The item nearest to `time` among those in ascending time; null when it is not near.
function nearest(items, time, reach) {
    let best = null;
    for (const item of items) {
        const distance = Math.abs((item.time ?? item.press) - time);
        if (distance <= reach && (best === null || distance < best.distance)) {
            best = {distance, item};
        }
    }
    return best?.item ?? null;
}

function captureAt(model, lane, time, y, reach) {
    const onMark = y < pressY(lane) + REACH ? nearest(model.captures, time, reach) : null;
    const isOnBar = ({row}) => y >= barY(lane, row) - 1 && y <= barY(lane, row) + BAR_HEIGHT + 1;
    return onMark ?? model.captures.find((capture) => isOnBar(capture) && capture.press <= time &&
        time <= capture.end) ?? null;
}

function frameAt(model, time) {
    const {frames, interval} = model;
    const i = frames.atOrAfter(time + 1e-9) - 1;
    return i >= 0 && time - frames.times[i] <= interval * 1.25 ? i : null;
}

/// What lies at a place of the plot, in CSS pixels: {kind, item}; null for nothing.
export function hit(chart, model, lanes, x, y) {
    const lane = lanes.find(({top, height}) => y >= top - 4 && y < top + height + 4);
    if (!lane) {
        return null;
    }
    const time = chart.posToVal(x, 'x');
    const reach = chart.posToVal(x + REACH, 'x') - time;
    const items = {choices: model.choices, refusals: model.refusals, kept: model.kept}[lane.name];
    let item;
    if (lane.name === 'captures') {
        item = captureAt(model, lane, time, y, reach);
    } else {
        item = items ? nearest(items, time, reach) : frameAt(model, time);
    }
    return item === null ? null : {kind: items || lane.name === 'captures' ? lane.name : 'frames', item};
}
