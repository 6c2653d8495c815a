// Pictures of every view, with the real programs behind it, for docs/ and README.md. usage: screenshots.mjs FOLDER

import {mkdirSync} from 'node:fs';
import path from 'node:path';
import {Bench, PAGE} from './bench.mjs';
import {closeBrowser, openTab, shown, until} from './harness.mjs';

const folder = path.resolve(process.argv[2] ?? 'docs/screenshots');
const FULL_PLOT_S = 55; // of history in a plot of a minute
const PLOTS = 'rate/bytes,stat/cqi,stat/decoding,stat/link,stat/power,stat/hsupa-grant';

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

const bench = new Bench();
try {
    mkdirSync(folder, {recursive: true});
    await prepare(bench);
    for (const theme of ['light', 'dark'])
        for (const [name, hash, ready, height = 860] of VIEWS) {
            const tab = await openTab(`${PAGE}/${hash}`, {theme, width: 1280, height});
            await ready(tab);
            await tab.screenshot({path: path.join(folder, `${name}-${theme}.png`), optimizeForSpeed: false});
            await tab.close();
        }
} finally {
    await bench.close();
    await closeBrowser();
}
