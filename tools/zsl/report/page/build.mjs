// Bundles the report's page and writes it as C++ source.
//
// usage: node build.mjs OUTPUT.cpp     in a folder whose node_modules holds the packages
//
// What it was made of is told in OUTPUT.cpp.d, for the build to see changes of it.
//
// Script and style are named by their hashes in the page's policy, so that nothing else can run in
// it, whatever a recording or a log contains.

import {createHash} from 'node:crypto';
import {readFile, writeFile} from 'node:fs/promises';
import {createRequire} from 'node:module';
import {dirname, join, resolve} from 'node:path';
import process from 'node:process';
import {fileURLToPath} from 'node:url';

const packages = join(process.cwd(), 'node_modules');
const esbuild = createRequire(join(packages, 'x.js'))('esbuild');
const source = join(dirname(fileURLToPath(import.meta.url)), 'src');

// Compilers need not take longer literals.
const LITERAL_SIZE = 8000;

const inputs = new Set([join(source, 'page.html')]);

async function bundle(entry) {
    const result = await esbuild.build({
        entryPoints: [join(source, entry)],
        bundle: true,
        minify: true,
        write: false,
        metafile: true,
        charset: 'ascii',
        format: 'iife',
        target: 'es2020',
        legalComments: 'none',
        nodePaths: [packages],
        logLevel: 'warning',
    });
    Object.keys(result.metafile.inputs).forEach((file) => inputs.add(resolve(file)));
    return result.outputFiles[0].text.trim().replaceAll('</', '<\\/');
}

function hashOf(text) {
    return `'sha256-${createHash('sha256').update(text).digest('base64')}'`;
}

// A function keeps dollar signs of the value from meaning anything.
function fill(text, slot, value) {
    if (text.split(slot).length !== 2) {
        throw new Error(`page.html: expected ${slot} once`);
    }
    return text.replace(slot, () => value);
}

function literals(text) {
    const lines = [];
    for (let i = 0; i < text.length; i += LITERAL_SIZE) {
        lines.push(`    R"page(${text.slice(i, i + LITERAL_SIZE)})page",`);
    }
    return lines.join('\n');
}

async function makePage() {
    const [script, style, template, license] = await Promise.all([
        bundle('main.js'),
        bundle('style.css'),
        readFile(join(source, 'page.html'), 'utf8'),
        readFile(join(packages, 'uplot', 'LICENSE'), 'utf8'),
    ]);
    const policy = [
        "default-src 'none'",
        `script-src ${hashOf(script)}`,
        `style-src ${hashOf(style)}`,
        // Pictures that the script made of the page's own data: nothing that an address could name.
        'img-src blob:',
        "base-uri 'none'",
        "form-action 'none'",
    ].join('; ');
    let page = fill(template, '@LICENSES@', license.trim());
    page = fill(page, '@POLICY@', policy);
    page = fill(page, '@STYLE@', style);
    return fill(page, '@SCRIPT@', script);
}

const page = await makePage();
if (/[^\x00-\x7f]/.test(page)) {
    throw new Error('the page must be ASCII: write other characters as \\u or entities');
}
const parts = page.split(/@(?:TITLE|SUMMARY|DATA)@/);
if (parts.length !== 4) {
    throw new Error('page.html: expected @TITLE@, @SUMMARY@ and @DATA@, once each');
}
const names = ['beforeTitle', 'beforeSummary', 'beforeData', 'afterData'];
const arrays = parts.map(
    (part, i) => `constexpr std::string_view ${names[i]}[] = {\n${literals(part)}\n};\n`);
await writeFile(process.argv[2], `// Made by build.mjs.

#include "report/Page.h"

namespace zebcam::tool::report {
namespace {

${arrays.join('\n')}
}  // namespace

ReportPage const* reportPage() {
    static constexpr ReportPage page = {${names.join(', ')}};
    return &page;
}

}  // namespace zebcam::tool::report
`);
const escaped = (file) => file.replaceAll(' ', '\\ ');
await writeFile(`${process.argv[2]}.d`,
    `${escaped(resolve(process.argv[2]))}: ${[...inputs].sort().map(escaped).join(' ')}\n`);
