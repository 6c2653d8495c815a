// Which lines of a plot are drawn until the user chooses others.

import {partsOf} from './palette.js';

const MAX_FIRST = 6;

// By the plot's id: the fields that tell most, or what the names of the lines look like.
const TELLING = {
    'rate/bytes': [/^(from|to)-ue /],
    'rate/packets': [/^(from|to)-ue /],
    'stat/sir': ['sir_db', 'sir_target_db'],
    'stat/power': ['slot_average', 'power_0'],
    'stat/cqi': ['mean_cqi'],
    'stat/link': ['win_rate', 'win_served_rate', 'win_ok_rate'],
    'stat/decoding': ['ack_retrans_rate', 'single_bler', 'dual_bler_0', 'dual_bler_1'],
    'stat/tbs': ['bler_0', 'first_bler_0'],
    'stat/hsupa-quality': ['dtx_probability', 'sbler', 'happy_rate'],
    'stat/hsupa-grant': ['ag_mean', 'sg_mean'],
};

/// As many carriers, records or cells as there is room for, each with all of its lines; of the first what there is room for.
function wholeRecords(lines) {
    const counts = new Map();
    for (const line of lines) {
        const {index} = partsOf(line.name);
        counts.set(index, (counts.get(index) ?? 0) + 1);
    }
    let room = MAX_FIRST;
    const fits = new Set([...counts].filter(([, count], i) => (room -= count) >= 0 || i === 0).map(([index]) => index));
    return lines.filter(line => fits.has(partsOf(line.name).index)).slice(0, MAX_FIRST);
}

/// Names of the lines to draw first.
export function firstLines(plot) {
    const fields = TELLING[plot.id] ?? [];
    const tells = name =>
        fields.some(field => (field instanceof RegExp ? field.test(name) : field === partsOf(name).field));
    const telling = plot.lines.filter(line => tells(line.name));
    const plain = plot.lines.filter(line => !/^(count|form|record_type)$/.test(line.name));
    const chosen = telling.length > 0 ? telling : plain.length > 0 ? plain : plot.lines;
    return wholeRecords(chosen).map(line => line.name);
}
