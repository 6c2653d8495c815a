// A minute of a rate as a small line; its lines share one scale.

import {el, svg} from './dom.js';

const WIDTH = 240;
const HEIGHT = 44;

function pathOf(values, top, close) {
    if (values.length === 0) return '';
    const step = WIDTH / Math.max(1, values.length - 1);
    const points = values.map(
        (value, i) => `${(i * step).toFixed(1)},${(HEIGHT - 1 - ((HEIGHT - 3) * (value ?? 0)) / top).toFixed(1)}`
    );
    const line = `M${points.join('L')}`;
    return close ? `${line}L${WIDTH},${HEIGHT}L0,${HEIGHT}Z` : line;
}

export class Sparkline {
    /// names: of the lines, for screen readers; line i has the class line-i.
    constructor(names) {
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
        const top = Math.max(1, ...lists.flat().map(value => value ?? 0));
        this.area.setAttribute('d', pathOf(lists[0], top, true));
        lists.forEach((values, i) => this.lines[i].setAttribute('d', pathOf(values, top, false)));
        this.node.setAttribute('aria-label', label);
    }
}
