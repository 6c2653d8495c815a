// A lab on this machine: a hub, and benches that share one agent: each records some of its modems, and forwards that.

import {execFileSync} from 'node:child_process';
import {mkdirSync, writeFileSync} from 'node:fs';
import path from 'node:path';
import {BIN, Bench, PAGE, poll} from './bench.mjs';

const NATS = '/usr/sbin/nats-server'; // Debian's
const HUB_PORT = '4222';
const WAIT_MS = 30000;
export const HUB = `nats://127.0.0.1:${HUB_PORT}`;

export class Lab extends Bench {
    startHub() {
        return this.start('hub', NATS, ['-a', '127.0.0.1', '-p', HUB_PORT, '-js', '-sd', this.path('hub')]);
    }
    /// Makes stream and bucket.
    init() {
        writeFileSync(this.path('fleet.json'), JSON.stringify({benches: [], lab: ['lab'], replicas: 1}));
        execFileSync(path.join(BIN, 'vex-fleet'), ['--servers', HUB, 'init', this.path('fleet.json')]);
    }
    startFleetPage(name = 'page', ...more) {
        return this.start(name, 'vex-page', ['--fleet', '--servers', HUB, ...more]);
    }

    /// ues: slots of the modems that it records, as for vex-capture; without them it records nothing. more: options of
    /// its capture.
    startBench(name, ues, ...more) {
        mkdirSync(this.#spool(name)[1], {recursive: true});
        const capture = ['--tap', this.tap, ...this.#spool(name), '--ue', ues, ...more];
        if (ues) this.start(`${name}-capture`, 'vex-capture', capture);
        this.startForward(name);
    }
    startForward(name, ...more) {
        const forward = [...this.#spool(name), '--servers', HUB, '--state-every', '1', ...more];
        this.start(`${name}-forward`, 'vex-forward', forward);
    }
    #spool(name) {
        return ['--spool', this.path(`spool-${name}`), '--bench', name];
    }

    /// Waits until the fleet is as wanted, and gives it.
    fleet(wanted, why, site = PAGE, waitMs = WAIT_MS) {
        return poll(
            async () => {
                const fleet = await (await fetch(`${site}/api/fleet`)).json();
                return wanted(fleet) && fleet;
            },
            why,
            waitMs
        );
    }
}
