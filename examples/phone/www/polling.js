// Reads from the phone at intervals, as long as the page is used.

import { all, page } from './page.js';

export const kBusyInterval = 2000;
export const kIdleInterval = 5000;

const idleAfter = 1000 * Number(page.idleSeconds);
const pollers = [];
let lastInput = Date.now();

// Hidden or unused windows do not poll: that would keep their session alive for ever.
function isUnused() {
    return document.hidden || Date.now() - lastInput >= idleAfter;
}

// Calls `read`, which returns the milliseconds until its next call, until the window is unused.
export class Poller {
    constructor(read) {
        this.read = read;
        this.timer = 0;
        this.isReading = false;
        pollers.push(this);
        this.wake();
    }

    wake() {
        clearTimeout(this.timer);
        this.timer = 0;
        if (!this.isReading) {
            this.poll();
        }
    }

    async poll() {
        this.timer = 0;
        showPaused(isUnused());
        if (isUnused()) {
            return;
        }
        this.isReading = true;
        const pause = await this.read();
        this.isReading = false;
        this.timer = setTimeout(() => this.poll(), pause);
    }
}

function noteInput() {
    const wasUnused = isUnused();
    lastInput = Date.now();
    if (wasUnused) {
        wakePollers();
    }
}

export function wakePollers() {
    for (const poller of pollers) {
        poller.wake();
    }
}

function showPaused(isPaused) {
    for (const element of all('[data-paused]')) {
        element.hidden = !isPaused;
    }
}

for (const name of ['pointerdown', 'pointermove', 'keydown', 'wheel', 'touchstart']) {
    window.addEventListener(name, noteInput, {passive: true});
}
document.addEventListener('visibilitychange', () => {
    if (!document.hidden) {
        wakePollers();
    }
});
