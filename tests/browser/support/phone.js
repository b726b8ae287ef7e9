// Actions of the phone's user that the specs share.
import { readFile, rm, readdir, writeFile } from 'node:fs/promises';
import { gzipSync } from 'node:zlib';
import { expect } from '@playwright/test';

export const kFactory = { user: 'admin', password: 'admin' };
// What the owner has set; see setOwnPassword().
export const kAdmin = { user: 'admin', password: 'garden gate' };

// The text key of each page's title.
export const kPages = {
    status: 'status.title',
    phone: 'phone.title',
    accounts: 'accounts.title',
    network: 'network.title',
    audio: 'audio.title',
    contacts: 'contacts.title',
    'settings-config': 'config.title',
    'settings-upgrade': 'upgrade.title',
    'settings-autop': 'autop.title',
    log: 'log.title',
    security: 'security.title',
};

// ---- Navigation

export const open = (page, p, more = '') => page.goto(`/servlet?p=${p}${more}`);

const signInForm = (page) => page.locator('form[action$="q=login"]');
// One next to the navigation and one in the menu of narrow windows.
const signOutButtons = (page) => page.locator('form[action*="q=logout"] button');

export async function fillSignIn(page, { user, password } = kAdmin) {
    await signInForm(page).locator('[name=user]').fill(user);
    await signInForm(page).locator('[name=password]').fill(password);
    await signInForm(page).locator('button:not([type=button])').click();
}

export async function trySignIn(page, credentials = kAdmin) {
    await page.goto('/');
    await fillSignIn(page, credentials);
}

export async function signIn(page, credentials) {
    await trySignIn(page, credentials);
    await expectSignedIn(page);
}

// Opens a page and signs in when asked.
export async function signInTo(page, p, credentials = kAdmin) {
    await open(page, p);
    await fillSignIn(page, credentials);
    await expectAt(page, p);
}

// Sends the sign-in form without showing it.
export async function postSignIn(request, credentials = kAdmin, options = {}) {
    const form = await (await get(request, '/servlet?p=login&q=loginForm')).text();
    const [, token] = form.match(/name="token" value="(\w+)"/);
    return request.post('/servlet?p=login&q=login', { form: { ...credentials, token }, ...options });
}

export async function signOut(page) {
    await signOutButtons(page).locator('visible=true').click();
    await expectSignedOut(page);
}

// The page's scripts have run then, too.
export async function expectSignedIn(page) {
    await expect(signOutButtons(page)).not.toHaveCount(0);
    await page.waitForLoadState();
}

export async function expectSignedOut(page) {
    await expect(signInForm(page)).toBeVisible();
    await expect(signOutButtons(page)).toHaveCount(0);
}

export async function expectAt(page, p) {
    await expect(page).toHaveURL(new RegExp(`[?]p=${p}(&|$)`));
    await expectSignedIn(page);
}

// ---- Forms

// Excludes buttons, which have names too.
const fieldSelector = (name) => `[name="${name}"]:not(button)`;

export const field = (page, name) => page.locator(`#main ${fieldSelector(name)}`);
export const formOf = (page, name) => page.locator(`#main form:has(${fieldSelector(name)})`);
export const errorOf = (page, name) => page.locator(`#${name}-error`);
// The message about the last change.
export const resultMessage = (page) => page.locator('#main > [role=alert], #main > [role=status]');

async function set(page, name, value) {
    const input = field(page, name).first();
    if (typeof value === 'boolean') {
        await input.setChecked(value);
    } else if (await input.evaluate((element) => element.type === 'radio')) {
        await page.locator(`#main [name="${name}"][value="${value}"]`).check();
    } else if (await input.evaluate((element) => element.matches('select'))) {
        await input.selectOption(value);
    } else {
        await input.fill(value);
    }
}

export async function fill(page, values) {
    for (const [name, value] of Object.entries(values)) {
        await set(page, name, value);
    }
}

// Fills in these fields of a form and submits it.
export async function send(page, values) {
    await fill(page, values);
    await formOf(page, Object.keys(values)[0]).locator('button:not([type=button])').click();
}

// Adds a contact on the open page "contacts".
export async function addContact(page, values) {
    const form = page.locator('#add details');
    if (await form.getAttribute('open') === null) {
        await form.locator('summary').click();
    }
    await fill(page, values);
    await form.locator('form button').click();
}

export async function expectValues(page, values) {
    for (const [name, value] of Object.entries(values)) {
        if (typeof value === 'boolean') {
            await expect(field(page, name)).toBeChecked({ checked: value });
        } else if (await field(page, name).count() > 1) {
            await expect(page.locator(`#main [name="${name}"]:checked`)).toHaveValue(value);
        } else {
            await expect(field(page, name)).toHaveValue(value);
        }
    }
}

// Confirms the action on the open page, unfolding its form if needed. Returns the form.
export async function confirm(page, query) {
    const form = page.locator(`#main form[action$="${query}"]`);
    if (!await form.isVisible()) {
        await form.locator('xpath=ancestor::details/summary').click();
    }
    await form.locator('[name=confirm]').check();
    return form;
}

export async function confirmAndSend(page, query) {
    const form = await confirm(page, query);
    await form.locator('button:not([type=button])').click();
}

// ---- Files

export const file = (name, content, mimeType = 'application/octet-stream') =>
    ({ name, mimeType, buffer: Buffer.from(content) });

// A valid firmware image; see examples/phone/src/model/firmware_image.h.
export function image({ version = '9.8.7', model = 'Desk phone', payload = Buffer.from('new') } = {}) {
    const length = Buffer.alloc(4);
    length.writeUInt32LE(payload.length);
    const text = (content) => Buffer.concat([Buffer.from(content), Buffer.alloc(16)], 16);
    const start = Buffer.concat(
        [Buffer.from('DPFWIMG1'), text(model), text(version), length, payload]);
    // A gzip file ends with the same checksum, followed by the length.
    return Buffer.concat([start, gzipSync(start, { level: 1 }).subarray(-8, -4)]);
}

// Returns the content of a download and the file name it proposes.
export async function download(page, link) {
    const [got] = await Promise.all([page.waitForEvent('download'), link.click()]);
    return { name: got.suggestedFilename(), content: await readFile(await got.path()) };
}

// ---- The device

// A request outside the browser. Retries if the web server closed an idle connection just before it
// was used again.
export const get = (request, address) => request.get(address, { maxRetries: 1 });

export const wordOf = async (request) => (await (await get(request, '/servlet?p=notice')).text()).trim();

// Kills the daemon, so that it cannot save anything; the web server starts it again.
export async function killPhone(request) {
    process.kill(Number(await readFile(`${process.env.BUILD}/fcgi_host.pid`, 'utf-8')), 'SIGKILL');
    await expect(async () => {
        expect((await request.get('/')).status()).toBe(200);
    }).toPass({ timeout: 10_000 });
}

// Makes the phone a new one, as it is delivered; nobody is signed in.
export async function deliverPhone(request) {
    const data = `${process.env.BUILD}/device/phone/data`;
    for (const name of await readdir(data)) {
        await rm(`${data}/${name}`, { recursive: true });
    }
    await writeFile(`${data}/reset`, '');
    await killPhone(request);
}

// The daemon creates the file at the first sign-in.
export async function hasFactoryPassword() {
    const data = `${process.env.BUILD}/device/phone/data`;
    const files = await readdir(data);
    return !files.includes('password.1') ||
        (await readFile(`${data}/password.1`, 'utf-8')).split('\n')[1] === 'factory';
}

// Sets the owner's password on a phone with the factory password, which allows nothing else.
export async function setOwnPassword(request) {
    await postSignIn(request, kFactory, { maxRedirects: 0 });
    const form = await (await get(request, '/servlet?p=security')).text();
    const [, token] = form.match(/name="token" value="(\w+)"/);
    await request.post('/servlet?p=security&q=password', { form: {
        token, newPassword: kAdmin.password, repeat: kAdmin.password } });
    await request.post('/servlet?p=login&q=logout', { form: { token } });
}

// Makes the phone a new one whose owner has set a password; nobody is signed in.
export async function renewPhone(request) {
    await deliverPhone(request);
    await setOwnPassword(request);
}
