// The benches of a lab for the made-up server: what /api/fleet and /api/bench have. Tests change them.

const STEP_MS = 5000;
const STEPS = 20;
const CHANNELS = ['lte-diag', 'lte-data', 'gu-cmd', 'gu-data', 'at'];
const LATE_MS = 15000; // a state is live until then,
const AWAY_MS = 60000; // and late until then

export class FakeFleet {
    hub = {connected: true, server: 'tls://hub1:4222', error: ''};

    /// now(): ms since 1970 on the server's clock.
    constructor(now) {
        this.now = now;
        this.benches = [
            this.bench('bench1', {modems: ['Alpha', 'Beta', 'Gamma']}),
            this.bench('bench2', {rate: 40000, lost_records: 12, lost_segments: 1, modems: ['Delta']}),
            this.bench('bench10', {age: 30000, disk_free: 4e9}),
            this.bench('car-7', {age: 7200000, backlog_bytes: 2300000, backlog_ms: 7260000, modems: []}),
        ];
    }

    /// age: ms since its state was made, which stays; an age of 0 is always fresh. rate: bytes a second.
    bench(bench, {age = 0, rate = 12000, modems = ['Epsilon'], ...more} = {}) {
        const now = this.now();
        return {
            bench,
            made: age === 0 ? null : now - age,
            rate,
            epoch: '5f2c0a917be34d68',
            version: '0.1.0',
            started: now - 86400000,
            modems: modems.map((name, ue) => ({ue, name})),
            lost_records: 0,
            lost_segments: 0,
            backlog_bytes: 800,
            backlog_ms: 150,
            sent_bytes: 1230000000,
            sent_messages: 61500,
            spool_bytes: 2000000000,
            disk_free: 42e9,
            disk_size: 100e9,
            requests: true,
            ...more,
        };
    }

    /// As /api/fleet has it.
    short({made, rate, modems, ...bench}) {
        const now = this.now();
        const seen = made ?? now;
        const age = now - seen;
        const wave = (i, shift) => 1 + 0.4 * Math.sin((i + Math.floor(now / STEP_MS)) / 4 + shift);
        const list = (top, shift) =>
            Array.from({length: STEPS}, (_, i) => (i < 5 || made !== null ? null : Math.round(top * wave(i, shift))));
        return {
            ...bench,
            state: age < LATE_MS ? 'live' : age < AWAY_MS ? 'late' : 'away',
            seen,
            records_per_second: rate / 400,
            bytes_per_second: rate,
            rates: {time: now - (now % STEP_MS), step: STEP_MS, records: list(rate / 400, 1), bytes: list(rate, 0)},
            modems: modems.map(({ue, name}) => ({
                ue,
                name,
                channels: 4,
                records_per_second: rate / 400 / modems.length,
            })),
        };
    }

    /// As /api/bench has it: a modem has no AT port.
    whole(bench) {
        const channels = CHANNELS.map((channel, i) => ({
            channel,
            present: channel !== 'at',
            records: 1000 * (i + 1),
            records_per_second: i === 1 ? 25 : 0.5,
            bytes_per_second: i === 1 ? 9000 : 100,
        }));
        return {...this.short(bench), modems: bench.modems.map(({ue, name}) => ({ue, name, channels}))};
    }

    find(name) {
        return this.benches.find(({bench}) => bench === name);
    }

    /// The object of a view, "fleet" or "bench"; undefined for a bench that isn't known.
    view(args) {
        const head = {time: this.now(), hub: this.hub};
        if (args.get('view') === 'fleet') return {...head, benches: this.benches.map(bench => this.short(bench))};
        const bench = this.find(args.get('bench'));
        return bench && {...head, bench: this.whole(bench)};
    }

    /// [status, body] of an address of the fleet's.
    answer(pathname, args) {
        if (pathname === '/api/fleet') return [200, this.view(new URLSearchParams({view: 'fleet'}))];
        if (pathname !== '/api/bench') return [404, {error: 'this page shows a fleet; it has no tap'}];
        const body = this.view(args);
        return body ? [200, body] : [404, {error: `no bench ${args.get('bench')}`}];
    }
}
