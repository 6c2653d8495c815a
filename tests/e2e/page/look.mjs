// Every view of the page in Chromium, with a made-up server behind it.

import assert from 'node:assert/strict';
import {test} from 'node:test';
import {download, eventually, hasText, shown, textOf, textsOf, until} from './harness.mjs';
import {fake, open, plotCard} from './site.mjs';

test('overview: modems, clients, losses and log', async () => {
    const tab = await open('#/overview');
    await shown(tab, '.modem-card');
    assert.deepEqual(await textsOf(tab, '.modem-card .card-title'), ['Modem 0', 'Modem 1', 'Modem 3']);
    assert.deepEqual(await textsOf(tab, '.modem-card .badge'), ['confirmed', 'confirmed', 'attached, not confirmed']);
    assert.match(await textOf(tab, '.modem-card'), /V100R001C10B200SP00 · IMEI 860000000110000/);
    assert.deepEqual((await textsOf(tab, '.modem-card .faults')).filter(Boolean), ['12 lost, 2 warnings']);
    assert.match(
        await textOf(tab, '.channels tbody tr:nth-child(3)'),
        /GU command\s+103\s+ue0-gu\s+client 9, \d\d:\d\d:\d\d/
    );
    assert.match(await textOf(tab, '[aria-label="Clients"] tbody tr'), /7\s+127\.0\.0\.1\s+LTE diag\s+0, port 101/);
    assert.match(await textOf(tab, '[aria-label="Losses"]'), /12 × packets that client 9 did not take, modem 1/);
    assert.match(await textOf(tab, '[aria-label="Log"]'), /error\s*open of \/dev\/ttyUSB9 failed: Permission denied/);
    assert.match(
        await tab.$eval('.spark .line.line-0', path => path.getAttribute('d')),
        /^M0\.0,[\d.]+(L[\d.]+,[\d.]+){59}$/
    );
    assert.equal(await textOf(tab, '#status-text'), 'agent on lab7');
});

test('overview: modems come and go without a reload', async () => {
    const tab = await open('#/overview');
    await shown(tab, '.modem-card');
    await tab.evaluate(() => {
        window.marked = document.querySelector('.modem-card[data-key="1"]');
    });
    fake.modems[0].state = 'gone';
    await until(tab, () => document.querySelector('.modem-card:last-child[data-key="0"][data-state="gone"]'));
    fake.modems.splice(0, 1);
    fake.modems.push(fake.modem(7, 'attached'));
    await until(
        tab,
        () =>
            [...document.querySelectorAll('.modem-card .card-title')].map(node => node.innerText).join() ===
            'Modem 1,Modem 3,Modem 7'
    );
    assert.equal(await tab.evaluate(() => window.marked === document.querySelector('.modem-card[data-key="1"]')), true);
    assert.deepEqual(await textsOf(tab, '#modems a'), ['Overview', 'Modem 1', 'Modem 3', 'Modem 7']);
});

test('overview: what to do when nothing is there', async () => {
    fake.modems = [];
    const tab = await open('#/overview');
    await hasText(tab, '.overview', 'No modem is attached.');
    await hasText(tab, '.overview', 'No client is connected.');
    fake.connected = false;
    await hasText(tab, '.overview', 'No agent at /run/vex/tap.');
    await hasText(tab, '.overview', 'TapSocket = /run/vex/tap');
    assert.equal(await textOf(tab, '#status-text'), 'no agent');
});

test('plots: what is running, with the newest values', async () => {
    const tab = await open('#/modem/0');
    await shown(tab, plotCard('stat/cqi'));
    assert.deepEqual(await tab.$$eval('.plot-card', cards => cards.map(card => card.dataset.plot)), [
        'rate/bytes',
        'rate/packets',
        'stat/cqi',
        'stat/decoding',
        'stat/power',
        'stat/hsupa-grant',
    ]);
    assert.deepEqual(await textsOf(tab, `${plotCard('stat/cqi')} .legend .name`), [
        'carriers[0].mean_cqi',
        'carriers[1].mean_cqi',
    ]);
    // The legend's value is that of the newest point that the server has told of.
    await until(tab, () => {
        const {last} = vex.view;
        const points = last.new?.['stat/cqi'];
        return (
            points?.t.length > 0 &&
            document.querySelector('[data-plot="stat/cqi"] .legend b').innerText === String(points.v[1].at(-1))
        );
    });
    await tab.click(`${plotCard('stat/cqi')} summary`);
    await tab.click(`${plotCard('stat/cqi')} .options li:first-child input`);
    assert.deepEqual(await textsOf(tab, `${plotCard('stat/cqi')} .legend .name`), [
        'count',
        'carriers[0].mean_cqi',
        'carriers[1].mean_cqi',
    ]);
});

test('plots: a link says which, and over what time', async () => {
    const tab = await open('#/modem/0?span=60&plots=stat/cqi');
    await shown(tab, plotCard('stat/cqi'));
    assert.equal((await tab.$$('.plot-card')).length, 1);
    assert.equal(await textOf(tab, '.segments [aria-pressed="true"]'), '1 min');
    await tab.click('.toolbar .picker summary');
    await (await tab.waitForSelector('xpath/.//label[contains(., "stat/power")]/input')).click();
    await shown(tab, plotCard('stat/power'));
    assert.equal(await tab.evaluate(() => location.hash), '#/modem/0?span=60&plots=stat/cqi,stat/power');
});

test('plots: pause, zoom and back', async () => {
    const tab = await open('#/modem/0');
    await shown(tab, plotCard('rate/bytes'));
    await tab.keyboard.press(' ');
    await hasText(tab, '.toolbar', 'paused');
    const points = await tab.evaluate(() => document.querySelector('.toolbar .at').innerText);
    const tick = fake.tick;
    await eventually(() => fake.tick > tick + 1, 'two ticks');
    assert.equal(await textOf(tab, '.toolbar .at'), points);
    const box = await (await tab.$(`${plotCard('rate/bytes')} .u-over`)).boundingBox();
    await tab.mouse.move(box.x + 100, box.y + 50);
    await tab.mouse.down();
    await tab.mouse.move(box.x + 200, box.y + 60, {steps: 5});
    await tab.mouse.up();
    await hasText(tab, '.toolbar', 'zoomed');
    await tab.keyboard.press('0');
    await until(tab, () => document.querySelector('.toolbar .at').innerText === '');
    await tab.keyboard.press('4');
    await until(tab, () => document.querySelector('.segments [aria-pressed="true"]')?.innerText === '1 h');
});

test('plots: the cursor shows values, by keys too', async () => {
    const tab = await open('#/modem/0?plots=rate/bytes,stat/cqi&span=60');
    const chart = `${plotCard('rate/bytes')} .chart`;
    await until(
        tab,
        selector =>
            document.querySelector(`${selector} canvas`) && document.querySelector('.legend b')?.innerText !== '–',
        chart
    );
    await tab.keyboard.press(' '); // so that the newest point stays where it is
    await hasText(tab, '.toolbar', 'paused');
    await tab.focus(chart);
    for (let i = 0; i < 5; ++i) await tab.keyboard.press('ArrowLeft');
    await until(tab, () =>
        /^\d\d:\d\d:\d\d\.\d{3}$/.test(document.querySelector('[data-plot="rate/bytes"] .legend-row .at').innerText)
    );
    // The other plot's cursor stands at the same time.
    await until(tab, () => document.querySelector('[data-plot="stat/cqi"] .legend-row .at').innerText !== '');
    await tab.keyboard.press('Escape');
    await until(tab, () => document.querySelector('[data-plot="rate/bytes"] .legend-row .at').innerText === '');
});

test('packets: names, decoded on a click, data is never markup', async () => {
    const tab = await open('#/modem/0/packets');
    await shown(tab, '.packets tbody tr');
    assert.ok((await textsOf(tab, '.packets .summary')).includes('<img src=x onerror=alert(1)>'));
    assert.equal(await tab.$('main img'), null);
    await tab.click('.packets tbody tr:nth-child(3)');
    await shown(tab, '.detail .tree');
    assert.match(await textOf(tab, '.detail'), /name\s*<b>x<\/b>/);
    assert.equal(await textOf(tab, '.detail .hex'), `0000  00 41 54 0D 7E 0A${' '.repeat(32)}|.AT.~.|`);
    await tab.keyboard.press('Escape');
    await until(tab, () => document.querySelector('.detail').hidden && document.activeElement.matches('.packets tr'));
    const before = await tab.$eval('.packets tbody tr', row => Number(row.dataset.key));
    await until(tab, before => Number(document.querySelector('.packets tbody tr').dataset.key) > before, before);
    assert.deepEqual(
        await tab.$$eval('.packets tbody tr', rows =>
            rows.map(row => row.dataset.key).filter((key, i, all) => i > 0 && Number(key) >= Number(all[i - 1]))
        ),
        []
    );
});

test('packets: filters, older ones, an end to the rows', async () => {
    const tab = await open('#/modem/0/packets');
    await shown(tab, '.packets tbody tr');
    await tab.select('label:nth-of-type(2) select', 'from-client');
    await until(
        tab,
        () =>
            [...document.querySelectorAll('.packets tbody tr')].every(row => row.dataset.direction === 'from-client') &&
            document.querySelector('.packets tbody tr')
    );
    await tab.select('label:nth-of-type(2) select', '');
    await until(tab, () => document.querySelector('.packets tr[data-direction="from-ue"]'));
    fake.shift += 60000; // 1200 packets more
    await until(tab, () => Number(document.querySelector('.packets tbody tr').dataset.key) > 1200);
    for (let i = 0; i < 5; ++i) {
        const last = await tab.$eval('.packets tbody tr:last-child', row => row.dataset.key);
        await tab.$eval('.packet-area .scroll > button', button => button.click());
        await until(tab, last => document.querySelector('.packets tbody tr:last-child').dataset.key !== last, last);
    }
    assert.ok((await tab.$$('.packets tbody tr')).length <= 300);
});

test('start and stop: asks the server, and says what it says', async () => {
    const tab = await open('#/modem/0/control', {expected: /409|403/});
    const row = 'xpath/.//tr[th[normalize-space(.)="cells"]]';
    const find = async inside => tab.waitForSelector(`${row}${inside}`);
    await (await find('//input')).click({count: 3});
    await tab.keyboard.type('200');
    await (await find('//select')).select('1');
    await (await find('//button')).click();
    await hasText(tab, '.result', 'cells: started');
    assert.deepEqual(fake.posted, {ue: 0, kind: 'report', name: 'cells', modem: 1, period_ms: 200, start: true});
    await until(tab, () =>
        /running since .* each 200 ms/.test(document.querySelector('.control-groups [data-running="yes"]')?.innerText)
    );
    await (await find('//button')).click();
    await hasText(tab, '.result', 'cells: stopped');
    assert.equal(fake.posted.start, false);
    fake.refuse = {status: 409, error: 'another client holds GU command of port 103: 127.0.0.1, client 7'};
    fake.heldBy = {client: 7, address: '127.0.0.1'};
    await (await find('//button')).click();
    await hasText(tab, '.result.bad', 'cells: another client holds GU command of port 103: 127.0.0.1, client 7');
    await hasText(tab, '.control .notice', 'Another client holds GU command of port 103: 127.0.0.1, client 7.');
    fake.controlOn = false;
    await hasText(tab, '.control .empty', 'Starting and stopping is off.');
});

test('export: what a plot shows as CSV and PNG, packets as pcapng', async () => {
    const tab = await open('#/modem/0?span=60&plots=stat/cqi');
    await until(
        tab,
        () => document.querySelector('.legend b')?.innerText !== '–' && document.querySelector('.legend b')
    );
    const csv = await download(tab, () => tab.$eval('.plot-card .tools a', link => link.click()));
    const rows = csv.body.toString().trim().split('\n');
    assert.equal(rows[0], 'time,count,carriers[0].mean_cqi,carriers[0].mean_cqi_copy,carriers[1].mean_cqi');
    assert.ok(rows.length >= 60 && rows.length <= 62, `${rows.length} rows of a minute`);
    const png = await download(tab, () => tab.click('.plot-card .tools button'));
    assert.match(png.name, /^vex-modem0-stat-cqi-\d{8}-\d{6}\.png$/);
    assert.equal(png.body.subarray(0, 8).toString('hex'), '89504e470d0a1a0a'); // PNG, 5.2
    const width = await tab.$eval('.plot-card canvas', canvas => canvas.width);
    assert.equal(png.body.readUInt32BE(16), width);
    assert.ok(png.body.readUInt32BE(20) > 240 && png.body.length > 4000);
    const pcapng = await download(tab, () => tab.$eval('.tabs .button', link => link.click()));
    assert.equal(pcapng.body.toString('hex'), '0a0d0d0a');
});

test('all of it by keyboard', async () => {
    const tab = await open('#/overview');
    await shown(tab, '.modem-card');
    await tab.keyboard.press('Tab');
    assert.equal(await tab.evaluate(() => document.activeElement.innerText), 'Skip to the view');
    for (
        let i = 0;
        i < 20 &&
        (await tab.evaluate(
            () => document.activeElement.innerText !== 'Modem 1' || !document.activeElement.matches('.card-title')
        ));
        ++i
    )
        await tab.keyboard.press('Tab');
    assert.notEqual(await tab.evaluate(() => getComputedStyle(document.activeElement).outlineStyle), 'none');
    await tab.keyboard.press('Enter');
    await hasText(tab, 'h1', 'Modem 1');
    await tab.keyboard.press('n');
    await hasText(tab, 'h1', 'Modem 3');
    await tab.keyboard.press('p');
    await hasText(tab, 'h1', 'Modem 1');
    await tab.keyboard.press('g');
    await shown(tab, '.packets tbody tr');
    await tab.focus('.packets tbody tr');
    await tab.keyboard.press('ArrowDown');
    await tab.keyboard.press('Enter');
    await shown(tab, '.detail');
    await tab.keyboard.press('Escape');
    await until(tab, () => document.querySelector('.detail').hidden);
    await tab.keyboard.press('?');
    await shown(tab, 'dialog[open]');
    await tab.keyboard.press('Escape');
    await until(tab, () => !document.querySelector('dialog[open]'));
    await tab.keyboard.press('o');
    await shown(tab, '.modem-card');
});

test('light, dark and as the system has it', async () => {
    const tab = await open('#/overview', {theme: 'dark'});
    const page = () => tab.evaluate(() => getComputedStyle(document.body).backgroundColor);
    assert.equal(await page(), 'rgb(16, 21, 27)');
    await tab.keyboard.press('t');
    assert.equal(await page(), 'rgb(243, 244, 246)');
    await tab.reload();
    assert.equal(await page(), 'rgb(243, 244, 246)');
    assert.equal(await textOf(tab, '#theme'), 'light');
    await tab.evaluate(() => localStorage.clear());
});

test('a phone scrolls in one direction', async () => {
    const tab = await open('#/overview', {width: 360, height: 740});
    for (const [hash, selector] of [
        ['#/overview', '.modem-card'],
        ['#/modem/1', '.plot-card canvas'],
        ['#/modem/1/packets', '.packets tbody tr'],
        ['#/modem/1/control', '.choices tbody tr'],
    ]) {
        await tab.evaluate(hash => {
            location.hash = hash;
        }, hash);
        await shown(tab, selector);
        const wide = await tab.$$eval('main *', nodes =>
            nodes
                .filter(
                    node =>
                        node.getBoundingClientRect().right > innerWidth + 1 &&
                        !node.closest('.scroll, svg, .u-wrap, .pop')
                )
                .map(node => node.outerHTML.slice(0, 80))
        );
        assert.deepEqual(wide, [], hash);
        assert.equal(await tab.evaluate(() => document.documentElement.scrollWidth), 360, hash);
    }
});
