// The real programs in a folder of their own: agent, simulated modems, page, clients. The agent's ports are fixed, so
// this runs in a network namespace of its own (run-isolated).

import {spawn} from 'node:child_process';
import {copyFileSync, appendFileSync, mkdirSync, mkdtempSync, openSync, closeSync, readFileSync, rmSync} from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import {fileURLToPath} from 'node:url';

const ROOT = path.join(path.dirname(fileURLToPath(import.meta.url)), '../../..');
export const BIN = process.env.VEX_BIN_DIR ?? path.join(ROOT, 'build/release/bin');
const WAIT_MS = 30000;

export const PAGE = 'http://localhost:8280';

export class Bench {
    running = new Map(); // name -> process

    constructor() {
        this.work = mkdtempSync(path.join(os.tmpdir(), 'vex-bench-'));
        this.tap = path.join(this.work, 'tap');
        mkdirSync(path.join(this.work, 'config'));
        copyFileSync(path.join(ROOT, 'config/vex.cfg'), this.path('config/vex.cfg'));
        appendFileSync(this.path('config/vex.cfg'), `TapSocket = ${this.tap}\n`);
        process.on('exit', () => this.running.forEach(child => child.kill('SIGKILL')));
    }

    /// A file of this bench.
    path(name) {
        return path.join(this.work, name);
    }
    output(name) {
        return readFileSync(this.path(`${name}.out`), 'utf8');
    }

    /// Starts a program of ours, or one with a path; its output is in the file of this name.
    start(name, program, args) {
        const file = openSync(this.path(`${name}.out`), 'a');
        const child = spawn(path.resolve(BIN, program), args, {cwd: this.work, stdio: ['ignore', file, file]});
        closeSync(file);
        child.ended = new Promise(done => child.on('exit', (status, signal) => done(status ?? signal)));
        this.running.set(name, child);
        return child;
    }
    /// Ends a program. One of ours but a client has to end in order; a sanitizer's finding is an end of another kind.
    async stop(name, signal = 'SIGTERM') {
        const child = this.running.get(name);
        this.running.delete(name);
        child?.kill(signal);
        const status = await child?.ended;
        const ours = child?.spawnfile.startsWith(BIN) && !child.spawnfile.endsWith('vex-client');
        if (ours && signal === 'SIGTERM' && status !== 0)
            throw new Error(`${name} ended with ${status}: ${this.output(name)}`);
    }

    startAgent() {
        return this.start('agent', 'vex-agent', []);
    }
    startModems(count, ...more) {
        return this.start('modems', 'vex-uesim', [
            '--config',
            'config/vex.cfg',
            '--log',
            'modems.log',
            '--attach',
            '--first-port',
            '101',
            '--ues',
            String(count),
            '--dir',
            'ports',
            '--lte-rate',
            '50',
            '--lte-start-on-switch',
            '--dual-card',
            ...more,
        ]);
    }
    startPage(name, ...args) {
        return this.start(name, 'vex-page', ['--tap', this.tap, '--log', this.path('vex'), ...args]);
    }

    /// A client's whole run: its exit status and the objects that it has printed.
    async client(...args) {
        const child = spawn(path.join(BIN, 'vex-client'), ['--json', ...args], {
            cwd: this.work,
            stdio: ['ignore', 'pipe', 'inherit'],
        });
        let text = '';
        child.stdout.on('data', part => {
            text += part;
        });
        const status = await new Promise(done => child.on('close', done));
        return {
            status,
            lines: text
                .split('\n')
                .filter(Boolean)
                .map(line => JSON.parse(line)),
        };
    }

    /// Waits until the overview is as wanted, and gives it.
    async overview(wanted, why, site = PAGE, waitMs = WAIT_MS) {
        return poll(
            async () => {
                const overview = await (await fetch(`${site}/api/overview`)).json();
                return wanted(overview) && overview;
            },
            why,
            waitMs
        );
    }
    /// Waits until a modem is confirmed and computes statistics.
    async ready(ue) {
        await this.overview(
            ({modems}) => modems.some(modem => modem.ue === ue && modem.state === 'confirmed'),
            `modem ${ue} is confirmed`
        );
        const port = String(101 + 100 * ue);
        await poll(
            async () =>
                (await this.client('--bind', port, '--timeout', '2', 'stat', 'sir', '--count', '1')).status === 0,
            'the register service'
        );
    }

    async close() {
        for (const name of [...this.running.keys()].reverse()) await this.stop(name);
        rmSync(this.work, {recursive: true, force: true});
    }
}

/// Waits until the function gives something true; what it throws counts as not yet.
export async function poll(what, why, waitMs = WAIT_MS) {
    let last;
    for (const end = Date.now() + waitMs; Date.now() < end; await new Promise(done => setTimeout(done, 100)))
        try {
            const got = await what();
            if (got) return got;
        } catch (error) {
            last = error;
        }
    throw new Error(`waited in vain: ${why}${last ? ` (${last.message})` : ''}`);
}
