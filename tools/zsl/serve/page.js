// Shows what the camera sees, presses the button, and lists what captures got.
//
// state.json: {source, end, troubles, captures: [{requestNo, index, served, lagMs, waitedMs,
// sharpness, sharpnessShare, hasPicture}]}, the latest first; `end` is null while the camera runs.

'use strict';

const PREVIEW_MS = 50;
const STATE_MS = 400;
const HINT = 'Space or Enter takes a picture, too.';

const element = (id) => document.getElementById(id);
const pause = (ms) => new Promise((resolve) => setTimeout(resolve, ms));
let isOver = false;
let shown = '';

function say(text) {
    if (element('status').textContent !== text) {
        element('status').textContent = text;
    }
}

function endWith(text) {
    isOver = true;
    element('shutter').disabled = true;
    say(text);
}

async function ask(path, options) {
    const response = await fetch(path, {cache: 'no-store', ...options});
    if (!response.ok) {
        throw new Error(`${path}: ${response.status}`);
    }
    return response;
}

async function showPreview() {
    const preview = element('preview');
    while (!isOver) {
        try {
            const url = URL.createObjectURL(await (await ask('preview.jpg')).blob());
            const before = preview.src;
            preview.src = url;
            await preview.decode();
            URL.revokeObjectURL(before);
        } catch {
            await pause(STATE_MS);  // the state tells whether it has ended
        }
        await pause(PREVIEW_MS);
    }
}

function captionOf(capture) {
    const sharpness = capture.sharpness === null ? ''
        : `\nsharpness ${capture.sharpness.toFixed(2)} (${capture.sharpnessShare.toFixed(2)} of best)`;
    const lag = capture.lagMs === null ? capture.served
        : `lag ${capture.lagMs.toFixed(1)} ms, ${capture.served}`;
    return `Capture ${capture.requestNo}, frame ${capture.index}\n${lag}${sharpness}`;
}

function enlarge(source, caption) {
    element('picture').src = source;
    element('picture').alt = caption;
    element('caption').textContent = caption;
    element('large').showModal();
}

function itemOf(capture) {
    const caption = captionOf(capture);
    const source = `shots/${capture.requestNo}-${capture.index}.jpg`;
    const button = document.createElement('button');
    button.type = 'button';
    if (capture.hasPicture) {
        const image = document.createElement('img');
        image.src = source;
        image.alt = '';
        button.append(image);
        button.addEventListener('click', () => enlarge(source, caption));
    }
    const text = document.createElement('span');
    text.textContent = caption;
    button.append(text);
    const item = document.createElement('li');
    item.append(button);
    return item;
}

async function showState() {
    while (!isOver) {
        try {
            const text = await (await ask('state.json')).text();
            if (text !== shown) {
                shown = text;
                const state = JSON.parse(text);
                element('source').textContent = state.source;
                element('strip').replaceChildren(...state.captures.map(itemOf));
                say(state.troubles || HINT);
                if (state.end !== null) {
                    endWith(`The camera has ended: ${state.end}`);
                }
            }
        } catch {
            endWith('The camera has ended.');
        }
        await pause(STATE_MS);
    }
}

element('shutter').addEventListener('click', () => ask('press', {method: 'POST'})
    .catch((error) => say(`Not taken: ${error.message}`)));
document.addEventListener('keydown', (event) => {
    // A button that has the focus takes them itself.
    const isOnPage = event.target === document.body && !element('large').open;
    if (isOnPage && !event.repeat && (event.key === ' ' || event.key === 'Enter')) {
        event.preventDefault();
        element('shutter').click();
    }
});
showPreview();
showState();
