// One plot of a modem: title, chart, legend, its way out as a file.

import {address, getJson} from './api.js';
import {Chart} from './chart.js';
import {announce, el, setAttribute, setText} from './dom.js';
import {savePng} from './export.js';
import {clock, fileStem, number} from './format.js';
import {History, stepFor} from './history.js';
import {Legend} from './legend.js';
import {stylesOf, themeColour} from './palette.js';
import {firstLines} from './plot-lines.js';

const CURSOR_KEYS = {ArrowLeft: -1, ArrowRight: 1, PageUp: -20, PageDown: 20};

export class PlotCard {
    #history = new History();
    #chart = null;
    #chosen = null; // names; null until the lines are known
    #load = 0; // number of the newest load
    #waiting = null; // points that came while it is under way; null: none is
    #visible = false;

    /// time: the TimeWindow of the view.
    constructor(ue, plot, time) {
        this.ue = ue;
        this.plot = plot;
        this.time = time;
        this.state = el('span', {class: 'badge'});
        this.error = el('p', {class: 'bad', role: 'alert', hidden: true});
        this.body = el('div', {
            class: 'chart',
            tabindex: '0',
            role: 'group',
            'aria-roledescription': 'plot',
            'aria-label': `${plot.title}. Arrows move the cursor, plus and minus zoom, 0 shows now.`,
            on: {keydown: event => this.#key(event)},
        });
        this.legend = new Legend((name, shown) => this.#choose(name, shown));
        this.node = el(
            'section',
            {class: 'card plot-card', 'aria-label': plot.title, dataset: {plot: plot.id}},
            el('header', {}, el('h3', {text: plot.title}), el('code', {text: plot.id}), this.state, this.#makeTools()),
            this.body,
            this.error,
            this.legend.node
        );
        this.#watchPlace();
        this.setPlot(plot);
        this.load();
    }

    #makeTools() {
        this.csv = el('a', {
            class: 'button quiet',
            text: 'CSV',
            title: 'Save what is shown as CSV',
            download: '',
            on: {click: () => this.#aimCsv(), focus: () => this.#aimCsv()},
            href: '#',
        });
        const png = el('button', {
            type: 'button',
            class: 'quiet',
            text: 'PNG',
            title: 'Save what is shown as a picture',
            on: {click: () => this.savePng()},
        });
        return el('span', {class: 'tools'}, this.csv, png);
    }

    #watchPlace() {
        this.seen = new IntersectionObserver(
            entries => {
                this.#visible = entries.at(-1).isIntersecting;
                this.draw();
            },
            {rootMargin: '200px'}
        );
        this.seen.observe(this.node);
        this.size = new ResizeObserver(() => this.#chart?.resize(this.body.clientWidth));
        this.size.observe(this.body);
    }

    close() {
        ++this.#load;
        this.seen.disconnect();
        this.size.disconnect();
        this.#chart?.destroy();
        this.#chart = null;
        this.node.remove();
    }

    /// What the server says of the plot now; its lines may have grown.
    setPlot(plot) {
        const grown = plot.lines.length !== this.plot.lines.length || this.#chart === null;
        this.plot = plot;
        setText(this.state, plot.running ? 'running' : plot.last ? `last ${clock(plot.last)}` : 'no value yet');
        setAttribute(this.node, 'data-running', plot.running ? 'yes' : 'no');
        if (!this.#chosen?.size && plot.lines.length > 0) this.#chosen = new Set(firstLines(plot));
        if (grown) this.rebuild();
    }

    /// Lines, colours or theme are others.
    rebuild() {
        const styles = stylesOf(this.plot.lines, firstLines(this.plot));
        const lines = this.plot.lines.map((line, i) => ({
            ...line,
            style: styles[i],
            shown: this.#chosen?.has(line.name) ?? false,
        }));
        this.shown = lines.flatMap((line, i) => (line.shown ? [{...line, place: i}] : []));
        this.legend.setLines(lines, this.plot.more ?? 0);
        this.#chart?.destroy();
        this.body.replaceChildren();
        this.#chart = new Chart(
            this.body,
            this.shown.map(line => ({
                ...line,
                colour: themeColour(`--series-${line.style.colour}`),
                dash: line.style.dash,
            })),
            {
                cursor: index => this.#showValues(index),
                zoom: (from, to) => this.time.zoom(from, to),
                live: () => this.time.goLive(),
            }
        );
        this.draw();
    }

    #choose(name, shown) {
        this.#chosen[shown ? 'add' : 'delete'](name);
        this.rebuild();
    }

    /// Fetches what the window shows.
    async load() {
        const {from, to, live} = this.time;
        const mine = ++this.#load;
        this.#waiting = [];
        try {
            const answer = await getJson('/api/plot', {
                ue: this.ue,
                plot: this.plot.id,
                from: Math.floor(from),
                to: live ? null : Math.ceil(to),
                step: stepFor(to - from) || null,
            });
            if (mine === this.#load) this.#take(answer, to - from);
        } catch (error) {
            if (mine === this.#load) this.#fail(error.message);
        }
    }

    #take(answer, windowMs) {
        const waiting = this.#waiting;
        this.#waiting = null;
        this.error.hidden = true;
        this.#history.load(answer, windowMs);
        waiting.forEach(points => this.append(points));
        this.setPlot(answer.plot);
        this.draw();
    }

    #fail(text) {
        this.#waiting = null;
        this.error.hidden = false;
        setText(this.error, text);
    }

    append(points) {
        if (this.#waiting) this.#waiting.push(points);
        else if (this.time.live) this.#history.append(points);
    }

    get points() {
        return this.#history.t.length;
    }

    draw() {
        if (!this.#visible || !this.#chart) return;
        const none = new Array(this.points).fill(undefined);
        this.#chart.draw(
            [this.#history.t, ...this.shown.map(line => this.#history.v[line.place] ?? none)],
            this.time.from,
            this.time.to
        );
        this.#showValues(this.#chart.index);
    }

    #showValues(index) {
        const at = index ?? this.points - 1;
        this.legend.setValues(
            new Map(this.shown.map(line => [line.name, this.#history.v[line.place]?.[at]])),
            index === null || at < 0 ? '' : clock(this.#history.t[at], true)
        );
    }

    #key(event) {
        if (CURSOR_KEYS[event.key]) {
            this.#chart.step(CURSOR_KEYS[event.key]);
            announce(`${this.legend.time.textContent}: ${this.legend.list.innerText}`);
        } else if (event.key === 'Escape') this.#chart.leave();
        else return;
        event.preventDefault();
        event.stopPropagation();
    }

    #aimCsv() {
        const {from, to} = this.time;
        this.csv.href = address('/api/export.csv', {
            ue: this.ue,
            plot: this.plot.id,
            from: Math.floor(from),
            to: Math.ceil(to),
        });
        this.csv.download = `${fileStem(this.ue, this.plot.id, to)}.csv`;
    }

    savePng() {
        const rows = this.shown.map(line => ({
            text: `${line.name} ${number(this.#history.v[line.place]?.at(-1))} ${line.unit ?? ''}`,
            style: line.style,
        }));
        savePng(this.#chart.context.canvas, {
            title: `${this.plot.title} (${this.plot.id}), modem ${this.ue}`,
            window: `${clock(this.time.from)} to ${clock(this.time.to)}`,
            rows,
            name: `${fileStem(this.ue, this.plot.id, this.time.to)}.png`,
        });
    }
}
