// Pictures of every view, with the real programs behind it, for docs/ and README.md. usage: screenshots.mjs FOLDER

import {mkdirSync} from 'node:fs';
import path from 'node:path';
import {PAGE, poll} from './bench.mjs';
import {closeBrowser, openTab, shown, until} from './harness.mjs';
import {Lab} from './lab.mjs';

const folder = path.resolve(process.argv[2] ?? 'docs/screenshots');
const FULL_PLOT_S = 55; // of history in a plot of a minute
const PLOTS = 'rate/bytes,stat/cqi,stat/decoding,stat/link,stat/power,stat/hsupa-grant';

const FLEET = 'http://localhost:8281';
// Each bench with the modems that it records.
const BENCHES = {
    'bench-1': '0,1,2',
    'bench-2': '0,1',
    'bench-3': '1,2',
    'bench-4': '2',
    'rack-1': '0,1,2',
    'rack-2': '0,2',
    'rack-10': '',
    'car-3': '0',
    'car-7': '1',
};
const FEW_SEGMENTS = ['--rotate', '3s', '--keep', '3'];

// Name, address, what to wait for, height.
const VIEWS = [
    ['overview', '#/overview', async tab => shown(tab, '.modem-card[data-state="confirmed"]')],
    [
        'modem',
        `#/modem/0?span=60&plots=${PLOTS}`,
        async tab => {
            await until(
                tab,
                () =>
                    document.querySelectorAll('.plot-card canvas').length === 6 &&
                    [...document.querySelectorAll('.legend b')].every(node => node.innerText !== '–')
            );
            const box = await (await tab.$('[data-plot="rate/bytes"] .u-over')).boundingBox();
            await tab.mouse.move(box.x + box.width * 0.7, box.y + 60);
        },
    ],
    [
        'packets',
        '#/modem/0/packets',
        async tab => {
            await shown(tab, '.packets tbody tr');
            await tab.select('label:nth-of-type(2) select', 'to-client');
            await (
                await tab.waitForSelector(
                    'xpath/.//table[contains(@class, "packets")]//tr[td[@data-head="Name"][.="cqi"]]'
                )
            ).click();
            await shown(tab, '.detail .tree');
        },
        720,
    ],
    ['control', '#/modem/1/control', async tab => shown(tab, '.choices [data-running="yes"]')],
];

const FLEET_VIEWS = [
    [
        'fleet',
        '#/fleet',
        async tab => until(tab, () => document.querySelectorAll('.bench-card .line-0[d^="M"]').length > 8),
        700,
    ],
];

/// One bench is away, one is late, and one was away for so long that it has lost segments and is behind.
async function prepareFleet(bench) {
    bench.startHub();
    await poll(() => bench.init() ?? true, 'the hub');
    bench.startFleetPage('fleet', '--listen', '127.0.0.1:8281');
    for (const [name, ues] of Object.entries(BENCHES))
        bench.startBench(name, ues, ...(name === 'rack-2' ? FEW_SEGMENTS : []));
    const is = (name, how) =>
        bench.fleet(({benches}) => benches.some(one => one.bench === name && how(one)), name, FLEET, 90000);
    for (const name of Object.keys(BENCHES)) await is(name, () => true);
    for (const name of ['rack-2', 'car-7']) await bench.stop(`${name}-forward`);
    await is('car-7', ({state}) => state === 'away');
    bench.startForward('rack-2', '--max-rate', '2K');
    await is('rack-2', ({lost_segments: lost}) => lost > 0);
    await bench.stop('car-3-forward');
    await is('car-3', ({state}) => state === 'late');
}

async function prepare(bench) {
    bench.startAgent();
    bench.startPage('page', '--control');
    await bench.overview(({agent}) => agent.connected, 'the agent');
    bench.startModems(3, '--at-interval', '3000');
    for (const ue of [0, 1]) await bench.ready(ue);
    bench.start('statistics', 'vex-client', [
        '--bind',
        '101',
        'stat',
        'cqi',
        'decoding',
        'link',
        'power',
        'hsupa-grant',
        'sir',
    ]);
    bench.start('watch', 'vex-client', ['--bind', '201', 'watch', '--quiet']);
    for (const name of ['cqi', 'tpc']) {
        const body = JSON.stringify({ue: 1, kind: 'stat', name, modem: 0, period_ms: 500, start: true});
        const answer = await fetch(`${PAGE}/api/control`, {
            method: 'POST',
            headers: {'Content-Type': 'application/json'},
            body,
        });
        if (!answer.ok) throw new Error(await answer.text());
    }
    await bench.overview(
        ({time, modems}) => time - modems[0].since > 1000 * FULL_PLOT_S,
        'a minute of history',
        PAGE,
        90000
    );
}

async function take(site, views) {
    for (const theme of ['light', 'dark'])
        for (const [name, hash, ready, height = 860] of views) {
            const tab = await openTab(`${site}/${hash}`, {theme, width: 1280, height});
            await ready(tab);
            await tab.screenshot({path: path.join(folder, `${name}-${theme}.png`), optimizeForSpeed: false});
            await tab.close();
        }
}

const bench = new Lab();
try {
    mkdirSync(folder, {recursive: true});
    await prepare(bench);
    await take(PAGE, VIEWS);
    await prepareFleet(bench);
    await take(FLEET, FLEET_VIEWS);
} finally {
    await bench.close();
    await closeBrowser();
}
