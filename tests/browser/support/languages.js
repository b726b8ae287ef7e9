// The languages of the pages; the first is the default.
import { readFileSync } from 'node:fs';

export const kLanguages = ['en', 'de', 'zh'];

const folder = new URL('../../../examples/phone/texts/', import.meta.url);

// Returns the texts of the pages in a language, by key.
export function textsIn(language) {
    const lines = readFileSync(new URL(`${language}.txt`, folder), 'utf-8').split('\n');
    return Object.fromEntries(lines.flatMap((line) => {
        const parts = /^([\w.-]+) = (.*)$/.exec(line);
        return parts ? [[parts[1], parts[2]]] : [];
    }));
}

// Returns a function that returns the text of a key in this language, with its {names} filled in.
export function textIn(language) {
    const texts = textsIn(language);
    return (key, values = {}) => {
        if (!(key in texts)) {
            throw new Error(`no text "${key}" in ${language}`);
        }
        return texts[key].replace(
            /\{(\w+)\}/g, (mark, name) => (name in values ? values[name] : mark));
    };
}

// In the language of specs that select none.
export const text = textIn(kLanguages[0]);
