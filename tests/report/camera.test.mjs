// Takes pictures in Chromium with the page of `zsl camera --serve`, and looks at its report.
// A screenshot goes to the folder `screenshots` of the working folder.

import assert from 'node:assert/strict';
import {spawn} from 'node:child_process';
import {once} from 'node:events';
import {mkdirSync, mkdtempSync, rmSync} from 'node:fs';
import {request} from 'node:http';
import {createRequire} from 'node:module';
import {tmpdir} from 'node:os';
import {join, resolve} from 'node:path';
import {createInterface} from 'node:readline';
import {after, before, test} from 'node:test';
import {pathToFileURL} from 'node:url';

const {chromium} = createRequire(resolve('node_modules/x.js'))('playwright-core');

const SOURCE = 'lavfi:testsrc2=size=640x360:rate=30';
const REPORT = resolve('pages/camera.html');
let camera;
let address;
let profile;
let context;

// Gives the status of a request with these headers.
async function statusOf(path, {method = 'GET', headers = {}} = {}) {
    const sent = request(new URL(path, address), {method, headers});
    sent.end();
    const [response] = await once(sent, 'response');
    response.resume();
    return response.statusCode;
}

before(async () => {
    mkdirSync('screenshots', {recursive: true});
    mkdirSync('pages', {recursive: true});
    camera = spawn(process.env.ZSL, ['camera', SOURCE, '--serve', '--frames', '2', '--offset', '100ms', '--report', REPORT],
        {stdio: ['ignore', 'pipe', 'inherit']});
    for await (const line of createInterface({input: camera.stdout})) {
        address = line.match(/^Page +(http\S+)$/)?.[1];
        if (address) {
            break;
        }
    }
    camera.stdout.resume();
    profile = mkdtempSync(join(tmpdir(), 'camera-test-'));
    context = await chromium.launchPersistentContext(profile, {executablePath: process.env.CHROMIUM,
        viewport: {width: 900, height: 900}, args: ['--headless', '--no-sandbox', '--disable-gpu']});
});

after(async () => {
    await context?.close();
    rmSync(profile, {recursive: true, force: true});
    camera.kill('SIGKILL');
});

test('only the address with the token is served', async () => {
    assert.match(address, /^http:\/\/127\.0\.0\.1:\d+\/[0-9a-f]{32}\/$/);
    const token = new URL(address).pathname;
    const other = token.replace(/.\/$/, (end) => (end === '0/' ? '1/' : '0/'));
    const port = new URL(address).port;
    for (const [path, options, status] of [
        ['/', {}, 403], ['/state.json', {}, 403], [`${other}state.json`, {}, 403],
        [`${token.slice(0, -2)}/state.json`, {}, 403], [`${token}state.json`, {}, 200],
        [`${token}state.json`, {headers: {host: 'example.org'}}, 403],
        [`${token}state.json`, {headers: {host: `localhost:${port}`}}, 200],
        [`${token}press`, {method: 'POST', headers: {origin: 'http://example.org'}}, 403],
        [`${token}press`, {}, 404], [`${token}shots/9-9.jpg`, {}, 404], [`${token}shots/1`, {}, 404],
        [`${token}state.json`, {method: 'PUT'}, 405],
    ]) {
        assert.equal(await statusOf(path, options), status, `${JSON.stringify(options)} ${path}`);
    }
});

test('it previews, takes pictures and tells the end', async () => {
    const page = context.pages()[0];
    const problems = [];
    page.on('console', (message) => message.type() === 'error' && problems.push(message.text()));
    page.on('pageerror', (error) => problems.push(String(error)));
    await page.goto(address);
    const preview = () => page.$eval('#preview', (image) => [image.src, image.naturalWidth]);
    await page.waitForFunction(() => document.getElementById('preview').naturalWidth === 640);
    const [first] = await preview();
    await page.waitForFunction((src) => document.getElementById('preview').src !== src, first);

    await page.click('#shutter');
    await page.waitForFunction(() => document.querySelectorAll('#strip li').length === 2);
    await page.evaluate(() => document.activeElement.blur());
    await page.keyboard.press(' ');
    await page.waitForFunction(() => document.querySelectorAll('#strip li').length === 4);
    const captions = await page.$$eval('#strip span', (spans) => spans.map((span) => span.textContent));
    assert.match(captions[0], /^Capture 2, frame 1\nlag -\d+\.\d ms, (at once|waited)\nsharpness \d/);
    await page.waitForFunction(() => [...document.querySelectorAll('#strip img')]
        .every((image) => image.naturalWidth === 640));
    await page.screenshot({path: 'screenshots/camera.png', fullPage: true});

    await page.click('#strip li:last-child button');
    assert.equal(await page.$eval('#picture', (image) => image.alt), captions[3]);
    await page.keyboard.press('Escape');
    await page.setViewportSize({width: 390, height: 800});
    assert.ok(await page.evaluate(() => document.documentElement.scrollWidth <= 390));
    assert.deepEqual(problems, []);

    const ended = once(camera, 'exit');
    camera.kill('SIGINT');
    assert.deepEqual(await ended, [0, null]);
    await page.waitForFunction(() => document.getElementById('shutter').disabled);
    assert.match(await page.textContent('#status'), /^The camera has ended/);

    // Both frames of the first capture were in the history of eight.
    await page.goto(pathToFileURL(REPORT).href);
    await page.waitForSelector('.film');
    const film = await page.$$eval('.film .picture img', (images) => Promise.all(images.map((image) => {
        image.loading = 'eager';
        return image.decode().then(() => image.naturalWidth);
    })));
    assert.ok(film.length >= 8 && film.every((width) => width > 0), String(film));
    assert.equal(await page.locator('.film .shot.served').count(), 2);
});
