// The elements and texts of the page. Texts come from its element "texts".

export const page = document.body.dataset;
export const language = document.documentElement.lang;

const texts = new Map();
for (const element of document.getElementById('texts').content.querySelectorAll('[data-text]')) {
    texts.set(element.dataset.text, element.textContent.trim());
}

export function text(key, values = {}) {
    const pattern = texts.has(key) ? texts.get(key) : '';
    return pattern.replace(/\{(\w+)\}/g, (all, name) => (name in values ? values[name] : all));
}

export function all(selector) {
    return document.querySelectorAll(selector);
}

export function setText(selector, content) {
    for (const element of all(selector)) {
        if (element.textContent !== String(content)) {
            element.textContent = content;
        }
    }
}
