// What the frame of the page has for an agent's tap: overview and modems.

import {getJson} from './api.js';
import {ModemView} from './modem.js';
import {OverviewView} from './overview.js';
import {modemHash, TABS} from './route.js';

export class TapFrame {
    home = '#/overview';
    views = {overview: OverviewView, modem: ModemView};
    keys = [
        ['o', 'overview'],
        ['n, p', 'next, previous modem'],
        ['g', 'next tab of a modem: plots, packets, start and stop'],
        ['Space', 'pause, and back to live'],
        ['1 2 3 4', 'last 1, 5, 15, 60 minutes'],
        ['+ −', 'zoom the time in and out'],
        ['0', 'back to live'],
        ['drag', 'zoom into a stretch of time; a double-click goes back'],
        ['← →', 'move the cursor of the plot that has the focus'],
        ['Enter', 'open what has the focus: a modem, a packet'],
        ['Esc', 'close what is open'],
    ];
    #agent;
    #modems = []; // slots
    #known = 0; // modems, those that are gone included

    /// Takes what /api/overview has.
    take({agent, modems}) {
        this.#agent = agent;
        this.#known = modems.length;
        this.#modems = modems
            .filter(modem => modem.state !== 'gone')
            .map(modem => modem.ue)
            .sort((a, b) => a - b);
    }

    /// The news beside this view, or null: the overview has them by its own stream.
    async news(view) {
        return view === 'overview' ? null : getJson('/api/overview');
    }

    links(route) {
        return [
            {key: 'overview', href: this.home, text: 'Overview', here: route.view === 'overview'},
            ...this.#modems.map(ue => ({
                key: ue,
                href: modemHash(ue),
                text: `Modem ${ue}`,
                here: route.ue === ue,
            })),
        ];
    }

    /// {ok, text} of what is behind the server, and a notice when what is shown is old.
    status() {
        const agent = this.#agent;
        if (!agent) return {ok: true, text: 'connected', notice: ''};
        if (agent.connected) return {ok: true, text: `agent on ${agent.host}`, notice: ''};
        const notice = `No agent at ${agent.tap}. Waiting for it; what is shown is old.`;
        return {ok: false, text: 'no agent', notice: this.#known > 0 ? notice : ''};
    }

    /// Where a key leads to from a route; undefined: nowhere.
    target(key, route) {
        const keys = {
            o: () => this.home,
            n: () => this.#beside(route, 1),
            p: () => this.#beside(route, -1),
            g: () => this.#nextTab(route),
        };
        return keys[key]?.();
    }

    #beside(route, by) {
        const count = this.#modems.length;
        const at = this.#modems.indexOf(route.ue);
        return count === 0 ? undefined : modemHash(this.#modems[at < 0 ? 0 : (at + by + count) % count], route.tab);
    }

    #nextTab({view, ue, tab, args}) {
        return view === 'modem' ? modemHash(ue, TABS[(TABS.indexOf(tab) + 1) % TABS.length], args) : undefined;
    }
}
