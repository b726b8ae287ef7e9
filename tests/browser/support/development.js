// The `test` of specs about the development server. Its fixture `project` is one of "servlet_new --with
// upload" that the server watches; every test leaves it as it was.
import { execFileSync, spawn, spawnSync } from 'node:child_process';
import { mkdirSync, mkdtempSync, readFileSync, renameSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { fileURLToPath } from 'node:url';
import { freePort } from './free-port.js';
import { test as base } from './test.js';

const kRoot = fileURLToPath(new URL('../../../', import.meta.url));
const kSource = 'picture.cpp';
const kTemplate = 'www/WEB-INFO/templates/picture.html';
const kConfiguration = 'www/WEB-INFO/servlet/servlet.xml';

export function isRefusedANamespace() {
    const user = process.getuid() === 0 ? [] : ['--user', '--map-root-user'];
    return spawnSync('unshare', ['--mount', ...user, 'mount', '-t', 'tmpfs', 'tmpfs', '/tmp']).status !== 0;
}

// The author's files.
export class Project {
    static source = kSource;
    static template = kTemplate;
    static configuration = kConfiguration;

    constructor(folder, address) {
        this.folder = folder;
        this.address = address;
        this.log = '';
        this.changed = new Map(); // the contents before
    }

    read(name) {
        return readFileSync(`${this.folder}/${name}`, 'utf-8');
    }

    // Saves a file with `from` replaced by `to`. Returns the number of the line where that is.
    replace(name, from, to) {
        const before = this.read(name);
        const at = before.indexOf(from);
        if (at < 0) {
            throw new Error(`${name} does not contain ${from}`);
        }
        this.write(name, before.replace(from, () => to));
        return before.slice(0, at).split('\n').length;
    }

    // As most editors do: there is never half a file.
    write(name, content) {
        if (!this.changed.has(name)) {
            this.changed.set(name, this.read(name));
        }
        writeFileSync(`${this.folder}/.new`, content);
        renameSync(`${this.folder}/.new`, `${this.folder}/${name}`);
    }

    remove(name) {
        this.changed.set(name, this.read(name));
        rmSync(`${this.folder}/${name}`);
    }

    // Restores every file that has been changed.
    mend() {
        for (const [name, content] of this.changed) {
            writeFileSync(`${this.folder}/.new`, content);
            renameSync(`${this.folder}/.new`, `${this.folder}/${name}`);
        }
        this.changed.clear();
    }
}

// The daemon that has been built for the phone's tests, which opens the configuration in their build
// folder: in a mount namespace, that of the project is there.
const kDaemon = `#!/bin/sh
[ "$(id -u)" -eq 0 ] || user='--user --map-root-user'
exec unshare --mount $user sh -ec '
    mount --bind "$PHONE" "$BUILD/device/phone"
    exec "$BUILD/host/fcgi_host"'
`;

async function serve(folder, state, port) {
    const { BUILD } = process.env;
    const project = new Project(folder, `http://127.0.0.1:${port}/servlet?p=picture`);
    const phone = `${folder}/build/image/phone`;
    mkdirSync(`${phone}/data`, { recursive: true });
    writeFileSync(`${state}/daemon`, kDaemon, { mode: 0o755 });
    // setpriv: if this process is killed, the kernel stops the server.
    const server = spawn('setpriv', ['--pdeathsig', 'TERM', 'python3', '-B',
        `${kRoot}tools/servlet_serve/development_server.py`,
        '--name=serve', `--project=${folder}`, `--build=${folder}/build`, `--www=${phone}/www`,
        `--library-folder=${phone}/www/WEB-INFO/lib/`, `--state=${state}`, `--port=${port}`,
        `--lighttpd=${kRoot}packaging/front-servers/lighttpd.conf`,
        `--servlet-check=${BUILD}/prefix/bin/servlet_check`,
        `--provides=${BUILD}/prefix/sbin/fcgi_host`, `--provides=${BUILD}/prefix/lib/libfcgiServer.so`,
        `--provides=${BUILD}/prefix/lib/libdevice.so`,
        `--daemon=${state}/daemon`, `--daemon-pid=${state}/daemon.pid`],
    { env: { ...process.env, PHONE: phone, PATH: `${process.env.PATH}:/usr/sbin` } });
    const isServing = new Promise((ready, failed) => {
        const read = (text) => {
            project.log += text;
            if (project.log.endsWith(`${project.address}\n`)) {
                ready();
            }
        };
        server.stdout.setEncoding('utf-8').on('data', read);
        server.stderr.setEncoding('utf-8').on('data', read);
        server.on('exit', () => failed(new Error(`the server has ended:\n${project.log}`)));
    });
    const hasEnded = new Promise((ended) => { server.on('exit', ended); });
    await isServing;
    return { project, end: () => server.kill() && hasEnded };
}

export const test = base.extend({
    project: [async ({}, use) => {
        const prefix = `${process.env.BUILD}/prefix`;
        const folder = `${process.env.BUILD}/development`;
        const run = (cwd, ...command) => execFileSync(command[0], command.slice(1), { cwd, stdio: 'pipe' });
        rmSync(folder, { recursive: true, force: true });
        mkdirSync(folder);
        run(folder, 'cmake', '--install', process.env.BUILD);
        run(folder, `${prefix}/bin/servlet_new`, '--with', 'upload', 'picture');
        run(`${folder}/picture`, 'cmake', '-B', 'build', '-G', 'Ninja', '-DBUILD_TESTING=OFF',
            `-DCMAKE_PREFIX_PATH=${prefix}`);
        // Not in the build folder: the path of a socket has at most 107 bytes.
        const state = mkdtempSync(`${tmpdir()}/development.`);
        const { project, end } = await serve(`${folder}/picture`, state, await freePort());
        await use(project);
        await end();
    }, { scope: 'worker', timeout: 180_000 }],
});
