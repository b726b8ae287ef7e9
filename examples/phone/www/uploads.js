// Shows the progress of uploads, and asks before the page is left during one.

import { prepareForms } from './forms.js';
import { page, text } from './page.js';

let isUploading = false;

function upload(form) {
    const panel = form.querySelector('.progress');
    const bar = panel.querySelector('progress');
    const status = panel.querySelector('p');
    const submit = form.querySelector('[data-submit]');
    const cancel = panel.querySelector('button');
    const transfer = new XMLHttpRequest();

    function setBusy(isBusy) {
        isUploading = isBusy;
        panel.hidden = false;
        bar.hidden = cancel.hidden = !isBusy;
        submit.hidden = isBusy;
    }
    function end(key) {
        setBusy(false);
        status.textContent = text(key);
    }
    transfer.upload.addEventListener('progress', event => {
        if (event.lengthComputable) {
            const percent = Math.floor(100 * event.loaded / event.total);
            bar.value = percent;
            // In steps of ten, so that a screen reader does not read numbers all the time.
            status.textContent = text('uploading', {percent: percent - percent % 10});
        }
    });
    transfer.upload.addEventListener('load', () => {
        bar.removeAttribute('value');
        status.textContent = text('uploaded');
    });
    transfer.addEventListener('load', () => {
        isUploading = false;
        if (!showAnswer(transfer)) {
            end('uploadFailed');
        }
    });
    transfer.addEventListener('error', () => end('uploadFailed'));
    transfer.addEventListener('abort', () => end('uploadCancelled'));
    cancel.addEventListener('click', () => transfer.abort(), {once: true});

    bar.value = 0;
    status.textContent = text('uploading', {percent: 0});
    setBusy(true);
    transfer.open('POST', form.action);
    transfer.responseType = 'document';
    transfer.send(new FormData(form));
}

// Replaces this page by the one in the response. Returns whether there was one.
function showAnswer(transfer) {
    const answer = transfer.response;
    const content = answer && answer.getElementById('main');
    if (!content) {
        return false;
    }
    if (answer.body.dataset.page !== page.page) {
        location.replace(transfer.responseURL);
        return true;
    }
    document.title = answer.title;
    document.getElementById('main').replaceWith(content);
    prepareForms(content);
    content.focus();
    return true;
}

window.addEventListener('beforeunload', event => {
    if (isUploading) {
        event.preventDefault();
    }
});
document.addEventListener('submit', event => {
    if (!event.defaultPrevented && 'upload' in event.target.dataset) {
        event.preventDefault();
        upload(event.target);
    }
});
