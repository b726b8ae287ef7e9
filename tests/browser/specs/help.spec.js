// The help beside each field: visible, and read together with the field.
import { kLanguages, textIn } from '../support/languages.js';
import { field, signInTo } from '../support/phone.js';
import { expect, test } from '../support/test.js';

const kFields = {
    en: ['accounts', 'label', 'expiry'],
    de: ['audio', 'micGain', 'echo'],
    zh: ['security', 'newPassword', 'hostNames'],
};
// The help of the fields that several pages share is that of the template with the fields.
const kTemplates = { newPassword: 'new-password' };

for (const language of kLanguages) {
    const [p, ...names] = kFields[language];
    test(`on the page ${p} in ${language} is part of the field's description`, async ({ visit, check }) => {
        const page = await visit({ language });
        await signInTo(page, p);
        for (const width of [1440, 390]) {
            await page.setViewportSize({ width, height: 900 });
            for (const name of names) {
                const help = textIn(language)(`help.${kTemplates[name] ?? p}.${name}`);
                await expect(field(page, name)).toHaveAccessibleDescription(help);
                await expect(page.getByText(help)).toBeVisible();
            }
            expect(await page.evaluate(() => document.documentElement.scrollWidth), 'width')
                .toBeLessThanOrEqual(width);
            await check(page, { schemes: ['light', 'dark'] });
        }
    });
}
