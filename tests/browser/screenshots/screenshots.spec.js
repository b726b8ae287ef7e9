// The screenshots in docs/images; add a line to the list for each.
import { fileURLToPath } from 'node:url';
import { text } from '../support/languages.js';
import { confirmAndSend, deliverPhone, errorOf, expectSignedOut, field, file, fill, fillSignIn, image, kAdmin,
    kFactory, postSignIn, resultMessage, send, signInTo } from '../support/phone.js';
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
    '[data-page=security] :is(dl > :nth-child(2) > dd, td:nth-child(2))': '2026-03-02 09:41:07',
    '[data-trial-left]': '1:52',
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

// As if the last request had been ten minutes ago, less 42 seconds.
const kEnding = {
    p: 'accounts',
    async before(page) {
        await page.clock.install({ time: '2026-03-02T09:00:00' });
        await page.clock.pauseAt('2026-03-02T09:00:30');
    },
    async after(page) {
        await fill(page, { label: 'Reception' });
        await page.evaluate(() => {
            localStorage.setItem('sessionRenewed', Date.now() - 558_000);
            dispatchEvent(new StorageEvent('storage', { key: 'sessionRenewed' }));
        });
        await expect(page.getByRole('dialog')).toBeVisible();
    },
};

const kRemoved = {
    p: 'contacts',
    async after(page) {
        await page.locator('#list').getByRole('button', { name: 'Remove' }).first().click();
        await expect(page.getByRole('button', { name: text('contacts.undo') })).toBeFocused();
    },
};

const kPreview = {
    p: 'contacts-preview',
    async after(page) {
        const lines = ['Name;Telefon;Mobil', 'Ada Übel;030 5550 101;', 'Anna Berg;030 5550 102;0170 5550 103',
            'Jörg Weiß;030 5550 104;', 'Ohne Nummer;;', 'Zoë Kühn;030 5550 105;', ''];
        await field(page, 'contacts').setInputFiles(
            file('Kontakte.csv', Buffer.from(lines.join('\r\n'), 'latin1'), 'text/csv'));
        await page.locator('form[action$="q=preview"] button').click();
        await expect(page.locator('.counts')).toBeVisible();
    },
};

const kTrial = {
    p: 'network',
    async after(page) {
        await send(page, { mode: 'static', address: '192.168.1.20', netmask: '255.255.255.0',
            gateway: '192.168.1.1', dns1: '192.168.1.2', hostname: 'desk-phone' });
        await expect(page.locator('[data-trial]')).toBeVisible();
    },
};

// With one other session: all earlier ones are signed out.
const kSecurity = {
    p: 'security',
    part: '#main > section',
    async after(page, { playwright, baseURL }) {
        await page.getByRole('button', { name: text('security.signOutAll') }).click();
        await expectSignedOut(page);
        const other = await playwright.request.newContext({ baseURL });
        await postSignIn(other, kOwner);
        await other.dispose();
        await signInTo(page, 'security', kOwner);
    },
};

const kServer = {
    p: 'settings-autop',
    async after(page) {
        await send(page, { server: 'https://provisioning.example.com/phones' });
        await expect(resultMessage(page)).toBeVisible();
    },
};

async function uploadFirmware(page) {
    await field(page, 'firmware').setInputFiles(file('firmware-2.1.0.img', image({ version: '2.1.0' })));
    await confirmAndSend(page, 'q=upload');
    await expect(resultMessage(page)).toBeVisible();
}

const kRestart = {
    p: 'settings-upgrade',
    async before(page) {
        await page.clock.install({ time: '2026-03-02T09:00:00' });
        await page.clock.pauseAt('2026-03-02T09:00:30');
    },
    async after(page) {
        await confirmAndSend(page, 'q=reboot');
        await expect(page.locator('#main progress')).toBeVisible();
        await page.waitForLoadState();
        await page.clock.runFor(4000);
    },
};

// With the messages of the pictures before, a minute apart.
const kLog = {
    p: 'log',
    async after(page) {
        await page.locator('.log td:first-child').evaluateAll((cells) => cells.forEach((cell, i) => {
            cell.textContent = new Date(Date.UTC(2026, 2, 2, 9, 41 - i)).toISOString()
                .replace('T', ' ').slice(0, 19);
        }));
    },
};

const kUnknown = {
    p: 'status',
    async after(page, { expectStatus }) {
        expectStatus(404, page);
        await page.goto('/servlet?p=voicemail');
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

for (const { name, p, part = 'body', before, after, viewport = kDesk, colorScheme = 'light',
    language = 'en' } of [
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
    { name: 'session-ending', ...kEnding },
    { name: 'contact-removed', ...kRemoved, viewport: kHand },
    { name: 'contacts-preview', ...kPreview, language: 'de' },
    { name: 'backup', p: 'settings-config', viewport: kTall },
    { name: 'provisioning-zh', ...kServer, language: 'zh' },
    { name: 'security-dark', ...kSecurity, viewport: kTall, colorScheme: 'dark' },
    { name: 'not-found', ...kUnknown },
    { name: 'network-trial', ...kTrial, colorScheme: 'dark' },
    { name: 'firmware-waits', p: 'settings-upgrade', after: uploadFirmware },
    { name: 'log', ...kLog },
    { name: 'restart', ...kRestart, viewport: kHand },
    { name: 'first-run', ...kFirstRun, viewport: kTall }, // the last one: the phone is a new one then
]) {
    test(name, async ({ visit, expectStatus, playwright, baseURL }) => {
        const page = await visit({ language, viewport, colorScheme });
        await before?.(page);
        if (p) {
            await signInTo(page, p, kOwner);
        } else {
            await page.goto('/');
        }
        await after?.(page, { expectStatus, playwright, baseURL });
        for (const [selector, text] of Object.entries(kSteadyTexts)) {
            await page.locator(selector).evaluateAll((elements, shown) => elements.forEach(
                (element) => { element.textContent = shown; }), text);
        }
        // No hover effects from the pointer.
        await page.mouse.move(0, 0);
        await page.locator(part).evaluate((element) => element.scrollIntoView());
        await page.screenshot({ path: `${kImages}${name}.png`, animations: 'disabled', caret: 'hide' });
    });
}
