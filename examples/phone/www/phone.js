// The display, lamps and keys of the phone page.

import { onData } from './live.js';
import { all, setText, text } from './page.js';
import { wakePollers } from './polling.js';
import { goTo, request } from './requests.js';

const kPressTime = 800;

function showDesk(desk, lastDesk) {
    const {lineLabel, screen, digits} = desk;
    const isIdle = screen === 'ready' || screen === 'doNotDisturb';
    setText('[data-desk="line1"]', isIdle ? lineLabel : text('screen-' + screen, {lineLabel}));
    setText('[data-desk="line2"]',
        digits || (isIdle ? text('screen-' + screen) : screen === 'menu' ? text('screen-menuHint') : ''));
    for (const element of all('[data-while]')) {
        element.hidden = !element.dataset.while.split(' ').includes(desk.state);
    }
    setText('[data-desk="state"]', text('desk-' + desk.state) || desk.state);
    for (const [name, state] of Object.entries(desk.lamps)) {
        for (const lamp of all('[data-lamp="' + name + '"]')) {
            lamp.dataset.state = state;
        }
        setText('[data-lamp-text="' + name + '"]', text('lamp-' + state));
    }
    setText('[data-desk="key"]', desk.key || '–');
    if (lastDesk && desk.presses !== lastDesk.presses) {
        showPress(desk.key);
    }
}

function showPress(name) {
    for (const key of all('[data-key="' + name + '"]')) {
        key.classList.add('pressed');
        setTimeout(() => key.classList.remove('pressed'), kPressTime);
    }
}

let keysSent = Promise.resolve();

// Sends one key at a time: simultaneous requests may arrive in any order.
function pressKey(form, button) {
    const body = new URLSearchParams(new FormData(form));
    body.set(button.name, button.value);
    keysSent = keysSent.then(() => sendKey(form, body));
}

async function sendKey(form, body) {
    try {
        // A redirect means that the key was accepted or that the session ended; the live data, which
        // is read next, shows which.
        await request(form.action, {method: 'POST', body, redirect: 'manual'}, async answer => {
            if (answer.type !== 'opaqueredirect' && !answer.ok) {
                goTo('phone');
            }
        });
    } catch (error) {
        // Not reachable; the banner shows it.
    }
    wakePollers();
}

onData((data, lastData) => showDesk(data.desk, lastData && lastData.desk));
document.addEventListener('submit', event => {
    if (!event.defaultPrevented && 'keys' in event.target.dataset && event.submitter) {
        event.preventDefault();
        pressKey(event.target, event.submitter);
    }
});

// ---- Keys of the keyboard

const kTypedKeys = {'*': 'STAR', '#': 'POUND', Enter: 'OK', Escape: 'CANCEL'};

// Returns whether the keyboard belongs to what has the focus: Enter presses a button, and a field
// takes all keys.
function isTaken(target, key) {
    if (target.closest('input:not([type="checkbox"]), textarea, select')) {
        return true;
    }
    return key === 'Enter' && target.closest('a, button, summary, input') !== null;
}

document.addEventListener('keydown', event => {
    const isCombined = event.ctrlKey || event.altKey || event.metaKey;
    const name = /^[0-9]$/.test(event.key) ? event.key : kTypedKeys[event.key];
    // The # of some keyboards needs AltGr, which counts as Ctrl and Alt.
    const isMeant = !isCombined || event.key === '#' || event.key === '*';
    if (!name || !isMeant || !document.getElementById('typing').checked || isTaken(event.target, event.key)) {
        return;
    }
    event.preventDefault();
    const button = document.querySelector('[data-key="' + name + '"]');
    pressKey(button.form, button);
});
