// Checks forms before they are sent, and shows the errors next to the fields.

import { all, setText, text } from './page.js';

function isOn(id) {
    const control = document.getElementById(id);
    return control !== null && control.checked;
}

// Returns the error code and limit of an invalid value, or null.
function faultOf(input) {
    const {validity, value} = input;
    const {sameAs, requiredWith, patternCode} = input.dataset;
    if (validity.badInput || validity.stepMismatch) {
        return {code: 'notANumber'};
    }
    if (validity.valueMissing || (requiredWith && isOn(requiredWith) && value.trim() === '')) {
        return {code: 'required'};
    }
    if (value !== '' && value.length < input.minLength) {
        return {code: 'tooShort', limit: input.minLength};
    }
    if (input.maxLength > 0 && value.length > input.maxLength) {
        return {code: 'tooLong', limit: input.maxLength};
    }
    if (validity.rangeUnderflow) {
        return {code: 'tooSmall', limit: input.min};
    }
    if (validity.rangeOverflow) {
        return {code: 'tooLarge', limit: input.max};
    }
    if (validity.patternMismatch) {
        return {code: patternCode || 'badCharacters'};
    }
    if (sameAs && value !== document.getElementById(sameAs).value) {
        return {code: 'mismatch'};
    }
    return null;
}

// Shows the error of the field next to it. Returns whether the value is valid.
function check(input) {
    const place = document.getElementById(input.id + '-error');
    if (!place || input.closest('[hidden]')) {
        return true;
    }
    const fault = faultOf(input);
    place.textContent = fault ? text(fault.code, fault) : '';
    if (fault) {
        input.setAttribute('aria-invalid', 'true');
    } else {
        input.removeAttribute('aria-invalid');
    }
    return !fault;
}

function checkAll(form) {
    const wrong = [...form.elements].filter(element => element.willValidate && !check(element));
    if (wrong.length > 0) {
        wrong[0].focus();
    }
    return wrong.length === 0;
}

let isPressed = false;

// Runs `action` once no pointer button is pressed: if the content moved between press and release,
// the click would miss its button.
function afterPress(action) {
    if (isPressed) {
        window.addEventListener('pointerup', () => setTimeout(action), {once: true});
    } else {
        action();
    }
}

function showDependents() {
    for (const element of all('[data-shown-with]')) {
        element.hidden = !isOn(element.dataset.shownWith);
    }
}

function showReading(input) {
    setText('[data-reading="' + input.id + '"]', input.value);
}

// Call for content that has replaced some of the page.
export function prepareForms(root) {
    for (const form of root.querySelectorAll('form')) {
        form.noValidate = true;
    }
    showDependents();
    const wrong = root.querySelector('[aria-invalid]');
    if (wrong) {
        wrong.focus();
    }
}

document.addEventListener('change', event => {
    showDependents();
    afterPress(() => check(event.target));
});
document.addEventListener('input', event => {
    if (event.target.type === 'range') {
        showReading(event.target);
    } else if (event.target.getAttribute('aria-invalid')) {
        check(event.target);
    }
});
// Listeners that send a form themselves must be on the document too, and must do nothing if the
// default was prevented here.
document.addEventListener('submit', event => {
    if (!checkAll(event.target)) {
        event.preventDefault();
    }
});
window.addEventListener('pointerdown', () => { isPressed = true; }, true);
for (const name of ['pointerup', 'pointercancel']) {
    window.addEventListener(name, () => { isPressed = false; }, true);
}
prepareForms(document);
