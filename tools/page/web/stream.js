// What a view gets from the server once a second. A hidden tab watches nothing.

import {Hub} from './hub.js';

const ALIVE_MS = 10000;

/// The way to the hub: a worker shared by all tabs, or one in this tab where the browser has no such workers.
function connect(onNews) {
    if (window.SharedWorker) {
        const worker = new SharedWorker('stream-worker.js', {type: 'module', name: 'vex-page'});
        worker.port.onmessage = event => onNews(event.data);
        worker.port.start();
        return url => worker.port.postMessage({url});
    }
    const hub = new Hub();
    const watcher = {tell: onNews};
    return url => hub.watch(watcher, url);
}

export class Stream {
    #send;
    #url = null;
    #onData = null;
    #onState;

    /// onState("open" | "lost") tells how the connection to the server is.
    constructor(onState) {
        this.#onState = onState;
        this.#send = connect(news => this.#take(news));
        document.addEventListener('visibilitychange', () => this.#ask());
        window.addEventListener('pagehide', () => this.#send(null));
        window.addEventListener('pageshow', () => this.#ask());
        setInterval(() => this.#ask(), ALIVE_MS);
    }

    /// Shows the stream at this address from now on, in the place of another one; onData gets each tick's object.
    watch(url, onData) {
        this.#url = url;
        this.#onData = onData;
        this.#ask();
    }

    #ask() {
        this.#send(document.hidden ? null : this.#url);
    }

    #take(news) {
        if (news.url !== this.#url || document.hidden) return;
        if (news.state) this.#onState(news.state);
        if (news.data) {
            this.#onState('open');
            this.#onData(JSON.parse(news.data));
        }
    }
}
