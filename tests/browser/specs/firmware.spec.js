// Firmware upload, restart, factory reset and auto-provisioning.
import { once } from 'node:events';
import { connect, createServer } from 'node:net';
import { text } from '../support/languages.js';
import { confirm, confirmAndSend, download, expectAt, expectSignedIn, expectSignedOut, expectValues, field, file,
    fillSignIn, image, kAdmin, kFactory, kPages, open, resultMessage, send, signIn, signInTo, wordOf }
    from '../support/phone.js';
import { expect, kJourney, startWithNewPhone, test } from '../support/test.js';

startWithNewPhone();

const kBothSchemes = { schemes: ['light', 'dark'] };
const kMiB = 1024 * 1024;

const largeImage = () => image({ payload: Buffer.alloc(4 * kMiB, 'firmware ') });

const version = (page) => page.locator('#main dd').first();
const bar = (page) => page.locator('form[data-upload] progress');
const progressOf = (page) => bar(page).evaluate((element) => element.value);
const uploadStatus = (page) => page.locator('form[data-upload] [role=status]');
const banner = (page) => page.locator('#notice');

async function upload(page, content) {
    await field(page, 'firmware').setInputFiles(file('phone.img', content));
    await confirmAndSend(page, 'q=upload');
}

// Slows down the uploads of this page so that a test can observe them.
async function slowDown(page, bytesPerSecond) {
    const debugged = await page.context().newCDPSession(page);
    await debugged.send('Network.enable');
    await debugged.send('Network.emulateNetworkConditions', {
        offline: false, latency: 0, downloadThroughput: -1, uploadThroughput: bytesPerSecond });
}

// A proxy to the phone that drops the connection after this many bytes of an upload, and again when
// the browser retries the upload on another connection.
async function lineThatBreaks(bytes) {
    let hasBroken = false;
    const line = createServer((browser) => {
        const phone = connect(Number(process.env.PHONE_PORT), '127.0.0.1');
        let carried = 0;
        browser.on('data', (piece) => {
            carried += piece.length;
            if (carried > bytes || (hasBroken && piece.includes('q=upload'))) {
                hasBroken = true;
                browser.resetAndDestroy();
                phone.destroy();
            }
        });
        for (const end of [browser, phone]) {
            end.on('error', () => {});
        }
        browser.pipe(phone).pipe(browser);
    }).listen(0, '127.0.0.1');
    await once(line, 'listening');
    return { address: `http://127.0.0.1:${line.address().port}`, close: () => line.close() };
}

async function waitUntilIdle(request) {
    await expect.poll(() => wordOf(request), { timeout: 20_000 }).toBe('idle');
}

const waiting = (page) => page.locator('section.waiting');

const factoryVersion = async (page) => {
    const { name } = await download(page, page.getByRole('link', { name: 'Download' }));
    return name.match(/^firmware-(.*)\.img$/)[1];
};

test.describe('a firmware upload', () => {
    test('shows its progress', async ({ page }) => {
        await signInTo(page, 'settings-upgrade');
        await slowDown(page, 2 * kMiB);
        await upload(page, largeImage());
        await expect(bar(page)).toBeVisible();
        const first = await progressOf(page);
        await expect.poll(() => progressOf(page)).toBeGreaterThan(first);
        await expect(uploadStatus(page)).toHaveText(/^\d0% sent$/);
        await expect(page.getByRole('button', { name: text('upgrade.upload') })).toBeHidden();
        await expect(resultMessage(page)).toContainText('Version 9.8.7 was received.');
        await expect(page.locator('#main')).toBeFocused();
        await expect(bar(page)).toBeHidden();
    });

    test('can be cancelled and repeated', async ({ page, expectFailure }) => {
        await signInTo(page, 'settings-upgrade');
        await slowDown(page, kMiB / 4);
        await upload(page, largeImage());
        expectFailure();
        await page.getByRole('button', { name: 'Cancel' }).click();
        await expect(uploadStatus(page)).toHaveText(
            text('upload.cancelled'));
        await expect(bar(page)).toBeHidden();
        await slowDown(page, -1);
        await upload(page, image());
        await expect(resultMessage(page)).toContainText('was received');
    });

    test('that is cut off leaves the firmware unchanged', kJourney, async ({ page, expectFailure }) => {
        const line = await lineThatBreaks(kMiB);
        await page.goto(`${line.address}/`);
        await fillSignIn(page);
        await expectSignedIn(page);
        await page.goto(`${line.address}/servlet?p=settings-upgrade`);
        const before = await version(page).innerText();
        expectFailure();
        await upload(page, largeImage());
        await expect(uploadStatus(page)).toHaveText(
            text('upload.failed'));
        await expect(bar(page)).toBeHidden();
        await line.close();

        await open(page, 'settings-upgrade');
        await expect(version(page)).toHaveText(before);
        await upload(page, image());
        await expect(resultMessage(page)).toContainText('was received');
    });

    test('of an invalid image is rejected', async ({ page, expectStatus }) => {
        const damaged = image();
        damaged[50] ^= 1;
        await signInTo(page, 'settings-upgrade');
        const before = await version(page).innerText();
        for (const [content, says] of [
            [damaged, text('upgrade.damaged')],
            [image().subarray(0, -1),
                text('upgrade.incomplete')],
            [image({ model: 'Wall phone' }),
                text('upgrade.otherModel')],
            [Buffer.alloc(100, 'x'),
                text('upgrade.notImage')],
        ]) {
            expectStatus(422);
            await upload(page, content);
            await expect(resultMessage(page)).toHaveText(says);
            await expect(version(page)).toHaveText(before);
        }
    });

    test('is not sent without a file', kJourney, async ({ page }) => {
        await signInTo(page, 'settings-upgrade');
        await page.getByRole('button', { name: text('upgrade.upload') }).click();
        await expect(page.locator('#firmware-error')).toHaveText(text('error.required'));
    });

    test('is not sent without a confirmation', async ({ page, check }) => {
        await signInTo(page, 'settings-upgrade');
        await field(page, 'firmware').setInputFiles(file('phone.img', image()));
        await page.getByRole('button', { name: text('upgrade.upload') }).click();
        await expect(page.locator('#upload-confirm-error')).toHaveText(text('error.required'));
        await check(page, kBothSchemes);
        await expect(resultMessage(page)).toHaveCount(0);
    });
});

test('new firmware runs from the next restart on, which every open page announces',
    async ({ visit, request, check }) => {
        const [own, other] = [await visit(), await visit({ language: 'de' })];
        await signInTo(other, 'audio');
        await signInTo(own, 'settings-upgrade');
        const before = await factoryVersion(own);
        await upload(own, image({ version: '9.8.7' }));
        await expect(resultMessage(own)).toContainText(
            text('upgrade.received', { newVersion: '9.8.7' }));
        await expect(version(own)).toHaveText(before);
        await expect(waiting(own)).toBeVisible();
        await check(own, kBothSchemes);

        await confirmAndSend(own, 'q=reboot');
        await expect(own.locator('h1')).toHaveText('Please wait');
        const progress = own.locator('#main progress');
        await expect.poll(() => progress.evaluate((bar) => bar.value), { timeout: 10_000 })
            .toBeGreaterThan(20);
        await expect(banner(own)).toHaveText(text('notice.reboot'));
        await expect(banner(other)).toHaveText('Das Telefon startet neu.', { timeout: 10_000 });
        await check(own, kBothSchemes);
        await check(other, kBothSchemes);

        await expect(banner(other)).toBeEmpty({ timeout: 20_000 });
        // The page continues by itself.
        await expectAt(own, 'settings-upgrade');
        await expect(banner(own)).toBeEmpty();
        await expect(version(own)).toHaveText('9.8.7');
        await expect(waiting(own)).toBeHidden();
        expect(await wordOf(request)).toBe('idle');
    });

test('new firmware waits on every visit until it is discarded', async ({ page }) => {
    await signInTo(page, 'settings-upgrade');
    const before = await version(page).innerText();
    await upload(page, image({ version: '9.8.9' }));
    await expect(waiting(page)).toBeVisible();
    await open(page, 'settings-upgrade');
    await expect(waiting(page)).toContainText(text('upgrade.waiting', { waitingVersion: '9.8.9' }));
    await waiting(page).getByRole('button', { name: text('upgrade.discard') }).click();
    await expect(resultMessage(page)).toHaveText(text('upgrade.discarded'));
    await expect(waiting(page)).toBeHidden();
    await expect(version(page)).toHaveText(before);
});

test('a restart asks again if other firmware was uploaded meanwhile',
    async ({ page, request, check, expectStatus }) => {
        await signInTo(page, 'settings-upgrade');
        await upload(page, image({ version: '9.8.7' }));
        await expect(waiting(page)).toContainText('9.8.7');
        const other = await page.context().newPage();
        await open(other, 'settings-upgrade');
        await upload(other, image({ version: '9.8.8' }));
        await expect(waiting(other)).toContainText('9.8.8');

        expectStatus(422);
        await confirmAndSend(page, 'q=reboot');
        await expect(resultMessage(page)).toHaveText(text('confirm.versionChanged'));
        await expect(waiting(page)).toContainText(text('upgrade.waiting', { waitingVersion: '9.8.8' }));
        await check(page, kBothSchemes);
        expect(await wordOf(request)).toBe('idle');
        await expect((await confirm(page, 'q=reboot')).locator('[name=version]')).toHaveValue('9.8.8');
    });

test('a restart is announced on every page, even before signing in',
    async ({ page, visit, request }) => {
        const outside = await visit();
        await outside.goto('/');
        await signInTo(page, 'settings-upgrade');
        const pages = [];
        for (const p of Object.keys(kPages)) {
            pages.push(await page.context().newPage());
            await open(pages.at(-1), p);
        }
        await confirmAndSend(page, 'q=reboot');
        await Promise.all([...pages, outside].map((each) =>
            expect(banner(each), each.url()).toHaveText(
                text('notice.reboot'), { timeout: 10_000 })));
        await waitUntilIdle(request);
    });

test('a restarting phone rejects another restart',
    async ({ page, request, expectStatus }) => {
    await signInTo(page, 'settings-upgrade');
    await confirmAndSend(page, 'q=reboot');
    await expect(page.locator('h1')).toHaveText('Please wait');
    await open(page, 'settings-upgrade');
    expectStatus(409);
    await confirmAndSend(page, 'q=reboot');
    await expect(page.locator('h1')).toHaveText(text('message.busy'));
    await waitUntilIdle(request);
});

test('a restart requires confirmation', async ({ page, request, check }) => {
    await signInTo(page, 'settings-upgrade');
    await page.getByText(text('upgrade.restartOpen')).click();
    await page.getByRole('button', { name: text('upgrade.runNow') }).click();
    await expect(page.locator('#restart-confirm-error')).toHaveText(text('error.required'));
    await check(page, kBothSchemes);
    expect(await wordOf(request)).toBe('idle');
});

test('a confirmation that was not sent is no unsaved change', async ({ page }) => {
    await signInTo(page, 'settings-upgrade');
    await confirm(page, 'q=reboot');
    let isAsked = false;
    page.on('dialog', (dialog) => { isAsked = true; return dialog.accept(); });
    await page.goto('/servlet?p=audio');
    await expectAt(page, 'audio');
    expect(isAsked).toBe(false);
});

test('a factory reset requires confirmation',
    async ({ visit, request, check }) => {
        const [page, other] = [await visit(), await visit()];
        await signInTo(other, 'contacts');
        await signInTo(page, 'network');
        await send(page, { hostname: 'lost-soon' });
        await expect(resultMessage(page)).toHaveText('Saved.');

        await open(page, 'settings-upgrade');
        await page.getByText(text('upgrade.resetOpen')).click();
        await page.getByRole('button', { name: text('upgrade.resetNow') }).click();
        await expect(page.locator('#confirm-error')).toHaveText(text('error.required'));
        await check(page, kBothSchemes);
        expect(await wordOf(request)).toBe('idle');

        await page.getByLabel(text('upgrade.resetConfirm')).check();
        await page.getByRole('button', { name: text('upgrade.resetNow') }).click();
        await expect(page.locator('h1')).toHaveText('Please wait');
        await expect(banner(page)).toHaveText(text('notice.reset'));
        await check(page, kBothSchemes);
        await open(other, 'audio');
        await expectSignedOut(other);

        await expect(banner(page)).toBeEmpty({ timeout: 20_000 });
        await expectAt(page, 'security'); // as on every new phone
        await send(page, { newPassword: kAdmin.password, repeat: kAdmin.password });
        await expectAt(page, 'settings-upgrade'); // where the reset was started
        await open(page, 'network');
        await expectValues(page, { hostname: 'desk-phone' });
        await signIn(other);
        await expectSignedIn(other);
    });

test.describe('auto-provisioning', () => {
    test('shows its progress on every page and ends by itself', async ({ visit, check }) => {
        const [page, other] = [await visit(), await visit({ language: 'zh' })];
        await signInTo(other, 'contacts');
        await signInTo(page, 'settings-autop');
        await expect(page.getByText(text('autop.never'))).toBeVisible();
        await expect(page.getByRole('button', { name: text('autop.start') })).toHaveCount(0);
        await send(page, { server: 'https://provisioning.example.com/phones' });
        await expect(resultMessage(page)).toHaveText(text('form.saved'));
        await page.getByRole('button', { name: text('autop.start') }).click();
        const progress = page.locator('#main progress');
        await expect(progress).toBeVisible();
        await expect(banner(page)).toHaveText(text('notice.autoprovision'));
        await expect(banner(other)).not.toBeEmpty({ timeout: 10_000 });
        await check(page, kBothSchemes);
        await expect.poll(() => progress.evaluate((element) => element.value), { timeout: 10_000 })
            .toBeGreaterThan(20);

        await expect(progress).toBeHidden({ timeout: 15_000 });
        await expect(page.getByRole('button', { name: text('autop.start') })).toBeVisible();
        await expect(page.locator('#main dd', { hasText: text('ago.now') }))
            .toContainText('https://provisioning.example.com/phones');
        await expect(banner(page)).toBeEmpty({ timeout: 10_000 });
        await expect(banner(other)).toBeEmpty({ timeout: 10_000 });
    });
});
