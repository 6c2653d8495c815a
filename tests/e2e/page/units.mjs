// The page's modules without a browser.

import assert from 'node:assert/strict';
import {readFileSync} from 'node:fs';
import test from 'node:test';
import {address} from '../../../tools/page/web/api.js';
import {backlogText, diskText, isDiskLow, lossText, seenText, shellWord} from '../../../tools/page/web/bench-text.js';
import {arranged, choiceOf, groupSizes} from '../../../tools/page/web/fleet-list.js';
import {bytes, byteRate, duration, number, recordRate, shortName} from '../../../tools/page/web/format.js';
import {History, stepFor} from '../../../tools/page/web/history.js';
import {hexDump} from '../../../tools/page/web/packet-detail.js';
import {partsOf, stylesOf} from '../../../tools/page/web/palette.js';
import {firstLines} from '../../../tools/page/web/plot-lines.js';
import {benchHash, fleetHash, modemHash, parseRoute} from '../../../tools/page/web/route.js';
import {TimeWindow} from '../../../tools/page/web/time-window.js';

test('numbers are as people read them', () => {
    const cases = [
        [bytes(0), '0 B'],
        [bytes(999), '999 B'],
        [bytes(1000), '1.00 kB'],
        [bytes(12345), '12.3 kB'],
        [bytes(999499), '999 kB'],
        [bytes(999500), '1.00 MB'],
        [bytes(1.5e12), '1.50 TB'],
        [bytes(2e16), '20000 TB'],
        [byteRate(null), '–'],
        [recordRate(0), '0/s'],
        [recordRate(0.44), '0.4/s'],
        [recordRate(9.94), '9.9/s'],
        [recordRate(9.95), '10/s'],
        [recordRate(null), '–'],
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
        [duration(48 * 3600000 - 60000), '47 h 59 min'],
        [duration(51 * 3600000), '2 d 3 h'],
        [duration(-5000), '0 s'],
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

test('a bench has an address, whatever its name', () => {
    assert.equal(parseRoute('#/fleet').view, 'fleet');
    assert.equal(fleetHash(parseRoute('#/fleet?q=car&sort=backlog').args), '#/fleet?q=car&sort=backlog');
    assert.equal(benchHash('car-7'), '#/fleet/car-7');
    for (const name of ['car-7', 'a/b?c#d', '100 %', 'Größe', '%41'])
        assert.deepEqual([parseRoute(benchHash(name)).view, parseRoute(benchHash(name)).bench], ['bench', name]);
    assert.equal(parseRoute('#/fleet/%zz').bench, '%zz'); // typed by hand
});

test('a bench says how it is', () => {
    const disk = (disk_free, disk_size) => ({disk_free, disk_size});
    const lost = (lost_records, lost_segments) => lossText({lost_records, lost_segments});
    const backlog = (backlog_bytes, backlog_ms) => backlogText({backlog_bytes, backlog_ms});
    const cases = [
        [seenText({seen: 100000}, 104000), 'seen 4 s ago'],
        [seenText({seen: 100000}, 90000), 'seen now'], // its clock is ahead
        [lost(0, 0), ''],
        [lost(1, 0), '1 record lost'],
        [lost(12, 1), '12 records, 1 segment lost'],
        [lost(0, 2), '2 segments lost'],
        [backlog(0, 0), 'none'],
        [backlog(800, 999), '800 B'],
        [backlog(800, 1000), '800 B, 1 s old'],
        [diskText(disk(42e9, 100e9)), '42.0 GB (42 %)'],
        [diskText(disk(0, 0)), '–'],
        [isDiskLow(disk(5e9, 100e9)), false], // 5 % are enough
        [isDiskLow(disk(4.999e9, 100e9)), true],
        [isDiskLow(disk(0, 0)), false], // not known
    ];
    for (const [got, wanted] of cases) assert.equal(got, wanted);
});

test('a name is one word of a shell', () => {
    const cases = [
        ['car-7', 'car-7'],
        ['tls://hub1:4222,tls://hub2:4222', 'tls://hub1:4222,tls://hub2:4222'],
        ['', "''"],
        ['a b', "'a b'"],
        ['$(reboot)', "'$(reboot)'"],
        ["it's", "'it'\\''s'"],
        ['-x', "'-x'"],
        ['a\u001b[201~\nreboot', "'a[201~reboot'"], // nothing that a terminal obeys
    ];
    for (const [text, word] of cases) assert.equal(shellWord(text), word);
});

test('benches are found, grouped and put in order', () => {
    const bench = (name, state, more) => ({
        bench: name,
        state,
        seen: 0,
        bytes_per_second: 0,
        lost_records: 0,
        lost_segments: 0,
        backlog_bytes: 0,
        backlog_ms: 0,
        ...more,
    });
    const benches = [
        bench('car-10', 'live', {backlog_bytes: 500, backlog_ms: 9999, bytes_per_second: 10, seen: 90}),
        bench('car-9', 'away', {backlog_bytes: 100, backlog_ms: 10000, bytes_per_second: 99, seen: 10}),
        bench('Lab', 'late', {lost_records: 50, seen: 50}),
        bench('attic', 'live', {lost_segments: 1, seen: 90}),
    ];
    const names = query =>
        arranged(benches, choiceOf(new URLSearchParams(query)))
            .map(item => item.bench)
            .join(' ');
    const cases = [
        ['', 'attic car-9 car-10 Lab'],
        ['q=CAR', 'car-9 car-10'],
        ['q= lab ', 'Lab'],
        ['show=live', 'attic car-10'],
        ['show=backlog', 'car-9'], // what is younger than 10 s is on its way
        ['show=losses', 'attic Lab'],
        ['sort=backlog', 'car-10 car-9 attic Lab'],
        ['sort=losses', 'attic Lab car-9 car-10'], // a segment is more than records
        ['sort=rate', 'car-10 attic Lab car-9'], // the rate of one that is away is none
        ['sort=seen', 'car-9 Lab attic car-10'],
        ['sort=elsewhere&show=all', 'attic car-9 car-10 Lab'],
    ];
    for (const [query, wanted] of cases) assert.equal(names(query), wanted, query);
    assert.deepEqual(groupSizes(benches), [4, 2, 1, 1, 1, 2]); // all, live, late, away, with backlog, with losses
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
        ['--warn', '--surface'],
        ['--warn', '--raised'],
        ['--bad', '--raised'],
        ['--ink', '--raised'],
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
