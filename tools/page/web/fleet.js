// All benches of a lab: how many are how, and a card for each that is looked for.

import {BenchCard} from './bench-card.js';
import {sentence} from './bench-text.js';
import {announce, el, emptyState, keyed, setAttribute, setText} from './dom.js';
import {arranged, choiceOf, found, GROUPS, groupSizes, SORTS} from './fleet-list.js';
import {benchHash, setArgs} from './route.js';

const ORDER_MS = 10000; // cards keep their places for so long, so that one can read and click
const NEAR = '400px'; // around the screen: cards there are drawn before they are scrolled to
const MOST_TOLD = 3; // changes that screen readers hear one by one

export class FleetView {
    #cards = new Map(); // bench -> BenchCard
    #states = new Map();
    #names = []; // as they are shown
    #ordered = -Infinity;

    constructor(app, route) {
        this.app = app;
        this.last = null; // newest tick
        this.search = this.#makeSearch();
        this.sort = this.#makeSort();
        this.groups = GROUPS.map(([key, text]) => this.#makeGroup(key, text));
        this.place = el('div');
        this.cards = el('ul', {class: 'cards', 'aria-label': 'Benches'});
        this.node = el(
            'div',
            {class: 'fleet'},
            el('h1', {class: 'unseen', text: 'Fleet'}),
            el(
                'div',
                {class: 'toolbar'},
                el(
                    'div',
                    {class: 'segments', role: 'group', 'aria-label': 'Benches'},
                    ...this.groups.map(({node}) => node)
                ),
                this.search,
                el('label', {}, 'by ', this.sort)
            ),
            this.place,
            this.cards
        );
        this.eyes = new IntersectionObserver(entries => this.#look(entries), {rootMargin: NEAR});
        document.title = 'Fleet – Vex';
        this.setRoute(route);
        app.stream.watch('/api/events?view=fleet', data => this.update(data));
        if (app.frame.toSearch) queueMicrotask(() => this.key({key: '/'})); // when it is in the page
        app.frame.toSearch = false;
    }

    #makeSearch() {
        const search = el('input', {type: 'search', placeholder: 'Search (/)', 'aria-label': 'Search for a bench'});
        search.addEventListener('input', () => this.#choose({q: search.value}));
        search.addEventListener('keydown', event => this.#searchKey(event));
        return search;
    }

    #makeSort() {
        const options = SORTS.map(([key, text]) => el('option', {'.value': key, text}));
        const sort = el('select', {'aria-label': 'Order'}, ...options);
        sort.addEventListener('change', () => this.#choose({sort: sort.value}));
        return sort;
    }

    #makeGroup(key, text) {
        const count = el('b');
        const node = el('button', {type: 'button', dataset: {group: key}}, el('span', {}, count, ` ${text}`));
        node.addEventListener('click', () => this.#choose({show: key}));
        return {key, count, node};
    }

    /// Another choice by the address.
    setRoute({args}) {
        this.choice = choiceOf(args);
        this.app.frame.args = args;
        if (this.search.value !== this.choice.q) this.search.value = this.choice.q;
        this.sort.value = this.choice.sort;
        for (const {key, node} of this.groups) setAttribute(node, 'aria-pressed', String(key === this.choice.show));
        this.#show(true);
    }

    /// Changes the choice, and the address with it: what is as by default isn't told there.
    #choose(changes) {
        const args = Object.entries(changes).map(([name, value]) => [name, isDefault(name, value) ? null : value]);
        this.setRoute({args: setArgs(Object.fromEntries(args))});
        this.app.showLinks();
    }

    update(data) {
        this.last = data;
        this.app.showNews(data);
        this.#tellChanges(data.benches);
        this.#show(performance.now() - this.#ordered > ORDER_MS);
    }

    /// anew: with the order of now; else the cards keep their places as long as they are the same.
    #show(anew) {
        if (!this.last) return;
        const {benches, time} = this.last;
        const sizes = groupSizes(found(benches, this.choice));
        this.groups.forEach(({count}, i) => setText(count, sizes[i]));
        this.#showCards(this.#inPlaces(arranged(benches, this.choice), anew), time);
        this.#showEmpty();
        this.#goToCard(this.app.frame.left);
    }

    /// Who comes back from a bench goes on from its card.
    #goToCard(name) {
        this.app.frame.left = null;
        if (document.activeElement !== this.search) this.#cards.get(name)?.title.focus();
    }

    #inPlaces(benches, anew) {
        const places = new Map(this.#names.map((name, i) => [name, i]));
        const same = benches.length === places.size && benches.every(({bench}) => places.has(bench));
        if (same && !anew) return benches.sort((a, b) => places.get(a.bench) - places.get(b.bench));
        this.#names = benches.map(({bench}) => bench);
        this.#ordered = performance.now();
        return benches;
    }

    #showCards(benches, time) {
        const focused = document.activeElement;
        keyed(
            this.cards,
            benches,
            ({bench}) => bench,
            ({bench}) => this.#makeCard(bench),
            (_, bench) => this.#cards.get(bench.bench).update(bench, time)
        );
        if (focused !== document.activeElement && focused.isConnected) focused.focus({preventScroll: true}); // it was moved
        const shown = new Set(this.#names);
        for (const [name, card] of this.#cards) if (!shown.has(name)) this.#dropCard(name, card);
    }

    #makeCard(name) {
        const card = new BenchCard(name);
        this.#cards.set(name, card);
        this.eyes.observe(card.node);
        return card.node;
    }

    #dropCard(name, card) {
        this.eyes.unobserve(card.node);
        this.#cards.delete(name);
    }

    #look(entries) {
        for (const {target, isIntersecting} of entries) {
            const card = this.#cards.get(target.dataset.key);
            if (card) card.near = isIntersecting;
        }
    }

    #showEmpty() {
        const {benches, hub} = this.last;
        const key = this.#names.length > 0 ? '' : benches.length > 0 ? 'none found' : emptyKey(hub);
        if (this.place.dataset.key === key) return;
        this.place.dataset.key = key;
        this.place.replaceChildren(...(key === '' ? [] : [key === 'none found' ? this.#noneFound() : noBenches(hub)]));
    }

    #noneFound() {
        const all = el('button', {type: 'button', text: 'Show all'});
        all.addEventListener('click', () => this.#choose({q: '', show: 'all'}));
        const state = emptyState('No bench is like that.');
        state.append(all);
        return state;
    }

    #tellChanges(benches) {
        const changed = benches.filter(({bench, state}) => this.#states.get(bench) !== state);
        if (this.#states.size > 0 && changed.length > 0)
            announce(
                changed.length > MOST_TOLD
                    ? `${changed.length} benches have changed`
                    : changed.map(({bench, state}) => `Bench ${bench}: ${state}`).join('. ')
            );
        this.#states = new Map(benches.map(({bench, state}) => [bench, state]));
    }

    #searchKey(event) {
        if (event.key === 'Enter' && this.#names.length > 0) location.hash = benchHash(this.#names[0]);
        if (event.key !== 'Escape') return;
        event.preventDefault(); // some browsers clear the box themselves, others don't
        this.search.blur();
    }

    key({key}) {
        if (key === '/') this.#goToSearch();
        else if (key === 'Escape' && !isDefault('q', this.choice.q)) this.#choose({q: ''});
        else return false;
        return true;
    }

    #goToSearch() {
        this.search.focus();
        this.search.select();
    }

    close() {
        this.eyes.disconnect();
    }
}

const isDefault = (name, value) => choiceOf(new URLSearchParams())[name] === value;

const emptyKey = hub => `${hub.connected} ${hub.error} ${hub.server}`;

function noBenches(hub) {
    if (!hub.connected)
        return emptyState(
            sentence(hub.error || 'no hub'),
            'This page connects by itself. Is a `nats-server` running at the addresses of `--servers`?',
            'With TLS it needs `--ca`, `--cert` and `--key` too: `vex-fleet benches` with the same options tells what is wrong.'
        );
    if (hub.error)
        return emptyState(
            sentence(hub.error),
            `\`vex-fleet --servers ${hub.server || 'URL,...'} init fleet.json\` makes what a hub needs; this page goes on by itself.`
        );
    return emptyState(
        'No bench has told of itself yet.',
        'At a bench: `vex-forward --spool /var/spool/vex --bench NAME --servers URL,...`, beside `vex-capture --spool`.',
        'The same with `--check` says whether it can reach the hub. A bench is shown here within seconds.'
    );
}
