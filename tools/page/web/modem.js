// One modem: its head, and one of the tabs plots, packets, control.

import {ControlTab} from './control.js';
import {el, emptyState, keyed, setAttribute, setText} from './dom.js';
import {Follower} from './follower.js';
import {byteRate, channelText, packetRate, shortName} from './format.js';
import {STATE_TEXT, factText, faultText} from './modem-card.js';
import {PacketsTab} from './packets.js';
import {PlotsTab} from './plots.js';
import {modemHash} from './route.js';

const TAB_KINDS = {plots: PlotsTab, packets: PacketsTab, control: ControlTab};
const TAB_TEXT = {plots: 'Plots', packets: 'Packets', control: 'Start and stop'};

export class ModemView {
    #tab = null;
    #tick = -1;
    #follower;

    constructor(app, route) {
        this.app = app;
        this.ue = route.ue;
        this.last = null; // newest tick
        this.state = el('span', {class: 'badge'});
        this.faults = el('span', {class: 'faults'});
        this.facts = el('p', {class: 'facts'});
        this.channels = el('ul', {class: 'chips', 'aria-label': 'Channels'});
        this.links = Object.fromEntries(Object.keys(TAB_TEXT).map(tab => [tab, el('a', {text: TAB_TEXT[tab]})]));
        this.minutes = el('input', {type: 'number', min: 1, max: 60, value: 5, 'aria-label': 'Minutes to save'});
        this.pcapng = el('a', {
            class: 'button',
            text: 'Save pcapng',
            download: '',
            title: 'The packets of the last minutes as a capture for Wireshark',
        });
        this.minutes.addEventListener('input', () => this.#aimPcapng());
        this.place = el('div', {class: 'tab'});
        this.node = el(
            'div',
            {class: 'modem'},
            el(
                'header',
                {class: 'modem-head'},
                el('div', {class: 'title'}, el('h1', {text: `Modem ${this.ue}`}), this.state, this.faults),
                this.facts,
                this.channels
            ),
            el(
                'div',
                {class: 'tabs'},
                el('nav', {'aria-label': 'Modem'}, ...Object.values(this.links)),
                el('span', {class: 'tools'}, el('label', {}, 'last ', this.minutes, ' min'), this.pcapng)
            ),
            this.place
        );
        document.title = `Modem ${this.ue} – Vex`;
        this.#aimPcapng();
        this.setRoute(route);
        this.#follower = new Follower(
            app.stream,
            {view: 'modem', args: {ue: this.ue}},
            {
                show: data => this.#show(data),
                update: tick => this.#update(tick),
                unknown: () => this.#showUnknown(),
                failed: text => this.#showFailed(text),
            }
        );
        this.#follower.begin();
    }

    /// The same modem, perhaps another tab.
    setRoute(route) {
        for (const [tab, link] of Object.entries(this.links)) {
            link.href = modemHash(this.ue, tab, route.args);
            setAttribute(link, 'aria-current', tab === route.tab ? 'page' : null);
        }
        if (this.#tab instanceof TAB_KINDS[route.tab]) return;
        this.#tab?.close();
        this.#tab = new TAB_KINDS[route.tab](this, route);
        this.place.replaceChildren(this.#tab.node);
        if (this.last) this.#tab.update(this.last, false);
    }

    /// The server has never seen the modem, or has forgotten it.
    #showUnknown() {
        this.place.replaceChildren(
            emptyState(`Modem ${this.ue} is not known.`, 'This page shows it as soon as it is attached.')
        );
    }

    #showFailed(text) {
        if (!this.last) this.place.replaceChildren(emptyState(text, 'Trying again every two seconds.'));
    }

    /// The stream is gone although the server is there.
    lost() {
        this.#follower.begin();
    }

    #show(data) {
        if (this.place.firstChild !== this.#tab.node) this.place.replaceChildren(this.#tab.node);
        this.#update(data);
    }

    #update(data) {
        const missed = data.tick !== undefined && this.#tick >= 0 && data.tick !== this.#tick + 1;
        this.#tick = data.tick ?? -1;
        this.last = data;
        this.#updateHead(data.modem, data.time);
        this.#tab.update(data, missed);
    }

    #updateHead(modem, now) {
        setAttribute(this.node, 'data-state', modem.state);
        setText(this.state, STATE_TEXT[modem.state] ?? modem.state);
        setText(this.faults, faultText(modem));
        const rates = modem.rates;
        setText(
            this.facts,
            [
                modem.version,
                modem.imei && `IMEI ${modem.imei}`,
                factText(modem, now),
                `${byteRate(rates.from_ue_bytes?.at(-1))} and ${packetRate(rates.from_ue_packets?.at(-1))} from it`,
                `${byteRate(rates.to_ue_bytes?.at(-1))} to it`,
            ]
                .filter(Boolean)
                .join(' · ')
        );
        keyed(
            this.channels,
            modem.channels,
            channel => channel.channel,
            () => el('li', {}, el('b'), el('span'), el('i')),
            updateChip
        );
    }

    #aimPcapng() {
        this.pcapng.href = `/api/export.pcapng?ue=${this.ue}&minutes=${Math.max(1, Number(this.minutes.value) || 5)}`;
    }

    key(event) {
        return this.#tab.key?.(event) ?? false;
    }
    rebuild() {
        this.#tab.rebuild?.();
    }
    /// Points of plots that are held.
    get points() {
        return this.#tab.points ?? 0;
    }

    close() {
        this.#follower.close();
        this.#tab.close();
    }
}

function updateChip(chip, channel) {
    const [name, port, client] = chip.children;
    setAttribute(chip, 'data-attached', channel.attached ? 'yes' : 'no');
    setAttribute(chip, 'title', channel.name || null);
    setText(name, channelText(channel.channel));
    setText(port, channel.attached ? `${channel.port} ${shortName(channel.name ?? '')}` : 'not attached');
    setText(client, channel.client ? `client ${channel.client.client}` : 'free');
}
