// Saved data survives a sudden loss of power.
import { text } from '../support/languages.js';
import { addContact, expectValues, kAdmin, killPhone, open, resultMessage, send, signIn, signInTo,
    trySignIn } from '../support/phone.js';
import { expect, startWithNewPhone, test } from '../support/test.js';

startWithNewPhone();

const kNewPassword = 'correct horse battery';

test('settings, contacts and the password survive a sudden loss of power',
    async ({ page, expectStatus }) => {
        await signInTo(page, 'network');
        await send(page, { hostname: 'kept' });
        await expect(resultMessage(page)).toHaveText('Saved.');
        await open(page, 'contacts');
        await addContact(page, { name: 'Aaron Aaronson', number: '12345' });
        await expect(resultMessage(page)).toHaveText(text('contacts.added'));
        await open(page, 'security');
        await send(page, { oldPassword: kAdmin.password, newPassword: kNewPassword,
            repeat: kNewPassword });
        await expect(resultMessage(page)).toHaveText('Saved.');

        await page.goto('/style.css'); // since the page asks for the status all the time
        await killPhone(page.request);
        expectStatus(403);
        await trySignIn(page);
        await expect(page.getByRole('alert')).toHaveText(text('login.wrong'));
        await signIn(page, { ...kAdmin, password: kNewPassword });
        await open(page, 'network');
        await expectValues(page, { hostname: 'kept' });
        await open(page, 'contacts');
        await expect(page.getByRole('row', { name: 'Aaron Aaronson' })).toContainText('12345');
    });
