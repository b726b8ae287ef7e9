// Uploads in a project of "servlet_new --with upload": the progress, the result, and what was refused.
import { isRefusedANamespace, test } from '../support/development.js';
import { file } from '../support/phone.js';
import { expect } from '../support/test.js';

test.skip(isRefusedANamespace(), 'this machine does not permit a mount namespace');

const kSignature = '\x89PNG\r\n\x1a\n';
const png = (bytes) => file('a.png', Buffer.from(kSignature.padEnd(bytes, 'x'), 'latin1'), 'image/png');

const input = (page) => page.getByLabel('PNG picture, at most 1 MiB');
const button = (page) => page.getByRole('button', { name: 'Upload' });
const bar = (page) => page.getByRole('progressbar', { name: 'Sent' });

test.beforeEach(async ({ page, project }) => {
    await page.goto(project.address);
});

async function upload(page, picture) {
    await input(page).setInputFiles(picture);
    await button(page).click();
}

// Restricts what the browser sends to so many bytes in a second.
async function slowDown(page, bytes) {
    const session = await page.context().newCDPSession(page);
    await session.send('Network.emulateNetworkConditions',
        { offline: false, latency: 0, downloadThroughput: -1, uploadThroughput: bytes });
}

// Records the values of the progress bar and the texts below it, as long as the page lives.
const record = (page) => page.evaluate(() => {
    window.seen = { values: [], texts: [] };
    const bar = document.querySelector('progress');
    const text = document.querySelector('.progress');
    new MutationObserver(() => window.seen.values.push(bar.value / bar.max))
        .observe(bar, { attributes: true, attributeFilter: ['value'] });
    new MutationObserver(() => window.seen.texts.push(text.textContent))
        .observe(text, { childList: true });
});

test('the bar moves while a picture is sent, and the end is reported', async ({ page, check }) => {
    await check(page, { schemes: ['light', 'dark'] });
    await expect(page.getByText('No picture is stored yet.')).toBeVisible();
    await record(page);
    await slowDown(page, 250_000);
    await expect(bar(page)).toBeHidden();
    await upload(page, png(800_000));
    await expect(bar(page)).toBeVisible();
    await expect(page.getByText(/^[1-9]\d?% sent$/)).toBeVisible();
    await check(page, { schemes: ['light', 'dark'] });

    await expect(page.getByText('The picture was stored.')).toBeFocused({ timeout: 20_000 });
    await expect(page.getByText('The stored picture has 800000 bytes.')).toBeVisible();
    await expect(bar(page)).toBeHidden();
    const { values, texts } = await page.evaluate(() => window.seen);
    expect(values).toEqual([...values].sort((one, other) => one - other));
    expect(values.filter((value) => value > 0 && value < 1).length).toBeGreaterThan(1);
    expect(values.at(-1)).toBe(1);
    expect(texts.at(-1)).toBe('All is sent. Waiting for the answer.');
});

for (const [what, picture, reason] of [
    ['another file', file('a.png', 'GIF89a', 'image/png'), 'This file is not a PNG picture.'],
    ['a picture that is too large', png(1024 * 1024), 'The picture is larger than 1 MiB.'],
]) {
    test(`${what} is refused with the reason, and the next upload works`,
        async ({ page, expectStatus }) => {
            expectStatus(422);
            await upload(page, picture);
            await expect(page.getByRole('alert')).toHaveText(reason);
            await expect(page.getByRole('alert')).toBeFocused();
            await upload(page, png(100));
            await expect(page.getByText('The picture was stored.')).toBeFocused();
            await expect(page.getByText('The stored picture has 100 bytes.')).toBeVisible();
        });
}

test('a form without a file is not sent', async ({ page }) => {
    await button(page).click();
    await expect(input(page)).toBeFocused();
    expect(await input(page).evaluate((field) => field.validity.valueMissing)).toBe(true);
    await expect(bar(page)).toBeHidden();
});

test('a connection that is lost is reported, and the next upload works',
    async ({ page, expectFailure }) => {
        expectFailure();
        await page.route('**/servlet?p=picture', (route) => route.abort(), { times: 1 });
        await upload(page, png(100));
        await expect(page.getByRole('alert')).toHaveText('The connection was lost. Try again.');
        await expect(bar(page)).toBeHidden();
        await button(page).click();
        await expect(page.getByText('The picture was stored.')).toBeFocused();
    });

test('an answer of the front server alone is reported', async ({ page, expectStatus }) => {
    expectStatus(413);
    await page.route('**/servlet?p=picture',
        (route) => route.fulfill({ status: 413, body: '<h1>413 Payload Too Large</h1>' }));
    await upload(page, png(100));
    await expect(page.getByRole('alert')).toHaveText('The server refused the upload with status 413.');
});

test('only one upload at a time is sent', async ({ page }) => {
    let count = 0;
    page.on('request', (request) => { count += request.method() === 'POST'; });
    await slowDown(page, 250_000);
    await upload(page, png(500_000));
    await expect(bar(page)).toBeVisible();
    await button(page).click();
    await expect(page.getByText('The picture was stored.')).toBeFocused({ timeout: 20_000 });
    expect(count).toBe(1);
});

test('the keyboard is enough', async ({ page }) => {
    // Before the rest, since the browser is asked to report it, and answers in its own time.
    const chooser = page.waitForEvent('filechooser');
    await page.keyboard.press('Tab');
    await expect(input(page)).toBeFocused();
    await page.keyboard.press('Enter');
    await (await chooser).setFiles(png(100));
    await page.keyboard.press('Tab');
    await expect(button(page)).toBeFocused();
    await page.keyboard.press('Enter');
    await expect(page.getByText('The picture was stored.')).toBeFocused();
    await page.keyboard.press('Tab');
    await expect(input(page)).toBeFocused();
});

test('a picture can be sent without a script', async ({ visit, project, expectStatus }) => {
    const page = await visit({ javaScriptEnabled: false });
    await page.goto(project.address);
    await upload(page, png(100));
    await expect(page.getByText('The picture was stored.')).toBeVisible();
    expectStatus(422, page);
    await upload(page, file('a.png', 'GIF89a', 'image/png'));
    await expect(page.getByRole('alert')).toHaveText('This file is not a PNG picture.');
});
