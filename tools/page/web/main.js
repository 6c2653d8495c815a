// The frame of the page: which view is shown, what is behind the server, theme and keys.

import {getJson} from './api.js';
import {el, keyed, setAttribute, setText} from './dom.js';
import {FleetFrame} from './frame-fleet.js';
import {TapFrame} from './frame-tap.js';
import {parseRoute} from './route.js';
import {Stream} from './stream.js';

const FRAMES = {tap: TapFrame, fleet: FleetFrame};
const RETRY_MS = 1000; // until the server says what the page is for
const NEWS_MS = 3000; // how often a view beside the first one asks for the frame's news
const KEYS = [
    ['t', 'light, dark, or as the system has it'],
    ['?', 'these keys'],
];

const byId = id => document.getElementById(id);

class App {
    #source = ''; // what this page is for: "tap" or "fleet"
    #view = null;
    #route = null;

    constructor() {
        this.stream = new Stream(state => this.#onStream(state));
        byId('theme').addEventListener('click', () => vexTheme.next());
        byId('help').addEventListener('click', () => byId('keys').showModal());
        document.addEventListener('keydown', event => this.#key(event));
        vexTheme.onChange = () => this.#showTheme();
        this.#showTheme();
        this.#begin();
    }

    /// The view that is shown, for tests.
    get view() {
        return this.#view;
    }

    async #begin() {
        try {
            this.#source = (await getJson('/api/page')).source;
        } catch (error) {
            this.#showConnection('lost', error.status === 0 ? '' : error.message);
            setTimeout(() => this.#begin(), RETRY_MS);
            return;
        }
        this.frame = new FRAMES[this.#source]();
        const keys = [...this.frame.keys, ...KEYS];
        byId('keys-list').append(...keys.flatMap(([key, what]) => [el('dt', {text: key}), el('dd', {text: what})]));
        window.addEventListener('hashchange', () => this.#go());
        setInterval(() => this.#refresh(), NEWS_MS);
        this.#showConnection('open');
        this.#go();
    }

    #go() {
        let route = parseRoute(location.hash);
        if (!(route.view in this.frame.views)) {
            history.replaceState(null, '', this.frame.home);
            route = parseRoute(location.hash);
        }
        const before = this.#route;
        const same = before && ['view', 'ue', 'bench'].every(part => route[part] === before[part]);
        this.#route = route;
        if (same) {
            this.#view.setRoute?.(route);
        } else {
            this.#view?.close();
            this.#view = new this.frame.views[route.view](this, route);
            byId('view').replaceChildren(this.#view.node);
        }
        this.showLinks();
        this.#refresh();
    }

    /// A view has a stream of its own; the frame asks for what that doesn't tell, and when it is lost.
    async #refresh() {
        if (document.hidden) return;
        try {
            if (this.away) {
                await this.#checkSource();
                this.#view.lost?.(); // the server is there: it may be the view that isn't
            }
            const news = await this.frame.news(this.#route.view, this.away);
            if (news) this.showNews(news);
        } catch (error) {
            this.#showConnection('lost', error.status === 0 ? '' : error.message);
        }
    }

    #onStream(state) {
        const back = this.away && state === 'open';
        this.#showConnection(state);
        if (back) this.#checkSource().catch(() => {}); // away again: it is asked when it is back
        if (state === 'lost' && this.#view) this.#refresh();
    }

    /// A server that is back may be there for something else.
    async #checkSource() {
        const {source} = await getJson('/api/page');
        if (source !== this.#source) location.reload();
    }

    /// Shows what a view has got for the frame, too.
    showNews(news) {
        this.frame.take(news);
        this.showLinks();
        this.#showConnection('open');
    }

    /// Anew, as when the home's address has changed.
    showLinks() {
        byId('brand').href = this.frame.home;
        keyed(
            byId('modems'),
            this.frame.links(this.#route),
            link => link.key,
            link => el('a', {text: link.text}),
            (node, link) => this.#updateLink(node, link)
        );
    }

    #updateLink(node, {href, here}) {
        setAttribute(node, 'href', href);
        if (here && !node.hasAttribute('aria-current')) node.scrollIntoView?.({block: 'nearest', inline: 'nearest'});
        setAttribute(node, 'aria-current', here ? 'page' : null);
    }

    /// reason: what the server says, when it does.
    #showConnection(state, reason = '') {
        const away = (this.away = state === 'lost');
        const behind = this.frame?.status() ?? {ok: true, text: 'connected', notice: ''};
        setAttribute(byId('status'), 'data-state', away ? 'lost' : behind.ok ? 'open' : 'waiting');
        setText(byId('status-text'), away ? 'vex-page is away' : behind.text);
        setAttribute(byId('view'), 'data-stale', away || !behind.ok);
        const notice = away
            ? `${reason || 'vex-page does not answer.'} Trying again all the time; what is shown is old.`
            : behind.notice;
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
        const keys = {t: () => vexTheme.next(), '?': () => byId('keys').showModal()};
        const target = this.frame?.target(key, this.#route);
        if (target !== undefined) location.hash = target;
        keys[key]?.();
        return target !== undefined || key in keys;
    }
}

window.vex = new App();
