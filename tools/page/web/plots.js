// The tab with the plots of a modem: which, over what time, paused or live.

import {announce, el, emptyState, keyed, setAttribute, setText} from './dom.js';
import {clock} from './format.js';
import {PlotCard} from './plot-card.js';
import {setArgs} from './route.js';
import {SPANS, SPAN_TEXT, TimeWindow} from './time-window.js';

const MAX_AUTOMATIC = 24; // more are shown when they are chosen

export class PlotsTab {
    #cards = new Map(); // id -> PlotCard
    #plots = [];
    #frame = 0;

    constructor(view, route) {
        this.view = view;
        this.time = new TimeWindow(Number(route.args.get('span')));
        this.chosen = route.args.has('plots') ? new Set(route.args.get('plots').split(',').filter(Boolean)) : null; // null: what is running
        this.time.onChange(() => this.#timeChanged());
        this.spans = SPANS.map(span =>
            el('button', {type: 'button', text: SPAN_TEXT[span], on: {click: () => this.#setSpan(span)}})
        );
        this.pause = el('button', {
            type: 'button',
            text: 'Pause',
            title: 'Space',
            on: {click: () => this.time.togglePause()},
        });
        this.shows = el('span', {class: 'at', role: 'status'});
        this.summary = el('summary');
        this.options = el('div', {class: 'options'});
        this.picker = el('details', {class: 'picker'}, this.summary, el('div', {class: 'pop'}, this.options));
        this.grid = el('div', {class: 'plots'});
        this.empty = el('div');
        this.node = el(
            'div',
            {},
            el(
                'div',
                {class: 'toolbar'},
                el('div', {class: 'segments', role: 'group', 'aria-label': 'Time shown'}, ...this.spans),
                this.pause,
                this.shows,
                this.picker
            ),
            this.empty,
            this.grid
        );
    }

    update(data, missed) {
        this.#plots = data.plots;
        this.time.now = data.time;
        this.#updateCards();
        this.#updatePicker();
        for (const [id, card] of this.#cards)
            if (missed) card.load();
            else if (data.new?.[id]) card.append(data.new[id]);
        this.#showTime();
        this.#draw();
    }

    /// Shown are those chosen, or what runs, then what has run within the time shown.
    #shown() {
        if (this.chosen) return this.#plots.filter(plot => this.chosen.has(plot.id));
        const running = this.#plots.filter(plot => plot.running);
        const recent = this.#plots.filter(
            plot => !plot.running && (plot.last >= this.time.from || this.#cards.has(plot.id))
        );
        const shown = new Set([...running, ...recent].slice(0, MAX_AUTOMATIC));
        return this.#plots.filter(plot => shown.has(plot));
    }

    #updateCards() {
        const shown = this.#shown();
        for (const [id, card] of this.#cards)
            if (!shown.some(plot => plot.id === id)) {
                card.close();
                this.#cards.delete(id);
            }
        keyed(
            this.grid,
            shown,
            plot => plot.id,
            plot => this.#makeCard(plot),
            (_, plot) => this.#cards.get(plot.id).setPlot(plot)
        );
        this.#showEmpty(shown);
    }

    #makeCard(plot) {
        const card = new PlotCard(this.view.ue, plot, this.time);
        this.#cards.set(plot.id, card);
        return card.node;
    }

    /// Rates are always there: beside them alone, the page says how to get more.
    #showEmpty(shown) {
        const nothing = this.chosen === null ? shown.every(plot => plot.id.startsWith('rate/')) : shown.length === 0;
        if (!nothing) this.empty.replaceChildren();
        else if (!this.empty.firstChild)
            this.empty.replaceChildren(
                this.chosen === null
                    ? emptyState(
                          'No statistic or report is running.',
                          'Start one on "Start and stop", or by a client: ' +
                              `\`vex-client --bind ${this.#port()} stat cqi\`.`
                      )
                    : emptyState('No plot is chosen.', 'Choose some from the list "Plots".')
            );
    }

    #port() {
        return this.view.last?.modem.channels.find(channel => channel.port)?.port ?? 'PORT';
    }

    #updatePicker() {
        const groups = [...new Set(this.#plots.map(plot => plot.group))];
        setText(this.summary, `Plots: ${this.#cards.size} of ${this.#plots.length}`);
        keyed(
            this.options,
            groups,
            group => group,
            group => el('fieldset', {}, el('legend', {text: group}), el('ul', {class: 'options'})),
            (set, group) =>
                keyed(
                    set.lastChild,
                    this.#plots.filter(plot => plot.group === group),
                    plot => plot.id,
                    plot => this.#option(plot),
                    (item, plot) => {
                        item.querySelector('input').checked = this.#cards.has(plot.id);
                        setAttribute(item, 'data-running', plot.running ? 'yes' : 'no');
                    }
                )
        );
    }

    #option(plot) {
        const box = el('input', {type: 'checkbox', on: {change: () => this.#choose(plot.id, box.checked)}});
        return el('li', {}, el('label', {}, box, el('span', {text: plot.title}), el('code', {text: plot.id})));
    }

    #choose(id, wanted) {
        this.chosen ??= new Set(this.#cards.keys());
        this.chosen[wanted ? 'add' : 'delete'](id);
        setArgs({plots: [...this.chosen].join(',')});
        this.#updateCards();
        this.#updatePicker();
    }

    #setSpan(span) {
        setArgs({span});
        this.time.setSpan(span);
    }

    #timeChanged() {
        for (const card of this.#cards.values()) card.load();
        this.#showTime();
        this.#draw();
        announce(this.time.live ? `live, last ${SPAN_TEXT[this.time.span]}` : this.shows.textContent);
    }

    #showTime() {
        const {time} = this;
        this.spans.forEach((button, i) =>
            setAttribute(button, 'aria-pressed', String(time.live && SPANS[i] === time.span))
        );
        setText(this.pause, time.live ? 'Pause' : 'Back to live');
        setAttribute(this.node, 'data-live', time.live ? 'yes' : 'no');
        setText(
            this.shows,
            time.live ? '' : `${time.zoomed ? 'zoomed' : 'paused'}: ${clock(time.from)} to ${clock(time.to)}`
        );
    }

    /// Once a frame, however many ticks came.
    #draw() {
        this.#frame ||= requestAnimationFrame(() => {
            this.#frame = 0;
            for (const card of this.#cards.values()) card.draw();
        });
    }

    /// Keys of this tab; true when it was one.
    key(event) {
        const keys = {
            ' ': () => this.time.togglePause(),
            '+': () => this.time.zoomBy(0.5),
            '-': () => this.time.zoomBy(2),
            0: () => this.time.goLive(),
        };
        SPANS.forEach((span, i) => {
            keys[i + 1] = () => this.#setSpan(span);
        });
        keys[event.key]?.();
        return event.key in keys;
    }

    get points() {
        return [...this.#cards.values()].reduce((sum, card) => sum + card.points, 0);
    }

    rebuild() {
        for (const card of this.#cards.values()) card.rebuild();
    }

    close() {
        cancelAnimationFrame(this.#frame);
        for (const card of this.#cards.values()) card.close();
        this.#cards.clear();
    }
}
