// Sets the colour scheme that the user has chosen, which the browser keeps. The head loads this
// without "defer": a page must not be drawn in other colours first.
'use strict';

(() => {
    const kKey = 'theme';
    const root = document.documentElement;

    // Browsers that keep nothing throw.
    function keptTheme() {
        try {
            return localStorage.getItem(kKey);
        } catch (error) {
            return null;
        }
    }

    function keepTheme(theme) {
        try {
            localStorage.setItem(kKey, theme);
        } catch (error) {
            // It lasts as long as this page.
        }
    }

    // Any theme but "light" and "dark" follows the system.
    function apply(theme) {
        if (theme === 'light' || theme === 'dark') {
            root.dataset.theme = theme;
        } else {
            delete root.dataset.theme;
        }
        for (const button of document.querySelectorAll('[data-choose-theme]')) {
            const isChosen = button.dataset.chooseTheme === (root.dataset.theme || 'system');
            button.setAttribute('aria-pressed', String(isChosen));
        }
    }

    apply(keptTheme());
    document.addEventListener('DOMContentLoaded', () => apply(root.dataset.theme));
    document.addEventListener('click', event => {
        const button = event.target.closest('[data-choose-theme]');
        if (button) {
            keepTheme(button.dataset.chooseTheme);
            apply(button.dataset.chooseTheme);
        }
    });
    // Chosen in another window.
    window.addEventListener('storage', event => {
        if (event.key === kKey) {
            apply(event.newValue);
        }
    });
})();
