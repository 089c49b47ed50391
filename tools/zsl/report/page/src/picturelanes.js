import {theme} from './chart.js';
import {element} from './dom.js';
import {measure, number, toneOf} from './format.js';

/// What is measured of pictures, and the highest value that a lane shows at least.
const MEASURES = [
    {name: 'sharpness', label: 'Sharpness', text: measure, least: 0.01},
    {name: 'motion', label: 'Motion', text: measure, least: 0.01},
    {name: 'brightness', label: 'Brightness', text: measure, least: 255},
    {name: 'clipped', label: 'Clipped', text: (share) => number(share, 4), least: 0.0001},
];

const PICTURES_HEIGHT = 64;
const PICTURE_GAP = 3;
const OUTLINE = 3;

export function picturesLane({pictures}) {
    return pictures ? [{name: 'pictures', label: 'Pictures', height: PICTURES_HEIGHT}] : [];
}

export function measureLanes({frames}) {
    return MEASURES.filter(({name}) => frames.times.some((_, i) => (frames.get(name, i) ?? null) !== null))
        .map((lane) => ({...lane, height: 28, scale: element('span', {class: 'scale'})}));
}

/// The frames that were chosen, by position, with the choice.
function chosenFrames({choices, frames}) {
    return new Map(choices.map((choice) => [frames.indexOf(choice.frame.frameNo), choice]));
}

/// Places pictures from their frames' starts on, as many as do not lie on each other: the chosen
/// ones first, so that zooming out loses those between. Leaves in the lane what it placed.
function placePictures(drawing, lane, chosen) {
    const {model: {frames, pictures}} = drawing;
    const width = lane.height * pictures.aspect;
    const reach = width / drawing.scale;
    const inSight = [];
    for (let i = frames.atOrAfter(drawing.from - reach); i < frames.atOrAfter(drawing.to); ++i) {
        if (pictures.has(frames.get('frameNo', i))) {
            inSight.push(i);
        }
    }
    const placed = [];
    for (const i of [...inSight.filter((each) => chosen.has(each)), ...inSight]) {
        const left = drawing.x(frames.times[i]);
        if (placed.every((other) => Math.abs(other.left - left) >= width + PICTURE_GAP)) {
            placed.push({index: i, left, right: left + width});
        }
    }
    lane.placed = placed;
    return placed;
}

export function drawPictures(drawing, lane) {
    const {ctx, model: {frames, pictures}} = drawing;
    const chosen = chosenFrames(drawing.model);
    for (const {index, left, right} of placePictures(drawing, lane, chosen)) {
        const picture = pictures.drawable(frames.get('frameNo', index), drawing.redraw);
        ctx.fillStyle = theme().grid;
        ctx.fillRect(left, lane.top, right - left, lane.height);
        if (picture) {
            ctx.drawImage(picture, left, lane.top, right - left, lane.height);
        }
        const choice = chosen.get(index);
        if (choice) {
            ctx.strokeStyle = theme()[toneOf(choice.frame.served)];
            ctx.lineWidth = OUTLINE;
            ctx.strokeRect(left + OUTLINE / 2, lane.top + OUTLINE / 2, right - left - OUTLINE, lane.height - OUTLINE);
        }
    }
}

/// The frame whose picture lies at a place of the lane; undefined for none.
export const pictureAt = ({placed = []}, x) => placed.find(({left, right}) => x >= left && x < right)?.index;

/// The frames with a value that are in sight, as the pixels that they take.
function * valuesInSight(drawing, name) {
    for (const [i, begin, end] of drawing.visibleFrames()) {
        const value = drawing.model.frames.get(name, i);
        if (value !== null) {
            const left = Math.round(drawing.x(begin));
            yield {i, value, left, right: Math.max(left + 1, Math.round(drawing.x(end)))};
        }
    }
}

const WIDE = 5;

/// A column for each frame, up to the highest in sight: what is sharp depends on what there is to
/// see. Where frames share a pixel, the lowest is full and what reaches above it pale.
export function drawMeasure(drawing, lane) {
    const {ctx} = drawing;
    const columns = new Map();
    let highest = lane.least;
    for (const {i, value, left, right} of valuesInSight(drawing, lane.name)) {
        const column = columns.get(left) ?? {low: value, high: value, right, frames: []};
        columns.set(left, {low: Math.min(column.low, value), high: Math.max(column.high, value),
            right: Math.max(column.right, right), frames: [...column.frames, {i, value}]});
        highest = Math.max(highest, value);
    }
    const bottom = lane.top + lane.height;
    const fill = (tone, left, right, value) => {
        const height = value / highest * lane.height;
        const gap = right - left >= WIDE ? 1 : 0;
        ctx.fillStyle = theme()[tone];
        ctx.fillRect(left, bottom - height, right - left - gap, height);
    };
    const chosen = chosenFrames(drawing.model);
    for (const [left, {low, high, right}] of columns) {
        ctx.globalAlpha = 0.45;
        fill('frame', left, right, high);
        ctx.globalAlpha = 1;
        fill('frame', left, right, low);
    }
    for (const [left, {right, frames}] of columns) {
        for (const {i, value} of frames.filter((frame) => chosen.has(frame.i))) {
            fill(toneOf(chosen.get(i).frame.served), left, Math.max(right, left + 2), value);
        }
    }
    lane.scale.textContent = `to ${lane.text(highest)}`;
}
