// Names and values of a plot's lines, and the list to choose from.

import {el, keyed, setText, svg} from './dom.js';
import {number} from './format.js';

/// A short piece of the line as it is drawn.
function swatch(style) {
    return svg(
        'svg',
        {class: 'swatch', viewBox: '0 0 22 8', 'aria-hidden': 'true'},
        svg('line', {
            x1: 0,
            y1: 4,
            x2: 22,
            y2: 4,
            class: `series-${style.colour}`,
            'stroke-dasharray': style.dash.join(' '),
        })
    );
}

export class Legend {
    #values = new Map(); // name -> element

    /// choose(name, shown) is called when the user wants a line or no longer.
    constructor(choose) {
        this.#choose = choose;
        this.time = el('span', {class: 'at'});
        this.list = el('ul', {class: 'legend'});
        this.options = el('ul', {class: 'options'});
        this.search = el('input', {
            type: 'search',
            placeholder: 'find a line',
            'aria-label': 'Find a line',
            on: {input: () => this.#filter()},
        });
        this.summary = el('summary');
        this.picker = el(
            'details',
            {class: 'picker'},
            this.summary,
            el('div', {class: 'pop'}, this.search, this.options)
        );
        this.node = el(
            'div',
            {class: 'legend-row'},
            this.list,
            el('div', {class: 'legend-side'}, this.picker, this.time)
        );
    }
    #choose;

    /// lines: [{name, unit, style, shown}]
    setLines(lines, more) {
        this.#values.clear();
        const shown = lines.filter(line => line.shown);
        this.list.replaceChildren(...shown.map(line => this.#entry(line)));
        setText(this.summary, `${shown.length} of ${lines.length} lines`);
        this.picker.hidden = lines.length < 2;
        keyed(
            this.options,
            lines,
            line => line.name,
            line => this.#option(line),
            (item, line) => {
                item.querySelector('input').checked = line.shown;
            }
        );
        this.search.hidden = lines.length < 9;
        this.#filter();
        if (more > 0)
            this.options.append(
                el('li', {class: 'none', text: `and ${more} more that aren't kept`, dataset: {key: 'more'}})
            );
    }

    /// values: by name; time: text of the moment, empty for the newest.
    setValues(values, time) {
        setText(this.time, time);
        for (const [name, node] of this.#values) setText(node, number(values.get(name)));
    }

    #entry(line) {
        const value = el('b', {text: '–'});
        this.#values.set(line.name, value);
        return el(
            'li',
            {},
            swatch(line.style),
            el('span', {class: 'name', text: line.name}),
            value,
            line.unit ? el('small', {text: line.unit}) : null
        );
    }

    #option(line) {
        const box = el('input', {type: 'checkbox', on: {change: () => this.#choose(line.name, box.checked)}});
        return el('li', {}, el('label', {}, box, swatch(line.style), el('span', {text: line.name})));
    }

    #filter() {
        const wanted = this.search.value.trim().toLowerCase();
        for (const item of this.options.children) item.hidden = !item.textContent.toLowerCase().includes(wanted);
    }
}
