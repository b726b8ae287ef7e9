// The phone's pages in a real browser: npx playwright test [--trace on] [specs/NAME]
//   BUILD  the build folder of scripts/serve; build/browser of this project when it is not set
import { defineConfig } from '@playwright/test';
import { fileURLToPath } from 'node:url';
import { freePort } from './support/free-port.js';

const root = fileURLToPath(new URL('../..', import.meta.url));
const here = fileURLToPath(new URL('.', import.meta.url));

// This file is read once more by each worker, which inherits the environment.
process.env.BUILD ??= `${root}build/browser`;
process.env.PHONE_PORT ??= String(await freePort());
const address = `http://127.0.0.1:${process.env.PHONE_PORT}`;

export default defineConfig({
    testDir: 'specs',
    outputDir: `${process.env.BUILD}/results/artifacts`,
    forbidOnly: true,
    fullyParallel: false,
    // They all look at one phone.
    workers: 1,
    timeout: 60_000,
    expect: { timeout: 5_000 },
    reporter: [
        ['list'],
        ['junit', { outputFile: `${process.env.BUILD}/results/browser.xml` }],
    ],
    use: {
        baseURL: address,
        browserName: 'chromium',
        viewport: { width: 1280, height: 800 },
        // A colour on its way to another is no contrast to measure.
        contextOptions: { reducedMotion: 'reduce' },
        screenshot: 'only-on-failure',
        launchOptions: {
            // Chromium without windows, which needs far less processor time.
            executablePath: '/usr/bin/chromium-headless-shell',
            // Chromium refuses to run as root in its sandbox.
            chromiumSandbox: process.getuid() !== 0,
            args: [
                '--disable-gpu',
                '--disable-quic',
                '--no-first-run',
                '--disable-background-networking',
                '--disable-component-update',
                '--disable-sync',
                // The address that network.spec.js sets: the phone has no network of its own.
                '--host-resolver-rules=MAP 192.168.1.20 127.0.0.1',
            ],
            env: { ...process.env, FONTCONFIG_FILE: `${here}fonts.conf` },
        },
    },
    webServer: {
        command: `exec "${root}scripts/serve" --port ${process.env.PHONE_PORT} --build "$BUILD"`,
        url: address,
        env: { APP_LOG_LEVEL: '3' }, // errors
        stdout: 'pipe',
        timeout: 600_000, // it builds
        gracefulShutdown: { signal: 'SIGTERM', timeout: 20_000 },
    },
});
