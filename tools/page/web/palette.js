// How the lines of a plot are told apart: colours after Okabe and Ito, which colour-blind people can tell apart, and a
// dash pattern for each carrier, record or cell, so that colour is never the only difference.

export const COLOUR_COUNT = 7; // --series-0 ... in style.css
const DASHES = [[], [7, 4], [2, 3], [10, 3, 2, 3]];

/// "carriers[0].mean_cqi" -> {field: "mean_cqi", index: 0}; of several indices the first counts.
export function partsOf(name) {
    const index = /\[(\d+)\]/.exec(name);
    return {field: name.replace(/^.*\./, '').replace(/\[\d+\]$/, ''), index: index ? Number(index[1]) : 0};
}

/// {colour: 0 to 6, dash} for each line of a plot; the fields of the names in first have the first colours.
export function stylesOf(lines, first = []) {
    const fields = new Map();
    for (const name of first) fields.set(partsOf(name).field, fields.get(partsOf(name).field) ?? fields.size);
    return lines.map(({name}) => {
        const {field, index} = partsOf(name);
        if (!fields.has(field)) fields.set(field, fields.size);
        const place = fields.get(field);
        return {colour: place % COLOUR_COUNT, dash: DASHES[(index + Math.floor(place / COLOUR_COUNT)) % DASHES.length]};
    });
}

export const themeColour = name => getComputedStyle(document.documentElement).getPropertyValue(name).trim();
