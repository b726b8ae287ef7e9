// Requests to the phone, and other pages instead of this one.

const kTimeout = 5000;

// Sends a request and calls `use` with its response. Throws if the phone cannot be reached in time.
export async function request(address, options, use) {
    const abort = new AbortController();
    const timeout = setTimeout(() => abort.abort(), kTimeout);
    try {
        return await use(await fetch(address, {cache: 'no-store', signal: abort.signal, ...options}));
    } finally {
        clearTimeout(timeout);
    }
}

// When the user last followed a link or sent a form.
let lastNavigation = 0;

// Opens a page; does nothing while another page is loading, which the user chose.
export function goTo(query) {
    if (Date.now() - lastNavigation >= kTimeout) {
        location.replace('/servlet?p=' + query);
    }
}

window.addEventListener('beforeunload', () => { lastNavigation = Date.now(); });
