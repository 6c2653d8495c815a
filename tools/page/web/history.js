// The points of one plot that a browser keeps: what its window shows, thinned to what a plot can draw.

const MAX_POINTS = 1500;
const GAP_MS = 5000; // a longer silence breaks the line, when the points before came more often

/// Least ms between two points in a window of so many ms.
export const stepFor = windowMs => Math.floor(windowMs / (MAX_POINTS * 0.8));

export class History {
    t = [];
    v = []; // one list a line
    #step = 0;
    #usual = 0; // ms between the last two points without a gap

    /// Begins anew with {t, v} of /api/plot.
    load({t, v}, windowMs) {
        this.#step = stepFor(windowMs);
        this.#usual = 0;
        this.t = [];
        this.v = v.map(() => []);
        this.append({t, v});
    }

    /// Adds what is newer than the last point; lines that are new begin here.
    append({t, v}) {
        while (this.v.length < v.length) this.v.push(new Array(this.t.length).fill(null));
        for (let i = 0; i < t.length; ++i)
            if (this.t.length === 0 || t[i] >= this.t.at(-1) + Math.max(1, this.#step)) this.#push(t[i], v, i);
        this.#trim();
    }

    // A row without a value of a line is passed over (undefined); a gap in time breaks the line (null).
    #push(time, v, i) {
        const passed = this.t.length === 0 ? 0 : time - this.t.at(-1);
        if (this.#usual > 0 && passed > GAP_MS && passed > 4 * this.#usual) this.#row(this.t.at(-1) + 1, () => null);
        else if (passed > 0) this.#usual = passed;
        this.#row(time, line => v[line]?.[i] ?? undefined);
    }

    #row(time, valueOf) {
        this.t.push(time);
        this.v.forEach((values, line) => values.push(valueOf(line)));
    }

    #trim() {
        const beyond = this.t.length - MAX_POINTS;
        if (beyond <= 0) return;
        this.t.splice(0, beyond);
        this.v.forEach(values => values.splice(0, beyond));
    }
}
