// Tabs that stay open, in numbers and while the server comes and goes, with a made-up server behind them.

import assert from 'node:assert/strict';
import {test} from 'node:test';
import {eventually, hasText, setHidden, shown, until} from './harness.mjs';
import {fake, open, plotCard} from './site.mjs';

test('a page that is away comes back by itself', async () => {
    const tab = await open('#/modem/0?plots=rate/bytes', {expected: /Failed to load resource|ERR_/});
    await shown(tab, '.plot-card');
    await until(tab, () => vex.view.last?.tick !== undefined);
    const {port} = fake.server.address();
    await fake.close();
    await hasText(tab, '#status-text', 'vex-page is away');
    await shown(tab, '#notice');
    await fake.listen(port);
    await hasText(tab, '#status-text', 'agent on lab7');
    await until(tab, () => document.querySelector('#notice').hidden);
});

test('a modem that is not known is waited for', async () => {
    const tab = await open('#/modem/9', {expected: /404|ERR_/});
    await hasText(tab, '.empty', 'Modem 9 is not known.');
    fake.modems.push(fake.modem(9, 'confirmed'));
    await shown(tab, plotCard('rate/bytes'));
    fake.modems.pop(); // forgotten
    fake.dropStreams();
    await hasText(tab, '.tab .empty', 'Modem 9 is not known.');
    await until(tab, () => document.querySelector('#notice').hidden);
    fake.modems.push(fake.modem(9, 'confirmed'));
    await shown(tab, plotCard('rate/bytes'));
});

test('eight tabs share few streams, and hidden ones have none', async () => {
    for (const ue of [4, 5]) fake.modems.push(fake.modem(ue, 'confirmed'));
    const eight = await Promise.all(
        ['#/overview', ...[3, 0, 1, 4, 5, 3, 3].map(ue => `#/modem/${ue}/control`)].map(hash => open(hash))
    );
    for (const tab of eight) await setHidden(tab, false); // windows side by side
    await Promise.all(
        eight.map(
            (
                tab,
                i // each gets ticks of its own view
            ) =>
                until(
                    tab,
                    i => (i === 0 ? document.querySelector('.modem-card') : vex.view.last?.tick !== undefined),
                    i
                )
        )
    );
    assert.ok(fake.streams.size <= 4, `${fake.streams.size} streams`);
    for (const tab of eight.slice(1)) await setHidden(tab, true);
    await eventually(() => fake.streams.size === 1, 'one stream');
    await setHidden(eight[1], false);
    await eventually(() => fake.streams.size === 2, 'two streams');
});

test('a tab that can not share its stream has one of its own', async () => {
    fake.missing = '/stream-worker.js';
    const tab = await open('#/overview', {expected: /404/});
    await shown(tab, '.modem-card');
    fake.modems.pop();
    await until(tab, () => document.querySelectorAll('.modem-card').length === 2);
});

test('a tab whose shared stream says nothing has one of its own', async () => {
    fake.empty = '/stream-worker.js';
    const tab = await open('#/overview');
    await shown(tab, '.modem-card');
    fake.modems.pop();
    await until(tab, () => document.querySelectorAll('.modem-card').length === 2);
    assert.equal(fake.streams.size, 1);
});

test('a shared stream that is well is kept while the server says nothing', async () => {
    const two = [await open('#/overview'), await open('#/overview')];
    for (const tab of two) {
        await setHidden(tab, false); // windows side by side
        await shown(tab, '.modem-card');
    }
    fake.silent = true;
    for (const tab of two) await setHidden(tab, false); // asks the worker once more
    for (const tab of two) await hasText(tab, '#status-text', 'vex-page is away');
    fake.silent = false;
    for (const tab of two) await hasText(tab, '#status-text', 'agent on lab7');
    assert.equal(fake.streams.size, 1);
});

test('a tab left open does not grow', async () => {
    const tab = await open('#/modem/3');
    await shown(tab, plotCard('rate/bytes'));
    const session = await tab.createCDPSession();
    const run = async ticks => {
        const start = fake.tick;
        for (let done = 0; done < ticks; done += 100) {
            fake.burst(100);
            await until(tab, tick => vex.view.last.tick >= tick, start + done + 100);
        }
        await session.send('HeapProfiler.collectGarbage');
        const {JSHeapUsedSize, Nodes} = await tab.metrics();
        return {heap: JSHeapUsedSize, nodes: Nodes, points: await tab.evaluate(() => vex.view.points)};
    };
    const first = await run(1600);
    const second = await run(1600);
    assert.ok(second.points > 2 * 1400 && second.points <= 2 * 1500, `${second.points} points`);
    assert.ok(second.nodes < first.nodes + 200, `${first.nodes}, then ${second.nodes} nodes`);
    assert.ok(second.heap < first.heap + 2e6, `${first.heap}, then ${second.heap} bytes`);
});

test('views that are left leave nothing behind', async () => {
    const tab = await open('#/overview');
    const session = await tab.createCDPSession();
    const walk = async rounds => {
        for (let i = 0; i < rounds; ++i)
            for (const [hash, selector] of [
                ['#/modem/0', '.plot-card canvas'],
                ['#/modem/0/packets', '.packets tr'],
                ['#/modem/0/control', '.choices tr'],
                ['#/overview', '.modem-card'],
            ]) {
                await tab.evaluate(hash => {
                    location.hash = hash;
                }, hash);
                await shown(tab, selector);
            }
        await session.send('HeapProfiler.collectGarbage');
        return (await tab.metrics()).Nodes;
    };
    const first = await walk(2);
    const second = await walk(4);
    assert.ok(second < first * 1.5, `${first}, then ${second} nodes`);
});
