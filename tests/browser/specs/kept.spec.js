// What was saved is still there when the phone comes back after it was cut off.
import { expectValues, kAdmin, killPhone, open, send, signIn, signInTo, told, trySignIn }
    from '../support/phone.js';
import { expect, startWithNewPhone, test } from '../support/test.js';

startWithNewPhone();

const kNewPassword = 'correct horse battery';

test('settings, contacts and the password outlive the end of the phone without notice',
    async ({ page, expectStatus }) => {
        await signInTo(page, 'network');
        await send(page, { hostname: 'kept' });
        await expect(told(page)).toHaveText('Saved.');
        await open(page, 'contacts');
        await send(page, { name: 'Aaron Aaronson', number: '12345' });
        await expect(told(page)).toHaveText('The contact was added.');
        await open(page, 'security');
        await send(page, { oldPassword: kAdmin.password, newPassword: kNewPassword,
            repeat: kNewPassword });
        await expect(told(page)).toHaveText('Saved.');

        await killPhone(page.request);
        expectStatus(403);
        await trySignIn(page);
        await expect(page.getByRole('alert')).toHaveText('Wrong user name or password.');
        await signIn(page, { ...kAdmin, password: kNewPassword });
        await open(page, 'network');
        await expectValues(page, { hostname: 'kept' });
        await open(page, 'contacts');
        await expect(page.getByRole('row', { name: 'Aaron Aaronson' })).toContainText('12345');
    });
