// Tells on every page when the phone is being serviced.
'use strict';

const kPollMilliseconds = 5000;
const kTexts = new Map([
    ['idle', ''],
    ['reboot', 'The phone is restarting.'],
    ['reset', 'The phone is returning to its factory settings.'],
    ['autoprovision', 'The phone is being provisioned.'],
    ['upgrade', 'The phone is being upgraded.'],
    ['configration', 'The configuration is being changed.'],
]);

function show(text) {
    const banner = document.getElementById('notice');
    if (banner) {
        banner.textContent = text;
        banner.hidden = text === '';
    }
}

async function readWord() {
    const abort = new AbortController();
    const timeout = setTimeout(() => abort.abort(), kPollMilliseconds);
    try {
        // Without the cookie, or a forgotten window would keep its session alive for ever.
        const answer = await fetch('/servlet?p=notice', {
            cache: 'no-store',
            credentials: 'omit',
            signal: abort.signal,
        });
        if (!answer.ok) {
            throw new Error(String(answer.status));
        }
        return (await answer.text()).trim();
    } finally {
        clearTimeout(timeout);
    }
}

async function poll() {
    try {
        const word = await readWord();
        show(kTexts.has(word) ? kTexts.get(word) : 'The phone is being serviced.');
    } catch (error) {
        show('The phone cannot be reached.');
    }
    setTimeout(poll, kPollMilliseconds);
}

setTimeout(poll, kPollMilliseconds / 5);
