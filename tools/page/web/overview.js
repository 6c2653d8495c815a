// All modems, the clients, what was lost and the newest log lines.

import {announce, el, emptyState, keyed, setAttribute, setText} from './dom.js';
import {channelText, clock, since} from './format.js';
import {ModemCard} from './modem-card.js';
import {modemHash} from './route.js';

const CLIENT_HEADS = ['Client', 'Address', 'Channel', 'Modem', 'Since'];

export class OverviewView {
    #cards = new Map(); // ue -> ModemCard
    #states = new Map();

    constructor(app) {
        this.modems = el('ul', {class: 'cards', 'aria-label': 'Modems'});
        this.noModems = el('div');
        this.clients = el('tbody');
        this.noClients = el('div');
        this.losses = el('ol', {class: 'lines'});
        this.noLosses = el('p', {class: 'none', text: 'Nothing was lost.'});
        this.log = el('ol', {class: 'lines log'});
        this.noLog = el('p', {class: 'none'});
        this.logSource = el('span', {class: 'side'});
        this.node = el(
            'div',
            {class: 'overview'},
            el('h1', {class: 'unseen', text: 'Overview'}),
            this.noModems,
            this.modems,
            el(
                'div',
                {class: 'panels'},
                panel('Clients', null, el('div', {class: 'scroll'}, table(CLIENT_HEADS, this.clients)), this.noClients),
                panel('Losses', null, this.losses, this.noLosses),
                panel('Log', this.logSource, this.log, this.noLog)
            )
        );
        this.clients.closest('table').hidden = true;
        app.stream.watch('/api/events?view=overview', data => this.update(data, app));
        document.title = 'Vex';
    }

    close() {}

    update(data, app) {
        app.showNews(data);
        this.#updateModems(data);
        this.#updateClients(data);
        this.#updateLosses(data);
        this.#updateLog(data);
    }

    #updateModems(data) {
        const order = [...data.modems].sort((a, b) => (a.state === 'gone') - (b.state === 'gone') || a.ue - b.ue);
        keyed(
            this.modems,
            order,
            modem => modem.ue,
            modem => this.#makeCard(modem),
            (_, modem) => this.#cards.get(modem.ue).update(modem, data.time)
        );
        for (const ue of [...this.#cards.keys()]) if (!order.some(modem => modem.ue === ue)) this.#cards.delete(ue);
        this.#tellChanges(order);
        show(this.noModems, order.length === 0 && noModemsState(data.agent));
    }

    #makeCard(modem) {
        const card = new ModemCard(modem.ue);
        this.#cards.set(modem.ue, card);
        return card.node;
    }

    #tellChanges(modems) {
        const changed = modems.filter(({ue, state}) => this.#states.get(ue) !== state);
        if (this.#states.size > 0 && changed.length > 0)
            announce(changed.map(({ue, state}) => `Modem ${ue}: ${state}`).join('. '));
        this.#states = new Map(modems.map(({ue, state}) => [ue, state]));
    }

    #updateClients({clients, time}) {
        keyed(
            this.clients,
            clients,
            client => client.client,
            () => el('tr', {}, el('td'), el('td'), el('td'), el('td'), el('td')),
            (row, client) => {
                const texts = [
                    client.client,
                    client.address,
                    channelText(client.channel),
                    '',
                    since(client.since, time),
                ];
                [...row.children].forEach((cell, i) => i !== 3 && setText(cell, texts[i]));
                showModem(row.children[3], client);
            }
        );
        this.clients.closest('table').hidden = clients.length === 0;
        show(
            this.noClients,
            clients.length === 0 &&
                emptyState(
                    'No client is connected.',
                    'Connect one, for example `vex-client channels` or `vex-client --bind 101 watch`.'
                )
        );
    }

    #updateLosses({losses}) {
        keyed(
            this.losses,
            losses,
            loss => `${loss.time} ${loss.what} ${loss.ue}`,
            () => el('li', {class: 'bad'}, el('time'), el('span')),
            (item, loss) => {
                setText(item.children[0], clock(loss.time));
                setText(
                    item.children[1],
                    `${loss.count} × ${loss.what}${loss.ue === null ? '' : `, modem ${loss.ue}`}`
                );
            }
        );
        this.noLosses.hidden = losses.length > 0;
    }

    #updateLog({log, log_source: source}) {
        setText(this.logSource, source ? source.split('/').pop() : '');
        setAttribute(this.logSource, 'title', source || null);
        const counts = new Map(); // lines may be equal
        const keyOf = line => {
            const key = `${line.time} ${line.text}`;
            counts.set(key, (counts.get(key) ?? 0) + 1);
            return `${key} ${counts.get(key)}`;
        };
        const lines = log.map(line => ({...line, key: keyOf(line)}));
        keyed(
            this.log,
            lines,
            line => line.key,
            line =>
                el(
                    'li',
                    {dataset: {level: line.level}},
                    el('time', {text: clock(line.time)}),
                    el('b', {text: line.level === 'info' ? '' : line.level}),
                    el('span', {text: line.text})
                )
        );
        setText(
            this.noLog,
            source
                ? 'No line yet.'
                : 'No log is read. Give the agent a log (debuglevel in vex.cfg) that vex-page may read.'
        );
        this.noLog.hidden = log.length > 0;
    }
}

const panel = (title, side, ...content) =>
    el('section', {class: 'panel', 'aria-label': title}, el('header', {}, el('h2', {text: title}), side), ...content);

const table = (heads, body) =>
    el('table', {}, el('thead', {}, el('tr', {}, ...heads.map(text => el('th', {scope: 'col', text})))), body);

/// Puts content into a place once, or empties it.
function show(place, content) {
    if (!content) place.replaceChildren();
    else if (place.textContent !== content.textContent) place.replaceChildren(content);
}

function showModem(cell, {ue, port}) {
    const text = ue === null ? 'none' : `${ue}, port ${port}`;
    if (cell.textContent !== text) cell.replaceChildren(ue === null ? text : el('a', {href: modemHash(ue), text}));
}

function noModemsState(agent) {
    return agent.connected
        ? emptyState(
              'No modem is attached.',
              'Plug one in: `vex-hotplug --list` shows which USB ports the agent is told of.',
              'Or start a simulated one: `vex-uesim --attach --ues 1 --lte-start-on-switch`.'
          )
        : emptyState(
              `No agent at ${agent.tap}.`,
              `Start vex-agent with \`TapSocket = ${agent.tap}\` in its configuration, ` +
                  'and this page as its user or in its group. It connects by itself.'
          );
}
