// A bench's card in the fleet.

import {
    backlogText,
    diskText,
    isDiskLow,
    lossText,
    modemName,
    plural,
    presentModems,
    seenText,
    spanText,
    STATE_TEXT,
} from './bench-text.js';
import {hasBacklog} from './fleet-list.js';
import {el, setAttribute, setText} from './dom.js';
import {byteRate, recordRate} from './format.js';
import {benchHash} from './route.js';
import {Sparkline} from './sparkline.js';

export class BenchCard {
    #bench = null; // newest state
    #near = false; // on the screen, or nearly so
    #drawn = null; // rates that the sparkline shows

    constructor(name) {
        this.title = el('a', {href: benchHash(name), class: 'card-title', text: name, title: name});
        this.state = el('span', {class: 'badge'});
        this.faults = el('span', {class: 'faults'});
        this.seen = el('p', {class: 'facts'});
        this.modems = el('p', {class: 'facts names'});
        this.rates = new RateLines();
        this.backlog = el('b');
        this.disk = el('b');
        this.node = el(
            'li',
            {class: 'card bench-card'},
            el('header', {}, el('h3', {}, this.title), this.state, this.faults),
            this.seen,
            this.modems,
            this.rates.spark.node,
            this.rates.node,
            el(
                'p',
                {class: 'rates'},
                el('span', {text: 'backlog '}, this.backlog),
                el('span', {text: 'disk free '}, this.disk)
            )
        );
    }

    update(bench, now) {
        this.#bench = bench;
        setAttribute(this.node, 'data-state', bench.state);
        setText(this.state, STATE_TEXT[bench.state] ?? bench.state);
        setText(this.faults, lossText(bench));
        setText(
            this.seen,
            [seenText(bench, now), bench.version && `version ${bench.version}`].filter(Boolean).join(' · ')
        );
        this.#updateModems(bench);
        this.rates.update(bench);
        setText(this.backlog, backlogText(bench));
        setAttribute(this.backlog, 'class', hasBacklog(bench) ? 'late' : null);
        setText(this.disk, diskText(bench));
        setAttribute(this.disk, 'class', isDiskLow(bench) ? 'bad' : null);
        this.#draw();
    }

    /// Whether it is to be seen: the lines of all others wait until they are.
    set near(near) {
        this.#near = near;
        this.#draw();
    }

    #updateModems(bench) {
        const present = presentModems(bench);
        const names = present.map(modemName).join(', ');
        setText(
            this.modems,
            [present.length === 0 ? 'no modem' : plural(present.length, 'modem'), names].filter(Boolean).join(': ')
        );
        setAttribute(this.modems, 'title', names || null);
    }

    #draw() {
        if (!this.#near || !this.#bench || this.#drawn === this.#bench) return;
        this.#drawn = this.#bench;
        this.rates.draw(this.#bench);
    }
}

// Member of a bench, of its rates, what it is, as text.
const RATES = [
    ['bytes_per_second', 'bytes', 'captured', byteRate],
    ['records_per_second', 'records', 'records', recordRate],
];

/// The rates of a bench as a sparkline with a legend. Bytes and records have a scale of their own.
export class RateLines {
    constructor() {
        this.spark = new Sparkline(
            RATES.map(([, , text]) => text),
            {ownScales: true}
        );
        this.values = RATES.map(() => el('b'));
        this.node = el(
            'p',
            {class: 'rates'},
            ...RATES.map(([, , text], i) =>
                el('span', {class: `rate line-${i}`}, el('i', {'aria-hidden': 'true'}), `${text} `, this.values[i])
            )
        );
    }

    /// The numbers; those of a bench that is away are none of now.
    update(bench) {
        RATES.forEach(([member, , , format], i) =>
            setText(this.values[i], format(bench.state === 'away' ? null : bench[member]))
        );
    }

    draw({rates}) {
        const now = RATES.map(([, , text], i) => `${text} ${this.values[i].textContent}`).join(', ');
        this.spark.update(
            RATES.map(([, member]) => rates[member]),
            `${spanText(rates)}; now ${now}`
        );
    }
}
