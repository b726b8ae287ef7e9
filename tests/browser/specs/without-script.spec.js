// The pages work without JavaScript.
import { text } from '../support/languages.js';
import { confirmAndSend, download, errorOf, expectAt, expectSignedOut, expectValues, field, file, open,
    resultMessage, send, signInTo, signOut } from '../support/phone.js';
import { expect, kJourney, startWithNewPhone, test } from '../support/test.js';

startWithNewPhone();

// Without axe-core, which is a script; other specs validate the HTML.
test.use({ javaScriptEnabled: false });

test('the user signs in and out', kJourney, async ({ page }) => {
    await signInTo(page, 'network');
    await signOut(page);
    await open(page, 'network');
    await expectSignedOut(page);
});

test('the status page shows current values', async ({ page }) => {
    await signInTo(page, 'status');
    await expect(page.locator('[data-now=memory]')).toHaveText(/^\d+ of \d+ KiB free$/);
    await expect(page.locator('[data-now=events]')).toHaveText('0 since startup');
});

test('a form can be saved', kJourney, async ({ page }) => {
    await signInTo(page, 'audio');
    await send(page, { ringtone: 'bell', codec: 'g722', echo: false });
    await expect(resultMessage(page)).toHaveText('Saved.');
    await expectValues(page, { ringtone: 'bell', codec: 'g722', echo: false });
});

test('the phone shows errors next to the fields', async ({ page, expectStatus }) => {
    await signInTo(page, 'network');
    expectStatus(422);
    await send(page, { mode: 'static', address: '10.0.0.5', netmask: '255.255.255.0',
        gateway: '10.0.1.1', dns1: '10.0.0.1', hostname: 'desk' });
    await expect(resultMessage(page)).toHaveText(text('form.oneError'));
    await expect(errorOf(page, 'gateway')).toHaveText(
        "This address is outside the phone's network.");
    await expectValues(page, { mode: 'static', gateway: '10.0.1.1' });

    await open(page, 'network');
    await expectValues(page, { mode: 'dhcp', gateway: '' });
});

test('keys can be pressed', kJourney, async ({ page }) => {
    await signInTo(page, 'phone');
    for (const key of ['4', '2']) {
        await page.locator(`button[value="${key}"]`).click();
        await expectAt(page, 'phone');
    }
    await expect(page.locator('.desk [data-desk=line2]')).toHaveText('42');
    await page.locator('button[value=SPEAKER]').click();
    await expect(page.locator('dd[data-desk=state]')).toHaveText('On hook');
});

test('contacts can be previewed and imported', kJourney, async ({ page }) => {
    await signInTo(page, 'contacts-preview');
    await field(page, 'contacts').setInputFiles(file('some.csv', 'Zoltan Quick,555\n', 'text/csv'));
    await page.getByRole('button', { name: text('preview.submit') }).click();
    await expect(page.getByRole('cell', { name: 'Zoltan Quick' })).toBeVisible();
    await page.getByRole('button', { name: text('preview.apply') }).click();
    await expect(resultMessage(page)).toHaveText(text('contacts.imported'));
});

test('firmware can be uploaded, and the restart is announced', kJourney, async ({ page }) => {
    await signInTo(page, 'settings-upgrade');
    const { name, content } = await download(page, page.getByRole('link', { name: /Download/ }));
    await field(page, 'firmware').setInputFiles(file(name, content));
    await confirmAndSend(page, 'q=upload');
    await expect(resultMessage(page)).toContainText('was received');
    await confirmAndSend(page, 'q=reboot');
    await expect(page.locator('h1')).toHaveText('Please wait');
    await page.getByRole('link', { name: text('restart.look') }).click();
    await expect(page.locator('h1')).toHaveText('Please wait');
    await expect(page.locator('h1')).toHaveText(text('upgrade.title'), { timeout: 20_000 });
    await expectAt(page, 'settings-upgrade');
});

test('the language can be chosen', async ({ page }) => {
    await signInTo(page, 'audio');
    await page.locator('.languages').getByRole('link', { name: 'Deutsch' })
        .locator('visible=true').click();
    await expectAt(page, 'audio');
    await expect(page.locator('html')).toHaveAttribute('lang', 'de');
});
