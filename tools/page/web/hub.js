// The streams of all tabs of a browser. A browser opens six connections to a host, so tabs that show the same view
// share one stream; more views than MAX_STREAMS take turns, and two connections stay free for everything else.

import {Source} from './source.js';

const MAX_STREAMS = 4;
const TURN_MS = 1500; // long enough for a tick
const SILENT_MS = 40000; // a tab that watches says so every ten seconds

export class Hub {
    #watchers = new Map(); // watcher -> {url, heard}
    #feeds = new Map(); // url -> {source, opened, last, state}

    constructor() {
        setInterval(() => this.#turn(), TURN_MS);
    }

    /// What a watcher wants to see from now on: an address or null. A watcher has tell({url, state} | {url, data}).
    watch(watcher, url) {
        const before = this.#watchers.get(watcher)?.url;
        if (url) this.#watchers.set(watcher, {url, heard: Date.now()});
        else this.#watchers.delete(watcher);
        this.#settle();
        const feed = this.#feeds.get(url);
        if (before !== url && feed?.last) watcher.tell({url, data: feed.last});
    }

    #wanted() {
        return new Set([...this.#watchers.values()].map(entry => entry.url));
    }

    /// Closes what nobody watches and opens what there is room for.
    #settle() {
        const wanted = this.#wanted();
        for (const [url, feed] of this.#feeds)
            if (!wanted.has(url)) {
                feed.source.close();
                this.#feeds.delete(url);
            }
        for (const url of wanted) if (!this.#feeds.has(url) && this.#feeds.size < MAX_STREAMS) this.#open(url);
    }

    #open(url) {
        const feed = {opened: Date.now(), last: null};
        this.#feeds.set(url, feed);
        feed.source = new Source(url, news => {
            feed.last = news.data ?? feed.last;
            for (const [watcher, entry] of this.#watchers) if (entry.url === url) watcher.tell({url, ...news});
        });
    }

    #turn() {
        const now = Date.now();
        for (const [watcher, entry] of this.#watchers)
            if (now - entry.heard > SILENT_MS) this.#watchers.delete(watcher); // its tab is gone
        const waiting = [...this.#wanted()].filter(url => !this.#feeds.has(url));
        const done = [...this.#feeds].filter(([, feed]) => now - feed.opened >= TURN_MS); // a map is in the order of opening
        for (const [url, feed] of done.slice(0, waiting.length)) this.#passOn(url, feed);
        this.#settle();
    }

    /// The feed makes room, and its watchers go to the end of the line.
    #passOn(url, feed) {
        feed.source.close();
        this.#feeds.delete(url);
        for (const [watcher, entry] of [...this.#watchers])
            if (entry.url === url) {
                this.#watchers.delete(watcher);
                this.#watchers.set(watcher, entry); // a map keeps the order in which entries came
            }
    }
}
