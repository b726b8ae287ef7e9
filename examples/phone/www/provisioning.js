// The progress of auto-provisioning.

import { onData } from './live.js';
import { setText } from './page.js';
import { goTo } from './requests.js';

const running = document.querySelector('[data-running]');

function show(busy) {
    if (busy.word !== 'autoprovision') {
        goTo('settings-autop');
        return;
    }
    running.querySelector('progress').value = busy.percent;
    setText('[data-value="percent"]', busy.percent);
}

if (running) {
    onData(data => show(data.busy));
}
