// The languages that the pages are written in; the first is for everybody else.
import { readFileSync } from 'node:fs';

export const kLanguages = ['en', 'de', 'zh'];

const folder = new URL('../../../examples/phone/texts/', import.meta.url);

// The texts of the pages in a language, by key.
export function textsIn(language) {
    const lines = readFileSync(new URL(`${language}.txt`, folder), 'utf-8').split('\n');
    return Object.fromEntries(lines.flatMap((line) => {
        const parts = /^([\w.-]+) = (.*)$/.exec(line);
        return parts ? [[parts[1], parts[2]]] : [];
    }));
}
