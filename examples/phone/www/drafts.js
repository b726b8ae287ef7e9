// Asks before a page with unsaved changes is left, and keeps what was entered when the session
// ends: in this tab's storage, without passwords, until the same user is signed in again.

import { all, page, text } from './page.js';
import { signedOutAt } from './session.js';

const kDraft = 'draft';
// A search saves nothing, and keys are sent as they are pressed.
const kForms = '#main form[method="post"]:not([role="search"], [data-keys])';

// The form that is being sent, or true if what was entered is kept.
let isLeaving = false;

function isSecret(element) {
    return element.type === 'password' || element.autocomplete.includes('password');
}

// A confirmation is no input: it is given again each time.
function isField(element) {
    return element.name && element.name !== 'confirm' &&
        !['hidden', 'file', 'submit', 'button'].includes(element.type);
}

function fieldsOf(form) {
    return [...form.elements].filter(isField);
}

const withOneLineEnd = value => value.replace(/\r\n?/g, '\n');

function isChanged(element) {
    if (['checkbox', 'radio'].includes(element.type)) {
        return element.checked !== element.defaultChecked;
    }
    if (element.options) {
        const initial = [...element.options].findLastIndex(option => option.defaultSelected);
        return element.selectedIndex !== Math.max(0, initial);
    }
    return withOneLineEnd(element.value) !== withOneLineEnd(element.defaultValue);
}

// Returns whether the form was sent and is shown again because it could not be saved.
function isRejected(form) {
    return document.querySelector('[data-unsaved]') !== null && form.action === location.href;
}

function unsavedForms() {
    const forms = page.user ? [...all(kForms)] : [];
    return forms.filter(form => isRejected(form) || fieldsOf(form).some(isChanged));
}

// ---- The draft: {user, here, time, isInterrupted, forms: {ACTION: [[name, value, checked]]}}

function keepDraft() {
    if (isLeaving === true) {
        return; // it is kept already, or the user has signed out
    }
    const forms = {};
    for (const form of unsavedForms()) {
        forms[form.getAttribute('action')] = fieldsOf(form).filter(element => !isSecret(element))
            .map(element => [element.name, element.value, element.checked]);
    }
    if (Object.keys(forms).length === 0) {
        sessionStorage.removeItem(kDraft);
    } else {
        const {user, here} = page;
        store({user, here, time: Date.now(), isInterrupted: false, forms});
    }
}

function store(draft) {
    sessionStorage.setItem(kDraft, JSON.stringify(draft));
}

function storedDraft() {
    return JSON.parse(sessionStorage.getItem(kDraft));
}

// Keeps the draft until the user is signed in again, unless it was the user who signed out.
function interruptDraft() {
    const draft = storedDraft();
    if (draft && draft.time > signedOutAt()) {
        store({...draft, isInterrupted: true});
        for (const element of all('[data-kept]')) {
            element.hidden = false;
        }
    } else {
        sessionStorage.removeItem(kDraft);
    }
}

function fillIn(form, values) {
    const fields = fieldsOf(form).filter(element => !isSecret(element));
    values.forEach(([name, value, checked], index) => {
        const element = fields[index];
        if (!element || element.name !== name) {
            return; // the form has changed since
        }
        if (['checkbox', 'radio'].includes(element.type)) {
            element.checked = element.value === value && checked;
        } else {
            element.value = value;
        }
        element.dispatchEvent(new Event('input', {bubbles: true}));
        element.dispatchEvent(new Event('change', {bubbles: true}));
    });
}

function restore(draft) {
    for (const form of all(kForms)) {
        const values = draft.forms[form.getAttribute('action')];
        if (values) {
            fillIn(form, values);
        }
    }
    const message = document.createElement('p');
    message.className = 'good';
    message.setAttribute('role', 'status');
    document.querySelector('#main h1').after(message);
    message.textContent = text('restored');
    keepDraft();
}

// Decides what becomes of the draft that an earlier page of this tab has left.
function takeOver(draft) {
    if (document.querySelector('[data-interrupted]')) {
        interruptDraft();
        return;
    }
    const isOnSignInPage = page.page === 'login';
    if (isOnSignInPage && draft.isInterrupted) {
        return; // after a wrong password
    }
    sessionStorage.removeItem(kDraft);
    const isForUs = draft.user === page.user && draft.here === page.here;
    if (draft.isInterrupted && isForUs && draft.time > signedOutAt()) {
        restore(draft);
    }
}

const draft = storedDraft();
if (draft) {
    takeOver(draft);
}
if (document.querySelector('[data-unsaved]')) {
    keepDraft();
}
if (page.user) {
    for (const name of ['input', 'change']) {
        document.addEventListener(name, keepDraft);
    }
}
document.addEventListener('submit', event => {
    isLeaving = !event.defaultPrevented && event.target;
});
window.addEventListener('sessionended', () => {
    interruptDraft();
    isLeaving = true;
});
window.addEventListener('beforeunload', event => {
    if (isLeaving !== true && unsavedForms().some(form => form !== isLeaving)) {
        event.preventDefault();
    }
});
