// A modem's card on the overview.

import {el, keyed, setAttribute, setText} from './dom.js';
import {byteRate, channelText, duration, shortName, since} from './format.js';
import {modemHash} from './route.js';
import {Sparkline} from './sparkline.js';

export const STATE_TEXT = {confirmed: 'confirmed', attached: 'attached, not confirmed', gone: 'gone'};

// The lines of a sparkline: field of "rates", what it is.
const RATES = [
    ['from_ue_bytes', 'from modem'],
    ['to_ue_bytes', 'to modem'],
    ['to_client_bytes', 'to clients'],
];

export class ModemCard {
    constructor(ue) {
        this.title = el('a', {href: modemHash(ue), class: 'card-title', text: `Modem ${ue}`});
        this.state = el('span', {class: 'badge'});
        this.faults = el('span', {class: 'faults'});
        this.version = el('p', {class: 'facts'});
        this.facts = el('p', {class: 'facts'});
        this.spark = new Sparkline(RATES.map(rate => rate[1]));
        this.rates = RATES.map(([, text], i) => ({text, line: el('b'), node: el('span', {class: `rate line-${i}`})}));
        for (const {node, text, line} of this.rates) node.append(el('i', {'aria-hidden': 'true'}), `${text} `, line);
        this.channels = el('tbody');
        this.node = el(
            'li',
            {class: 'card modem-card'},
            el('header', {}, el('h3', {}, this.title), this.state, this.faults),
            this.version,
            this.facts,
            this.spark.node,
            el('p', {class: 'rates'}, ...this.rates.map(rate => rate.node)),
            el(
                'table',
                {class: 'channels'},
                el(
                    'thead',
                    {},
                    el(
                        'tr',
                        {},
                        ...['Channel', 'Port', 'Device', 'Client, since'].map(text => el('th', {scope: 'col', text}))
                    )
                ),
                this.channels
            )
        );
    }

    update(modem, now) {
        setAttribute(this.node, 'data-state', modem.state);
        setText(this.state, STATE_TEXT[modem.state] ?? modem.state);
        setText(this.faults, faultText(modem));
        setText(
            this.version,
            [modem.version, modem.imei && `IMEI ${modem.imei}`].filter(Boolean).join(' · ') || 'version not known yet'
        );
        setText(this.facts, factText(modem, now));
        this.#updateRates(modem.rates);
        keyed(
            this.channels,
            modem.channels,
            channel => channel.channel,
            makeChannel,
            (row, channel) => updateChannel(row, channel, now)
        );
    }

    #updateRates(rates) {
        const lists = RATES.map(([field]) => rates[field] ?? []);
        const newest = lists.map(list => byteRate(list.at(-1)));
        this.spark.update(lists, `Last minute; now ${RATES.map(([, text], i) => `${text} ${newest[i]}`).join(', ')}`);
        this.rates.forEach(({line}, i) => setText(line, newest[i]));
    }
}

export function faultText({losses, warnings}) {
    const parts = [];
    if (losses > 0) parts.push(`${losses} lost`);
    if (warnings > 0) parts.push(`${warnings} ${warnings === 1 ? 'warning' : 'warnings'}`);
    return parts.join(', ');
}

const SILENT_MS = 2000;

/// Since when it is as it is, and whether it sends.
export function factText(modem, now) {
    const parts = [`${modem.state === 'gone' ? 'gone ' : ''}since ${since(modem.since, now)}`];
    if (modem.state !== 'gone' && modem.last)
        parts.push(now - modem.last < SILENT_MS ? 'sending' : `silent for ${duration(now - modem.last)}`);
    return parts.join(' · ');
}

function makeChannel() {
    return el(
        'tr',
        {},
        el('th', {scope: 'row'}),
        el('td', {class: 'num'}),
        el('td', {class: 'device'}),
        el('td', {class: 'client'})
    );
}

function updateChannel(row, channel, now) {
    const [name, port, device, client] = row.children;
    setAttribute(row, 'data-attached', channel.attached ? 'yes' : 'no');
    setText(name, channelText(channel.channel));
    setText(port, channel.port ?? '–');
    setText(device, channel.attached ? shortName(channel.name ?? '') : 'not attached');
    setAttribute(device, 'title', channel.name || null);
    setAttribute(client, 'title', channel.client ? `from ${channel.client.address}` : null);
    setText(client, channel.client ? clientText(channel.client, now) : 'free');
    setAttribute(client, 'data-bound', channel.client ? 'yes' : 'no');
}

const clientText = (client, now) => `client ${client.client}, ${since(client.since, now)}`;
