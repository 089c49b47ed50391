import {CaptureTable, showDetails, showRefusals} from './captures.js';
import {showDistribution} from './chart.js';
import {showComparison} from './comparison.js';
import {byId} from './dom.js';
import {counted, number, seconds, whole} from './format.js';
import {modelOfLog, modelOfReplay} from './model.js';
import {showFacts, showLogFacts, showLogSummary, showSummary} from './summary.js';
import {Timeline} from './timeline.js';
import {showProvenance, showVerdict} from './verdict.js';

function setHead(kicker, title, lead) {
    byId('kicker').textContent = kicker;
    byId('title').textContent = title;
    byId('lead').textContent = lead;
}

const baseName = (path) => path.split('/').pop() || path;

/// The capture that somebody most likely wants to know about.
function mostTelling(captures) {
    return captures.find((capture) => capture.served !== 'atOnce') ??
        captures.find(({tries}) => tries.some(({explanation}) => explanation?.candidates.some(
            (candidate) => candidate.verdict === 'refused'))) ?? captures[0];
}

/// Table, time line and reasons, which all show the same capture; and the page's address, which
/// names it once somebody has chosen one.
function showCaptures(model) {
    let table = null;
    function select(capture, mayMove = true) {
        table.select(capture);
        timeline?.select(capture, mayMove);
        showDetails(model, capture);
    }
    function open(capture, mayMove) {
        select(capture, mayMove);
        history.replaceState(null, '', capture.anchor);
        byId('details').scrollIntoView({block: 'start'});
        byId('details-title').focus({preventScroll: true});
    }
    function openAddressed() {
        const capture = model.captures.find(({anchor}) => anchor === location.hash);
        if (capture) {
            open(capture, true);
        }
        return capture;
    }
    const timeline = model.placed.length === 0 && model.frames.count === 0 ? null
        : new Timeline(model, (capture, isStep) => (isStep ? select(capture) : open(capture, false)));
    table = new CaptureTable(model, (capture) => open(capture, true));
    addEventListener('hashchange', openAddressed);
    if (model.captures.length > 0 && !openAddressed()) {
        select(mostTelling(model.captures), false);
    }
}

function showReplay(data) {
    const model = modelOfReplay(data);
    const {recording, options} = data.replay;
    setHead('Zero shutter lag \u00b7 replay', baseName(recording.path),
        `${counted(recording.frames, 'frame', 'frames')} in ${seconds(recording.lengthNs)} s at ` +
        `${number(recording.framesPerSecond, 2)} frames/s \u00b7 policy ${options.policy} \u00b7 ` +
        `${counted(model.captures.length, 'capture', 'captures')} of ` +
        `${counted(options.framesPerCapture, 'frame', 'frames')} \u00b7 ZSL offset ` +
        `${whole(options.offsetNs / 1e6)} ms`);
    showProvenance(data.replay, [data.replay.device ? 'recording of a device' : '']);
    showVerdict(data.replay.verdict);
    showSummary(model);
    showDistribution(model);
    showRefusals(model);
    showFacts(data.replay);
    // Last, for an address with a capture scrolls to it.
    showCaptures(model);
}

function showLog(data) {
    const {explain} = data;
    const model = modelOfLog(data);
    setHead('Zero shutter lag \u00b7 log', explain.log.path ? baseName(explain.log.path) : 'standard input',
        `${counted(model.captures.length, 'capture', 'captures')} in ` +
        `${counted(explain.log.processorLines, 'line', 'lines')} of the processor`);
    showProvenance(explain);
    showVerdict(explain.verdict);
    showLogSummary(explain);
    showRefusals(model);
    showLogFacts(explain);
    showCaptures(model);
}

function main() {
    const data = JSON.parse(byId('data').textContent);
    byId('main').hidden = false;
    if (data.replay) {
        showReplay(data);
    } else if (data.explain) {
        showLog(data);
    } else {
        const {rows} = data.comparison;
        const recordings = new Set(rows.map((row) => row.recording.path)).size;
        setHead('Zero shutter lag \u00b7 comparison', 'Comparison of policies',
            `${counted(rows.length, 'run', 'runs')} over ` +
            counted(recordings, 'recording', 'recordings'));
        showProvenance(data.comparison);
        showVerdict(data.comparison.verdict);
        if (rows.length > 0) {
            showComparison(data);
        }
    }
    byId('footer').textContent = `Written by zsl ${data.version}. ${data.explain
        ? 'Wanted instant: the one that a capture stands for, the press less the ZSL offset.'
        : 'Lag: from the press to the start of exposure of the frame that was chosen.'}`;
}

main();
