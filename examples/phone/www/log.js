// Follows the log: replaces the records by those of a page that is read again.

import { page } from './page.js';
import { kIdleInterval, Poller } from './polling.js';
import { goTo, request } from './requests.js';

const follow = document.getElementById('follow');

function records(where) {
    return where.querySelector('[data-log]');
}

// With "p=notice", so that the container keeps its status word.
const address = '/servlet?p=log&level=' + records(document).dataset.log + '&quiet=p=notice';

async function readLog() {
    if (!follow.checked) {
        return kIdleInterval;
    }
    try {
        await request(address, {redirect: 'manual'}, async answer => {
            if (answer.type === 'opaqueredirect') {
                goTo('login&q=loginForm&jumpto=' + page.page);
            } else if (answer.ok) {
                const read = new DOMParser().parseFromString(await answer.text(), 'text/html');
                if (records(read).innerHTML !== records(document).innerHTML) {
                    records(document).replaceWith(records(read));
                }
            }
        });
    } catch (error) {
        // Not reachable; the banner shows it.
    }
    return kIdleInterval;
}

document.querySelector('[data-follow]').hidden = false;
// The page itself has the newest records.
setTimeout(() => new Poller(readLog), kIdleInterval);
