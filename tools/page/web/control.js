// Starts and stops the statistics and reports of a modem.

import {getJson, postJson} from './api.js';
import {announce, el, emptyState, keyed, setAttribute, setText} from './dom.js';
import {since} from './format.js';

const REFRESH_MS = 2000;
const keyOf = ({kind, name}, modem) => `${kind}/${name}/${modem}`;

export class ControlTab {
    #timer = 0;
    #closed = false;
    #waiting = new Set(); // keys of what is being started or stopped

    constructor(view) {
        this.view = view;
        this.banner = el('p', {class: 'notice', role: 'status', hidden: true});
        this.result = el('p', {class: 'result', role: 'alert', hidden: true});
        this.search = el('input', {
            type: 'search',
            placeholder: 'find a statistic or report',
            'aria-label': 'Find a statistic or report',
            on: {input: () => this.#filter()},
        });
        this.groups = el('div', {class: 'control-groups'});
        this.empty = el('div');
        this.node = el(
            'div',
            {class: 'control'},
            this.banner,
            this.result,
            el('div', {class: 'toolbar'}, this.search),
            this.empty,
            this.groups
        );
        this.#refresh();
    }

    /// The tick tells who holds the channel and what is running; the choices come from /api/control.
    update(data) {
        if (data.control && this.state) this.#show({...this.state, ...data.control, choices: this.state.choices});
    }

    async #refresh() {
        clearTimeout(this.#timer);
        try {
            const state = await getJson('/api/control', {ue: this.view.ue});
            if (!this.#closed) this.#show(state);
        } catch (error) {
            if (!this.#closed && !this.state)
                this.empty.replaceChildren(emptyState(error.message, 'Trying again every two seconds.'));
        }
        if (!this.#closed) this.#timer = setTimeout(() => this.#refresh(), REFRESH_MS);
    }

    #show(state) {
        this.state = state;
        this.groups.hidden = this.search.hidden = !state.enabled;
        this.empty.replaceChildren(...(state.enabled ? [] : [offState()]));
        this.#showBanner(state);
        if (!state.enabled) return;
        const groups = [...new Set(state.choices.map(choice => choice.group))];
        keyed(
            this.groups,
            groups,
            group => group,
            makeGroup,
            (section, group) => this.#showGroup(section, group, state)
        );
        this.#filter();
    }

    #showBanner(state) {
        const text = bannerText(state);
        this.banner.hidden = text === '';
        setText(this.banner, text);
    }

    #showGroup(section, group, state) {
        const choices = state.choices.filter(choice => choice.group === group);
        keyed(
            section.querySelector('tbody'),
            choices,
            choice => keyOf(choice, ''),
            choice => this.#makeRow(choice),
            (row, choice) => this.#showRow(row, choice, state)
        );
    }

    #makeRow(choice) {
        const period = el('input', {
            type: 'number',
            min: 0,
            max: 65535,
            step: 100,
            value: choice.period_ms,
            'aria-label': `Period of ${choice.name} in ms`,
        });
        const modem = el(
            'select',
            {'aria-label': `Modem of ${choice.name}`, on: {change: () => this.#show(this.state)}},
            el('option', {value: '0', text: '0'}),
            el('option', {value: '1', text: '1'})
        );
        const button = el('button', {type: 'button', on: {click: () => this.#toggle(choice, row)}});
        const row = el(
            'tr',
            {},
            el('th', {scope: 'row'}, el('code', {text: choice.name})),
            el('td', {class: 'what', text: choice.what}),
            el('td', {class: 'num'}, choice.once || choice.period_ms === 0 ? '–' : period),
            el('td', {}, choice.modem_1 ? modem : '0'),
            el('td', {class: 'since'}),
            el('td', {}, button)
        );
        return row;
    }

    #showRow(row, choice, state) {
        const modem = modemOf(row);
        const running = state.running.find(item => keyOf(item, item.modem) === keyOf(choice, modem));
        const button = row.querySelector('button');
        const waiting = this.#waiting.has(keyOf(choice, modem));
        setAttribute(row, 'data-running', running ? 'yes' : 'no');
        setText(
            row.querySelector('.since'),
            running
                ? `running since ${since(running.since, this.view.last?.time ?? Date.now())}, each ${running.period_ms} ms`
                : ''
        );
        setText(button, waiting ? '...' : running ? 'Stop' : choice.once ? 'Ask once' : 'Start');
        setAttribute(button, 'aria-label', `${button.textContent} ${choice.name}`);
        button.disabled = waiting;
    }

    async #toggle(choice, row) {
        const modem = modemOf(row);
        const key = keyOf(choice, modem);
        const start = row.dataset.running !== 'yes';
        const period = Number(row.querySelector('input')?.value ?? choice.period_ms);
        this.#waiting.add(key);
        this.#show(this.state);
        try {
            await postJson('/api/control', {
                ue: this.view.ue,
                kind: choice.kind,
                name: choice.name,
                modem,
                period_ms: period,
                start,
            });
            this.#tell(`${choice.name}: ${start ? 'started' : 'stopped'}`, false);
        } catch (error) {
            this.#tell(`${choice.name}: ${error.message}`, true);
        }
        this.#waiting.delete(key);
        if (!this.#closed) await this.#refresh();
    }

    #tell(text, bad) {
        this.result.hidden = false;
        this.result.classList.toggle('bad', bad);
        setText(this.result, text);
        announce(text);
    }

    #filter() {
        const wanted = this.search.value.trim().toLowerCase();
        for (const row of this.groups.querySelectorAll('tbody tr'))
            row.hidden = !row.textContent.toLowerCase().includes(wanted);
        for (const section of this.groups.children)
            section.hidden = [...section.querySelectorAll('tbody tr')].every(row => row.hidden);
    }

    close() {
        this.#closed = true;
        clearTimeout(this.#timer);
    }
}

/// Who is in the way, or what ended all that ran.
function bannerText({held_by: holder, port, error}) {
    const where = port === null ? '' : ` of port ${port}`;
    if (holder)
        return `Another client holds GU command${where}: ${holder.address}, client ${holder.client}. Stop it, then start here.`;
    return error ?? '';
}

const modemOf = row => Number(row.querySelector('select')?.value ?? 0);

const offState = () =>
    emptyState(
        'Starting and stopping is off.',
        'Start the page with `vex-page --control` to choose statistics and reports here.',
        'Or start them by a client: `vex-client --bind 101 stat cqi`. Their values show here in any case.'
    );

function makeGroup(group) {
    const heads = ['Name', 'What', 'Period, ms', 'Modem', 'State', ''];
    return el(
        'section',
        {class: 'panel'},
        el('header', {}, el('h2', {text: group})),
        el(
            'div',
            {class: 'scroll'},
            el(
                'table',
                {class: 'choices'},
                el('thead', {}, el('tr', {}, ...heads.map(text => el('th', {scope: 'col', text})))),
                el('tbody')
            )
        )
    );
}
