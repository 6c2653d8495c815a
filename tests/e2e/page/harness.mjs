// Chromium for the tests of the page: Debian's, driven by puppeteer-core.

import {mkdtempSync, readdirSync, readFileSync, rmSync} from 'node:fs';
import {createRequire} from 'node:module';
import os from 'node:os';
import path from 'node:path';
import {WEB} from './fake.mjs';

const puppeteer = createRequire(path.join(WEB, 'package.json'))('puppeteer-core');
const WAIT_MS = 15000;

export const work = mkdtempSync(path.join(os.tmpdir(), 'vex-page-'));
const browser = await puppeteer.launch({
    executablePath: '/usr/bin/chromium',
    args: ['--no-sandbox', '--disable-gpu', '--disable-dev-shm-usage', '--disable-extensions'],
    userDataDir: path.join(work, 'profile'),
});
export async function closeBrowser() {
    await browser.close();
    rmSync(work, {recursive: true, force: true});
}

/// A tab with this address. problems gets whatever the browser complains of; expected: text of complaints that a test
/// causes itself.
export async function openTab(address, {width = 1280, height = 900, theme = 'light', expected = null} = {}) {
    const tab = await browser.newPage();
    tab.problems = [];
    const note = text => (expected?.test(text) ? null : tab.problems.push(text));
    tab.on('console', message => ['error', 'warn', 'warning'].includes(message.type()) && note(message.text()));
    tab.on('pageerror', error => note(error.stack));
    await tab.setViewport({width, height});
    await tab.emulateMediaFeatures([{name: 'prefers-color-scheme', value: theme}]);
    await tab.goto(address, {waitUntil: 'domcontentloaded'});
    return tab;
}

/// Waits until a function that runs in the tab answers something true, and gives it.
export async function until(tab, what, ...args) {
    const handle = await tab.waitForFunction(what, {timeout: WAIT_MS, polling: 50}, ...args);
    return handle.jsonValue();
}

/// Waits until a condition here holds.
export async function eventually(what, why) {
    for (const end = Date.now() + WAIT_MS; Date.now() < end; await new Promise(done => setTimeout(done, 50)))
        if (await what()) return;
    throw new Error(`waited in vain: ${why}`);
}

export const shown = (tab, selector) =>
    until(tab, selector => document.querySelector(selector)?.checkVisibility(), selector);
export const textOf = (tab, selector) => tab.$eval(selector, node => node.innerText);
export const textsOf = (tab, selector) => tab.$$eval(selector, nodes => nodes.map(node => node.innerText));
export const hasText = (tab, selector, text) =>
    until(tab, (selector, text) => document.querySelector(selector)?.innerText.includes(text), selector, text);

/// As a user who turns to another tab, or back.
export const setHidden = (tab, hidden) =>
    tab.evaluate(hidden => {
        Object.defineProperty(document, 'hidden', {value: hidden, configurable: true});
        document.dispatchEvent(new Event('visibilitychange'));
    }, hidden);

/// Does what starts a download and gives {name, body} of the file.
export async function download(tab, start) {
    const folder = mkdtempSync(path.join(work, 'download-'));
    const session = await tab.createCDPSession();
    await session.send('Browser.setDownloadBehavior', {behavior: 'allow', downloadPath: folder});
    await start();
    const files = () => readdirSync(folder).filter(name => !name.endsWith('.crdownload') && !name.startsWith('.'));
    await eventually(() => files().length > 0, 'a download');
    return {name: files()[0], body: readFileSync(path.join(folder, files()[0]))};
}
