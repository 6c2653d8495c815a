// One thing of the server, a modem or a bench: asked for until the server knows it, then followed by its stream.

import {address, getJson} from './api.js';

const RETRY_MS = 2000;

export class Follower {
    #stream;
    #what;
    #tell;
    #timer = 0;
    #closed = false;

    /// what: {view: "modem", args: {ue: 3}}, for /api/modem?ue=3 and its stream. tell: show(data) when it is known, then
    /// update(tick) each second; unknown() for what the server doesn't know, failed(text) for no answer.
    constructor(stream, what, tell) {
        this.#stream = stream;
        this.#what = what;
        this.#tell = tell;
    }

    /// Asks, and again until there is an answer; also when the stream is gone although the server is there.
    async begin() {
        clearTimeout(this.#timer);
        const {view, args} = this.#what;
        try {
            const data = await getJson(`/api/${view}`, args);
            if (this.#closed) return;
            this.#tell.show(data);
            this.#stream.watch(address('/api/events', {view, ...args}), tick => this.#tell.update(tick));
        } catch (error) {
            if (this.#closed) return;
            if (error.status === 404) this.#forget();
            else this.#tell.failed(error.message);
            this.#timer = setTimeout(() => this.begin(), RETRY_MS);
        }
    }

    #forget() {
        this.#stream.watch(null, null);
        this.#tell.unknown();
    }

    close() {
        this.#closed = true;
        clearTimeout(this.#timer);
    }
}
