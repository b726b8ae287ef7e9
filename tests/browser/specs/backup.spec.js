// The encrypted backup.
import { kLanguages, text, textIn } from '../support/languages.js';
import { addContact, confirmAndSend, download, errorOf, expectValues, field, file, fill, open,
    resultMessage, send, signInTo } from '../support/phone.js';
import { expect, startWithNewPhone, test } from '../support/test.js';

startWithNewPhone();

const kBothSchemes = { schemes: ['light', 'dark'] };
const kPassphrase = 'seven quiet hens';

async function importBackup(page, content, passphrase = kPassphrase) {
    await field(page, 'config').setInputFiles(file('phone.backup', content));
    await fill(page, { filePassphrase: passphrase });
    await confirmAndSend(page, 'q=import');
}

// By keyboard only.
async function downloadBackup(page, passphrase = kPassphrase) {
    await field(page, 'passphrase').focus();
    await page.keyboard.type(passphrase);
    await page.keyboard.press('Tab'); // to "Show"
    await page.keyboard.press('Tab');
    await expect(field(page, 'repeat')).toBeFocused();
    await page.keyboard.type(passphrase);
    return download(page, { click: () => page.keyboard.press('Enter') });
}

test('restores settings, passwords of accounts and contacts', async ({ page, check }) => {
    await signInTo(page, 'accounts');
    await send(page, { userName: 'hall', secret: 'sesame', server: 'sip.example.com' });
    await open(page, 'settings-config');
    const contents = text('config.backupContains', { secretCount: 1, contactCount: 1000 });
    await expect(page.getByText(contents)).toBeVisible();
    const { name, content } = await downloadBackup(page);
    expect(name).toBe('phone.backup');
    expect(content.toString('latin1')).not.toContain('sesame');
    await expect(field(page, 'passphrase')).toHaveValue('');
    await expect(field(page, 'repeat')).toHaveValue('');

    // No question about unsaved changes.
    await open(page, 'contacts');
    await addContact(page, { name: 'Zoe New', number: '99' });
    await open(page, 'accounts');
    await send(page, { userName: 'other' });
    await open(page, 'settings-config');
    await expect(page.getByText(contents)).toHaveCount(0);
    await importBackup(page, content);
    await expect(resultMessage(page)).toHaveText(text('config.backupRestored'));
    await expect(page.getByText(contents)).toBeVisible();
    await page.setViewportSize({ width: 1440, height: 900 });
    await check(page);
    await open(page, 'accounts');
    await expectValues(page, { userName: 'hall' });
});

for (const language of kLanguages) {
    test.describe(`in ${language}`, () => {
        test.use({ language });
        const say = textIn(language);

        test('is not imported with a wrong passphrase', async ({ page, check, expectStatus }) => {
            await signInTo(page, 'settings-config');
            const { content } = await downloadBackup(page);
            expectStatus(422);
            await importBackup(page, content, 'seven loud hens');
            await expect(resultMessage(page)).toHaveText(say('config.wrongPassphrase'));
            await page.setViewportSize({ width: 390, height: 800 });
            await check(page, kBothSchemes);
        });
    });
}

test('asks for a good passphrase, twice, before it is sent', async ({ page, expectStatus }) => {
    await signInTo(page, 'settings-config');
    const send = () => page.getByRole('button', { name: text('config.downloadBackup') }).click();
    await send();
    await expect(errorOf(page, 'passphrase')).toHaveText(text('error.required'));
    await fill(page, { passphrase: 'eleven char', repeat: 'eleven chas' });
    await send();
    await expect(errorOf(page, 'passphrase')).toHaveText(text('error.tooShort', { limit: 12 }));
    await expect(errorOf(page, 'repeat')).toHaveText(text('error.mismatch'));

    // Only the phone knows the commonest ones.
    expectStatus(422);
    await fill(page, { passphrase: 'Password2026!', repeat: 'Password2026!' });
    await send();
    await expect(resultMessage(page)).toHaveText(text('form.oneError'));
    await expect(errorOf(page, 'passphrase')).toHaveText(text('error.tooCommon'));
    await expect(field(page, 'passphrase')).toHaveValue('');

    await downloadBackup(page);
    await expect(resultMessage(page)).toHaveCount(0);
    await expect(errorOf(page, 'passphrase')).toHaveText('');
});

test('without its passphrase is not imported', async ({ page, expectStatus }) => {
    await signInTo(page, 'settings-config');
    const { content } = await downloadBackup(page);
    expectStatus(422);
    await importBackup(page, content, '');
    await expect(errorOf(page, 'filePassphrase')).toHaveText(text('error.required'));
    await expect(field(page, 'filePassphrase')).toBeFocused();
});
