// Opens pages that zsl wrote in Chromium, at two widths and in both colour schemes.
// Screenshots go to the folder `screenshots` of the working folder.

import assert from 'node:assert/strict';
import {spawnSync} from 'node:child_process';
import {mkdirSync, mkdtempSync, readFileSync, rmSync, writeFileSync} from 'node:fs';
import {createRequire} from 'node:module';
import {tmpdir} from 'node:os';
import {join, resolve} from 'node:path';
import {after, before, test} from 'node:test';
import {fileURLToPath, pathToFileURL} from 'node:url';

const {chromium} = createRequire(resolve('node_modules/x.js'))('playwright-core');

const WINDOWS = [{width: 1400, height: 900}, {width: 390, height: 800}];
const SCHEMES = ['light', 'dark'];
const LOAD_LIMIT_MS = 5000;
const FLAGS = ['--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
    '--disable-background-networking', '--disable-component-update', '--disable-sync'];

const HAS_VIDEO = process.env.HAS_VIDEO === 'ON';

// This would end the script element that holds the data.
const HOSTILE = '</script><!--<script>\u2028';

let pages;
let profile;
let context;

function zsl(status, command, ...options) {
    const run = spawnSync(process.env.ZSL, [command, ...options.join(' ').split(' ')],
        {cwd: pages, encoding: 'utf8'});
    assert.equal(run.status, status, run.stderr);
    return run;
}

const FRAME_WITHOUT_PICTURE = 26;

function writeFilmPage() {
    zsl(0, 'generate', '-o recordings/film.csv --frames 60 --size 320x180 --video recordings/film.mp4');
    const file = join(pages, 'recordings/film.csv');
    const [head, ...rows] = readFileSync(file, 'utf8').trimEnd().split('\n').map((line) => line.split(','));
    rows.find(([frameNo]) => Number(frameNo) === FRAME_WITHOUT_PICTURE)[head.indexOf('Video frame')] = '';
    writeFileSync(file, [head, ...rows].map((cells) => `${cells.join(',')}\n`).join(''));
    zsl(0, 'replay', 'recordings/film.csv --video recordings/film.mp4 --report film.html --json film.json',
        '--press 900ms --press 950ms --press 1500ms --frames 2 --offset 100ms --history 12 --policy best-shot');
    zsl(0, 'replay', 'recordings/film.csv --video recordings/film.mp4 --report films.html --captures 50 --history 12');
}

function writePages() {
    zsl(0, 'generate', '-o recordings/short.csv --frames 25 --missing-af-state-rate 0.3',
        '--exposure-jump-rate 0.1 --scan-rate 0.2 --error-rate 0.05');
    zsl(0, 'generate', '-o recordings/long.csv --frames 20000 --missing-af-state-rate 0.02',
        '--exposure-jump-rate 0.01 --error-rate 0.001');
    zsl(0, 'replay', 'recordings/short.csv --report short.html --json short.json --frames 3',
        '--press 120ms --press 260ms --press 300ms --press 455ms --press 620ms',
        `--any-property --property note=${HOSTILE}`);
    zsl(0, 'replay', 'recordings/long.csv --report long.html --json long.json --captures 60',
        '--policy multiframe --frames 4');
    writeFileSync(join(pages, 'recordings/bare.csv'), ['Timestamp[nanosec]',
        ...Array.from({length: 120}, (_, i) => 1e12 + i * 33_400_000)].join('\n') + '\n');
    zsl(0, 'replay', 'recordings/bare.csv --report faulty.html --json faulty.json --press 100ms',
        '--fault image-error:0.1 --fault late:0.1 --fault policy-throws:1');
    zsl(0, 'replay', 'recordings/short.csv --report dense.html --json dense.json --captures 40 --frames 2',
        '--offset 60ms --fault late:0.5');
    if (HAS_VIDEO) {
        writeFilmPage();
    }
    const {stderr} = zsl(0, 'replay', 'recordings/short.csv --log debug --frames 2 --press 120ms --press 455ms');
    // The last try is missing, and of one more capture there is a warning only.
    const lines = stderr.trimEnd().split('\n');
    writeFileSync(join(pages, 'device.log'), [...lines.slice(0, lines.findLastIndex((line) => / IN:/.test(line))),
        '01-01 00:00:09.000  0  7 W ZebCam/ZslProc: [select] [DefaultSelector] zslReqNo(77) hbs[F3] X']
        .join('\n') + '\n');
    zsl(0, 'explain', 'device.log --report log.html --json log.json');
    const runs = ['recordings/short.csv recordings/long.csv missing.csv --policy default',
        '--policy cshot --policy multiframe --captures 20 --frames 2 --fail-if p95_lag_ms>50'];
    zsl(1, 'compare', ...runs, '--json baseline.json');
    const baseline = JSON.parse(readFileSync(join(pages, 'baseline.json'), 'utf8'));
    baseline.rows[0].fields.max_wait_ms /= 2;
    baseline.totals.rows[2].fields.p95_wait_ms += 1;
    writeFileSync(join(pages, 'baseline.json'), JSON.stringify(baseline));
    zsl(1, 'compare', ...runs, '--baseline baseline.json --report comparison.html --reports runs',
        '--json comparison.json');
    // The name of a policy, which fails as it is none, may be longer than a telephone is wide.
    writeFileSync(join(pages, `${'averylongname'.repeat(5)}.so`), '');
    zsl(1, 'compare', `recordings/short.csv recordings/bare.csv --policy ./${'averylongname'.repeat(5)}.so`,
        '--policy default --policy multiframe --captures 20 --report names.html');
}

before(async () => {
    pages = resolve('pages');
    mkdirSync(join(pages, 'recordings'), {recursive: true});
    mkdirSync('screenshots', {recursive: true});
    writePages();
    profile = mkdtempSync(join(tmpdir(), 'report-test-'));
    context = await chromium.launchPersistentContext(profile,
        {executablePath: process.env.CHROMIUM, args: FLAGS});
    await context.addInitScript(recordCanvasTexts);
});

after(async () => {
    await context?.close();
    rmSync(profile, {recursive: true, force: true});
});

// Runs in the page: keeps the places of the texts that stand on each canvas, in its pixels.
function recordCanvasTexts() {
    const {prototype} = CanvasRenderingContext2D;
    const {clearRect, fillText} = prototype;
    window.canvasTexts = new Map();
    prototype.clearRect = function (...rect) {
        window.canvasTexts.set(this.canvas, []);
        clearRect.apply(this, rect);
    };
    prototype.fillText = function (text, x, y, ...rest) {
        const size = this.measureText(text);
        const corners = [[-size.actualBoundingBoxLeft, -size.actualBoundingBoxAscent],
            [size.actualBoundingBoxRight, size.actualBoundingBoxDescent]]
            .map(([dx, dy]) => this.getTransform().transformPoint({x: x + dx, y: y + dy}));
        const [xs, ys] = [corners.map((p) => p.x), corners.map((p) => p.y)];
        window.canvasTexts.get(this.canvas)?.push({text, left: Math.min(...xs), top: Math.min(...ys),
            right: Math.max(...xs), bottom: Math.max(...ys)});
        fillText.call(this, text, x, y, ...rest);
    };
}

// Runs in the page: pairs of texts that lie over each other, and texts that are cut off.
function badLabels() {
    const overlap = (a, b) => a.left < b.right - 1 && b.left < a.right - 1 &&
        a.top < b.bottom - 1 && b.top < a.bottom - 1;
    const bad = [];
    const check = (boxes) => boxes.forEach((a, i) => boxes.slice(i + 1)
        .filter((b) => overlap(a, b)).forEach((b) => bad.push(`${a.text} over ${b.text}`)));
    for (const [canvas, texts] of window.canvasTexts) {
        check(texts);
        bad.push(...texts.filter((t) => t.left < -1 || t.right > canvas.width + 1)
            .map((t) => `${t.text} is cut off`));
    }
    const boxOf = (element) => {
        const {left, top, right, bottom} = element.getBoundingClientRect();
        return {text: element.textContent, left, top, right, bottom};
    };
    check([...document.querySelectorAll('.lane-label, .legend li, .legend-line span:not(.swatch), ' +
        '.tile .label, .tile .value, h2, .tools button, .u-over')].map(boxOf)
        .filter((box) => box.right > box.left));
    for (const box of document.querySelectorAll('.tile, .lane-label, button, dd, #histogram')) {
        if (box.scrollWidth > box.clientWidth && box.clientWidth > 0) {
            bad.push(`${box.textContent} does not fit`);
        }
    }
    return {bad, drawn: [...window.canvasTexts.values()].flat().length};
}

async function open(name, size, scheme) {
    const page = await context.newPage();
    const problems = [];
    page.on('console', (message) => problems.push(message.text()));
    page.on('pageerror', (error) => problems.push(error.stack));
    const file = pathToFileURL(join(pages, name)).href;
    page.on('request', (request) => {
        // Pictures that the page makes of its data.
        if (request.url() !== file && !request.url().startsWith('blob:')) {
            problems.push(`request of ${request.url()}`);
        }
    });
    await page.setViewportSize(size);
    await page.emulateMedia({colorScheme: scheme});
    const begin = Date.now();
    await page.goto(file);
    await page.evaluate(() => new Promise((done) => {
        requestAnimationFrame(() => requestAnimationFrame(done));
    }));
    return {page, problems, loadMs: Date.now() - begin};
}

async function checkLayout(page, name) {
    const widths = await page.evaluate(() => [document.documentElement.scrollWidth, innerWidth]);
    assert.ok(widths[0] <= widths[1], `${name}: the page is ${widths[0]} of ${widths[1]} px wide`);
    const {bad, drawn} = await page.evaluate(badLabels);
    assert.deepEqual(bad, [], name);
    await page.screenshot({path: `screenshots/${name}.png`, fullPage: true});
    return drawn;
}

const inMs = (ns) => (ns / 1e6).toFixed(2).replace('-', '\u2212').replace(/^\u2212(0\.00)$/, '$1');

async function checkSummary(page, {summary}) {
    for (const field of ['answeredCaptures', 'atOnce', 'waited', 'timedOut', 'flushed',
        'lag.medianNs', 'lag.p95Ns', 'wait.maxNs']) {
        const value = field.split('.').reduce((part, key) => part[key], summary);
        const text = field.endsWith('Ns') ? inMs(value) : String(value);
        assert.equal(await page.textContent(`[data-field="${field}"]`), text, field);
    }
}

/// Moves the mouse along a lane and collects what the tooltip says.
async function sweep(page, lane, step) {
    await page.locator('#lanes').scrollIntoViewIfNeeded();
    const plot = await page.locator('#lanes .u-over').boundingBox();
    const label = await page.locator(`[data-lane="${lane}"]`).boundingBox();
    const y = label.y + label.height / 2;
    await page.mouse.move(plot.x + 1, y);
    // Within the page: each true move waits for a frame of the screen.
    const texts = new Set(await page.evaluate(({from, to, by, height}) => {
        const told = [];
        for (let x = from; x < to; x += by) {
            document.elementFromPoint(x, height)?.dispatchEvent(
                new PointerEvent('pointermove', {clientX: x, clientY: height, pointerType: 'mouse', bubbles: true}));
            told.push(document.querySelector('#tooltip:not([hidden])')?.textContent ?? '');
        }
        return told;
    }, {from: plot.x + 1, to: plot.x + plot.width, by: step, height: y}));
    texts.delete('');
    return [...texts];
}

for (const name of ['short', 'long']) {
    for (const size of WINDOWS) {
        for (const scheme of SCHEMES) {
            test(`${name}, ${size.width} px, ${scheme}`, async () => {
                const {page, problems, loadMs} = await open(`${name}.html`, size, scheme);
                const data = JSON.parse(readFileSync(join(pages, `${name}.json`), 'utf8'));
                assert.ok(loadMs < LOAD_LIMIT_MS, `the page took ${loadMs} ms`);
                await checkSummary(page, data);
                const drawn = await checkLayout(page, `${name}-${size.width}-${scheme}`);
                assert.ok(drawn > 20, `only ${drawn} labels on the charts`);
                // Zoomed in, frames carry their numbers.
                await page.click('[data-do="next"]');
                await page.waitForTimeout(100);
                await checkLayout(page, `${name}-${size.width}-${scheme}-capture`);
                assert.deepEqual(problems, []);
                await page.close();
            });
        }
    }
}

test('every frame and capture tells what it is, and why it was refused', async () => {
    const {page} = await open('short.html', WINDOWS[0], 'light');
    const data = JSON.parse(readFileSync(join(pages, 'short.json'), 'utf8'));
    const tips = await sweep(page, 'refusals', 4);
    const refused = data.captures.flatMap(({requestNo, pressNs, tries}) => tries
        .flatMap((attempt) => attempt.explanation.candidates)
        .filter((c) => c.verdict === 'refused').map((c) => ({...c, requestNo, pressNs})));
    assert.ok(new Set(refused.map((c) => c.criterion)).size > 1);
    for (const candidate of refused) {
        const tip = tips.find((text) => text.startsWith(`Frame ${candidate.frameNo} refused`));
        assert.ok(tip, `no tooltip for frame ${candidate.frameNo}`);
        const values = [candidate.wanted, candidate.found].map(
            (value) => String(value?.text ?? value?.value ??
                (value ? inMs(value.ns - candidate.pressNs) : '')));
        for (const text of [`capture ${candidate.requestNo}, tr`, candidate.criterion, ...values]) {
            assert.ok(tip.includes(text), `${text} is missing in: ${tip}`);
        }
    }
    const frames = await sweep(page, 'frames', 6);
    assert.equal(frames.length, 25);
    assert.ok(frames.every((text) => /Time.*Exposure.*Focus.*AF state/.test(text)), frames[0]);
    assert.ok(frames.some((text) => text.includes('not told')));
    const captures = await sweep(page, 'captures', 6);
    assert.ok(captures.some((text) => text.startsWith('Capture 1pressed at 0.120 s')), captures[0]);
    await page.close();
});

test('the time line moves by mouse, keys and buttons', async () => {
    const {page} = await open('long.html', WINDOWS[0], 'light');
    const range = async () => (await page.textContent('#range')).replaceAll('\u2212', '-')
        .match(/-?[\d.]+/g).map(Number);
    const all = await range();
    await page.locator('#lanes').scrollIntoViewIfNeeded();
    const plot = await page.locator('#lanes .u-over').boundingBox();
    const drag = async (from, to) => {
        await page.mouse.move(plot.x + plot.width * from, plot.y + 20);
        await page.mouse.down();
        await page.mouse.move(plot.x + plot.width * to, plot.y + 20, {steps: 5});
        await page.mouse.up();
    };
    assert.ok(plot.width > 1000);
    await drag(0.25, 0.5);
    const part = await range();
    const share = (part[1] - part[0]) / (all[1] - all[0]);
    assert.ok(Math.abs(share - 0.25) < 0.01, `the drag shows ${share} of all`);
    await page.keyboard.down('Shift');
    await drag(0.5, 0.25);
    await page.keyboard.up('Shift');
    const moved = await range();
    assert.ok(Math.abs(moved[0] - part[0] - (part[1] - part[0]) / 4) < 3, `moved to ${moved}`);
    await page.focus('#lanes');
    await page.keyboard.press('+');
    const zoomed = await range();
    assert.ok(Math.abs((zoomed[1] - zoomed[0]) * 2 - (moved[1] - moved[0])) < 0.01);
    await page.click('[data-do="all"]');
    assert.deepEqual(await range(), all);
    await page.close();
});

test('a number in the table leads to its capture', async () => {
    const {page} = await open('short.html', WINDOWS[1], 'light');
    await page.click('#captures-table a >> nth=1');
    const expectCapture = async (number) => {
        assert.match(await page.textContent('#details-title'), new RegExp(`^Capture ${number}:`));
        const {y} = await page.locator('#details-title').boundingBox();
        assert.ok(y >= 0 && y < 200, `why is at ${y} px`);
    };
    await expectCapture(2);
    assert.ok(page.url().endsWith('#capture-2'));
    const last = page.locator('#details-body details').last();
    assert.match(await last.textContent(), /refused for.*(exposure|time|focus)/);
    assert.equal(await page.locator('#captures-table tr.selected').count(), 3);
    // An address with a capture leads to it, at once and later.
    await page.evaluate(() => { location.hash = '#capture-4'; });
    await page.waitForTimeout(50);
    await expectCapture(4);
    await page.reload();
    await expectCapture(4);
    await page.close();
});

test('what was injected and what nobody told shows', async () => {
    const {page, problems} = await open('faulty.html', WINDOWS[0], 'light');
    const data = JSON.parse(readFileSync(join(pages, 'faulty.json'), 'utf8'));
    const {level, reasons} = data.verdict;
    assert.equal(level, 'bad');
    assert.match(await page.getAttribute('#verdict', 'class'), /bad/);
    for (const {text} of reasons) {
        assert.ok((await page.textContent('#verdict')).toLowerCase().includes(text.toLowerCase()), text);
    }
    const tips = await sweep(page, 'injected', 2);
    assert.ok(data.faults.frames.length > 3);
    for (const {frameNo, faults} of data.faults.frames) {
        assert.ok(tips.some((tip) => tip.startsWith(`Frame ${frameNo}injected: ${faults.join(', ')}`)),
            `frame ${frameNo} of ${tips}`);
    }
    const frames = await sweep(page, 'frames', 6);
    assert.ok(frames.every((tip) => /Exposurenot told, stability not told.*Focusnot told/.test(tip)), frames[0]);
    assert.ok(frames.some((tip) => tip.includes('Imageunusable')));
    const arrived = await sweep(page, 'arrivals', 2);
    assert.ok(arrived.some((tip) => /^Frame \d+ arrived.* ms after it began/.test(tip)), arrived[0]);
    // Tries that say the same as the one before are folded.
    const details = await page.locator('#details-body details').allTextContents();
    assert.ok(data.captures[0].tries.length > 80 && details.length < 20, `${details.length} rows of tries`);
    assert.ok(details.some((text) => /\d\d times the same/.test(text)), details[0]);
    assert.deepEqual(problems, []);
    await page.close();
});

test('a try that was repeated shows to its last repeat, and no column is out of sight', async () => {
    const {page} = await open('dense.html', {width: 1440, height: 900}, 'light');
    const {captures} = JSON.parse(readFileSync(join(pages, 'dense.json'), 'utf8'));
    // One capture at a time: where many marks lie together, the worst is told.
    const tips = [];
    for (let i = 0; i < 4; ++i) {
        await page.click('[data-do="next"]');
        tips.push(...await sweep(page, 'tries', 4));
    }
    const repeated = tips.map((tip) => tip.match(/^Tries (\d+) to (\d+) of capture (\d+)Time.*Made(\d+) times, all alike/))
        .filter(Boolean).map((parts) => parts.slice(1).map(Number));
    assert.ok(repeated.length > 0, tips.join("\n"));
    for (const [first, last, requestNo, times] of repeated) {
        assert.equal(last - first + 1, times);
        assert.ok(captures.find((capture) => capture.requestNo === requestNo).tries
            .some(({repeats}) => repeats + 1 === times), `${times} times of capture ${requestNo}`);
    }
    const widths = await page.$eval('#captures .scroll', (box) => [box.scrollWidth, box.clientWidth]);
    assert.match(await page.textContent('#captures-table'), /Chosen frameInjected.*dpt, focus/);
    assert.ok(widths[0] <= widths[1], `the table is ${widths[0]} of ${widths[1]} px wide`);
    await page.close();
});

const filmTest = (name, run) => test(name, {skip: !HAS_VIDEO && 'built without videos'}, run);

// Runs in the page: what its film strip tells of each frame.
const readFilm = () => [...document.querySelectorAll('.film .shot')].map((shot) => ({
    frameNo: Number(shot.dataset.frame),
    isChosen: shot.classList.contains('served'),
    hasPicture: shot.querySelector('img') !== null,
    alt: shot.querySelector('img')?.alt ?? shot.querySelector('.empty').getAttribute('aria-label'),
    text: shot.innerText,
}));

for (const size of WINDOWS) {
    filmTest(`film strips, ${size.width} px`, async () => {
        const {page, problems} = await open('film.html', size, SCHEMES[1]);
        const {replay: {captures, recording}, sensor, pictures} = JSON.parse(await page.textContent('#data'));
        for (const {requestNo, pressNs, pressFrame: press, frames, tries} of captures) {
            await page.click(`#captures-table a:text-is("${requestNo}")`);
            const lagOf = (i) => sensor.timeNs[i] + recording.firstTimestampNs - pressNs;
            assert.equal(press, sensor.frameNo[sensor.timeNs.findLastIndex((_, i) => lagOf(i) <= 0)]);
            const offered = frames.flatMap(({try: i}) => [...tries[i].historyFrames, ...tries[i].lockedFrames]);
            const film = await page.evaluate(readFilm);
            assert.deepEqual(film.map(({frameNo}) => frameNo), [...new Set([...offered, press])].sort((a, b) => a - b));
            for (const {frameNo, isChosen, hasPicture, alt, text} of film) {
                const chosen = frames.find((frame) => frame.frameNo === frameNo);
                const i = sensor.frameNo.indexOf(frameNo);
                assert.equal(isChosen, chosen !== undefined, alt);
                assert.equal(hasPicture, frameNo !== FRAME_WITHOUT_PICTURE, alt);
                assert.equal(alt.includes('press frame') && /\bpress\b/.test(text), frameNo === press, alt);
                const verdict = isChosen ? `chosen for frame ${chosen.index}`
                    : offered.includes(frameNo) ? 'refused: \\w+' : 'still in flight';
                const [, sharpness] = alt.match(new RegExp(`^frame ${frameNo}, ${Math.round(-lagOf(i) / 1e6)} ms ` +
                    `before the press, (?:sharpness ([\\d.]+) \\([\\d.]+.of.best\\), )?${verdict}`)) ?? assert.fail(alt);
                assert.ok(hasPicture ? Math.abs(sharpness - sensor.sharpness[i]) <= 0.5 : !sharpness, alt);
                assert.ok(text.includes(`${inMs(lagOf(i))} ms`), text);
                assert.ok(!isChosen || !hasPicture || text.includes(`${chosen.chosen.picture.sharpnessShare.toFixed(2)} of best`), text);
            }
        }
        // One copy of each picture, which the table shows, too.
        assert.equal(new Set(pictures.map(({frameNo}) => frameNo)).size, pictures.length);
        const shown = await page.$$eval('.film img, #captures-table img', (images) => Promise.all(images.map((image) => {
            image.loading = 'eager';  // those out of sight, too
            return image.decode().then(() => ({src: image.src, frame: image.alt.split(',')[0]}));
        })));
        assert.equal(new Set(shown.map(({src}) => src)).size, new Set(shown.map(({frame}) => frame)).size);
        const strip = await page.$eval('.film', ({scrollWidth: all, clientWidth: shown}) => ({all, shown}));
        assert.ok(size.width > 1000 || strip.all > 2 * strip.shown, `the strip is ${strip.all} of ${strip.shown} px wide`);
        await checkLayout(page, `film-${size.width}`);
        assert.deepEqual(problems, []);
        await page.close();
    });
}

filmTest('a picture is enlarged, stepped through and closed by keys', async () => {
    const {page} = await open('film.html', WINDOWS[0], 'light');
    const film = await page.evaluate(readFilm);
    const stops = film.filter(({hasPicture}) => hasPicture);
    const expectShown = async (frameNo) => {
        assert.match(await page.textContent('#viewer-title'), new RegExp(`frame ${frameNo}$`));
        const alt = await page.getAttribute('#viewer figure:first-child img', 'alt');
        assert.equal(alt, film.find((frame) => frame.frameNo === frameNo).alt);
    };
    const empty = film.findIndex(({hasPicture}) => !hasPicture);
    await page.focus(`.shot[data-frame="${film[empty - 1].frameNo}"] button`);
    await page.keyboard.press('Enter');
    await expectShown(film[empty - 1].frameNo);
    await page.keyboard.press('ArrowRight');
    await expectShown(film[empty + 1].frameNo);
    for (const _ of film) {
        await page.keyboard.press('ArrowLeft');
    }
    await expectShown(stops[0].frameNo);
    assert.equal(await page.getAttribute('#viewer [data-do="earlier"]', 'aria-disabled'), 'true');
    // Beside what was not chosen stands what was.
    const beside = await page.getAttribute('#viewer figure:nth-child(2) img', 'alt');
    assert.match(beside, /, chosen for frame/);
    await page.keyboard.press('Escape');
    assert.equal(await page.$eval('#viewer', (dialog) => dialog.open), false);
    assert.equal(await page.evaluate(() => document.activeElement.closest('.shot')?.dataset.frame),
        String(film[empty - 1].frameNo));
    await page.close();
});

filmTest('a page of 50 captures that share pictures is small', () => {
    const page = readFileSync(join(pages, 'films.html'), 'utf8');
    const {replay: {captures}, pictures} = JSON.parse(page.match(/id="data">(.*)<\/script>/)[1]);
    const shown = captures.flatMap(({tries}) => tries.at(-1).historyFrames);
    assert.ok(shown.length > 300 && pictures.length < 60, `${pictures.length} pictures of ${shown.length}`);
    assert.ok(page.length < 2.5e6, `${page.length} bytes`);
});

filmTest('the time line has pictures and what is measured of them', async () => {
    const {page} = await open('film.html', WINDOWS[0], 'light');
    const {replay: {captures}, pictures} = JSON.parse(await page.textContent('#data'));
    // All chosen ones, for they go before those that would lie on them.
    const numbersOf = (tips) => tips.map((tip) => Number(tip.match(/^Frame (\d+)/)[1]));
    const drawn = numbersOf(await sweep(page, 'pictures', 4));
    assert.ok(drawn.length < pictures.length);
    assert.ok(drawn.includes(captures.at(-1).frames[0].frameNo), `${drawn}`);
    const plot = await page.locator('#lanes .u-over').boundingBox();
    const lane = await page.locator('[data-lane="pictures"]').boundingBox();
    for (let x = plot.width - 1; x > 0 && !await page.isVisible('#viewer'); x -= 20) {
        await page.mouse.click(plot.x + x, lane.y + lane.height / 2);
    }
    assert.match(await page.textContent('#viewer-title'), new RegExp(`^Capture ${captures.at(-1).requestNo}, frame`));
    await page.keyboard.press('Escape');
    const measured = await sweep(page, 'sharpness', 4);
    assert.equal(measured.length, 60);
    assert.equal(measured.filter((tip) => /Sharpness[\d.]+Motion/.test(tip)).length, 58, measured[0]);
    await page.close();
});

for (const size of WINDOWS) {
    test(`log, ${size.width} px`, async () => {
        const {page, problems} = await open('log.html', size, SCHEMES[1]);
        const data = JSON.parse(readFileSync(join(pages, 'log.json'), 'utf8'));
        assert.deepEqual(JSON.parse(await page.textContent('#data')).explain, data);
        await checkLayout(page, `log-${size.width}`);
        assert.match(await page.getAttribute('#verdict', 'class'), /doubtful/);
        for (const {text} of data.verdict.reasons) {
            assert.ok((await page.textContent('#verdict')).includes(text), text);
        }
        assert.deepEqual(data.captures.map(({outcome}) => outcome), ['served', 'pending', 'unknown']);
        assert.equal(await page.textContent('[data-field="served"]'), '1');
        for (const {requestNo, answer, tries} of data.captures) {
            await page.click(`#captures-table a:text-is("${requestNo}")`);
            const why = await page.textContent('#details');
            for (const text of [...answer.split('\n'), `line ${tries.at(-1).line}`]) {
                assert.ok(why.includes(text), `${text} is missing in: ${why}`);
            }
        }
        await page.click('[data-do="all"]');
        const places = {captures: /^Capture 1wanted instant at 0.000 s/, tries: /^Try 1 of capture 2.*Age0.00 ms/,
            shutters: /^Early shutter of capture \d.* ms from the wanted instant$/};
        for (const [lane, expected] of Object.entries(places)) {
            const tips = await sweep(page, lane, 1);
            assert.ok(tips.some((tip) => expected.test(tip)), `${lane}: ${tips}`);
            assert.ok(!tips.some((tip) => /apture 77/.test(tip)), 'its instant is not known');
        }
        assert.equal(await page.locator('[data-lane="frames"]').count(), 0);
        assert.deepEqual(problems, []);
        await page.close();
    });
}

// Runs in the page: tables with a part that cannot be scrolled into sight.
function hiddenColumns() {
    return [...document.querySelectorAll('table.comparison')].flatMap((table) => {
        const box = table.parentElement;
        box.scrollLeft = 0;
        const fixed = Math.max(...[...table.querySelectorAll('th[scope=row]')].map((th) => th.offsetWidth));
        box.scrollLeft = box.scrollWidth;
        const right = Math.max(...[...table.querySelectorAll('th, td')].map((cell) => cell.getBoundingClientRect().right));
        return fixed > box.clientWidth / 2 || right > box.getBoundingClientRect().right + 1
            ? [`${table.id}: ${fixed} px stay, ends at ${right}`] : [];
    });
}

for (const size of WINDOWS) {
    test(`comparison, ${size.width} px`, async () => {
        for (const name of ['names', 'comparison']) {
            const {page, problems} = await open(`${name}.html`, size, SCHEMES[0]);
            await checkLayout(page, `${name}-${size.width}`);
            assert.deepEqual(await page.evaluate(hiddenColumns), []);
            assert.deepEqual(problems, []);
            await page.close();
        }
    });
}

test('a comparison tells runs, totals, ranking and changes, and leads to the runs', async () => {
    const {page} = await open('comparison.html', WINDOWS[1], SCHEMES[1]);
    const {rows, rankings} = JSON.parse(readFileSync(join(pages, 'comparison.json'), 'utf8'));
    assert.equal(await page.locator('#comparison-table tbody tr:has(th[scope=row])').count(), 9);
    const expectTold = async (where, ...parts) => {
        const text = await page.textContent(where);
        for (const part of parts) {
            assert.match(text, part, where);
        }
    };
    await expectTold('#verdict', /^Bad.*3 of 9 runs failed.*runs break a limit/);
    await expectTold('#comparison-settings', /Captures20.*Limitsp95_lag_ms>50/);
    await expectTold('#comparison-table', /multiframe/, /recordings\/long.csv/, /--fail-if p95_lag_ms>50/,
        /missing.csv: expected a readable file/, /worse than the baseline: max_wait_ms [\d.,]+, was/);
    await expectTold('#totals', /^\s*Total of 2 recordings\s*Without 1 recording in which/, /default.*cshot.*multiframe/);
    await expectTold('#since', /9 of 9 runs matched.*1 value got worse, 1 better/);
    const changes = await page.locator('#since-table tbody tr').allTextContents();
    assert.match(changes[0], /^recordings\/short.csv.*default.*max_wait_ms.*\+100.0 %worse$/);
    assert.match(changes[1], /^all recordings.*multiframe.*p95_wait_ms.*better$/);
    const ranked = await page.locator('#ranking-table tbody tr').allTextContents();
    assert.equal(ranked.length, rankings.length);
    const {field, places: [best, , last]} = rankings.find(({places}) => places.at(-1).ratio > 1.01);
    assert.ok(ranked.some((text) => text.startsWith(`${field}${rows[best.total].options.policy} `) &&
        text.endsWith(`(\u00d7${last.ratio.toFixed(2)})`)), `${field} in ${ranked}`);
    await page.click('#comparison-table a >> nth=4');
    assert.match(await page.textContent('#lead'), /20,000 frames.*policy cshot/);
    assert.equal(resolve(pages, rows[4].report), fileURLToPath(page.url()));
    await page.close();
});

test('without scripts the numbers are there', async () => {
    const browser = await chromium.launch({executablePath: process.env.CHROMIUM, args: FLAGS});
    const page = await browser.newPage({javaScriptEnabled: false});
    await page.goto(pathToFileURL(join(pages, 'short.html')).href);
    assert.match(await page.innerText('body'), /5 of 5 captures answered, the ledger balances/);
    await browser.close();
});

test('the data is that of --json, whatever it holds', async () => {
    const {page} = await open('short.html', WINDOWS[0], 'light');
    const data = JSON.parse(await page.textContent('#data'));
    assert.deepEqual(Object.keys(data).sort(), ['replay', 'sensor', 'version']);
    assert.deepEqual(data.replay, JSON.parse(readFileSync(join(pages, 'short.json'), 'utf8')));
    assert.equal(data.replay.options.properties.note, HOSTILE);
    assert.ok((await page.textContent('#facts-body')).includes(`note=${HOSTILE}`));
    await page.close();
});
