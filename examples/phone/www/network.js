// Counts down the time in which a change of the network must be confirmed.

const trial = document.querySelector('[data-trial]');

function showTimeLeft(end) {
    const left = Math.max(0, Math.ceil((end - performance.now()) / 1000));
    trial.querySelector('[data-trial-left]').textContent =
        Math.floor(left / 60) + ':' + String(left % 60).padStart(2, '0');
    if (left > 0) {
        setTimeout(showTimeLeft, 250, end);
        return;
    }
    // Not by itself: the form may contain changes that are not saved.
    trial.querySelector('[data-trial-running]').hidden = true;
    trial.querySelector('[data-trial-over]').textContent =
        trial.querySelector('[data-trial-text]').content.textContent;
}

if (trial) {
    showTimeLeft(performance.now() + 1000 * Number(trial.dataset.trial));
}
