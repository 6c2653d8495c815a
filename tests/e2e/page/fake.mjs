// A stand-in for vex-page with made-up data: the page's files and the addresses of docs/page.md. Tests change its state;
// by hand it serves at http://localhost:8281:  node tests/e2e/page/fake.mjs [fleet]

import http from 'node:http';
import {readFile} from 'node:fs/promises';
import path from 'node:path';
import {fileURLToPath} from 'node:url';
import {FakeFleet} from './fake-fleet.mjs';

const HERE = path.dirname(fileURLToPath(import.meta.url));
export const WEB = path.join(HERE, '../../../tools/page/web');
const TYPES = {
    '.html': 'text/html; charset=utf-8',
    '.js': 'text/javascript',
    '.css': 'text/css',
    '.svg': 'image/svg+xml',
};
const CSP =
    "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; img-src 'self' data: blob:; worker-src 'self'; base-uri 'none'; form-action 'self'";
const KEPT_POINTS = 3600;
const CHANNELS = ['lte-diag', 'lte-data', 'gu-cmd', 'gu-data', 'at'];

const wave = (t, period, low, high, shift = 0) =>
    low + (high - low) * (0.5 + 0.5 * Math.sin((2 * Math.PI * t) / (1000 * period) + shift));

// id, title, group, [name, unit, value of a time]
const PLOTS = [
    [
        'rate/bytes',
        'Bytes by class',
        'Rates',
        [
            ['dsp', 'B/s', t => Math.round(wave(t, 70, 2000, 9000))],
            ['layer', 'B/s', t => Math.round(wave(t, 40, 1000, 5000, 2))],
            ['at', 'B/s', t => (t % 20000 < 1000 ? 60 : 0)],
        ],
    ],
    [
        'rate/packets',
        'Packets by class',
        'Rates',
        [
            ['dsp', '/s', t => Math.round(wave(t, 70, 20, 90))],
            ['layer', '/s', t => Math.round(wave(t, 40, 10, 50, 2))],
        ],
    ],
    [
        'stat/cqi',
        'HSDPA CQI',
        'HSDPA',
        [
            ['count', '', () => 2],
            ['carriers[0].mean_cqi', '', t => Math.round(wave(t, 60, 12, 24))],
            ['carriers[0].mean_cqi_copy', '', t => Math.round(wave(t, 60, 12, 24))],
            ['carriers[1].mean_cqi', '', t => Math.round(wave(t, 55, 9, 20, 1))],
        ],
    ],
    [
        'stat/decoding',
        'HSDPA decoding statistics',
        'HSDPA',
        [
            ['count', '', () => 1],
            ['records[0].subframes', '', () => 300],
            ['records[0].ack_retrans_rate', '%', t => wave(t, 80, 5, 11)],
            ['records[0].single_bler', '%', t => wave(t, 50, 6, 10, 1)],
            ['records[0].dual_bler_0', '%', t => wave(t, 30, 8, 15, 2)],
        ],
    ],
    [
        'stat/power',
        'power control power',
        'Power control',
        [
            ['slot_average', 'dBm', t => wave(t, 45, -12, -4)],
            ['carriers[0].power_0', 'dBm', t => wave(t, 20, -58, -50)],
        ],
    ],
    [
        'stat/hsupa-grant',
        'HSUPA grant',
        'HSUPA',
        [
            ['carriers[0].ag_mean', '', t => wave(t, 65, 15, 25)],
            ['carriers[0].sg_mean', '', t => wave(t, 35, 28, 36)],
        ],
    ],
];

const CHOICES = [
    ['stat', 'cqi', 'HSDPA CQI', 'HSDPA', 500, false],
    ['stat', 'decoding', 'HSDPA decoding statistics', 'HSDPA', 500, false],
    ['stat', 'hsupa-grant', 'HSUPA grant', 'HSUPA', 500, false],
    ['report', 'cells', 'GSM serving and neighbour cells', 'GSM', 500, true],
    ['report', 'pdp', 'PDP contexts, once', 'NAS', 0, true, true],
].map(([kind, name, what, group, period_ms, modem_1, once = false]) => ({
    kind,
    name,
    what,
    group,
    period_ms,
    modem_1,
    once,
}));

export class FakePage {
    missing = ''; // a file that it doesn't have
    empty = ''; // a file that has nothing in it
    silent = false; // streams stay open without a word
    shift = 0; // ms that its clock is ahead

    /// source: what it is for, "tap" or "fleet".
    constructor(source = 'tap') {
        this.source = source;
        this.fleet = new FakeFleet(() => this.now());
        this.connected = true;
        this.controlOn = true;
        this.heldBy = null;
        this.running = [];
        this.refuse = null; // {status, error} of the next starts
        this.tick = 0;
        this.step = 1000; // ms between two points of a plot
        this.modems = [this.modem(0, 'confirmed'), this.modem(1, 'confirmed'), this.modem(3, 'attached')];
        this.start = this.now();
        this.streams = new Set();
        this.opened = 0; // streams ever
        this.answers = 0; // requests ever
    }

    modem(ue, state) {
        const port = 100 * (ue + 1);
        const names = ['diag', 'data', 'gu', 'gu', 'at'];
        const ports = [1, 2, 3, 3, 4];
        return {
            ue,
            state,
            version: `V100R001C10B20${ue}SP00`,
            imei: `86000000011000${ue}`,
            group: 1,
            since: this.now() - 4000000,
            last: this.now(),
            losses: ue === 1 ? 12 : 0,
            warnings: ue === 1 ? 2 : 0,
            channels: CHANNELS.map((channel, i) => ({
                channel,
                port: port + ports[i],
                name: `/dev/vex/ue${ue}-${names[i]}`,
                attached: true,
                confirmed: state === 'confirmed',
                client: ue === 0 && i < 3 ? {client: 7 + i, address: '127.0.0.1', since: this.now() - 60000} : null,
            })),
        };
    }

    now() {
        return Date.now() + this.shift;
    }

    /// So many ticks at once, a second apart on its clock.
    burst(ticks) {
        for (let i = 0; i < ticks; ++i) {
            this.shift += 1000;
            this.#beat();
        }
    }

    async listen(port = 0, files = WEB) {
        this.files = files;
        this.server = http.createServer((request, answer) => this.#serve(request, answer));
        await new Promise(done => this.server.listen(port, '127.0.0.1', done));
        this.timer = setInterval(() => this.#beat(), 1000);
        return `http://localhost:${this.server.address().port}`;
    }

    async close() {
        clearInterval(this.timer);
        this.dropStreams();
        this.server.closeAllConnections();
        await new Promise(done => this.server.close(done));
    }

    dropStreams() {
        for (const stream of this.streams) stream.answer.destroy();
        this.streams.clear();
    }

    rates(now) {
        const list = (low, high, period) =>
            Array.from({length: 60}, (_, i) => Math.round(wave(now - 1000 * (59 - i), period, low, high)));
        return {
            time: now,
            step: 1000,
            from_ue_bytes: list(4000, 18000, 40),
            to_ue_bytes: list(100, 900, 25),
            from_ue_packets: list(40, 180, 40),
            to_client_bytes: list(3000, 15000, 40),
        };
    }

    withRates(modem, now) {
        return {
            ...modem,
            last: modem.state === 'gone' ? modem.last : now,
            rates:
                modem.state === 'gone'
                    ? {
                          time: now,
                          step: 1000,
                          from_ue_bytes: [],
                          to_ue_bytes: [],
                          from_ue_packets: [],
                          to_client_bytes: [],
                      }
                    : this.rates(now),
        };
    }

    overview() {
        const now = this.now();
        return {
            time: now,
            agent: {
                connected: this.connected,
                tap: '/run/vex/tap',
                host: 'lab7',
                run: '273b98a0',
                start: this.start,
                lost: 0,
            },
            control: this.controlOn,
            modems: this.modems.map(modem => this.withRates(modem, now)),
            clients: this.modems.flatMap(modem =>
                modem.channels
                    .filter(channel => channel.client)
                    .map(channel => ({...channel.client, channel: channel.channel, ue: modem.ue, port: channel.port}))
            ),
            losses: this.modems.some(modem => modem.losses)
                ? [{time: this.start, what: 'packets that client 9 did not take', count: 12, ue: 1}]
                : [],
            log: [
                {time: this.start + 2, level: 'warning', text: 'ue 1: client 9 does not read, packets are lost'},
                {time: this.start + 1, level: 'info', text: 'UE Connected, ue index = 0'},
                {time: this.start, level: 'error', text: 'open of /dev/ttyUSB9 failed: Permission denied'},
            ],
            log_source: '/var/log/vex/vex_20261122_101112.d',
        };
    }

    plotHead([id, title, group, lines]) {
        return {
            id,
            title,
            group,
            lines: lines.map(([name, unit]) => ({name, unit})),
            points: KEPT_POINTS,
            last: this.pointTimes(this.now() - 2 * this.step, this.now()).at(-1) ?? 0,
            running: true,
        };
    }
    plots(ue) {
        return ue === 3 ? PLOTS.slice(0, 2) : PLOTS;
    }
    pointTimes(from, to) {
        const first = Math.max(Math.ceil(from / this.step), Math.floor((this.start - 1800000) / this.step));
        return Array.from(
            {length: Math.max(0, Math.min(KEPT_POINTS, Math.floor(to / this.step) - first + 1))},
            (_, i) => (first + i) * this.step
        );
    }
    points(plot, from, to) {
        const t = this.pointTimes(from, to);
        return {t, v: plot[3].map(([, , value]) => t.map(value))};
    }

    control(ue) {
        return {
            enabled: this.controlOn,
            port: 100 * (ue + 1) + 3,
            held_by: this.heldBy,
            running: this.running,
            choices: CHOICES,
            error: '',
        };
    }

    packets(args) {
        const newest = Math.floor((this.now() - this.start) / 50);
        const limit = Number(args.get('limit') ?? 100);
        const to = args.has('before') ? Number(args.get('before')) - 1 : newest;
        const from = Math.max(0, to - limit + 1, args.has('after') ? Number(args.get('after')) + 1 : 0);
        const rows = [];
        for (let number = to; number >= from; --number) rows.push(this.packet(number));
        return {
            packets: rows.filter(row =>
                ['channel', 'direction'].every(key => !args.get(key) || row[key] === args.get(key))
            ),
            oldest: 0,
        };
    }
    packet(number) {
        const way = number % 4;
        return {
            number,
            time: this.start + 50 * number,
            direction: ['from-ue', 'to-client', 'from-client', 'to-ue'][way],
            channel: CHANNELS[[1, 1, 2, 2][way]],
            client: way === 1 || way === 2 ? 7 : null,
            id: ['0x00500001', '0x00500001', '0x0154F526', '0x0154F526'][way],
            name: ['layer', 'LTE cell measurement', 'decoding', 'decoding'][way],
            type: ['layer', 'layer', 'trans', 'trans'][way],
            rc: null,
            length: 20 + (number % 50),
            summary: number % 3 ? 'count=2 level=180 cell_code=120' : '<img src=x onerror=alert(1)>',
        };
    }

    #event(args) {
        if (this.source === 'fleet') return this.fleet.view(args);
        const now = this.now();
        if (args.get('view') === 'overview') return this.overview();
        if (args.get('view') !== 'modem') return undefined;
        const ue = Number(args.get('ue'));
        const plots = this.plots(ue);
        return {
            time: now,
            tick: this.tick,
            modem: this.withRates(
                this.modems.find(modem => modem.ue === ue),
                now
            ),
            plots: plots.map(plot => this.plotHead(plot)),
            new: Object.fromEntries(plots.map(plot => [plot[0], this.points(plot, now - 1000, now)])),
            newest: Math.floor((now - this.start) / 50),
            control: this.control(ue),
        };
    }

    #beat() {
        ++this.tick;
        for (const stream of this.streams) this.#send(stream);
    }
    #send({answer, args}) {
        if (this.silent) return;
        const event = this.#event(args);
        answer.write(
            event ? `id: ${this.tick}\ndata: ${JSON.stringify(event)}\n\n` : ': nothing is known of it now\n\n'
        );
    }

    async #serve(request, answer) {
        ++this.answers;
        const {pathname, searchParams: args} = new URL(request.url, 'http://localhost');
        if (pathname === '/api/events') return this.#openStream(answer, args);
        if (pathname.startsWith('/api/')) return this.#api(request, answer, pathname, args);
        if (pathname === this.missing) return answer.writeHead(404).end();
        const file = pathname === '/' ? '/index.html' : pathname;
        const dist = /uPlot/.test(file) ? path.join(this.files, 'node_modules/uplot/dist') : this.files;
        try {
            const body = pathname === this.empty ? '' : await readFile(path.join(dist, file));
            answer
                .writeHead(200, {
                    'Content-Type': TYPES[path.extname(file)],
                    'Content-Security-Policy': CSP,
                    'X-Content-Type-Options': 'nosniff',
                })
                .end(body);
        } catch {
            answer.writeHead(404).end();
        }
    }

    #openStream(answer, args) {
        const unknownUe = args.has('ue') && !this.modems.some(modem => modem.ue === Number(args.get('ue')));
        if (unknownUe || (args.has('bench') && !this.fleet.find(args.get('bench')))) return answer.writeHead(404).end();
        answer.writeHead(200, {'Content-Type': 'text/event-stream', 'Cache-Control': 'no-store'});
        const stream = {answer, args};
        this.streams.add(stream);
        ++this.opened;
        answer.on('close', () => this.streams.delete(stream));
        this.#send(stream);
    }

    async #api(request, answer, pathname, args) {
        const ue = Number(args.get('ue'));
        const json = (status, body) =>
            answer.writeHead(status, {'Content-Type': 'application/json'}).end(JSON.stringify(body));
        if (pathname === '/api/page') return json(200, {source: this.source});
        if (this.source === 'fleet') return json(...this.fleet.answer(pathname, args));
        if (request.method === 'POST') return this.#post(request, json);
        if (pathname === '/api/overview') return json(200, this.overview());
        if (args.has('ue') && !this.modems.some(modem => modem.ue === ue)) return json(404, {error: `no UE ${ue}`});
        const plot = PLOTS.find(row => row[0] === args.get('plot'));
        const [from, to] = [Number(args.get('from') ?? 0), Number(args.get('to') ?? this.now())];
        switch (pathname) {
            case '/api/modem':
                return json(200, {
                    ...this.#event(new URLSearchParams({view: 'modem', ue})),
                    tick: undefined,
                    new: undefined,
                });
            case '/api/plot':
                return json(200, {plot: this.plotHead(plot), ...this.points(plot, from, to)});
            case '/api/packets':
                return json(200, this.packets(args));
            case '/api/packet':
                return json(200, {
                    ...this.packet(Number(args.get('number'))),
                    decoded: {
                        count: 2,
                        carriers: [
                            {mean_cqi: 19, words: [1, 2, 3]},
                            {mean_cqi: 16, words: [4, 5, 6]},
                        ],
                        name: '<b>x</b>',
                    },
                    hex: '0041540D7E0A',
                    hex_cut: false,
                });
            case '/api/control':
                return json(200, this.control(ue));
            case '/api/export.csv':
                return this.#csv(answer, plot, from, to);
            case '/api/export.pcapng':
                return answer
                    .writeHead(200, {'Content-Disposition': 'attachment; filename="vex.pcapng"'})
                    .end(Buffer.from('0a0d0d0a', 'hex'));
            default:
                return json(404, {error: 'no such address'});
        }
    }

    #csv(answer, plot, from, to) {
        const {t, v} = this.points(plot, from, to);
        const rows = t.map((time, i) => [new Date(time).toISOString(), ...v.map(line => line[i])].join(','));
        answer.writeHead(200, {'Content-Type': 'text/csv', 'Content-Disposition': 'attachment; filename="plot.csv"'});
        answer.end([['time', ...plot[3].map(line => line[0])].join(','), ...rows, ''].join('\n'));
    }

    async #post(request, json) {
        let text = '';
        for await (const part of request) text += part;
        const body = JSON.parse(text);
        this.posted = body;
        if (!this.controlOn) return json(403, {error: 'start vex-page with --control'});
        if (this.refuse) return json(this.refuse.status, {ok: false, error: this.refuse.error});
        this.running = this.running.filter(item => item.name !== body.name || item.modem !== body.modem);
        if (body.start)
            this.running.push({
                kind: body.kind,
                name: body.name,
                modem: body.modem,
                period_ms: body.period_ms,
                since: this.now(),
            });
        return json(200, {ok: true});
    }
}

if (process.argv[1] === fileURLToPath(import.meta.url)) console.log(await new FakePage(process.argv[2]).listen(8281));
