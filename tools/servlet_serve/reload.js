// Reloads the page as soon as the project has been built again, or no longer builds.
'use strict';

(() => {
    const { version } = document.currentScript.dataset;
    const pause = (milliseconds) => new Promise((done) => { setTimeout(done, milliseconds); });

    // A browser has few connections to one server, so pages in hidden tabs use none.
    function isVisible() {
        return document.hidden
            ? new Promise((visible) => {
                document.addEventListener('visibilitychange', visible, { once: true });
            })
            : Promise.resolve();
    }

    // Waits on the server for a change. The server may be stopped, or be starting again.
    async function hasChanged() {
        await isVisible();
        try {
            const response = await fetch(`/servlet/development/changed?since=${version}`);
            await response.text(); // or the browser would abort it when it leaves the page
            const { status } = response;
            if (status === 200) return true;
            if (status !== 204) await pause(1000);
        } catch {
            await pause(1000);
        }
        return false;
    }

    // Not reload(), unless need be: it asks whether to send the form again that led to this page.
    function load() {
        if (window.location.hash) window.location.reload();
        else window.location.replace(window.location.href);
    }

    (async () => {
        while (!await hasChanged());
        load();
    })();
})();
