// The JSON addresses of the page's server (docs/page.md).

const TIMEOUT_MS = 15000; // a start or stop waits for the agent's answer

export class ApiError extends Error {
    constructor(status, text) {
        super(text);
        this.status = status; // 0: no answer at all
    }
}

/// An address with those arguments that have a value.
export function address(path, args = {}) {
    const query = new URLSearchParams();
    for (const [name, value] of Object.entries(args))
        if (value !== undefined && value !== null && value !== '') query.set(name, value);
    const text = query.toString();
    return text ? `${path}?${text}` : path;
}

async function request(url, options) {
    let answer, body;
    try {
        answer = await fetch(url, {...options, cache: 'no-store', signal: AbortSignal.timeout(TIMEOUT_MS)});
        body = await answer.json();
    } catch (error) {
        throw new ApiError(
            answer?.status ?? 0,
            answer ? `${url}: no JSON in the answer (${answer.status})` : 'vex-page does not answer'
        );
    }
    if (!answer.ok) throw new ApiError(answer.status, body?.error ?? `${url}: ${answer.status}`);
    return body;
}

export const getJson = (path, args) => request(address(path, args), {});
export const postJson = (path, body) =>
    request(path, {method: 'POST', headers: {'Content-Type': 'application/json'}, body: JSON.stringify(body)});
