import { kLanguages, text } from '../support/languages.js';
import { errorOf, expectAt, expectSignedIn, expectSignedOut, field, fillSignIn, kAdmin, open,
    postSignIn, resultMessage, send, signIn, signInTo, signOut, trySignIn } from '../support/phone.js';
import { expect, kJourney, startWithNewPhone, test } from '../support/test.js';

startWithNewPhone();

const kBothSchemes = { schemes: ['light', 'dark'] };
const kWrong = { ...kAdmin, password: 'wrong' };

for (const language of kLanguages) {
    test.describe(`in ${language}`, () => {
        test.use({ language });

        test('the user signs in and out', language === 'zh' ? kJourney : {}, async ({ page, check }) => {
            await page.goto('/');
            await check(page, kBothSchemes);
            await signIn(page);
            await check(page);
            await signOut(page);
            await check(page);
        });

        test('a wrong password is reported', language === 'de' ? kJourney : {}, async (
            { page, check, expectStatus }) => {
            expectStatus(403);
            await trySignIn(page, kWrong);
            await expect(page.getByRole('alert')).toBeVisible();
            await expectSignedOut(page);
            await expect(page.locator('[name=user]')).toHaveValue('admin');
            await expect(page.locator('[name=password]')).toHaveValue('');
            await check(page, kBothSchemes);
        });
    });
}

test('the form is not sent while a field is empty', kJourney, async ({ page }) => {
    await page.goto('/');
    await page.locator('[name=user]').fill('admin');
    await page.locator('form button:not([type=button])').click();
    await expect(errorOf(page, 'password')).toHaveText(text('error.required'));
    await expect(page.locator('[name=password]')).toBeFocused();
});

test('after wrong passwords the user has to wait and can then sign in', async ({ page, expectStatus }) => {
    const guess = () => postSignIn(page.request, kWrong);
    await page.goto('/');
    await page.locator('[name=user]').fill('admin');
    await page.locator('[name=password]').fill(kAdmin.password);
    while ((await guess()).status() !== 429) {
        // Keeps guessing; each wait is twice as long as the previous one.
    }
    expectStatus(429);
    await page.locator('form button:not([type=button])').click();
    await expect(page.getByRole('alert')).toHaveText(/^Too many attempts. Try again in \d+ seconds.$/);
    await expectSignedOut(page);

    const [seconds] = (await page.getByRole('alert').innerText()).match(/\d+/);
    await page.waitForTimeout(1000 * Number(seconds));
    await signIn(page);
});

test('a page asks the user to sign in and then opens', kJourney, async ({ page }) => {
    await open(page, 'network');
    await expectSignedOut(page);
    await signInTo(page, 'audio');
});

test('going back after signing out shows no earlier page', kJourney, async ({ page }) => {
    await signInTo(page, 'contacts');
    await open(page, 'settings-upgrade');
    await signOut(page);
    for (let i = 0; i < 2; ++i) {
        await page.goBack();
        await expectSignedOut(page);
        await expect(page.getByText('Alice Anderson')).toHaveCount(0);
    }
});

test('two users have separate sessions', async ({ visit }) => {
    const [one, other] = [await visit(), await visit()];
    await signIn(one);
    await open(other, 'status');
    await expectSignedOut(other);

    await signIn(other);
    await open(other, 'security');
    await expect(other.locator('section:last-of-type tbody tr')).not.toHaveCount(0);
    await signOut(one);
    await other.reload();
    await expectSignedIn(other);
});

test.describe('an idle user', () => {
    // Pages poll for ten seconds after the last input; then the session lasts ten more seconds.
    const kIdleSeconds = 10;

    test('loses the session even if pages are open, and must sign in again',
        async ({ visit, expectStatus }) => {
            test.setTimeout(90_000);
            const [quiet, live] = [await visit(), await visit()];
            await signInTo(quiet, 'security');
            await send(quiet, { idleSeconds: String(kIdleSeconds) });
            await expect(resultMessage(quiet)).toHaveText('Saved.');
            await signInTo(live, 'status');

            await expect(live.locator('[data-paused]')).toBeVisible({ timeout: 20_000 });
            await live.waitForTimeout(1000 * (kIdleSeconds + 1));
            await expectSignedIn(quiet); // as loaded
            await quiet.getByRole('link', { name: text('session.again') }).click();
            await expectSignedOut(quiet);
            await fillSignIn(quiet);
            await expectAt(quiet, 'security');

            // This one polls again at the first input.
            expectStatus(403, live);
            await live.mouse.move(100, 100);
            await expectSignedOut(live);
            await fillSignIn(live);
            await expectAt(live, 'status');
        });
});

test.describe('the password', () => {
    const kNew = 'correct horse battery';
    const change = (page, oldPassword, newPassword, repeat = newPassword) =>
        send(page, { oldPassword, newPassword, repeat });

    test('cannot be changed without the current one', kJourney, async ({ page, expectStatus, check }) => {
        await signInTo(page, 'security');
        expectStatus(422);
        await change(page, 'not it', kNew);
        await expect(errorOf(page, 'oldPassword')).toHaveText(text('error.wrongPassword'));
        await expect(field(page, 'oldPassword')).toBeFocused();
        await expect(field(page, 'newPassword')).toHaveValue('');
        await check(page, kBothSchemes);
    });

    test('is checked before it is sent', async ({ page }) => {
        await signInTo(page, 'security');
        await change(page, kAdmin.password, 'short');
        await expect(errorOf(page, 'newPassword')).toHaveText(text('error.tooShort', { limit: 8 }));
        await change(page, kAdmin.password, kNew, 'something else');
        await expect(errorOf(page, 'repeat')).toHaveText(text('error.mismatch'));
        await expect(resultMessage(page)).toHaveCount(0);
    });

    test('can be changed, which rejects the old one and signs out other sessions',
        async ({ visit, expectStatus }) => {
            const [own, other] = [await visit(), await visit()];
            await signInTo(other, 'network');
            await signInTo(own, 'security');

            await change(own, kAdmin.password, kNew);
            await expect(resultMessage(own)).toHaveText('Saved.');
            await open(own, 'status');
            await expectSignedIn(own);

            await open(other, 'audio');
            await expectSignedOut(other);
            expectStatus(403, other);
            await trySignIn(other);
            await expect(other.getByRole('alert')).toHaveText(text('login.wrong'));
            await signIn(other, { ...kAdmin, password: kNew });
        });
});
