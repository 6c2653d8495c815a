// Which benches a fleet's view shows, and in which order.

const BACKLOG_MS = 10000; // what is younger is on its way

const byName = new Intl.Collator(undefined, {numeric: true, sensitivity: 'base'});
const nameOrder = (a, b) => byName.compare(a.bench, b.bench) || (a.bench < b.bench ? -1 : a.bench > b.bench ? 1 : 0);

export const hasBacklog = ({backlog_bytes: size, backlog_ms: age}) => size > 0 && age >= BACKLOG_MS;
export const hasLosses = ({lost_records: records, lost_segments: segments}) => records > 0 || segments > 0;

// Key in the address, text, which benches.
export const GROUPS = [
    ['all', 'all', () => true],
    ['live', 'live', ({state}) => state === 'live'],
    ['late', 'late', ({state}) => state === 'late'],
    ['away', 'away', ({state}) => state === 'away'],
    ['backlog', 'with backlog', hasBacklog],
    ['losses', 'with losses', hasLosses],
];

// Key in the address, text, order; what wants a look comes first.
export const SORTS = [
    ['name', 'name', () => 0],
    ['backlog', 'largest backlog', (a, b) => b.backlog_bytes - a.backlog_bytes],
    ['losses', 'most losses', (a, b) => b.lost_segments - a.lost_segments || b.lost_records - a.lost_records],
    ['rate', 'highest rate', (a, b) => rateOf(b) - rateOf(a)],
    ['seen', 'longest not seen', (a, b) => a.seen - b.seen],
];
const rateOf = ({state, bytes_per_second: rate}) => (state === 'away' ? -1 : rate); // an away bench's rate is of long ago

/// What the arguments of an address choose: {q, show, sort}.
export function choiceOf(args) {
    const known = (rows, name) => (rows.some(([key]) => key === args.get(name)) ? args.get(name) : rows[0][0]);
    return {q: args.get('q') ?? '', show: known(GROUPS, 'show'), sort: known(SORTS, 'sort')};
}

/// Benches whose name has the text q, whatever its case.
export function found(benches, {q}) {
    const wanted = q.trim().toLowerCase();
    return benches.filter(({bench}) => bench.toLowerCase().includes(wanted));
}

/// The benches that a choice shows, in its order.
export function arranged(benches, choice) {
    const [, , inGroup] = GROUPS.find(([key]) => key === choice.show);
    const [, , order] = SORTS.find(([key]) => key === choice.sort);
    return found(benches, choice)
        .filter(inGroup)
        .sort((a, b) => order(a, b) || nameOrder(a, b));
}

/// How many of these are in each group, in the order of GROUPS.
export const groupSizes = benches => GROUPS.map(([, , inGroup]) => benches.filter(inGroup).length);
