// Reads the phone's live data for the pages that show them.

import { page } from './page.js';
import { kBusyInterval, Poller } from './polling.js';
import { goTo, request } from './requests.js';
import { noteRenewed } from './session.js';

// The status word reflects the last request. Only addresses that contain "p=notice" leave it as it
// is, so addresses polled in the background must contain that too.
const kAddress = '/servlet?p=status-data&quiet=p=notice';

const listeners = [];
let more = () => '';
let lastData = null;

// Adds what `parameters` returns to the address of each request.
export function askFor(parameters) {
    more = parameters;
}

// Calls `show` with the data and those read before, which are null at first, whenever they were read.
export function onData(show) {
    listeners.push(show);
    if (listeners.length === 1) {
        new Poller(readData);
    }
}

async function readData() {
    try {
        await request(kAddress + more(), {redirect: 'manual'}, async answer => {
            if (answer.type === 'opaqueredirect' || answer.status === 403) {
                goTo('login&q=loginForm&ended=1&jumpto=' + page.here);
            } else if (answer.ok) {
                noteRenewed();
                const data = await answer.json();
                for (const show of listeners) {
                    show(data, lastData);
                }
                lastData = data;
            }
        });
    } catch (error) {
        // Not reachable; the banner shows it.
    }
    return kBusyInterval;
}
