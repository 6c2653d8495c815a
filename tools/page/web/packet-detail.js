// A packet decoded: its head, its fields as a tree, its bytes.

import {el} from './dom.js';
import {channelText, clock, directionText} from './format.js';

const BYTES_A_LINE = 16;
const OPEN_DEPTH = 1; // lists deeper inside are folded
const OPEN_ITEMS = 12; // and so are long ones

/// What the detail shows of the answer of /api/packet; close() is called by its button.
export function packetDetail(packet, close) {
    const facts = [
        ['Number', packet.number],
        ['Time', clock(packet.time, true)],
        ['Direction', directionText(packet.direction)],
        ['Channel', channelText(packet.channel)],
        ['Client', packet.client],
        ['Id', packet.id],
        ['Type', packet.type],
        ['rc', packet.rc],
        ['Length', `${packet.length} bytes`],
    ].filter(([, value]) => value !== null && value !== undefined && value !== '');
    return [
        el(
            'header',
            {},
            el('h3', {text: packet.name || packet.id || 'Packet'}),
            el('button', {type: 'button', class: 'quiet', text: 'Close', title: 'Esc', on: {click: close}})
        ),
        el(
            'dl',
            {class: 'facts-list'},
            ...facts.flatMap(([name, value]) => [el('dt', {text: name}), el('dd', {text: String(value)})])
        ),
        el('h4', {text: 'Fields'}),
        packet.decoded
            ? tree(packet.decoded, 0)
            : el('p', {class: 'none', text: 'The layout of this packet is not known.'}),
        el('h4', {text: 'Bytes'}),
        el('pre', {
            class: 'hex',
            tabindex: '0',
            'aria-label': 'Bytes',
            text: hexDump(packet.hex) + (packet.hex_cut ? '\n... cut' : ''),
        }),
    ];
}

function tree(value, depth) {
    return el(
        'ul',
        {class: 'tree'},
        ...Object.entries(value).map(([name, item]) => entry(Array.isArray(value) ? `[${name}]` : name, item, depth))
    );
}

function entry(name, item, depth) {
    if (item === null || typeof item !== 'object')
        return el('li', {}, el('span', {text: name}), el('b', {text: String(item)}));
    if (Array.isArray(item) && item.every(part => typeof part !== 'object'))
        return el('li', {}, el('span', {text: name}), el('b', {text: item.join(' ')}));
    const count = Object.keys(item).length;
    return el(
        'li',
        {},
        el(
            'details',
            {open: depth <= OPEN_DEPTH && count <= OPEN_ITEMS},
            el('summary', {text: Array.isArray(item) ? `${name} (${count})` : name}),
            tree(item, depth + 1)
        )
    );
}

/// "0000  41 54 0D ..  |AT.|" lines of a text of hexadecimal digits.
export function hexDump(hex) {
    const bytes = (hex.match(/../g) ?? []).map(pair => parseInt(pair, 16));
    const lines = [];
    for (let at = 0; at < bytes.length; at += BYTES_A_LINE) {
        const part = bytes.slice(at, at + BYTES_A_LINE);
        const digits = part.map(byte => byte.toString(16).toUpperCase().padStart(2, '0')).join(' ');
        const text = part.map(byte => (byte >= 0x20 && byte < 0x7f ? String.fromCharCode(byte) : '.')).join('');
        lines.push(
            `${at.toString(16).toUpperCase().padStart(4, '0')}  ${digits.padEnd(3 * BYTES_A_LINE - 1)}  |${text}|`
        );
    }
    return lines.join('\n');
}
