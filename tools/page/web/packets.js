// The newest packets of a modem, decoded on a click.

import {getJson} from './api.js';
import {announce, el, emptyState, keyed, setAttribute, setText} from './dom.js';
import {CHANNEL_TEXT, DIRECTION_TEXT, channelText, clock, directionText} from './format.js';
import {packetDetail} from './packet-detail.js';

const PAGE = 100;
const MAX_ROWS = 300;
const HEADS = ['Time', 'Direction', 'Channel', 'Id', 'Name', 'Type', 'Bytes', 'Summary'];
const DIRECTIONS = ['from-ue', 'to-ue', 'from-client', 'to-client'];

export class PacketsTab {
    #rows = []; // newest first
    #asking = null; // the question under way
    #older = false; // the user looks at older ones: nothing new comes in
    #open = null; // number of the packet shown in detail
    #generation = 0; // a filter that changes makes answers under way worthless
    #newest = -1; // number of the newest packet that the server has told of

    constructor(view) {
        this.view = view;
        this.paused = false;
        this.channel = choice('Channel', CHANNEL_TEXT, () => this.#restart());
        this.direction = choice(
            'Direction',
            Object.fromEntries(DIRECTIONS.map(name => [name, DIRECTION_TEXT[name]])),
            () => this.#restart()
        );
        this.pause = el('button', {
            type: 'button',
            text: 'Pause',
            title: 'Space',
            on: {click: () => this.#togglePause()},
        });
        this.state = el('span', {class: 'at', role: 'status'});
        this.body = el('tbody', {on: {click: event => this.#click(event), keydown: event => this.#rowKey(event)}});
        this.more = el('button', {
            type: 'button',
            text: 'Older packets',
            hidden: true,
            on: {click: () => this.#loadOlder()},
        });
        this.empty = el('div');
        this.detail = el('aside', {class: 'card detail', 'aria-label': 'Packet', hidden: true, tabindex: '-1'});
        this.table = el(
            'table',
            {class: 'packets'},
            el('thead', {}, el('tr', {}, ...HEADS.map(text => el('th', {scope: 'col', text})))),
            this.body
        );
        this.node = el(
            'div',
            {},
            el('div', {class: 'toolbar'}, this.channel.node, this.direction.node, this.pause, this.state),
            el(
                'div',
                {class: 'packet-area'},
                el('div', {class: 'scroll'}, this.table, this.empty, this.more),
                this.detail
            )
        );
        this.#loadNewer();
    }

    update(data) {
        if (data.newest === undefined || data.newest === this.#newest || this.paused || this.#asking) return;
        const anew = data.newest < this.#newest; // an agent that was started again counts from the beginning
        this.#newest = data.newest;
        anew ? this.#restart() : this.#loadNewer();
    }

    #args() {
        return {ue: this.view.ue, limit: PAGE, channel: this.channel.value, direction: this.direction.value};
    }

    /// One question at a time.
    #ask(args, use) {
        this.#asking = this.#fetch(args, use).finally(() => {
            this.#asking = null;
        });
    }

    /// What comes of an older filter is dropped.
    async #fetch(args, use) {
        const mine = this.#generation;
        try {
            const answer = await getJson('/api/packets', {...this.#args(), ...args});
            if (mine === this.#generation) use(answer);
        } catch (error) {
            if (mine === this.#generation) setText(this.state, error.message);
        }
    }

    #loadNewer() {
        if (this.#asking) return; // the next tick asks again
        const after = this.#rows[0]?.number;
        this.#ask({after}, ({packets, oldest}) => {
            const fresh = newestFirst(packets).filter(packet => after === undefined || packet.number > after);
            const whole = fresh.length < PAGE; // else there may be others between, which "Older packets" brings
            this.#rows = [...fresh, ...(whole ? this.#rows : [])].slice(0, MAX_ROWS);
            this.#show(oldest);
        });
    }

    async #loadOlder() {
        if (!this.paused) this.#togglePause();
        await this.#asking;
        const before = this.#rows.at(-1)?.number;
        this.#ask({before}, ({packets, oldest}) => {
            this.#rows = [...this.#rows, ...newestFirst(packets)].slice(-MAX_ROWS);
            this.#older = true;
            this.#show(oldest);
        });
    }

    async #restart() {
        ++this.#generation;
        this.#older = false;
        this.#rows = [];
        this.body.replaceChildren();
        await this.#asking;
        this.#loadNewer();
    }

    #togglePause() {
        this.paused = !this.paused;
        setText(this.pause, this.paused ? 'Back to live' : 'Pause');
        setText(this.state, this.paused ? 'paused' : '');
        announce(this.paused ? 'paused' : 'live');
        if (!this.paused && this.#older) this.#restart();
    }

    #show(oldest) {
        if (!this.paused) setText(this.state, '');
        keyed(
            this.body,
            this.#rows,
            packet => packet.number,
            makeRow,
            (row, packet) => {
                setAttribute(row, 'aria-selected', packet.number === this.#open ? 'true' : null);
            }
        );
        this.table.hidden = this.#rows.length === 0;
        this.more.hidden = this.#rows.length === 0 || this.#rows.at(-1).number <= oldest;
        this.empty.replaceChildren(...(this.#rows.length === 0 ? [this.#emptyState()] : []));
    }

    #emptyState() {
        return this.channel.value || this.direction.value
            ? emptyState('No packet of these is kept.', 'Choose all channels and all directions to see every packet.')
            : emptyState('No packet yet.', 'Packets show here as they pass the agent.');
    }

    #click(event) {
        const row = event.target.closest('tr');
        if (row) this.#openPacket(Number(row.dataset.key));
    }

    #rowKey(event) {
        const row = event.target.closest('tr');
        const next =
            event.key === 'ArrowDown'
                ? row.nextElementSibling
                : event.key === 'ArrowUp'
                  ? row.previousElementSibling
                  : null;
        if (event.key === 'Enter') this.#openPacket(Number(row.dataset.key));
        else if (next) next.focus();
        else return;
        event.preventDefault();
    }

    async #openPacket(number) {
        this.#open = number;
        for (const row of this.body.children)
            setAttribute(row, 'aria-selected', Number(row.dataset.key) === number ? 'true' : null);
        let content;
        try {
            content = packetDetail(await getJson('/api/packet', {number}), () => this.#closePacket());
        } catch (error) {
            content = [
                emptyState(
                    error.message,
                    'The page keeps the newest packets only: `vex-page --memory` says how many MiB of them.'
                ),
            ];
        }
        if (this.#open !== number) return;
        this.detail.replaceChildren(...content);
        this.detail.hidden = false;
    }

    #closePacket() {
        const row = this.body.querySelector(`[data-key="${this.#open}"]`);
        this.#open = null;
        this.detail.hidden = true;
        setAttribute(row ?? this.detail, 'aria-selected', null);
        row?.focus();
    }

    key(event) {
        if (event.key === 'Escape' && this.#open !== null) this.#closePacket();
        else if (event.key === ' ') this.#togglePause();
        else return false;
        return true;
    }

    close() {
        ++this.#generation;
    }
}

const newestFirst = packets => [...packets].sort((a, b) => b.number - a.number);

/// A select with "all" in front; node and value.
function choice(label, options, changed) {
    const select = el(
        'select',
        {on: {change: changed}},
        el('option', {value: '', text: 'all'}),
        ...Object.entries(options).map(([value, text]) => el('option', {value, text}))
    );
    return {
        node: el('label', {}, `${label} `, select),
        get value() {
            return select.value;
        },
    };
}

function makeRow(packet) {
    const texts = [
        clock(packet.time, true),
        directionText(packet.direction),
        channelText(packet.channel),
        packet.id ?? '',
        packet.name ?? '',
        packet.type ?? '',
        packet.length,
        packet.summary ?? '',
    ];
    return el(
        'tr',
        {tabindex: '0', dataset: {direction: packet.direction}},
        ...texts.map((text, i) =>
            el('td', {
                class: ['time', 'way', '', 'mono', 'name', '', 'num', 'summary'][i],
                text: String(text),
                'data-head': HEADS[i],
            })
        )
    );
}
