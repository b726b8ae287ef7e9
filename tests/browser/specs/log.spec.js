// The log, and the sessions that are signed in.
import { text } from '../support/languages.js';
import { download, expectSignedOut, open, postSignIn, signInTo } from '../support/phone.js';
import { expect, startWithNewPhone, test } from '../support/test.js';

startWithNewPhone();

const kBothSchemes = { schemes: ['light', 'dark'] };

test('the log follows what happens, by level', async ({ page, request, check }) => {
    await signInTo(page, 'log');
    await check(page, kBothSchemes);
    await expect(page.getByRole('row', { name: 'Signed in: admin' }).first()).toBeVisible();
    const wrong = page.getByRole('row', { name: 'Wrong user name or password' });
    const before = await wrong.count();
    expect((await postSignIn(request, { user: 'admin', password: 'wrong' })).status()).toBe(403);
    await expect(wrong).toHaveCount(before + 1, { timeout: 15_000 });

    await page.getByRole('link', { name: text('log.warnings') }).click();
    await expect(wrong.first()).toBeVisible();
    await expect(page.getByRole('row', { name: 'Signed in: admin' })).toHaveCount(0);
    const { name, content } = await download(
        page, page.getByRole('link', { name: text('log.download') }));
    expect(name).toBe('phone.log');
    expect(content.toString()).toContain(' warning: Wrong user name or password from ');
    await page.setViewportSize({ width: 390, height: 800 });
    await check(page, kBothSchemes);
});

test('all sessions are signed out at once', async ({ page, visit }) => {
    const other = await visit();
    await signInTo(other, 'audio');
    await signInTo(page, 'security');
    await page.getByRole('button', { name: text('security.signOutAll') }).click();
    await expectSignedOut(page);
    await open(other, 'audio');
    await expectSignedOut(other);
});
