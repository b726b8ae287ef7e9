// Moves the progress bar of a restart. A restarting phone cannot be asked, so the bar follows the time
// that the restart takes; notice.js opens the next page as soon as the phone answers again.

const restarting = document.querySelector('[data-restarting]');
const bar = restarting.querySelector('progress');
const begin = performance.now();
const from = bar.value;
const length = 1000 * Number(restarting.dataset.seconds);

function showProgress() {
    const share = Math.min(1, (performance.now() - begin) / length);
    bar.value = Math.floor(from + (bar.max - from) * share);
    restarting.querySelector('[data-value="percent"]').textContent = bar.value;
    if (share < 1) {
        setTimeout(showProgress, 250);
    }
}

showProgress();
