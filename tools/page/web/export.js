// A plot as a picture: title, chart and legend on the page's colours.

import {saveAs} from './dom.js';
import {themeColour} from './palette.js';

const PAD = 12;
const LINE_HEIGHT = 18;
const FONT = 'system-ui, sans-serif';

/// Places the legend's entries in rows no wider than width; an entry is {text, style}.
function layOut(context, entries, width) {
    const placed = [];
    let x = 0,
        y = 0;
    for (const entry of entries) {
        const need = context.measureText(entry.text).width + 46;
        if (x > 0 && x + need > width) {
            x = 0;
            y += LINE_HEIGHT;
        }
        placed.push({...entry, x, y});
        x += need;
    }
    return placed;
}

function drawEntry(context, {text, style, x, y}, top) {
    context.strokeStyle = themeColour(`--series-${style.colour}`);
    context.lineWidth = 2;
    context.setLineDash(style.dash);
    context.beginPath();
    context.moveTo(PAD + x, top + y - 4);
    context.lineTo(PAD + x + 22, top + y - 4);
    context.stroke();
    context.fillStyle = themeColour('--ink');
    context.fillText(text, PAD + x + 28, top + y);
}

/// info: {title, window, rows: [{text, style}], name}
export function savePng(chart, info) {
    const ratio = window.devicePixelRatio || 1;
    const [width, height] = [chart.width / ratio, chart.height / ratio];
    const canvas = document.createElement('canvas');
    const context = canvas.getContext('2d');
    context.font = `12px ${FONT}`;
    const entries = layOut(context, info.rows, width - 2 * PAD);
    const top = 2 * PAD + 2 * LINE_HEIGHT;
    canvas.width = width * ratio;
    canvas.height = (top + height + (entries.at(-1)?.y ?? 0) + LINE_HEIGHT + PAD) * ratio;
    context.scale(ratio, ratio);
    context.fillStyle = themeColour('--surface');
    context.fillRect(0, 0, canvas.width, canvas.height);
    context.fillStyle = themeColour('--ink');
    context.font = `600 14px ${FONT}`;
    context.fillText(info.title, PAD, PAD + 14);
    context.font = `12px ${FONT}`;
    context.fillText(info.window, PAD, PAD + 14 + LINE_HEIGHT);
    context.drawImage(chart, 0, top - PAD, width, height);
    for (const entry of entries) drawEntry(context, entry, top + height + 6);
    canvas.toBlob(blob => saveAs(blob, info.name), 'image/png');
}
