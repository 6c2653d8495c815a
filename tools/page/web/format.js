// Numbers, times and names as people read them. Times come as ms since 1970 on the server's clock.

const BYTE_STEPS = ['B', 'kB', 'MB', 'GB', 'TB'];

function stepped(value) {
    let step = 0;
    while (value >= 999.5 && step < BYTE_STEPS.length - 1) {
        value /= 1000;
        ++step;
    }
    const digits = step === 0 || value >= 99.95 ? 0 : value >= 9.995 ? 1 : 2;
    return `${value.toFixed(digits)} ${BYTE_STEPS[step]}`;
}
export const bytes = value => stepped(value);
export const byteRate = value => (value === undefined || value === null ? '–' : `${stepped(value)}/s`);
export const packetRate = value => (value === undefined || value === null ? '–' : `${Math.round(value)} pkt/s`);

/// "0.4/s", "3000/s".
export const recordRate = value =>
    value === undefined || value === null
        ? '–'
        : `${value > 0 && value < 9.95 ? value.toFixed(1) : Math.round(value)}/s`;

/// A value of a plot: as it is in up to seven characters, shorter beyond.
export function number(value) {
    if (value === null || value === undefined) return '–';
    if (Number.isInteger(value)) return String(value);
    const size = Math.abs(value);
    return value.toFixed(size >= 10000 ? 0 : size >= 100 ? 1 : size >= 1 ? 2 : 3);
}

const pad = (value, digits = 2) => String(value).padStart(digits, '0');

/// 14:03:07, with ms when asked for.
export function clock(time, withMs = false) {
    const date = new Date(time);
    const text = `${pad(date.getHours())}:${pad(date.getMinutes())}:${pad(date.getSeconds())}`;
    return withMs ? `${text}.${pad(date.getMilliseconds(), 3)}` : text;
}

/// "14:03", or with the day when it isn't that of now.
export function since(time, now) {
    const date = new Date(time);
    const sameDay = date.toDateString() === new Date(now).toDateString();
    return sameDay
        ? clock(time)
        : `${date.getFullYear()}-${pad(date.getMonth() + 1)}-${pad(date.getDate())} ${clock(time)}`;
}

/// "3 s", "12 min", "4 h 05 min", "2 d 3 h"; a negative one, of clocks that differ, is none.
export function duration(ms) {
    const seconds = Math.max(0, Math.round(ms / 1000));
    if (seconds < 60) return `${seconds} s`;
    const minutes = Math.floor(seconds / 60);
    const hours = Math.floor(minutes / 60);
    if (hours >= 48) return `${Math.floor(hours / 24)} d ${hours % 24} h`;
    return minutes < 60 ? `${minutes} min` : `${hours} h ${pad(minutes % 60)} min`;
}

/// The end of a device's path.
export const shortName = path => path.split('/').pop();

export const CHANNEL_TEXT = {
    'lte-diag': 'LTE diag',
    'lte-data': 'LTE data',
    'gu-cmd': 'GU command',
    'gu-data': 'GU data',
    at: 'AT',
};
export const DIRECTION_TEXT = {
    'from-ue': 'from modem',
    'to-ue': 'to modem',
    'from-client': 'from client',
    'to-client': 'to client',
    status: 'status',
    event: 'event',
    config: 'configuration',
};
export const channelText = channel => CHANNEL_TEXT[channel] ?? channel ?? '';
export const directionText = direction => DIRECTION_TEXT[direction] ?? direction ?? '';

/// For file names: vex-modem0-stat-cqi-20261122-140307
export function fileStem(ue, what, time) {
    const date = new Date(time);
    const day = `${date.getFullYear()}${pad(date.getMonth() + 1)}${pad(date.getDate())}`;
    return `vex-modem${ue}-${what.replace(/[^\w-]+/g, '-')}-${day}-${clock(time).replace(/:/g, '')}`;
}
