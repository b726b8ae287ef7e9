// The screenshots in docs/images; add a line to the list for each.
import { fileURLToPath } from 'node:url';
import { confirmAndSend, deliverPhone, errorOf, field, file, fillSignIn, kAdmin, kFactory, resultMessage, send,
    signInTo } from '../support/phone.js';
import { expect, startWithNewPhone, test } from '../support/test.js';

startWithNewPhone();

const kImages = fileURLToPath(new URL('../../../docs/images/', import.meta.url));
const kDesk = { width: 1152, height: 760 };
const kTall = { width: 1152, height: 980 };
const kHand = { width: 390, height: 760 };
const kOwner = { ...kAdmin, password: 'correct horse' };

// Replaces whatever differs between machines or runs: the live data of the phone, and the texts of
// these selectors.
const kSteadyTexts = {
    'div:has(> dd > .code) > dt': 'eth0',
    'div:has(> dd > .code) .address': '192.0.2.10',
    '.code': '02:00:00:00:00:10',
};

const kKiB = 1024;
const wave = (i, length) => 1 + Math.sin(i / length);
const kMinutes = 60;
// One sample a minute: memory, received, sent, events.
const kHistory = Array.from({ length: kMinutes }, (_, i) => [
    Math.round((116 + 12 * wave(i, 9)) * kKiB), Math.round(30_000 * wave(i, 7)),
    Math.round(16_000 * wave(i, 11)), [4, 1, 0, 2, 0, 0, 3][i % 7]]);

let shown = 0; // figures

function figures(i) {
    const history = { next: kMinutes, events: 90, samples: i === 0 ? kHistory : [] };
    const state = ['registered', 'registered', 'off', 'off', 'off', 'off'];
    return {
        uptime: { seconds: 274320 + i },
        history,
        memory: { total: 256 * kKiB, available: Math.round((140 - 12 * wave(i, 9)) * kKiB) },
        traffic: { received: Math.round(90_000 * (i + 3 * wave(i, 4))),
            sent: Math.round(40_000 * (i + 4 * wave(i, 6))) },
        events: { count: 92, recent: [
            { time: '2026-03-02 09:41:07', name: 'command', value: 'ring', from: '192.0.2.20',
                ago: 20, result: 'done' },
            { time: '2026-03-02 09:29:12', name: 'number', value: '123', from: '192.0.2.77',
                ago: 735, result: 'notAllowed' },
        ] },
        accounts: state.map((each, account) => ({ label: `Line ${account + 1}`, state: each })),
        desk: { line1: 'Line 1', line2: 'Ready', state: 'idle', lamps: {} },
        busy: { word: 'idle', percent: 100 },
    };
}

// Waits until the rates are known, which takes two responses: the page asks at once and two seconds later.
async function letTimePass(page) {
    await expect(page.locator('[data-now=memory]')).toContainText('256 MiB');
    await page.clock.runFor(2000);
    await expect(page.locator('[data-now=received]')).not.toHaveText(/^0 B/);
}

const kStatus = {
    p: 'status',
    async before(page) {
        shown = 0;
        await page.clock.install({ time: '2026-03-02T09:00:00' });
        await page.clock.pauseAt('2026-03-02T09:00:30');
        await page.route(/p=status-data/, (route) => route.fulfill({ json: figures(shown++) }));
    },
    after: letTimePass,
};

const kRinging = {
    p: 'phone',
    async before(page) {
        await page.request.get('/servlet?command=hangup');
        await page.request.get('/servlet?command=ring');
    },
};

const kErrors = {
    p: 'accounts',
    async after(page) {
        await send(page, { label: '', userName: '10 01', port: '70000' });
        await expect(errorOf(page, 'port')).not.toBeEmpty();
    },
};

const kUpload = {
    p: 'settings-upgrade',
    async after(page) {
        await page.route(/q=upload/, () => {}); // never answered
        await field(page, 'firmware').setInputFiles(file('firmware-2.1.0.img', 'image'));
        await confirmAndSend(page, 'q=upload');
        await page.locator('#main form progress').evaluate((bar) => { bar.value = 60; });
        await page.locator('#main form [role=status]').evaluate(
            (status) => { status.textContent = '60% sent'; });
    },
};

const kFirstRun = {
    async before(page) {
        await deliverPhone(page.request);
    },
    async after(page) {
        await fillSignIn(page, kFactory);
        await expect(field(page, 'newPassword')).toBeVisible();
        await page.waitForLoadState(); // with its scripts
        await field(page, 'newPassword').fill('a garden gate and 7 hens');
        await expect(page.locator('.strength')).not.toBeEmpty();
    },
};

test('the password is changed, or each page would ask for that', async ({ page }) => {
    await signInTo(page, 'security');
    await send(page, { oldPassword: kAdmin.password, newPassword: kOwner.password,
        repeat: kOwner.password });
    await expect(resultMessage(page)).toHaveText('Saved.');
});

for (const { name, p, before, after, viewport = kDesk, colorScheme = 'light', language = 'en' } of [
    { name: 'sign-in' },
    { name: 'status', ...kStatus, viewport: kTall },
    { name: 'status-dark', ...kStatus, viewport: kTall, colorScheme: 'dark' },
    { name: 'status-mobile', ...kStatus, viewport: kHand },
    { name: 'phone', ...kRinging },
    { name: 'contacts', p: 'contacts' },
    { name: 'form-errors', ...kErrors },
    { name: 'upgrade', ...kUpload },
    { name: 'network-de', p: 'network', language: 'de' },
    { name: 'phone-zh', ...kRinging, language: 'zh', colorScheme: 'dark' },
    { name: 'first-run', ...kFirstRun, viewport: kTall }, // the last one: the phone is a new one then
]) {
    test(name, async ({ visit }) => {
        const page = await visit({ language, viewport, colorScheme });
        await before?.(page);
        if (p) {
            await signInTo(page, p, kOwner);
        } else {
            await page.goto('/');
        }
        await after?.(page);
        for (const [selector, text] of Object.entries(kSteadyTexts)) {
            await page.locator(selector).evaluateAll((elements, shown) => elements.forEach(
                (element) => { element.textContent = shown; }), text);
        }
        // No hover effects from the pointer.
        await page.mouse.move(0, 0);
        await page.evaluate(() => window.scrollTo(0, 0));
        await page.screenshot({ path: `${kImages}${name}.png`, animations: 'disabled', caret: 'hide' });
    });
}
