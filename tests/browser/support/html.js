// Validates HTML as it is sent.
import { HtmlValidate } from 'html-validate';

const validator = new HtmlValidate({
    root: true,
    extends: ['html-validate:recommended', 'html-validate:document'],
    rules: {
        // A matter of style: template loops leave white space behind.
        'no-trailing-whitespace': 'off',
        // A matter of style: HTML defines the default types of buttons and inputs.
        'no-implicit-button-type': 'off',
        'no-implicit-input-type': 'off',
        // Valid: the name and value of a button show which of several was pressed.
        'form-dup-name': 'off',
        // The phone's own files come from the same server as the page with their digests.
        'require-sri': ['error', { target: 'crossorigin' }],
    },
});

// Returns one line per error.
export async function faultsOfHtml(html) {
    const report = await validator.validateString(html);
    const lines = html.split('\n');
    // Without scripts, only a refresh can return from the page of a restart.
    const isWithoutScripts = ({ line, ruleId }) =>
        ruleId === 'meta-refresh' && lines[line - 1].includes('<noscript><meta http-equiv="refresh"');
    return report.results.flatMap((result) => result.messages)
        .filter((fault) => !isWithoutScripts(fault))
        .map(({ line, column, message, ruleId }) => `html ${line}:${column}: ${message} (${ruleId})`);
}
