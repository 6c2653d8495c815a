// One bench: what it says of itself in larger numbers, its modems with their channels, and what to do next.

import {RateLines} from './bench-card.js';
import {
    backlogText,
    commandsFor,
    diskText,
    isDiskLow,
    lossText,
    modemName,
    plural,
    seenText,
    STATE_TEXT,
} from './bench-text.js';
import {el, emptyState, keyed, setAttribute, setText} from './dom.js';
import {hasBacklog, hasLosses} from './fleet-list.js';
import {Follower} from './follower.js';
import {byteRate, bytes, channelText, recordRate, since} from './format.js';

const COPIED_MS = 2000;
const HEADS = ['Channel', 'Port', 'Records', 'Records/s', 'Bytes/s'];

// Label, value of a bench (and the time of now), whether it is bad, or late.
const FIGURES = [
    ['modems', ({modems}) => modems.filter(({channels}) => channels.some(({present}) => present)).length],
    ['backlog', backlogText, bench => hasBacklog(bench) && 'late'],
    ['lost', bench => lossText(bench).replace(/ lost$/, '') || 'nothing', bench => hasLosses(bench) && 'bad'],
    ['disk free', diskText, bench => isDiskLow(bench) && 'bad'],
    ['spool', ({spool_bytes: size}) => bytes(size)],
    ['sent', ({sent_bytes: size, sent_messages: count}) => `${bytes(size)}, ${plural(count, 'message')}`],
    ['forwarder since', ({started}, now) => (started > 0 ? since(started, now) : '–')],
    ['requests', ({requests}) => (requests ? 'taken' : 'not taken')],
];

export class BenchView {
    #follower;
    #commands = ''; // those that are shown

    constructor(app, route) {
        this.app = app;
        this.last = null; // newest tick
        this.name = route.bench;
        this.state = el('span', {class: 'badge'});
        this.faults = el('span', {class: 'faults'});
        this.facts = el('p', {class: 'facts'});
        this.rates = new RateLines();
        this.figures = FIGURES.map(([label]) => ({value: el('dd'), label: el('dt', {text: label})}));
        this.modems = el('table', {class: 'bench-modems'});
        this.noModems = el('p', {class: 'none', text: 'No modem: the agent of this bench has none, or isn’t running.'});
        this.commands = el('ul', {class: 'commands'});
        this.place = el('div', {class: 'bench-place'});
        this.content = this.#makeContent();
        this.node = el(
            'div',
            {class: 'bench'},
            el(
                'header',
                {class: 'bench-head'},
                el('div', {class: 'title'}, el('h1', {text: this.name}), this.state, this.faults),
                this.facts
            ),
            this.place
        );
        document.title = `${this.name} – Vex`;
        this.#follower = new Follower(
            app.stream,
            {view: 'bench', args: {bench: this.name}},
            {
                show: data => this.update(data),
                update: tick => this.update(tick),
                unknown: () => this.#showUnknown(),
                failed: text => this.#showFailed(text),
            }
        );
        this.#follower.begin();
    }

    #makeContent() {
        return [
            el('section', {class: 'panel bench-rates', 'aria-label': 'Rates'}, this.rates.spark.node, this.rates.node),
            el(
                'dl',
                {class: 'figures'},
                ...this.figures.map(({label, value}) => el('div', {class: 'panel'}, label, value))
            ),
            panel('Modems', el('div', {class: 'scroll'}, this.modems), this.noModems),
            panel(
                'Try next',
                this.commands,
                el('p', {class: 'none', text: 'A hub with TLS needs --ca, --cert and --key of the lab, too.'})
            ),
        ];
    }

    #showUnknown() {
        this.last = null;
        for (const node of [this.state, this.faults, this.facts]) setText(node, '');
        this.place.replaceChildren(
            emptyState(
                `Bench ${this.name} is not known.`,
                'This page shows it as soon as it tells of itself.',
                'At the bench: is `vex-forward` running, and what does it say with `--check`?'
            )
        );
    }

    #showFailed(text) {
        if (!this.last) this.place.replaceChildren(emptyState(text, 'Trying again every two seconds.'));
    }

    /// The stream is gone although the server is there.
    lost() {
        this.#follower.begin();
    }

    update(data) {
        if (this.place.firstChild !== this.content[0]) this.place.replaceChildren(...this.content);
        this.last = data;
        this.app.showNews({hub: data.hub});
        const {bench, time} = data;
        setAttribute(this.node, 'data-state', bench.state);
        setText(this.state, STATE_TEXT[bench.state] ?? bench.state);
        setText(this.faults, lossText(bench));
        setText(this.facts, factText(bench, time));
        this.rates.update(bench);
        this.rates.draw(bench);
        FIGURES.forEach(([, value, mark], i) => {
            setText(this.figures[i].value, value(bench, time));
            setAttribute(this.figures[i].value, 'class', mark?.(bench) || null);
        });
        this.#updateModems(bench);
        this.#updateCommands(bench, data.hub);
    }

    #updateModems({modems}) {
        const groups = [...modems].sort((a, b) => a.ue - b.ue);
        keyed(
            this.modems,
            [{ue: 'head'}, ...groups],
            ({ue}) => ue,
            ({ue}) => (ue === 'head' ? tableHead() : el('tbody')),
            (body, modem) => modem.ue !== 'head' && updateModem(body, modem)
        );
        this.modems.hidden = modems.length === 0;
        this.noModems.hidden = modems.length > 0;
    }

    #updateCommands(bench, hub) {
        const commands = commandsFor(bench, hub);
        const text = JSON.stringify(commands);
        if (text === this.#commands) return; // what is selected there stays
        this.#commands = text;
        this.commands.replaceChildren(...commands.map(([what, command]) => commandLine(what, command)));
    }

    close() {
        this.app.frame.left = this.name;
        this.#follower.close();
    }
}

const panel = (title, ...content) =>
    el('section', {class: 'panel', 'aria-label': title}, el('header', {}, el('h2', {text: title})), ...content);

function factText(bench, now) {
    const away = bench.state === 'away' ? 'what is shown is of then' : '';
    return [
        seenText(bench, now),
        away,
        bench.version && `vex-forward ${bench.version}`,
        bench.epoch && `spool ${bench.epoch}`,
    ]
        .filter(Boolean)
        .join(' · ');
}

const tableHead = () =>
    el(
        'thead',
        {dataset: {key: 'head'}},
        el('tr', {}, ...HEADS.map((text, i) => el('th', {scope: 'col', class: i > 1 ? 'num' : null, text})))
    );

// A modem's first row is its sum; its channels follow.
function updateModem(body, {ue, name, channels}) {
    const sum = member => channels.reduce((total, channel) => total + channel[member], 0);
    const present = channels.filter(channel => channel.present).length;
    const head = {
        key: 'sum',
        texts: [
            name ? `${modemName({ue, name})} (modem ${ue})` : `modem ${ue}, not confirmed`,
            `${present} of ${channels.length}`,
        ],
        numbers: [sum('records'), recordRate(sum('records_per_second')), byteRate(sum('bytes_per_second'))],
    };
    const rows = channels.map(channel => ({
        key: channel.channel,
        present: channel.present,
        texts: [channelText(channel.channel), channel.present ? 'there' : 'not there'],
        numbers: [channel.records, recordRate(channel.records_per_second), byteRate(channel.bytes_per_second)],
    }));
    keyed(body, [head, ...rows], ({key}) => key, makeRow, updateRow);
}

const makeRow = ({key}) =>
    el(
        'tr',
        {class: key === 'sum' ? 'sum' : null},
        el('th', {scope: key === 'sum' ? 'rowgroup' : 'row'}),
        el('td'),
        ...[0, 1, 2].map(() => el('td', {class: 'num'}))
    );

function updateRow(row, {present, texts, numbers}) {
    setAttribute(row, 'data-present', present === false ? 'no' : null);
    [...texts, ...numbers].forEach((text, i) => setText(row.children[i], text));
}

function commandLine(what, command) {
    const code = el('code', {text: command});
    const button = el('button', {type: 'button', text: 'Copy', 'aria-label': `Copy: ${what}`});
    button.addEventListener('click', () => copy(code, button));
    return el('li', {}, el('span', {text: what}), code, button);
}

/// A page that isn't on localhost may not write to the clipboard; there the text is selected, to be copied by hand.
async function copy(code, button) {
    try {
        await navigator.clipboard.writeText(code.textContent);
        setText(button, 'Copied');
    } catch {
        getSelection().selectAllChildren(code);
        setText(button, 'Selected');
    }
    setTimeout(() => setText(button, 'Copy'), COPIED_MS);
}
