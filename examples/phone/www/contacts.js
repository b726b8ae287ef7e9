// Enhances the contacts page: searches while the user types, and removes, restores and edits
// contacts without loading the whole page, so that it stays where it is.

import { prepareForms } from './forms.js';

const kPause = 250; // between the last key and the search

const spoken = document.getElementById('spoken');
const search = document.getElementById('search');

// The selector of what has the focus afterwards, by what was done.
const kFocus = {
    edited: '#list input[name="name"]',
    cancelled: '.wanted a',
    saved: '.wanted a',
    removed: '.undo button',
    undone: '.wanted a',
};

const kEditing = ['edited', 'cancelled', 'saved'];

let latest = 0;
let undoTimer = 0;

// A contact that is being edited must not vanish with the list. Whatever else the user does then loads
// a page as without this script, which asks before it discards anything.
const isEditing = () => document.querySelector('#list form') !== null;

const messagesIn = root => root.querySelectorAll('#main > [role]');

// Replaces the messages and the elements with these ids by those of the page received.
function replaceParts(received, ids) {
    for (const message of messagesIn(document)) {
        message.remove();
    }
    document.querySelector('h1').after(...messagesIn(received));
    for (const id of ids) {
        const part = received.getElementById(id);
        document.getElementById(id).replaceWith(part);
        prepareForms(part);
    }
    document.querySelector('#remove [name="page"]').value =
        received.querySelector('#remove [name="page"]').value;
    startUndo();
}

// A new element is not read out by every screen reader, a new text in an old one is.
function speak(done) {
    const message = messagesIn(document)[0];
    spoken.textContent = '';
    if (message) {
        const text = message.querySelector('span') || message;
        spoken.textContent = text.textContent;
    } else if (done === 'found') {
        spoken.textContent = document.getElementById('count').firstChild.textContent.trim();
    }
}

// Requests the page and shows what it contains; only the latest of several requests counts.
async function load(done, address, options) {
    const number = ++latest;
    let answer;
    let html;
    try {
        answer = await fetch(address, {cache: 'no-store', ...options});
        html = await answer.text();
    } catch (error) {
        return; // not reachable; the banner shows it
    }
    if (number !== latest) {
        return;
    }
    const received = new DOMParser().parseFromString(html, 'text/html');
    if (!received.getElementById('list')) {
        location.assign(answer.url); // such as the page for signing in
        return;
    }
    // What is being typed into the form for a new contact stays, unless another form takes its place.
    replaceParts(received, kEditing.includes(done) ? ['add', 'list'] : ['list']);
    speak(done);
    if (done in kFocus && answer.ok) {
        document.querySelector(kFocus[done])?.focus();
    }
}

function submit(form, submitter) {
    const body = new URLSearchParams(new FormData(form));
    if (submitter && submitter.name) {
        body.set(submitter.name, submitter.value);
    }
    return load(form.dataset.inPlace, form.action, {method: 'POST', body});
}

// Removes the offer to undo when its time has passed, but not from under a pointer or the focus.
function startUndo() {
    clearTimeout(undoTimer);
    const undo = document.querySelector('.undo');
    if (!undo) {
        return;
    }
    undoTimer = setTimeout(function hide() {
        if (undo.matches(':hover, :focus-within')) {
            undoTimer = setTimeout(hide, 1000);
        } else {
            undo.remove();
        }
    }, 1000 * Number(undo.dataset.seconds));
}

let typing = 0;

search.addEventListener('input', () => {
    clearTimeout(typing);
    typing = setTimeout(() => isEditing() || submit(search.form), kPause);
});

document.addEventListener('submit', event => {
    const {inPlace} = event.target.dataset;
    if (event.defaultPrevented || !inPlace || (isEditing() && !kEditing.includes(inPlace))) {
        return;
    }
    event.preventDefault();
    clearTimeout(typing);
    submit(event.target, event.submitter);
});

document.addEventListener('click', event => {
    const link = event.target.closest('a[data-in-place]');
    if (link && event.button === 0 && !(event.ctrlKey || event.metaKey || event.shiftKey || event.altKey)) {
        event.preventDefault();
        load(link.dataset.inPlace, link.href);
    }
});

// The form is of use once its first field has the focus.
document.addEventListener('toggle', event => {
    if (event.target.matches('#add details[open]')) {
        event.target.querySelector('input[name="name"]').focus();
    }
}, true);

startUndo();
