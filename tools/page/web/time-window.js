// The stretch of time that all plots of a view show: live, paused, or zoomed in.

export const SPANS = [60, 300, 900, 3600]; // s
export const SPAN_TEXT = {60: '1 min', 300: '5 min', 900: '15 min', 3600: '1 h'};
const DEFAULT_SPAN = 300;
const MIN_ZOOM_MS = 1000;

export class TimeWindow {
    #listeners = [];
    #fixed = null; // {from, to} while paused or zoomed
    now = 0; // time of the newest tick, ms on the server's clock
    zoomed = false;

    constructor(span) {
        this.span = SPANS.includes(span) ? span : DEFAULT_SPAN;
    }

    get live() {
        return this.#fixed === null;
    }
    get from() {
        return this.live ? this.now - 1000 * this.span : this.#fixed.from;
    }
    get to() {
        return this.live ? this.now : this.#fixed.to;
    }

    onChange(listener) {
        this.#listeners.push(listener);
    }
    #tell() {
        this.#listeners.forEach(listener => listener());
    }

    setSpan(span) {
        this.span = span;
        this.goLive();
    }
    goLive() {
        this.#fixed = null;
        this.zoomed = false;
        this.#tell();
    }
    togglePause() {
        if (!this.live) return this.goLive();
        this.#fixed = {from: this.from, to: this.to};
        this.#tell();
    }
    zoom(from, to) {
        if (to - from < MIN_ZOOM_MS) return;
        this.#fixed = {from, to};
        this.zoomed = true;
        this.#tell();
    }
    /// factor below 1: closer, around the time at, or around the middle.
    zoomBy(factor, at = (this.from + this.to) / 2) {
        const longest = 1000 * SPANS.at(-1);
        const {from, to} = this;
        if ((to - from) * factor <= longest)
            this.zoom(at - (at - from) * factor, Math.min(this.now, at + (to - at) * factor));
    }
}
