// What the frame of the page has for a lab's hub: the fleet and its benches.

import {getJson} from './api.js';
import {sentence} from './bench-text.js';
import {BenchView} from './bench.js';
import {arranged, choiceOf} from './fleet-list.js';
import {FleetView} from './fleet.js';
import {benchHash, fleetHash} from './route.js';

const NAMES_MS = 30000; // beside a bench the names of the others may be so old: a fleet is up to 1 MB

export class FleetFrame {
    args = new URLSearchParams(); // those that the fleet was shown with
    left = null; // name of the bench that was shown before the fleet
    toSearch = false; // the fleet is opened to search in it
    views = {fleet: FleetView, bench: BenchView};
    keys = [
        ['/', 'search'],
        ['o', 'back to the fleet'],
        ['n, p', 'next, previous bench, in the order of the fleet'],
        ['Enter', 'open the bench that has the focus, or the first one that is found'],
        ['Esc', 'leave the search; once more: show all'],
    ];
    #hub;
    #benches = [];
    #asked = -Infinity;

    get home() {
        return fleetHash(this.args);
    }

    /// Takes what /api/fleet or /api/bench has.
    take({hub, benches}) {
        this.#hub = hub;
        if (!benches) return;
        this.#benches = benches;
        this.#asked = performance.now();
    }

    /// The news beside this view, or null: both views have the hub's state by their own stream.
    async news(view, away) {
        if (view === 'fleet' || (!away && performance.now() - this.#asked < NAMES_MS)) return null;
        return getJson('/api/fleet');
    }

    links(route) {
        const links = [{key: 'fleet', href: this.home, text: 'Fleet', here: route.view === 'fleet'}];
        if (route.view === 'bench')
            links.push({key: `bench ${route.bench}`, href: benchHash(route.bench), text: route.bench, here: true});
        return links;
    }

    status() {
        const hub = this.#hub;
        if (!hub) return {ok: true, text: 'connected', notice: ''};
        if (hub.connected && !hub.error) return {ok: true, text: `hub ${hub.server}`, notice: ''};
        const notice = `${sentence(hub.error || 'no hub')} Trying again all the time; what is shown is old.`;
        return {
            ok: false,
            text: hub.connected ? 'hub without benches' : 'no hub',
            notice: this.#benches.length > 0 ? notice : '',
        };
    }

    target(key, route) {
        const keys = {
            o: () => this.home,
            n: () => this.#beside(route, 1),
            p: () => this.#beside(route, -1),
            '/': () => this.#search(),
        };
        return keys[key]?.();
    }

    /// From a bench; the fleet itself takes this key.
    #search() {
        this.toSearch = true;
        return this.home;
    }
    #beside(route, by) {
        const names = arranged(this.#benches, choiceOf(this.args)).map(({bench}) => bench);
        const at = names.indexOf(route.bench);
        return names.length === 0 ? undefined : benchHash(names[at < 0 ? 0 : (at + by + names.length) % names.length]);
    }
}
