// What a view gets from the server once a second. A hidden tab watches nothing.

import {Hub} from './hub.js';

const ALIVE_MS = 10000;
const ANSWER_MS = 2500; // of a worker that is well: a few
const ASKS = 2; // one may go while the tab is frozen

/// A way to the hub: what is sent there is the address to watch, or null. This one is a worker that all tabs share;
/// onFailed is called when it can't be loaded or doesn't answer, as one that ends with the last tab of before.
function sharedHub(onNews, onFailed) {
    const worker = new SharedWorker('stream-worker.js', {type: 'module', name: 'vex-page'});
    const {port} = worker;
    let timer = null;
    const fail = () => {
        clearTimeout(timer);
        worker.onerror = null;
        port.postMessage({url: null});
        port.close();
        onFailed();
    };
    const ask = (url, asks) => {
        clearTimeout(timer);
        timer = setTimeout(() => (asks < ASKS ? ask(url, asks + 1) : fail()), ANSWER_MS);
        port.postMessage({url});
    };
    worker.onerror = fail;
    port.onmessage = event => {
        clearTimeout(timer);
        onNews(event.data);
    };
    port.start();
    return url => ask(url, 1);
}

/// A hub of this tab alone.
function ownHub(onNews) {
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
        const onNews = news => this.#take(news);
        const alone = () => {
            this.#send = ownHub(onNews);
            this.#ask();
        };
        if (window.SharedWorker) this.#send = sharedHub(onNews, alone);
        else alone();
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
