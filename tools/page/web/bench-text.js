// What a bench of /api/fleet says, in words.

import {bytes, duration} from './format.js';

export const STATE_TEXT = {live: 'live', late: 'late', away: 'away'};
const NOW_MS = 1000;
const LOW_DISK = 0.05; // free of all; below, it is told in red

/// Modems of /api/fleet with a channel whose port is there.
export const presentModems = ({modems}) => modems.filter(modem => modem.channels > 0);
export const modemName = ({ue, name}) => name || `modem ${ue}`;

/// A bench's clock may be ahead of this one: that is now, too.
export const seenText = ({seen}, now) => (now - seen < NOW_MS ? 'seen now' : `seen ${duration(now - seen)} ago`);
export const plural = (count, one) => `${count} ${one}${count === 1 ? '' : 's'}`;

/// "12 records, 1 segment lost", or nothing.
export function lossText({lost_records: records, lost_segments: segments}) {
    const parts = [records > 0 && plural(records, 'record'), segments > 0 && plural(segments, 'segment')];
    const text = parts.filter(Boolean).join(', ');
    return text && `${text} lost`;
}

/// "2.30 MB, 12 min old", "800 B" that are on their way, or "none".
export function backlogText({backlog_bytes: size, backlog_ms: age}) {
    if (size === 0) return 'none';
    return age < NOW_MS ? bytes(size) : `${bytes(size)}, ${duration(age)} old`;
}

export const isDiskLow = ({disk_free: free, disk_size: size}) => size > 0 && free < LOW_DISK * size;
/// "12.3 GB (42 %)".
export function diskText({disk_free: free, disk_size: size}) {
    return size > 0 ? `${bytes(free)} (${Math.floor((100 * free) / size)} %)` : '–';
}

/// Length of what the page has seen, in words: "Last 5 min".
export const spanText = ({records, step}) => `Last ${duration(records.length * step)}`;

/// What the server says of the hub, as a sentence.
export const sentence = text => `${text[0].toUpperCase()}${text.slice(1).replace(/\.$/, '')}.`;

/// As one word of a POSIX shell. Control characters, which a terminal might obey, are left out.
export function shellWord(text) {
    const clean = text.replace(/[\u0000-\u001f\u007f-\u009f]/g, '');
    return /^[\w.:/@%+=,][\w.:/@%+=,-]*$/.test(clean) ? clean : `'${clean.replace(/'/g, `'\\''`)}'`;
}

/// What one would try next with a bench: [what it does, command].
export function commandsFor(bench, hub) {
    const fleet = `vex-fleet${hub.server ? ` --servers ${shellWord(hub.server)}` : ''}`;
    const name = shellWord(bench.bench);
    const file = shellWord(`${bench.bench.replace(/[^\w-]+/g, '-').replace(/^-+/, '')}.pcapng`);
    const commands = [
        ['its records as they come', `${fleet} watch --bench ${name}`],
        ['its last hour, for Wireshark', `${fleet} fetch --bench ${name} --from -1h -w ${file}`],
        ['all that the hub has of it', `${fleet} fetch --bench ${name} -w ${file}`],
    ];
    if (bench.requests)
        commands.push(['a request to the modem at port 101', `${fleet} request --bench ${name} --port 101 0x50000020`]);
    return commands;
}
