// startWithNewPhone() really resets the phone.
import { access, writeFile } from 'node:fs/promises';
import { text, textIn } from '../support/languages.js';
import { deliverPhone, errorOf, expectAt, expectSignedOut, field, kAdmin, kFactory, open, renewPhone,
    resultMessage, send, signIn, signOut } from '../support/phone.js';
import { expect, kJourney, startWithNewPhone, test } from '../support/test.js';

startWithNewPhone();

test('a new phone has no earlier data and responds at once', kJourney, async ({ page, request }) => {
    const kept = `${process.env.BUILD}/device/phone/data/kept`;
    await signIn(page);
    await writeFile(kept, 'something');
    await page.goto('/style.css'); // since the status page would go on asking for data

    await renewPhone(request);
    await expect(access(kept)).rejects.toThrow('ENOENT');
    await page.goto('/servlet?p=status');
    await expectSignedOut(page);
});

test('a new phone allows nothing until its owner has set a password', kJourney,
    async ({ page, request, check }) => {
        await deliverPhone(request);
        await signIn(page, kFactory);
        await expectAt(page, 'security');
        await expect(page.locator('h1')).toHaveText(text('first.title'));
        await expect(page.getByText(text('first.why'))).toBeVisible();
        await check(page, { schemes: ['light', 'dark'] });
        await open(page, 'network');
        await expectAt(page, 'security');

        await send(page, { newPassword: kAdmin.password, repeat: kAdmin.password });
        await expectAt(page, 'network');
        await expect(page.locator('h1')).toHaveText(text('network.title'));
    });

for (const [language, name] of [['de', 'Deutsch'], ['zh', '中文']]) {
    test(`a new phone welcomes its owner in ${language}`, async ({ visit, request, check, expectStatus }) => {
        await deliverPhone(request);
        const page = await visit({ language, viewport: { width: 390, height: 844 } });
        const say = textIn(language);
        await signIn(page, kFactory);
        await page.getByRole('link', { name: 'English' }).click();
        await expect(page.locator('h1')).toHaveText(text('first.title'));
        await page.getByRole('link', { name }).click();
        await expect(page.locator('h1')).toHaveText(say('first.title'));
        await expect(page.locator('nav')).toHaveCount(0);
        await field(page, 'newPassword').fill('Password2026!');
        await field(page, 'repeat').fill('Password2026!');
        await expect(page.locator('.strength')).toHaveAttribute('data-level', /./);
        expectStatus(422, page);
        await page.getByRole('button', { name: say('first.save') }).click();
        await expect(errorOf(page, 'newPassword')).toHaveText(say('error.tooCommon'));
        await check(page, { schemes: ['light', 'dark'] });

        await send(page, { newPassword: kAdmin.password, repeat: kAdmin.password });
        await expectAt(page, 'status');
        await expect(resultMessage(page)).toHaveText(say('first.done'));
    });
}

test('a first run can be left', async ({ page, request }) => {
    await deliverPhone(request);
    await signIn(page, kFactory);
    await signOut(page);
});

test('a first run goes on for an owner who stays signed in', async ({ page, request, expectStatus }) => {
    await deliverPhone(request);
    await signIn(page, kFactory);
    // As if the last request had been ten minutes ago, less 20 seconds.
    await page.evaluate(() => {
        localStorage.setItem('sessionRenewed', Date.now() - 580_000);
        dispatchEvent(new StorageEvent('storage', { key: 'sessionRenewed' }));
    });
    const ending = page.getByRole('dialog', { name: text('session.ending') });
    await expect(ending).toBeVisible();
    expectStatus(409); // signed in, but without a password of one's own
    await ending.getByRole('button', { name: text('session.stay') }).click();
    await expect(ending).toBeHidden();
    await expectAt(page, 'security');
});
