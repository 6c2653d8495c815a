// The part of the address behind "#": #/modem/3/packets?span=300. It says all that a view shows, so that it can be sent on.

export const TABS = ['plots', 'packets', 'control'];

/// {view: "overview" | "modem", ue, tab, args}
export function parseRoute(hash) {
    const [path, query = ''] = hash.replace(/^#/, '').split('?');
    const parts = path.split('/').filter(part => part !== '');
    const args = new URLSearchParams(query);
    if (parts[0] === 'modem' && /^\d+$/.test(parts[1] ?? ''))
        return {view: 'modem', ue: Number(parts[1]), tab: TABS.includes(parts[2]) ? parts[2] : 'plots', args};
    return {view: 'overview', args};
}

export function modemHash(ue, tab = 'plots', args = new URLSearchParams()) {
    const query = args.toString().replace(/%2F/g, '/').replace(/%2C/g, ',');
    return `#/modem/${ue}${tab === 'plots' ? '' : `/${tab}`}${query ? `?${query}` : ''}`;
}

/// Changes arguments of the address in place, without a new entry in the history.
export function setArgs(changes) {
    const route = parseRoute(location.hash);
    for (const [name, value] of Object.entries(changes))
        if (value === null) route.args.delete(name);
        else route.args.set(name, value);
    if (route.view === 'modem') history.replaceState(null, '', modemHash(route.ue, route.tab, route.args));
}
