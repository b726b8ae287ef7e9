// Forms whose answer is a file: the page stays, so it empties them and ends the message about an
// earlier attempt.

import { all } from './page.js';

function empty(form) {
    form.reset();
    for (const element of form.elements) {
        element.dispatchEvent(new Event('input', {bubbles: true}));
    }
    for (const message of all('[data-unsaved]')) {
        message.remove();
    }
}

document.addEventListener('submit', event => {
    if (!event.defaultPrevented && 'download' in event.target.dataset) {
        // Once the browser has taken the values.
        setTimeout(() => empty(event.target));
    }
});
