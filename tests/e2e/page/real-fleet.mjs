// The page of a fleet over the real server, hub, forwarders and benches: what it shows is what vex-fleet prints.

import assert from 'node:assert/strict';
import {execFileSync} from 'node:child_process';
import path from 'node:path';
import {after, afterEach, before, test} from 'node:test';
import {BIN, PAGE} from './bench.mjs';
import {closeBrowser, hasText, openTab, shown, textOf, textsOf, until} from './harness.mjs';
import {HUB, Lab} from './lab.mjs';

const AWAY = /Failed to load resource|ERR_/; // what a browser says of a server that is away

const lab = new Lab();
const tabs = [];
async function open(address, options) {
    const tab = await openTab(`${PAGE}/${address}`, options);
    tabs.push(tab);
    return tab;
}

before(() => lab.startFleetPage());
after(closeBrowser);
after(() => lab.close());
afterEach(async () => {
    const problems = tabs.flatMap(tab => tab.problems);
    for (const tab of tabs.splice(0)) await tab.close();
    assert.deepEqual(problems, []);
});

const card = bench => `.bench-card[data-key="${bench}"]`;
/// What vex-fleet prints of the benches, by name.
function benches() {
    const text = execFileSync(path.join(BIN, 'vex-fleet'), ['--servers', HUB, '--json', 'benches']).toString();
    const lines = text.split('\n').filter(Boolean);
    return Object.fromEntries(lines.map(line => JSON.parse(line)).map(bench => [bench.bench, bench]));
}

test('from nothing to a bench: the page says what is missing, and goes on by itself', async () => {
    await lab.fleet(({hub}) => hub.error.startsWith('no hub at'), 'that there is no hub');
    const tab = await open('');
    await hasText(tab, '.fleet .empty', `No hub at ${HUB}`);
    lab.startHub();
    await hasText(tab, '.fleet .empty', 'The hub has no bucket vex-benches; vex-fleet init makes it.');
    lab.init();
    await hasText(tab, '.fleet .empty', 'No bench has told of itself yet.');
    lab.startAgent();
    lab.startModems(2);
    lab.startBench('bench1', '0,1');
    lab.startBench('car-7', '');
    await until(
        tab,
        () =>
            /^2 modems: V\S+, V\S+$/m.test(document.querySelector('[data-key="bench1"]')?.innerText) &&
            /no modem/.test(document.querySelector('[data-key="car-7"]')?.innerText)
    );
    assert.deepEqual(await textsOf(tab, '.bench-card .badge'), ['live', 'live']);
    await until(
        tab,
        selector => /captured [\d.]+ k?B\/s/.test(document.querySelector(selector).innerText),
        card('bench1')
    );
    // A step of the rates is 5 s.
    await until(
        tab,
        selector => /^M/.test(document.querySelector(`${selector} .line`).getAttribute('d')),
        card('bench1')
    );
    assert.equal(await textOf(tab, '#status-text'), `hub ${HUB}`);
});

test('a bench: its modems and channels as vex-fleet prints them', async () => {
    const tab = await open('#/fleet/bench1');
    await shown(tab, '.bench-modems');
    const printed = benches().bench1;
    assert.equal(printed.modems.length, 2);
    for (const {ue, name, channels} of printed.modems) {
        const body = `.bench-modems [data-key="${ue}"]`;
        assert.equal(await textOf(tab, `${body} .sum th`), `${name} (modem ${ue})`);
        assert.deepEqual(
            await tab.$$eval(`${body} tr:not(.sum)`, rows =>
                rows.map(row => [row.dataset.key, row.children[1].innerText])
            ),
            channels.map(({channel, present}) => [channel, present ? 'there' : 'not there'])
        );
    }
    assert.ok((await textOf(tab, '.bench-head')).includes(`spool ${printed.epoch}`));
});

test('the commands that the page offers do what it says', async () => {
    const tab = await open('#/fleet/bench1');
    await shown(tab, '.commands li');
    const [watch, lastHour] = await textsOf(tab, '.commands code');
    const run = command =>
        execFileSync('sh', ['-c', command], {cwd: lab.work, env: {...process.env, PATH: `${BIN}:${process.env.PATH}`}});
    assert.match(run(`${watch} --count 3`).toString(), /^(\S+ bench1 .*\n){3}$/);
    // The streams of both may have yet to begin; the first records of a channel are events of its port.
    for (const ue of [0, 1])
        assert.match(
            run(`${watch} --ue ${ue} --channel lte-data --count 10`).toString(),
            new RegExp(`^(\\S+ bench1 ue${ue} lte-data .*\\n){10}$`)
        );
    run(lastHour);
    const fields = ['-r', lab.path('bench1.pcapng'), '-T', 'fields', '-e', 'frame.interface_name'];
    const frames = execFileSync('tshark', fields, {stdio: ['ignore', 'pipe', 'ignore']})
        .toString()
        .split('\n');
    assert.ok(frames.includes('ue0-lte-data') && frames.includes('ue1-lte-data'));
});

test('a hub that is killed and comes back', async () => {
    const tab = await open('#/fleet');
    await shown(tab, card('bench1'));
    await lab.stop('hub', 'SIGKILL');
    await hasText(tab, '#notice', `No hub at ${HUB}`);
    assert.equal((await textsOf(tab, '.bench-card')).length, 2);
    lab.startHub();
    await until(tab, () => document.querySelector('#notice').hidden);
    const before = await tab.evaluate(() => vex.view.last.benches[0].seen);
    await until(tab, before => vex.view.last.benches[0].seen > before, before); // its news come again
});

test('a page that is started again for an agent shows its modems', async () => {
    const tab = await open('#/fleet/bench1', {expected: AWAY});
    await shown(tab, '.bench-modems');
    await lab.stop('page');
    await hasText(tab, '#status-text', 'vex-page is away');
    lab.startPage('page');
    await until(tab, () => document.querySelectorAll('.modem-card[data-state="confirmed"]').length === 2);
    assert.equal(await tab.evaluate(() => location.hash), '#/overview');
});
