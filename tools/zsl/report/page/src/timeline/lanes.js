const GAP = 8;
const BAR_PITCH = 6;
const FIRST_BAR = 34;

/// The captures' bars lie under their marks, in rows, so that those that overlap show.
export const PRESS_SIZE = 7;
export const BAR_HEIGHT = 4;
export const pressY = (lane) => lane.top + 23;
export const barY = (lane, row) => lane.top + FIRST_BAR + row * BAR_PITCH;
const pressHeight = (rows) => FIRST_BAR + rows * BAR_PITCH;

/// The lanes of the time line from the top, in CSS pixels from the plot's top.
export function lanesOf(model) {
    const wanted = [
        {name: 'captures', label: 'Captures', height: pressHeight(model.rows)},
        {name: 'choices', label: 'Chosen', height: 20},
        ...model.hasReasons ? [{name: 'refusals', label: 'Refused', height: 20}] : [],
        ...model.kept.length > 0 ? [{name: 'kept', label: 'Set aside', height: 20}] : [],
        {name: 'frames', label: 'Frames', height: 26},
        {name: 'focus', label: 'Focus', height: 16},
        {name: 'exposure', label: 'Exposure', height: 16},
    ];
    let top = GAP;
    return wanted.map((lane) => {
        const placed = {...lane, top, middle: top + lane.height / 2};
        top += lane.height + GAP;
        return placed;
    });
}

export function lanesHeight(lanes) {
    const last = lanes[lanes.length - 1];
    return last.top + last.height + GAP;
}

