// What was typed is not lost: the end of a session is announced, forms have their values back after
// signing in again, and pages with unsaved changes ask before they are left.
import { kLanguages, text, textIn } from '../support/languages.js';
import { confirmAndSend, expectAt, expectSignedOut, expectValues, field, file, fill, fillSignIn, formOf,
    image, open, resultMessage, send, signIn, signInTo, signOut } from '../support/phone.js';
import { expect, startWithNewPhone, test } from '../support/test.js';

startWithNewPhone();

const kBothSchemes = { schemes: ['light', 'dark'] };
const kIdleSeconds = 600;

const dialog = (page, key, say = text) => page.getByRole('dialog', { name: say(key) });
const endingOf = (page) => dialog(page, 'session.ending');
const endedOf = (page) => dialog(page, 'session.ended');
const draftOf = (page) => page.evaluate(() => sessionStorage.getItem('draft'));

// The requests of pages under such a clock that have no answer yet.
const unanswered = new WeakMap();

// Opens a page under a clock that the test can move ahead of real time, which goes on.
async function openWithClock(page, p, more) {
    await page.clock.install();
    const pending = new Set();
    page.on('request', (request) => pending.add(request));
    page.on('requestfinished', (request) => pending.delete(request));
    page.on('requestfailed', (request) => pending.delete(request));
    unanswered.set(page, pending);
    await open(page, p, more);
}

// The page gives up a request that the clock's leap makes late, so none may be under way.
async function pass(page, seconds) {
    await expect.poll(() => unanswered.get(page).size).toBe(0);
    await page.clock.fastForward(1000 * seconds);
}

// Ends the session at the phone, as time does.
const endSession = (page) => page.context().clearCookies({ name: 'JSESSIONID' });

// Returns the kinds of dialogs that leaving the page by this action opens, and stays on it.
async function asked(page, leave) {
    const kinds = [];
    const stay = async (opened) => {
        kinds.push(opened.type());
        await opened.dismiss();
    };
    page.on('dialog', stay);
    await leave();
    page.off('dialog', stay);
    return kinds;
}

const menu = (page, key) => page.locator('.side').getByRole('link', { name: text(key) });

for (const language of kLanguages) {
    test.describe(`in ${language}`, () => {
        test.use({ language });
        const say = textIn(language);

        test('a session about to end counts down', async ({ page, check }) => {
            await signIn(page);
            await openWithClock(page, 'network');
            await pass(page, kIdleSeconds - 120);
            await expect(dialog(page, 'session.ending', say)).toHaveCount(0);
            await pass(page, 62);
            const ending = dialog(page, 'session.ending', say);
            await expect(ending).toBeVisible();
            await expect(ending).toHaveAccessibleDescription(/\b0:\d\d$/);
            await check(page, kBothSchemes);
            const left = async () => Number((await ending.getByRole('timer').innerText()).slice(2));
            const before = await left();
            await pass(page, 10);
            await expect.poll(left).toBeLessThanOrEqual(before - 10);

            await expect(ending.getByRole('button', { name: say('session.stay') })).toBeFocused();
            await page.keyboard.press('Enter');
            await expect(ending).toHaveCount(0);
            await pass(page, kIdleSeconds - 120);
            await expect(ending).toHaveCount(0);

            await page.setViewportSize({ width: 390, height: 800 });
            await pass(page, kIdleSeconds);
            const ended = dialog(page, 'session.ended', say);
            await expect(ended).toBeVisible();
            await check(page, kBothSchemes);
        });

        test('a form has its values back after the session has ended', async ({ page, check }) => {
            await signIn(page);
            await open(page, 'accounts', '&acc=1');
            await fill(page, { label: 'Kitchen', enabled: true, transport: 'tls' });
            await endSession(page);
            await page.locator('#main button:not([type=button])').click();
            await expectSignedOut(page);
            await expect(page.getByRole('status').filter({ hasText: say('login.ended') }))
                .toContainText(say('login.kept'));
            await check(page, kBothSchemes);

            await fillSignIn(page);
            await expectAt(page, 'accounts');
            await expect(page).toHaveURL(/acc=1$/);
            await expect(resultMessage(page)).toHaveText(say('form.restored'));
            await expectValues(page, { label: 'Kitchen', enabled: true, transport: 'tls' });
            await check(page);
        });
    });
}

test.describe('the count-down', () => {
    test('ends in all tabs when one stays signed in', async ({ page }) => {
        await signIn(page);
        const other = await page.context().newPage();
        await openWithClock(page, 'audio'); // the clock of both
        await open(other, 'network');
        await pass(page, kIdleSeconds - 30);
        await expect(endingOf(page)).toBeVisible();
        await expect(endingOf(other)).toBeVisible();
        await page.getByRole('button', { name: text('session.stay') }).click();
        await expect(endingOf(page)).toHaveCount(0);
        await expect(endingOf(other)).toHaveCount(0);
    });

    test('does not begin while the user types', async ({ page }) => {
        await signIn(page);
        await openWithClock(page, 'network');
        const renewed = () => page.evaluate(() => localStorage.getItem('sessionRenewed'));
        for (let i = 0; i < 4; ++i) {
            await pass(page, kIdleSeconds / 3);
            const before = await renewed();
            await fill(page, { hostname: `draft${i}` });
            await expect.poll(renewed).not.toBe(before);
        }
        await expect(endingOf(page)).toHaveCount(0);
        await expect(field(page, 'hostname')).toHaveValue('draft3');
    });

    test('leads to the sign-in form and back to the entries', async ({ page }) => {
        await signIn(page);
        await openWithClock(page, 'accounts', '&acc=2');
        await fill(page, { label: 'Attic', secret: 'hush hush' });
        await pass(page, kIdleSeconds - 30);
        await expect(endingOf(page)).toBeVisible();
        await pass(page, 30);
        await expect(endedOf(page)).toContainText(text('login.kept'));
        expect(await draftOf(page)).toContain('Attic');
        expect(await draftOf(page)).not.toContain('hush');
        await endSession(page);
        expect(await asked(page, async () => {
            await page.keyboard.press('Enter');
            await expectSignedOut(page);
        })).toEqual([]);
        await fillSignIn(page);
        await expect(page).toHaveURL(/p=accounts&acc=2$/);
        await expectValues(page, { label: 'Attic', secret: '' });

        await page.locator('#main form button:not([type=button])').click();
        await expect(resultMessage(page)).toHaveText(text('form.saved'));
        await expect.poll(() => draftOf(page)).toBe(null);
        await page.reload();
        await expect(resultMessage(page)).toHaveCount(0);
    });

    test('is over when another tab signs out', async ({ page }) => {
        await signInTo(page, 'network');
        await fill(page, { hostname: 'draft' });
        const other = await page.context().newPage();
        await open(other, 'audio');
        await signOut(other);
        await expect(endedOf(page)).toBeVisible();
        await expect(endedOf(page).getByText(text('login.kept'))).toBeHidden();
        expect(await draftOf(page)).toBe(null);
    });
});

test.describe('entries', () => {
    test.beforeEach(async ({ page }) => {
        await signInTo(page, 'network');
    });

    test('are thrown away when another user signs in', async ({ page }) => {
        await fill(page, { hostname: 'draft' });
        await field(page, 'hostname').blur();
        await page.evaluate(() => {
            const draft = JSON.parse(sessionStorage.getItem('draft'));
            sessionStorage.setItem('draft', JSON.stringify({ ...draft, user: 'another' }));
        });
        await endSession(page);
        await page.locator('#main form button:not([type=button])').click();
        await fillSignIn(page);
        await expectAt(page, 'network');
        await expect(field(page, 'hostname')).not.toHaveValue('draft');
        expect(await draftOf(page)).toBe(null);
    });

    test('survive a wrong password and another language', async ({ page, expectStatus }) => {
        await fill(page, { hostname: 'draft' });
        await endSession(page);
        await page.locator('#main form button:not([type=button])').click();
        expectStatus(403);
        await fillSignIn(page, { user: 'admin', password: 'wrong' });
        await expect(page.getByRole('alert')).toBeVisible();
        await page.locator('.languages').getByRole('link', { name: 'English' }).click();
        await fillSignIn(page);
        await expectValues(page, { hostname: 'draft' });
    });

    test('are back after the form was refused', async ({ page, expectStatus }) => {
        await fill(page, { hostname: 'draft' });
        await formOf(page, 'hostname').locator('[name=token]')
            .evaluate((token) => { token.value = 'of another session'; });
        expectStatus(403);
        await page.locator('#main form button:not([type=button])').click();
        await page.getByRole('link', { name: text('refused.back') }).click();
        await expectValues(page, { hostname: 'draft' });
    });
});

test.describe('a page', () => {
    test('asks before unsaved changes are lost, and only then', async ({ page, expectStatus }) => {
        await signInTo(page, 'network');
        const leave = () => menu(page, 'nav.audio').click();
        const initial = await field(page, 'hostname').inputValue();
        await fill(page, { hostname: 'draft' });
        expect(await asked(page, leave)).toEqual(['beforeunload']);
        await expectAt(page, 'network');
        await fill(page, { hostname: initial });
        expect(await asked(page, leave)).toEqual([]);
        await expectAt(page, 'audio');

        await open(page, 'network');
        expect(await asked(page, () => send(page, { hostname: 'saved' }))).toEqual([]);
        await expect(resultMessage(page)).toHaveText(text('form.saved'));

        // Rejected by the phone only; the script finds no fault in the address.
        expectStatus(422);
        await send(page, { mode: 'static', address: '10.0.0.5', netmask: '255.255.255.0',
            gateway: '10.0.1.1', dns1: '10.0.0.1' });
        await expect(resultMessage(page)).toHaveText(text('form.oneError'));
        expect(await asked(page, leave)).toEqual(['beforeunload']);
    });

    test('asks when another form on it is sent', async ({ page }) => {
        await signInTo(page, 'security');
        await fill(page, { idleSeconds: '200', oldPassword: 'x' });
        await page.locator('#main form textarea').first().focus();
        expect(await asked(page, () => formOf(page, 'idleSeconds').locator('button').click()))
            .toEqual(['beforeunload']);
        await expect(page).toHaveURL(/p=security$/);
    });

    test('asks before an upload is given up', async ({ page, expectFailure }) => {
        await signInTo(page, 'settings-upgrade');
        await field(page, 'firmware').setInputFiles(
            file('new.img', image({ payload: Buffer.alloc(4_000_000, 'x') })));
        const session = await page.context().newCDPSession(page);
        await session.send('Network.emulateNetworkConditions',
            { offline: false, latency: 0, downloadThroughput: -1, uploadThroughput: 300_000 });
        await confirmAndSend(page, 'q=upload');
        await expect(page.locator('.progress progress')).toBeVisible();
        expect(await asked(page, () => menu(page, 'nav.audio').click())).toEqual(['beforeunload']);
        expectFailure();
        await page.getByRole('button', { name: text('upload.cancel') }).click();
        await expect(page.locator('.progress [role=status]')).toHaveText(text('upload.cancelled'));
        expect(await asked(page, () => menu(page, 'nav.audio').click())).toEqual([]);
    });
});
