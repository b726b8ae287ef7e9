// Text with a meaning in HTML, URLs, CSV or templates is always shown literally.
import { text } from '../support/languages.js';
import { addContact, confirmAndSend, expectValues, field, file, fill, formOf, get, image, kAdmin, open,
    postSignIn, resultMessage, signInTo } from '../support/phone.js';
import { expect, startWithNewPhone, test } from '../support/test.js';

startWithNewPhone();

const kHostile = 'zq\'"<>&%';

// Sends a form without the validation of the page's script.
const sendUnchecked = (form) => form.evaluate((element) => element.submit());

// The text must not create elements: the HTML validator or this would find them.
async function expectText(page, check) {
    await expect(page.locator('zq, [zq]')).toHaveCount(0);
    await expect(page.locator('script:not([src])')).toHaveCount(0);
    await check(page);
}

// All text fields; a browser does not allow text in a number field.
const kFields = {
    accounts: ['label', 'displayName', 'userName', 'secret', 'server'],
    network: ['address', 'netmask', 'gateway', 'dns1', 'dns2', 'hostname'],
    security: ['remoteAddresses', 'hostNames'],
    contacts: ['name', 'number', 'mobile', 'home'],
};

for (const [p, names] of Object.entries(kFields)) {
    test(`hostile text in each field of the page ${p}`, async ({ page, check, expectStatus }) => {
        await signInTo(page, p);
        const form = formOf(page, names[0]);
        const all = form.locator('input:not([type]), input[type=password], textarea');
        expect(await all.evaluateAll((inputs) => inputs.map(({ name }) => name))).toEqual(names);
        if (p === 'network') {
            await page.getByLabel(text('network.static')).check();
        }
        if (p === 'contacts') {
            await page.locator('#add summary').click();
        }
        await fill(page, Object.fromEntries(names.map((name) => [name, kHostile])));
        expectStatus(422);
        await sendUnchecked(form);
        await expect(resultMessage(page)).toHaveText(/attention/);
        for (const name of names) {
            // Passwords are not sent back.
            await expectValues(page, { [name]: name === 'secret' ? '' : kHostile });
        }
        await expectText(page, check);
    });
}

const all = (names) => Object.fromEntries(names.map((name) => [name, kHostile]));

for (const [query, names, shown] of [
    ['accounts&q=save&acc=0', ['port', 'transport', 'expiry', 'enabled'], ['port', 'expiry']],
    ['network&q=save', ['mode', 'vlan'], ['vlan']],
    ['audio&q=save', ['ringtone', 'ringVolume', 'speakerVolume', 'handsetVolume', 'micGain', 'codec',
        'echo'], ['ringVolume', 'speakerVolume', 'handsetVolume', 'micGain']],
    ['security&q=access', ['idleSeconds'], ['idleSeconds']],
    ['security&q=password', ['oldPassword', 'newPassword', 'repeat'], []],
    ['phone&q=key', ['key'], []],
    ['phone&q=key', ['number'], []],
    ['phone&q=key', ['command'], []],
]) {
    test(`forged values of ${names} for ${query}`, async ({ page }) => {
        await signInTo(page, query.split('&')[0]);
        const token = await page.locator('[name=token]').first().inputValue();
        const answer = await page.request.post(
            `/servlet?p=${query}`, { form: { token, ...all(names) } });
        expect(answer.status()).toBe(422);
        const html = await answer.text();
        expect(html).not.toContain(kHostile);
        // A number field does not report the text that it was given.
        const { values, elements } = await page.evaluate((text) => {
            const made = new DOMParser().parseFromString(text, 'text/html');
            return {
                values: Object.fromEntries([...made.querySelectorAll('#main input')].map(
                    (input) => [input.name, input.getAttribute('value')])),
                elements: [made.querySelectorAll('zq, [zq]').length,
                    made.querySelectorAll('script:not([src])').length],
            };
        }, html.replaceAll(/ type="(number|range)"/g, ''));
        expect(values).toMatchObject(all(shown));
        expect(elements).toEqual([0, 0]);
    });
}

test('a forged page to open after signing in', async ({ page }) => {
    const answer = await postSignIn(
        page.request, { ...kAdmin, jumpto: kHostile }, { maxRedirects: 0 });
    expect(answer.headers().location ?? '').not.toContain('zq');
    expect(await answer.text()).not.toContain('zq');
});

test('a forged language and page to return to', async ({ page }) => {
    const hostile = encodeURIComponent('zq\'"&%');
    const answer = await page.request.get(
        `/servlet?p=language&to=${hostile}&back=${hostile}`, { maxRedirects: 0 });
    expect(answer.status()).toBe(303);
    expect(JSON.stringify(answer.headersArray())).not.toContain('zq');
});

test('hostile text as the label of an account, wherever it is shown', async ({ page, check }) => {
    await signInTo(page, 'accounts');
    await fill(page, { label: kHostile, displayName: kHostile });
    await page.getByRole('button', { name: text('form.save') }).click();
    await expect(resultMessage(page)).toHaveText('Saved.');
    await expectValues(page, { label: kHostile, displayName: kHostile });
    await expect(page.locator('.tabs a').first()).toContainText(kHostile);
    await expectText(page, check);
    await open(page, 'status');
    await expect(page.getByRole('link', { name: kHostile })).toBeVisible();
    await expectText(page, check);
});

test('hostile text as a contact, which can be removed again', async ({ page, check }) => {
    await signInTo(page, 'contacts');
    await addContact(page, { name: kHostile, number: '1' });
    await expect(resultMessage(page)).toHaveText(text('contacts.added'));
    await fill(page, { search: kHostile });
    await page.getByRole('button', { name: text('contacts.find') }).click();
    await expect(page.getByRole('cell', { name: kHostile, exact: true })).toBeVisible();
    await expectText(page, check);
    await page.getByRole('button', { name: `Remove: ${kHostile}` }).click();
    await expect(resultMessage(page)).toContainText(text('contacts.removed', { removedName: kHostile }));
});

test('hostile text in a contact file', async ({ page, check }) => {
    await signInTo(page, 'contacts-preview');
    const quoted = `"${kHostile.replace('"', '""')}"`;
    await field(page, 'contacts').setInputFiles(
        file(`${kHostile}.csv`, `${quoted},1\nWrong,${quoted}\n`, 'text/csv'));
    await page.getByRole('button', { name: text('preview.submit') }).click();
    await expect(page.getByRole('cell', { name: kHostile, exact: true })).toBeVisible();
    await expectText(page, check);
});

test('hostile text as the user name of a sign-in', async ({ page, check, expectStatus }) => {
    await page.goto('/');
    expectStatus(403);
    await page.locator('[name=user]').fill(kHostile);
    await page.locator('[name=password]').fill(kHostile);
    await page.locator('form button:not([type=button])').click();
    await expect(page.getByRole('alert')).toBeVisible();
    await expect(page.locator('[name=user]')).toHaveValue(kHostile);
    await expectText(page, check);
});

test('hostile text as the file name of a firmware image', async ({ page, check }) => {
    await signInTo(page, 'settings-upgrade');
    await field(page, 'firmware').setInputFiles(file(`${kHostile}.img`, image()));
    await confirmAndSend(page, 'q=upload');
    await expect(resultMessage(page)).toContainText(
        `${kHostile}.img: ${text('upgrade.received', { newVersion: '9.8.7' })}`);
    await expectText(page, check);
});

test('hostile text as an element of a configuration file', async ({ page, check, expectStatus }) => {
    await signInTo(page, 'settings-config');
    const escaped = kHostile.replaceAll('&', '&amp;').replaceAll('<', '&lt;');
    await field(page, 'config').setInputFiles(file(`${kHostile}.xml`,
        `<configuration><account><label>${escaped}</label><zq/></account></configuration>`));
    expectStatus(422);
    await confirmAndSend(page, 'q=import');
    await expect(page.getByRole('cell', { name: 'account[1]/zq' })).toBeVisible();
    await expectText(page, check);
});

test('hostile text as a remote event', async ({ page, request, check }) => {
    const hostile = 'zq\'"&%';
    const events = ['key', 'number', 'command'];
    for (const event of events) {
        const answer = await get(request, `/servlet?${event}=${encodeURIComponent(hostile)}`);
        expect([event, answer.status()]).toEqual([event, 400]);
    }
    await signInTo(page, 'status');
    await expect(page.getByRole('cell', { name: hostile })).toHaveCount(events.length);
    await expectText(page, check);
});

test('hostile text as the values of a configuration file, wherever they are shown', async ({ page, check }) => {
    await signInTo(page, 'settings-config');
    const escaped = kHostile.replaceAll('&', '&amp;').replaceAll('<', '&lt;');
    await field(page, 'config').setInputFiles(file('hostile.xml', `<configuration><account>
        <label>${escaped}</label><displayName>${escaped}</displayName></account></configuration>`));
    await confirmAndSend(page, 'q=import');
    await expect(resultMessage(page)).toHaveText(text('config.imported'));
    await open(page, 'accounts');
    await expectValues(page, { label: kHostile, displayName: kHostile });
    await expectText(page, check);
    await open(page, 'status');
    await expect(page.getByRole('link', { name: kHostile })).toBeVisible();
    await expectText(page, check);
    await open(page, 'phone');
    await page.locator('button[value="L1"]').click();
    await expectText(page, check);
});
