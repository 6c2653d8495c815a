// The page's modules without a browser.

import assert from 'node:assert/strict';
import {readFileSync} from 'node:fs';
import test from 'node:test';
import {address} from '../../../tools/page/web/api.js';
import {bytes, byteRate, duration, number, shortName} from '../../../tools/page/web/format.js';
import {History, stepFor} from '../../../tools/page/web/history.js';
import {hexDump} from '../../../tools/page/web/packet-detail.js';
import {partsOf, stylesOf} from '../../../tools/page/web/palette.js';
import {firstLines} from '../../../tools/page/web/plot-lines.js';
import {modemHash, parseRoute} from '../../../tools/page/web/route.js';
import {TimeWindow} from '../../../tools/page/web/time-window.js';

test('numbers are as people read them', () => {
    const cases = [
        [bytes(0), '0 B'],
        [bytes(999), '999 B'],
        [bytes(1000), '1.00 kB'],
        [bytes(12345), '12.3 kB'],
        [bytes(999499), '999 kB'],
        [bytes(999500), '1.00 MB'],
        [byteRate(null), '–'],
        [byteRate(630), '630 B/s'],
        [number(19), '19'],
        [number(94.33333587646484), '94.33'],
        [number(-7.400000095367432), '-7.40'],
        [number(0.5), '0.500'],
        [number(10165.03), '10165'],
        [number(null), '–'],
        [duration(59400), '59 s'],
        [duration(60000), '1 min'],
        [duration(3900000), '1 h 05 min'],
        [shortName('/dev/ttyUSB0'), 'ttyUSB0'],
    ];
    for (const [got, wanted] of cases) assert.equal(got, wanted);
});

test('an address holds what a view shows', () => {
    const route = parseRoute('#/modem/3/packets?span=300&plots=stat/cqi,rate/bytes');
    assert.deepEqual(
        [route.view, route.ue, route.tab, route.args.get('span'), route.args.get('plots')],
        ['modem', 3, 'packets', '300', 'stat/cqi,rate/bytes']
    );
    assert.equal(modemHash(3, 'packets', route.args), '#/modem/3/packets?span=300&plots=stat/cqi,rate/bytes');
    assert.equal(modemHash(3), '#/modem/3');
    for (const hash of ['', '#', '#/overview', '#/modem', '#/modem/x', '#/elsewhere'])
        assert.equal(parseRoute(hash).view, 'overview', hash);
    assert.equal(parseRoute('#/modem/3/nothing').tab, 'plots');
    assert.equal(
        address('/api/plot', {ue: 0, plot: 'stat/cqi', from: null, to: undefined, step: ''}),
        '/api/plot?ue=0&plot=stat%2Fcqi'
    );
});

test('points come once, in the order of their times', () => {
    const history = new History();
    history.load({t: [1000, 2000], v: [[1, 2]]}, 60000);
    history.append({t: [1500, 2000, 3000], v: [[9, 9, 3]]});
    assert.deepEqual(history.t, [1000, 2000, 3000]);
    assert.deepEqual(history.v, [[1, 2, 3]]);
});

test('a line that begins later has no value before', () => {
    const history = new History();
    history.load({t: [1000], v: [[1]]}, 60000);
    history.append({t: [2000], v: [[2], [5]]});
    assert.deepEqual(history.v, [
        [1, 2],
        [null, 5],
    ]);
});

test('a row without a value is passed over, a silence breaks the line', () => {
    const history = new History();
    // Every 500 ms, then nothing for 10 s: a row of nulls right behind the last point.
    history.load({t: [1000, 1500, 2000, 12000], v: [[1, null, 3, 4]]}, 60000);
    assert.deepEqual(history.t, [1000, 1500, 2000, 2001, 12000]);
    assert.deepEqual(history.v, [[1, undefined, 3, null, 4]]);
});

test('a report of each minute has no gaps', () => {
    const history = new History();
    history.load({t: [0, 60000, 120000], v: [[1, 2, 3]]}, 3600000);
    assert.deepEqual(history.t, [0, 60000, 120000]);
});

test('what a browser keeps of a plot is bounded', () => {
    const history = new History();
    history.load({t: [], v: [[]]}, 3600000);
    for (let time = 0; time < 10 * 3600000; time += 1000) history.append({t: [time], v: [[time]]});
    assert.ok(history.t.length <= 1500, `${history.t.length} points`);
    assert.equal(history.v[0].length, history.t.length);
    // An hour is thinned to one point in 3 s (3600000 / 1200), so 1500 of them hold it whole.
    assert.equal(stepFor(3600000), 3000);
    assert.equal(history.t[1] - history.t[0], 3000);
    assert.ok(history.t.at(-1) - history.t[0] >= 3600000);
});

test('a window is live, paused or zoomed', () => {
    const time = new TimeWindow(60);
    time.now = 100000;
    assert.deepEqual([time.from, time.to, time.live], [40000, 100000, true]);
    time.togglePause();
    time.now = 105000;
    assert.deepEqual([time.from, time.to, time.live], [40000, 100000, false]);
    time.zoomBy(0.5); // 60 s around 70 s: 30 s
    assert.deepEqual([time.from, time.to, time.zoomed], [55000, 85000, true]);
    time.goLive();
    assert.deepEqual([time.from, time.to, time.zoomed], [45000, 105000, false]);
    time.zoom(50000, 50500); // less than a second isn't meant
    assert.equal(time.live, true);
    assert.equal(new TimeWindow(77).span, 300);
});

test('lines are told apart by colour and dash', () => {
    const styles = stylesOf([{name: 'carriers[0].mean_cqi'}, {name: 'carriers[1].mean_cqi'}, {name: 'slot_average'}]);
    assert.deepEqual(
        styles.map(style => style.colour),
        [0, 0, 1]
    );
    assert.notDeepEqual(styles[0].dash, styles[1].dash);
    assert.deepEqual(partsOf('blocks[2].records[0].phase[5]'), {field: 'phase', index: 2});
    const many = stylesOf(Array.from({length: 16}, (_, i) => ({name: `field_${i}`})));
    assert.equal(new Set(many.map(style => `${style.colour} ${style.dash}`)).size, 16);
});

test('the telling fields have the first colours', () => {
    const lines = [{name: 'records[0].subframes'}, {name: 'records[0].single_bler'}];
    assert.deepEqual(
        stylesOf(lines, ['records[0].single_bler']).map(style => style.colour),
        [1, 0]
    );
});

test('the telling lines of a plot are drawn first', () => {
    const lines = names => names.map(name => ({name, unit: ''}));
    assert.deepEqual(
        firstLines({
            id: 'stat/cqi',
            lines: lines(['count', 'carriers[0].mean_cqi', 'carriers[0].mean_cqi_copy', 'carriers[1].mean_cqi']),
        }),
        ['carriers[0].mean_cqi', 'carriers[1].mean_cqi']
    );
    assert.deepEqual(firstLines({id: 'report/x', lines: lines(['count', 'a', 'b', 'c', 'd', 'e', 'f', 'g'])}), [
        'a',
        'b',
        'c',
        'd',
        'e',
        'f',
    ]);
    assert.deepEqual(firstLines({id: 'report/x', lines: lines(['count'])}), ['count']);
    // Two of the three records have room.
    assert.deepEqual(
        firstLines({
            id: 'stat/link',
            lines: lines(
                [0, 1, 2].flatMap(i =>
                    ['win_rate', 'rate_0', 'win_served_rate', 'win_ok_rate'].map(name => `records[${i}].${name}`)
                )
            ),
        }),
        [0, 1].flatMap(i => ['win_rate', 'win_served_rate', 'win_ok_rate'].map(name => `records[${i}].${name}`))
    );
});

test('bytes are dumped in lines of sixteen', () => {
    assert.equal(hexDump('4154'), `0000  41 54${' '.repeat(44)}|AT|`);
    assert.deepEqual(
        hexDump('00'.repeat(17))
            .split('\n')
            .map(line => line.slice(0, 9)),
        ['0000  00 ', '0010  00 ']
    );
    assert.equal(hexDump(''), '');
});

// WCAG 2.1, 1.4.3 and 1.4.11: text has a contrast of 4.5, the lines of plots 3.
const channel = value => (value <= 0.03928 ? value / 12.92 : ((value + 0.055) / 1.055) ** 2.4);
const luminance = colour => {
    const [r, g, b] = colour.match(/[0-9a-f]{2}/gi).map(pair => channel(parseInt(pair, 16) / 255));
    return 0.2126 * r + 0.7152 * g + 0.0722 * b;
};
const contrast = (a, b) => {
    const [low, high] = [luminance(a), luminance(b)].sort((x, y) => x - y);
    return (high + 0.05) / (low + 0.05);
};

test('text and lines stand out, in light and dark', () => {
    const css = readFileSync(new URL('../../../tools/page/web/style.css', import.meta.url), 'utf8');
    const blocks = [...css.matchAll(/:root[^{]*\{([^}]*)\}/g)].map(match =>
        Object.fromEntries([...match[1].matchAll(/(--[\w-]+): (#[0-9a-f]{6})/g)].map(pair => pair.slice(1)))
    );
    assert.equal(blocks.length, 2); // light, dark
    const texts = [
        ['--ink', '--page'],
        ['--ink', '--surface'],
        ['--ink-soft', '--page'],
        ['--ink-soft', '--surface'],
        ['--ink-soft', '--raised'],
        ['--accent', '--surface'],
        ['--accent', '--accent-soft'],
        ['--good', '--good-soft'],
        ['--warn', '--warn-soft'],
        ['--bad', '--bad-soft'],
        ['--bad', '--surface'],
        ['--warn', '--page'],
    ];
    for (const block of blocks) {
        for (const [front, back] of texts)
            assert.ok(
                contrast(block[front], block[back]) >= 4.5,
                `${front} on ${back}: ${contrast(block[front], block[back])}`
            );
        for (let i = 0; i < 7; ++i)
            assert.ok(
                contrast(block[`--series-${i}`], block['--surface']) >= 3,
                `--series-${i}: ${contrast(block[`--series-${i}`], block['--surface'])}`
            );
    }
});
