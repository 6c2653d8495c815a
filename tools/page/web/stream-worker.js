// The hub as a worker that all tabs share. A tab posts the address that it wants to see, or null, and gets an empty
// answer at once.

import {Hub} from './hub.js';

const hub = new Hub();

self.onconnect = event => {
    const port = event.ports[0];
    const watcher = {tell: news => port.postMessage(news)};
    port.onmessage = message => {
        hub.watch(watcher, message.data.url);
        port.postMessage({});
    };
};
