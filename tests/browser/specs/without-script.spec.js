// The pages work for a browser that runs no scripts.
import { download, errorOf, expectAt, expectSignedOut, expectValues, field, file, open, send,
    signInTo, signOut, told } from '../support/phone.js';
import { expect, startWithNewPhone, test } from '../support/test.js';

startWithNewPhone();

// axe-core is a script, too; whether the HTML is valid, each test of the pages with script asks.
test.use({ javaScriptEnabled: false });

test('sign-in and sign-out', async ({ page }) => {
    await signInTo(page, 'network');
    await signOut(page);
    await open(page, 'network');
    await expectSignedOut(page);
});

test('the figures are those of the moment', async ({ page }) => {
    await signInTo(page, 'status');
    await expect(page.locator('[data-now=memory]')).toHaveText(/^\d+ of \d+ KiB free$/);
    await expect(page.locator('[data-now=events]')).toHaveText('0 since startup');
});

test('a form is saved', async ({ page }) => {
    await signInTo(page, 'audio');
    await send(page, { ringtone: 'bell', codec: 'g722', echo: false });
    await expect(told(page)).toHaveText('Saved.');
    await expectValues(page, { ringtone: 'bell', codec: 'g722', echo: false });
});

test('the phone says beside the field what is wrong', async ({ page, expectStatus }) => {
    await signInTo(page, 'network');
    expectStatus(422);
    await send(page, { mode: 'static', address: '10.0.0.5', netmask: '255.255.255.0',
        gateway: '10.0.1.1', dns1: '10.0.0.1', hostname: 'desk' });
    await expect(told(page)).toHaveText('One field needs attention. Nothing was saved.');
    await expect(errorOf(page, 'gateway')).toHaveText(
        "This address is outside the phone's network.");
    await expectValues(page, { mode: 'static', gateway: '10.0.1.1' });

    await open(page, 'network');
    await expectValues(page, { mode: 'dhcp', gateway: '' });
});

test('keys are pressed', async ({ page }) => {
    await signInTo(page, 'phone');
    for (const key of ['4', '2']) {
        await page.locator(`button[value="${key}"]`).click();
        await expectAt(page, 'phone');
    }
    await expect(page.locator('.desk [data-desk=line2]')).toHaveText('42');
    await page.locator('button[value=SPEAKER]').click();
    await expect(page.locator('dd[data-desk=state]')).toHaveText('On hook');
});

test('contacts are previewed and imported', async ({ page }) => {
    await signInTo(page, 'contacts-preview');
    await field(page, 'contacts').setInputFiles(file('some.csv', 'Zoltan Quick,555\n', 'text/csv'));
    await page.getByRole('button', { name: 'Show preview' }).click();
    await expect(page.getByRole('cell', { name: 'Zoltan Quick' })).toBeVisible();
    await page.getByRole('button', { name: 'Import now' }).click();
    await expect(told(page)).toHaveText('The contacts were imported.');
});

test('firmware is received, and the restart is told', async ({ page }) => {
    await signInTo(page, 'settings-upgrade');
    const { name, content } = await download(page, page.getByRole('link', { name: /Download/ }));
    await field(page, 'firmware').setInputFiles(file(name, content));
    await page.getByRole('button', { name: 'Upload' }).click();
    await expect(told(page)).toContainText('The image was received');
    await page.getByRole('button', { name: 'Restart phone' }).click();
    await expect(page.locator('h1')).toHaveText('Please wait');
    await page.getByRole('link', { name: 'status page' }).click();
    await expectAt(page, 'status');
});

test('the language is chosen', async ({ page }) => {
    await signInTo(page, 'audio');
    await page.locator('.languages').getByRole('link', { name: 'Deutsch' })
        .locator('visible=true').click();
    await expectAt(page, 'audio');
    await expect(page.locator('html')).toHaveAttribute('lang', 'de');
});
