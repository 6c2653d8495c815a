// One event stream of the server, opened again when it ends or falls silent.

const SILENCE_MS = 6000; // a tick comes every second
const RETRY_FIRST_MS = 500;
const RETRY_LAST_MS = 5000;

export class Source {
    #url;
    #tell;
    #stream = null;
    #timer = 0;
    #retryMs = RETRY_FIRST_MS;

    /// tell({state: "open" | "lost"}) or tell({data: text}). Opens at once.
    constructor(url, tell) {
        this.#url = url;
        this.#tell = tell;
        this.#open();
    }

    close() {
        clearTimeout(this.#timer);
        this.#stream?.close();
        this.#stream = null;
    }

    #open() {
        this.#stream = new EventSource(this.#url);
        this.#stream.onopen = () => this.#tell({state: 'open'});
        this.#stream.onmessage = event => {
            this.#retryMs = RETRY_FIRST_MS;
            this.#expect();
            this.#tell({data: event.data});
        };
        this.#stream.onerror = () => this.#again(); // the browser gives up for good after an answer that isn't 200
        this.#expect();
    }

    #expect() {
        clearTimeout(this.#timer);
        this.#timer = setTimeout(() => this.#again(), SILENCE_MS);
    }

    #again() {
        this.close();
        this.#tell({state: 'lost'});
        this.#timer = setTimeout(() => this.#open(), this.#retryMs);
        this.#retryMs = Math.min(RETRY_LAST_MS, 2 * this.#retryMs);
    }
}
