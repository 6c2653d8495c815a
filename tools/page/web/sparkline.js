// The newest stretch of a rate as a small line. Where there is no value the line is broken.

import {el, svg} from './dom.js';

const WIDTH = 240;
const HEIGHT = 44;

/// Stretches of points that follow each other, as [[x, y] ...].
function stretches(values, top) {
    const step = WIDTH / Math.max(1, values.length - 1);
    const found = [];
    values.forEach((value, i) => {
        if (value === null || value === undefined) return;
        if (i === 0 || (values[i - 1] ?? null) === null) found.push([]);
        found.at(-1).push([(i * step).toFixed(1), (HEIGHT - 1 - ((HEIGHT - 3) * value) / top).toFixed(1)]);
    });
    return found;
}

// A point that stands alone is drawn as a dot.
const linePath = points => (points.length > 1 ? `M${points.join('L')}` : `M${points[0]}h0`);
const areaPath = points => `${linePath(points)}L${points.at(-1)[0]},${HEIGHT}L${points[0][0]},${HEIGHT}Z`;
const topOf = values => values.reduce((top, value) => Math.max(top, value ?? 0), 1);

export class Sparkline {
    #ownScales;

    /// names: of the lines, for screen readers; line i has the class line-i. Lines share one scale unless each is to
    /// have its own.
    constructor(names, {ownScales = false} = {}) {
        this.#ownScales = ownScales;
        this.area = svg('path', {class: 'area line-0'});
        this.lines = names.map((_, i) => svg('path', {class: `line line-${i}`}));
        this.node = el('div', {class: 'spark', role: 'img'});
        this.node.append(
            svg(
                'svg',
                {viewBox: `0 0 ${WIDTH} ${HEIGHT}`, preserveAspectRatio: 'none', 'aria-hidden': 'true'},
                this.area,
                ...this.lines
            )
        );
    }

    /// lists: values of each line, oldest first; label says in words what is to be seen.
    update(lists, label) {
        const tops = lists.map(topOf);
        const shared = Math.max(...tops);
        lists.forEach((values, i) => {
            const parts = stretches(values, this.#ownScales ? tops[i] : shared);
            setPath(this.lines[i], parts.map(linePath));
            if (i === 0) setPath(this.area, parts.map(areaPath));
        });
        this.node.setAttribute('aria-label', label);
    }
}

const setPath = (path, parts) => path.setAttribute('d', parts.join(''));
