// The part of the address behind "#": #/modem/3/packets?span=300. It says all that a view shows, so that it can be sent on.

export const TABS = ['plots', 'packets', 'control'];

/// {view: "overview" | "modem" | "fleet" | "bench", args}, of a modem with ue and tab, of a bench with its name.
export function parseRoute(hash) {
    const [path, query = ''] = hash.replace(/^#/, '').split('?');
    const parts = path.split('/').filter(part => part !== '');
    const args = new URLSearchParams(query);
    if (parts[0] === 'modem' && /^\d+$/.test(parts[1] ?? ''))
        return {view: 'modem', ue: Number(parts[1]), tab: TABS.includes(parts[2]) ? parts[2] : 'plots', args};
    if (parts[0] === 'fleet') return parts[1] ? {view: 'bench', bench: decoded(parts[1]), args} : {view: 'fleet', args};
    return {view: 'overview', args};
}

function decoded(text) {
    try {
        return decodeURIComponent(text);
    } catch {
        return text; // typed by hand
    }
}

function withArgs(path, args) {
    const query = args.toString().replace(/%2F/g, '/').replace(/%2C/g, ',');
    return query ? `${path}?${query}` : path;
}

export const modemHash = (ue, tab = 'plots', args = new URLSearchParams()) =>
    withArgs(`#/modem/${ue}${tab === 'plots' ? '' : `/${tab}`}`, args);
export const fleetHash = (args = new URLSearchParams()) => withArgs('#/fleet', args);
export const benchHash = bench => `#/fleet/${encodeURIComponent(bench)}`;

/// Changes arguments of the address in place, without a new entry in the history; null removes one. Gives all of them.
export function setArgs(changes) {
    const route = parseRoute(location.hash);
    for (const [name, value] of Object.entries(changes))
        if (value === null) route.args.delete(name);
        else route.args.set(name, value);
    if (route.view === 'modem') history.replaceState(null, '', modemHash(route.ue, route.tab, route.args));
    if (route.view === 'fleet') history.replaceState(null, '', fleetHash(route.args));
    return route.args;
}
