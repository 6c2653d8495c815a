// Which lines of a plot are drawn until the user chooses others.

import {partsOf} from './palette.js';

const MAX_FIRST = 6;

// By the plot's id: the fields that tell most.
const TELLING = {
    'stat/sir': ['sir_db', 'sir_target_db'],
    'stat/power': ['slot_average', 'power_0'],
    'stat/cqi': ['mean_cqi', 'mean_second_cqi'],
    'stat/link': ['win_rate', 'win_served_rate', 'win_ok_rate'],
    'stat/decoding': ['ack_retrans_rate', 'single_bler', 'dual_bler_0', 'dual_bler_1'],
    'stat/tbs': ['bler_0', 'first_bler_0'],
    'stat/hsupa-quality': ['dtx_probability', 'sbler', 'happy_rate'],
    'stat/hsupa-grant': ['ag_mean', 'sg_mean'],
};

/// Names of the lines to draw first.
export function firstLines(plot) {
    const fields = TELLING[plot.id] ?? [];
    const telling = plot.lines.filter(line => fields.includes(partsOf(line.name).field));
    const plain = plot.lines.filter(line => !/^(count|form|record_type)$/.test(line.name));
    const chosen = telling.length > 0 ? telling : plain.length > 0 ? plain : plot.lines;
    return chosen.slice(0, MAX_FIRST).map(line => line.name);
}
