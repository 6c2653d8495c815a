// One uPlot with our colours: lines by unit on up to two axes, the window's time, cursor and zoom.

import uPlot from './uPlot.esm.js';
import {clock, number} from './format.js';
import {themeColour} from './palette.js';

const HEIGHT = 200;
const CURSOR_GROUP = 'vex';

const scaleOf = line => line.unit || 'value';

/// series: [{name, unit, colour, dash, field}], in the order of the data handed to draw(). on: {cursor(index or null),
/// zoom(fromMs, toMs), live()}.
export class Chart {
    #plot;
    #range = [0, 1];

    constructor(parent, series, on) {
        this.#plot = new uPlot(this.#options(parent, series, on), [[], ...series.map(() => [])], parent);
    }

    get context() {
        return this.#plot.ctx;
    }

    draw(data, from, to) {
        this.#range = [from, to];
        this.#plot.batch(() => {
            this.#plot.setData(data, false);
            this.#plot.setScale('x', {min: from, max: to});
        });
    }

    resize(width) {
        if (width > 0 && width !== this.#plot.width) this.#plot.setSize({width, height: HEIGHT});
    }

    /// Of the point at the cursor; null when there is no cursor.
    get index() {
        const {left, idx} = this.#plot.cursor;
        return left < 0 ? null : (idx ?? null);
    }

    /// Moves the cursor by so many points; from the newest when it isn't there yet.
    step(by) {
        const times = this.#plot.data[0];
        if (times.length === 0) return;
        const index = Math.min(times.length - 1, Math.max(0, (this.index ?? times.length) + by));
        this.#plot.setCursor({left: this.#plot.valToPos(times[index], 'x'), top: 0}, true, true);
    }
    leave() {
        this.#plot.setCursor({left: -10, top: -10}, true, true);
    }
    destroy() {
        this.#plot.destroy();
    }

    #options(parent, series, on) {
        const units = [...new Set(series.map(scaleOf))];
        return {
            ms: 1,
            width: Math.max(200, parent.clientWidth),
            height: HEIGHT,
            padding: [10, units.length > 1 ? 0 : 24, 0, 0],
            legend: {show: false},
            cursor: {
                sync: {key: CURSOR_GROUP, scales: ['x', null]},
                drag: {x: true, y: false, setScale: false},
                points: {size: 7},
                bind: {
                    dblclick: () => () => {
                        on.live();
                        return null;
                    },
                },
            },
            scales: {
                x: {time: true, range: () => this.#range},
                ...Object.fromEntries(units.map(unit => [unit, {range: paddedRange}])),
            },
            series: [{}, ...series.map(lineOptions)],
            axes: [timeAxis(), ...units.slice(0, 2).map(valueAxis)],
            hooks: {
                setCursor: [() => this.#plot && on.cursor(this.index)],
                setSelect: [plot => this.#select(plot, on)],
            },
        };
    }

    #select(plot, on) {
        const {left, width} = plot.select;
        if (width < 4) return;
        plot.setSelect({left: 0, top: 0, width: 0, height: 0}, false);
        on.zoom(plot.posToVal(left, 'x'), plot.posToVal(left + width, 'x'));
    }
}

const lineOptions = line => ({
    label: line.name,
    scale: scaleOf(line),
    stroke: line.colour,
    dash: line.dash,
    width: 1.6,
    spanGaps: false,
    points: {size: 4, fill: line.colour},
});

/// Room above and below; a line that doesn't change lies in the middle.
function paddedRange(plot, min, max) {
    if (min === null || max === null) return [0, 1];
    if (min === max) return [min - Math.max(1, Math.abs(min) * 0.1), max + Math.max(1, Math.abs(max) * 0.1)];
    return uPlot.rangeNum(min, max, 0.1, true);
}

const axisColours = () => ({
    stroke: themeColour('--ink-soft'),
    grid: {stroke: themeColour('--grid'), width: 1},
    ticks: {stroke: themeColour('--grid'), width: 1, size: 4},
    font: '11px system-ui, sans-serif',
    labelFont: '11px system-ui, sans-serif',
});

const timeAxis = () => ({
    ...axisColours(),
    size: 26,
    space: 70,
    gap: 4,
    values: (_, ticks, axis, space, step) => ticks.map(time => (step >= 60000 ? clock(time).slice(0, 5) : clock(time))),
});

const valueAxis = (unit, place) => ({
    ...axisColours(),
    scale: unit,
    side: place === 0 ? 3 : 1,
    size: 54,
    gap: 4,
    grid: {show: place === 0, stroke: themeColour('--grid'), width: 1},
    label: unit === 'value' ? undefined : unit,
    labelSize: 16,
    values: (_, ticks) => ticks.map(short),
});

const short = value =>
    Math.abs(value) >= 1e6
        ? `${+(value / 1e6).toFixed(2)}M`
        : Math.abs(value) >= 1e4
          ? `${+(value / 1e3).toFixed(1)}k`
          : Number.isInteger(value)
            ? String(value)
            : number(value).replace(/\.?0+$/, '');
