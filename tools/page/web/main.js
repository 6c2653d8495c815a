// The frame of the page: which view is shown, the agent's state, theme and keys.

import {getJson} from './api.js';
import {el, keyed, setAttribute, setText} from './dom.js';
import {ModemView} from './modem.js';
import {OverviewView} from './overview.js';
import {modemHash, parseRoute, TABS} from './route.js';
import {Stream} from './stream.js';

const OVERVIEW_MS = 3000; // how often a modem's view asks for the frame's news
const KEYS = [
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
    ['t', 'light, dark, or as the system has it'],
    ['?', 'these keys'],
];

const byId = id => document.getElementById(id);

class App {
    #view = null;
    #route = null;
    #modems = [];

    constructor() {
        this.stream = new Stream(state => this.#showConnection(state));
        window.addEventListener('hashchange', () => this.#go());
        document.addEventListener('keydown', event => this.#key(event));
        byId('theme').addEventListener('click', () => vexTheme.next());
        byId('help').addEventListener('click', () => byId('keys').showModal());
        vexTheme.onChange = () => this.#showTheme();
        this.#showTheme();
        byId('keys-list').append(...KEYS.flatMap(([key, what]) => [el('dt', {text: key}), el('dd', {text: what})]));
        setInterval(() => this.#refresh(), OVERVIEW_MS);
        this.#go();
    }

    /// The view that is shown, for tests.
    get view() {
        return this.#view;
    }

    #go() {
        const route = parseRoute(location.hash);
        const same = this.#view && route.view === this.#route.view && route.ue === this.#route.ue;
        this.#route = route;
        if (same) {
            this.#view.setRoute?.(route);
        } else {
            this.#view?.close();
            this.#view = route.view === 'modem' ? new ModemView(this, route) : new OverviewView(this);
            byId('view').replaceChildren(this.#view.node);
        }
        this.#showLinks();
        this.#refresh();
    }

    /// The overview has its own stream; beside a modem, or when the stream is lost, the frame asks.
    async #refresh() {
        if (document.hidden || (this.#route.view === 'overview' && !this.away)) return;
        try {
            const overview = await getJson('/api/overview');
            if (this.away) this.#view.lost?.(); // the server is there: it may be the view that isn't
            if (this.#route.view !== 'overview') this.showOverview(overview);
        } catch (error) {
            this.#showConnection('lost', error.status === 0 ? '' : error.message);
        }
    }

    showOverview({agent, modems}) {
        this.agent = agent;
        this.known = modems.length;
        this.#modems = modems
            .filter(modem => modem.state !== 'gone')
            .map(modem => modem.ue)
            .sort((a, b) => a - b);
        this.#showLinks();
        this.#showConnection('open');
    }

    #showLinks() {
        const links = [
            {key: 'overview', href: '#/overview', text: 'Overview', here: this.#route.view === 'overview'},
            ...this.#modems.map(ue => ({
                key: ue,
                href: modemHash(ue),
                text: `Modem ${ue}`,
                here: this.#route.ue === ue,
            })),
        ];
        keyed(
            byId('modems'),
            links,
            link => link.key,
            link => el('a', {href: link.href, text: link.text}),
            (node, link) => this.#markLink(node, link.here)
        );
    }

    #markLink(node, here) {
        if (here && !node.hasAttribute('aria-current')) node.scrollIntoView?.({block: 'nearest', inline: 'nearest'});
        setAttribute(node, 'aria-current', here ? 'page' : null);
    }

    /// reason: what the server says, when it does.
    #showConnection(state, reason = '') {
        const agent = this.agent;
        const away = (this.away = state === 'lost');
        const text = away
            ? 'vex-page is away'
            : agent === undefined
              ? 'connected'
              : agent.connected
                ? `agent on ${agent.host}`
                : 'no agent';
        setAttribute(byId('status'), 'data-state', away ? 'lost' : agent?.connected === false ? 'waiting' : 'open');
        setText(byId('status-text'), text);
        setAttribute(byId('view'), 'data-stale', away || agent?.connected === false);
        const notice = away
            ? `${reason || 'vex-page does not answer.'} Trying again all the time; what is shown is old.`
            : agent?.connected === false && this.known > 0
              ? `No agent at ${agent.tap}. Waiting for it; what is shown is old.`
              : '';
        byId('notice').hidden = notice === '';
        setText(byId('notice'), notice);
    }

    #showTheme() {
        setText(byId('theme'), vexTheme.choice);
        this.#view?.rebuild?.();
    }

    #key(event) {
        const typing = event.target.closest?.('input:not([type=checkbox]), select, textarea, dialog');
        const pressing = event.key === ' ' && event.target.closest?.('button, a, summary, input, .hex');
        if (event.ctrlKey || event.altKey || event.metaKey || typing || pressing) return;
        if (this.#closePopup(event) || this.#view?.key?.(event) || this.#frameKey(event.key)) event.preventDefault();
    }

    #closePopup(event) {
        const open = event.key === 'Escape' && document.querySelector('details.picker[open]');
        if (open) {
            open.open = false;
            open.querySelector('summary').focus();
        }
        return Boolean(open);
    }

    #frameKey(key) {
        const keys = {
            o: () => {
                location.hash = '#/overview';
            },
            n: () => this.#turn(1),
            p: () => this.#turn(-1),
            g: () => this.#nextTab(),
            t: () => vexTheme.next(),
            '?': () => byId('keys').showModal(),
        };
        keys[key]?.();
        return key in keys;
    }

    #turn(by) {
        const count = this.#modems.length;
        const at = this.#modems.indexOf(this.#route.ue);
        if (count > 0) location.hash = modemHash(this.#modems[at < 0 ? 0 : (at + by + count) % count], this.#route.tab);
    }

    #nextTab() {
        if (this.#route.view === 'modem')
            location.hash = modemHash(
                this.#route.ue,
                TABS[(TABS.indexOf(this.#route.tab) + 1) % TABS.length],
                this.#route.args
            );
    }
}

window.vex = new App();
