// Enhances every page; links and forms also work without this script. Pages that need more load
// modules of their own.

import './forms.js';
import './drafts.js';
import './notice.js';

// After signing out, pages that the browser kept must not be shown again.
window.addEventListener('pageshow', event => {
    if (event.persisted) {
        location.reload();
    }
});
