// Passwords: shows them on demand, estimates their strength, and counts down the wait after wrong ones.

import { all, text } from './page.js';

// ---- Show

function addButton(input) {
    const button = document.createElement('button');
    button.type = 'button';
    button.className = 'quiet small reveal';
    button.textContent = text('show');
    // A page may have several.
    button.setAttribute('aria-label', text('showOf', { shownField: input.labels[0].textContent.trim() }));
    button.setAttribute('aria-controls', input.id);
    const show = isShown => {
        input.type = isShown ? 'text' : 'password';
        button.setAttribute('aria-pressed', isShown);
    };
    show(false);
    button.addEventListener('click', () => show(input.type === 'password'));
    // Browsers remember the values of text fields.
    input.form.addEventListener('submit', () => show(false));
    input.after(button);
}

// ---- Strength

const kFairBits = 40;
const kStrongBits = 65;
const kBitsOfStep = 1;

// Returns how many characters of the kinds in the password there are.
function alphabetOf(password) {
    const kinds = [[/[a-z]/, 26], [/[A-Z]/, 26], [/[0-9]/, 10], [/[ -/:-@[-`{-~]/, 33],
        [/[^ -~]/, 100]];
    return kinds.reduce((sum, [kind, count]) => sum + (kind.test(password) ? count : 0), 0);
}

// Returns an estimate of the bits that an attacker has to guess. A character that repeats one of
// the three before it, or continues a row such as "abc", counts for little. It knows no words.
function bitsOf(password) {
    const bits = Math.log2(Math.max(1, alphabetOf(password)));
    const codes = [...password].map(character => character.codePointAt(0));
    return codes.reduce((sum, code, index) => {
        const isStep = codes.slice(Math.max(0, index - 3), index).includes(code) ||
            Math.abs(code - codes[index - 1]) === 1;
        return sum + (isStep ? kBitsOfStep : bits);
    }, 0);
}

function showStrength(place, password) {
    const bits = bitsOf(password);
    const level = bits < kFairBits ? 'weak' : bits < kStrongBits ? 'fair' : 'strong';
    const content = password ? place.dataset[level] : '';
    place.dataset.level = password ? level : '';
    // A screen reader reads each change, so not every character may be one.
    if (place.textContent !== content) {
        place.textContent = content;
    }
}

// ---- Wait

function countDown(place) {
    const end = Date.now() + 1000 * Number(place.dataset.wait);
    // Read once, not every second.
    place.setAttribute('aria-live', 'off');
    const timer = setInterval(() => {
        const left = Math.ceil((end - Date.now()) / 1000);
        if (left > 0) {
            place.textContent = place.textContent.replace(/\d+/, left);
            return;
        }
        clearInterval(timer);
        place.setAttribute('aria-live', 'polite');
        place.className = 'good';
        place.textContent = place.dataset.over;
    }, 1000);
}

for (const input of all('input[type="password"]')) {
    addButton(input);
}
for (const place of all('[data-strength-of]')) {
    const input = document.getElementById(place.dataset.strengthOf);
    const show = () => showStrength(place, input.value);
    input.addEventListener('input', show);
    show(); // what was typed while this script was loaded
}
for (const place of all('[data-wait]')) {
    countDown(place);
}
