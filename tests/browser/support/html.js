// Whether HTML is valid, as it is sent.
import { HtmlValidate } from 'html-validate';

const validator = new HtmlValidate({
    root: true,
    extends: ['html-validate:recommended', 'html-validate:document'],
    rules: {
        // Of style, not of validity: loops of a template leave blanks and indents behind.
        'no-trailing-whitespace': 'off',
        // Of style too: HTML says what a button and an input without a type are.
        'no-implicit-button-type': 'off',
        'no-implicit-input-type': 'off',
        // No fault either: by its name and value a button tells which of several was pressed.
        'form-dup-name': 'off',
        // The phone's own files come the same way as the page that would tell their digest.
        'require-sri': ['error', { target: 'crossorigin' }],
    },
});

// One line for each thing that is wrong.
export async function faultsOfHtml(html) {
    const report = await validator.validateString(html);
    return report.results.flatMap((result) => result.messages).map(
        ({ line, column, message, ruleId }) => `html ${line}:${column}: ${message} (${ruleId})`);
}
