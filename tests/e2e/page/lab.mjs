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
    startFleetPage() {
        return this.start('page', 'vex-page', ['--fleet', '--servers', HUB]);
    }

    /// ues: slots of the modems that it records, as for vex-capture; without them it records nothing. more: options of
    /// its forwarder.
    startBench(name, ues, ...more) {
        const spool = this.path(`spool-${name}`);
        mkdirSync(spool, {recursive: true});
        const capture = ['--tap', this.tap, '--spool', spool, '--bench', name, '--ue', ues];
        if (ues) this.start(`${name}-capture`, 'vex-capture', capture);
        const forward = ['--spool', spool, '--bench', name, '--servers', HUB, '--state-every', '1', ...more];
        this.start(`${name}-forward`, 'vex-forward', forward);
    }

    /// Waits until the fleet is as wanted, and gives it.
    fleet(wanted, why, waitMs = WAIT_MS) {
        return poll(
            async () => {
                const fleet = await (await fetch(`${PAGE}/api/fleet`)).json();
                return wanted(fleet) && fleet;
            },
            why,
            waitMs
        );
    }
}
