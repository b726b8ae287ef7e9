// Warns before the session ends, with a count-down, and says when it has ended. All tabs agree:
// they share the time of the last request that kept the session alive.

import { page, setText } from './page.js';
import { request } from './requests.js';

// Leaves the status word as it is; see live.js.
const kAddress = '/servlet?p=status-data&quiet=p=notice';
const kRenewed = 'sessionRenewed';
const kSignedOut = 'sessionSignedOut';
const kLongestWarning = 60000;

const idle = 1000 * Number(page.idleSeconds);
const warning = Math.min(kLongestWarning, idle / 2);
const ending = document.getElementById('session-ending');
const ended = document.getElementById('session-ended');
let renewed = 0;
let asked = 0; // when a response that renews was last asked for
let timer = 0;

// Call after each response that has kept the session alive.
export function noteRenewed() {
    localStorage.setItem(kRenewed, Date.now());
    startAgain();
}

// Call when the session has turned out to have ended.
export function showEnded() {
    clearTimeout(timer);
    ending.close();
    if (!ended.open) {
        window.dispatchEvent(new Event('sessionended'));
        ended.showModal();
    }
}

function startAgain() {
    renewed = Number(localStorage.getItem(kRenewed));
    if (!ended.open) {
        ending.close();
        tick();
    }
}

function tick() {
    clearTimeout(timer);
    const left = renewed + idle - Date.now();
    if (left <= 0) {
        showEnded();
        return;
    }
    if (left <= warning) {
        showLeft(Math.ceil(left / 1000));
    }
    timer = setTimeout(tick, left <= warning ? left % 1000 + 1 : left - warning);
}

function showLeft(seconds) {
    setText('[data-left]', Math.floor(seconds / 60) + ':' + String(seconds % 60).padStart(2, '0'));
    if (!ending.open) {
        ending.showModal();
    }
}

async function renew() {
    asked = Date.now();
    try {
        await request(kAddress, {redirect: 'manual'}, async answer => {
            // 409: signed in, but the factory password must be replaced first.
            if (answer.ok || answer.status === 409) {
                await answer.text();
                noteRenewed();
            } else if (answer.status === 403) {
                showEnded();
            }
        });
    } catch (error) {
        // Not reachable; the banner shows it.
    }
}

// Returns when the user last signed out in this browser.
export function signedOutAt() {
    return Number(localStorage.getItem(kSignedOut));
}

if (ending) {
    noteRenewed();
    ending.addEventListener('cancel', renew);
    ending.querySelector('button').addEventListener('click', renew);
    ended.addEventListener('cancel', event => event.preventDefault());
    // Typing is activity, although it sends nothing.
    document.addEventListener('input', () => {
        if (Date.now() - Math.max(renewed, asked) > idle / 4) {
            renew();
        }
    });
    window.addEventListener('storage', event => {
        if (event.key === kRenewed) {
            startAgain();
        } else if (event.key === kSignedOut) {
            showEnded();
        }
    });
}

let isSigningOut = false;
document.addEventListener('submit', event => {
    isSigningOut = event.target.matches('.sign-out');
});
// Not before: the user may have chosen to stay on the page.
window.addEventListener('pagehide', () => {
    if (isSigningOut) {
        localStorage.setItem(kSignedOut, Date.now());
    }
});
