// The page with a made-up server, anew for each test. What the browser complains of fails the test.

import assert from 'node:assert/strict';
import {after, afterEach, beforeEach} from 'node:test';
import {FakePage} from './fake.mjs';
import {closeBrowser, openTab} from './harness.mjs';

export let fake;
let site;
const tabs = [];

export async function open(hash, options) {
    const tab = await openTab(`${site}/${hash}`, options);
    tabs.push(tab);
    return tab;
}

export const plotCard = id => `[data-plot="${id}"]`;

beforeEach(async () => {
    fake = new FakePage();
    site = await fake.listen();
});
afterEach(async () => {
    const problems = tabs.flatMap(tab => tab.problems);
    for (const tab of tabs.splice(0)) await tab.close();
    await fake.close();
    assert.deepEqual(problems, []);
});
after(closeBrowser);
