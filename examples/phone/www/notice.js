// The banner that shows the phone's status on every page.

import { page, text } from './page.js';
import { kBusyInterval, kIdleInterval, Poller } from './polling.js';
import { goTo, request } from './requests.js';

const kAddress = '/servlet?p=notice';

function showNotice(word) {
    const content = word === 'idle' ? '' : text('notice-' + word) || text('notice-other');
    const banner = document.getElementById('notice');
    if (!banner || banner.textContent === content) {
        return;
    }
    banner.textContent = '';
    if (content) {
        banner.appendChild(document.createElement('p')).textContent = content;
    }
}

let failures = 0;

async function readNotice() {
    let word = 'unreachable';
    try {
        // Without the cookie, so that polling does not keep the session alive.
        word = await request(kAddress, {credentials: 'omit'}, async answer => {
            return answer.ok ? (await answer.text()).trim() : 'unreachable';
        });
    } catch (error) {
        // Not reachable; the banner shows it.
    }
    failures = word === 'unreachable' ? failures + 1 : 0;
    if (failures === 1) {
        return kBusyInterval; // a single failure may be due to leaving this page
    }
    showNotice(word);
    if (word === 'idle' && document.querySelector('[data-restarting]')) {
        goTo(page.page);
    }
    return word === 'idle' ? kIdleInterval : kBusyInterval;
}

new Poller(readNotice);
