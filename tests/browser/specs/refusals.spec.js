// Protection against requests from other web sites and forged addresses.
import { File } from 'node:buffer';
import { once } from 'node:events';
import { createServer } from 'node:http';
import { text } from '../support/languages.js';
import { expectSignedIn, get, kAdmin, open, postSignIn, signIn, wordOf } from '../support/phone.js';
import { expect, startWithNewPhone, test } from '../support/test.js';

startWithNewPhone();

// Requests that change something, sent without the token, as by a page of another site.
const kChanges = [
    ['login&q=logout', {}],
    ['accounts&q=save&acc=0', { label: 'Gone' }],
    ['network&q=save', { mode: 'dhcp', hostname: 'gone' }],
    ['audio&q=save', { ringtone: 'bell', ringVolume: 1, speakerVolume: 1, handsetVolume: 1,
        micGain: 1, codec: 'pcma' }],
    ['security&q=password', { oldPassword: kAdmin.password, newPassword: 'very secret',
        repeat: 'very secret' }],
    ['security&q=access', { idleSeconds: 3600, remoteAddresses: '192.0.2.1' }],
    ['contacts&q=search', { search: 'a' }],
    ['contacts&q=add', { name: 'Nobody', number: '1' }],
    ['contacts&q=save', { edit: 'cbf29ce484222325', name: 'Nobody', number: '1' }],
    ['contacts&q=remove', { name: 'Alice Anderson' }],
    ['contacts&q=restore', {}],
    ['contacts-preview&q=preview', { contacts: new File(['Nobody,1\n'], 'a.csv') }],
    ['contacts-preview&q=columns', { name: '0', number: '1' }],
    ['contacts-preview&q=apply', {}],
    ['settings-config&q=import', { config: new File(['<configuration/>'], 'a.xml'), confirm: 1 }],
    ['settings-config&q=localconfig&type=import', { confirm: 1 }],
    ['settings-config&q=localconfig&type=remove', {}],
    ['settings-upgrade&q=upload', { firmware: new File(['DPFWIMG1'], 'a.img'), confirm: 1 }],
    ['settings-upgrade&q=reboot', { confirm: 1 }],
    ['settings-upgrade&q=reset', { confirm: 1 }],
    ['settings-autop&q=save', { server: 'http://192.0.2.5/' }],
    ['settings-autop&now=true', {}],
    ['phone&q=key', { key: '5' }],
];

const hasFile = (fields) => Object.values(fields).some((value) => value instanceof File);

const elsewhere = test.extend({
    // Serves a web site with a page of the test's own; returns its port.
    evilPort: async ({}, use) => {
        const server = createServer((request, response) => {
            response.setHeader('Content-Type', 'text/html; charset=utf-8');
            response.end('<!DOCTYPE html><link rel="icon" href="data:,"><title>Win!</title>');
        }).listen(0);
        await once(server, 'listening');
        await use(server.address().port);
        server.closeAllConnections();
        await new Promise((closed) => server.close(closed));
    },
});

// The phone's data and state as shown on its pages.
async function stateOf(page, request) {
    const text = async (query) => (await get(page.request, `/servlet?p=${query}`)).text();
    const { desk } = JSON.parse(await text('status-data&quiet=p=notice'));
    return [await text('settings-config&q=export'), await text('contacts&q=export'), desk,
        await wordOf(request), (await text('contacts')).replace(/value="[0-9a-f]{32,}"/g, '')];
}

async function postForm(page, action, fields) {
    await page.setContent(`<form method="post" action="${action}"><button>Win</button></form>`);
    await page.locator('form').evaluate((form, given) => {
        for (const [name, value] of Object.entries(given)) {
            const input = document.createElement('input');
            form.append(Object.assign(input, { type: 'hidden', name, value }));
        }
    }, fields);
    await page.getByRole('button').click();
    await page.waitForURL(/\/servlet/);
}

async function postFile(page, action, fields) {
    const [[name, file], ...others] = Object.entries(fields);
    const content = await file.text();
    await page.evaluate(async ({ to, name, content, fileName, others }) => {
        const body = new FormData();
        body.append(name, new File([content], fileName));
        for (const other of others) {
            body.append(...other);
        }
        await fetch(to, { method: 'POST', mode: 'no-cors', credentials: 'include', body });
    }, { to: action, name, content, fileName: file.name, others });
}

// To a browser the first is the same site, so it sends the cookies; the other is not.
for (const [host, isSameSite] of [['127.0.0.1', true], ['localhost', false]]) {
    elsewhere(`no form of another web site, on ${host}, changes anything`,
        async ({ page, request, baseURL, evilPort, expectStatus }) => {
            await signIn(page);
            const before = await stateOf(page, request);
            for (const [query, fields] of kChanges) {
                await test.step(query, async () => {
                    await page.goto(`http://${host}:${evilPort}/`);
                    expectStatus(403);
                    const post = hasFile(fields) ? postFile : postForm;
                    await post(page, `${baseURL}/servlet?p=${query}`, fields);
                    if (!hasFile(fields)) {
                        await expect(page.getByRole('alert'))
                            .toHaveText(text('message.otherSiteHint'));
                    }
                    expect(await stateOf(page, request)).toEqual(before);
                });
            }
            await open(page, 'status');
            await expectSignedIn(page);
        });

    elsewhere(`no link of another web site, on ${host}, changes anything`,
        async ({ page, request, baseURL, evilPort, expectStatus }) => {
            await signIn(page);
            const before = await stateOf(page, request);
            for (const [query, fields] of kChanges.filter(([, fields]) => !hasFile(fields))) {
                await test.step(query, async () => {
                    await page.goto(`http://${host}:${evilPort}/`);
                    const given = new URLSearchParams(fields);
                    // Either the page or a refusal; both are fine.
                    if (isSameSite && /logout|now=/.test(query)) {
                        expectStatus(403);
                    }
                    await page.setContent('<a>Win</a>');
                    await page.locator('a').evaluate((link, href) => { link.href = href; },
                        `${baseURL}/servlet?p=${query}&${given}`);
                    await page.locator('a').click();
                    await page.waitForURL(/\/servlet/);
                    expect(await stateOf(page, request)).toEqual(before);
                });
            }
            await open(page, 'status');
            await expectSignedIn(page);
        });
}

test('a form that was open while its user signed in again is refused with an explanation',
    async ({ page, expectStatus, check }) => {
    await signIn(page);
    await open(page, 'audio');
    // Without a page, of which this one would hear.
    const token = page.locator('form[action*="q=logout"] input[name="token"]').first();
    await page.request.post('/servlet?p=login&q=logout', { form: { token: await token.inputValue() } });
    expect((await postSignIn(page.request)).status()).toBe(200);
    expectStatus(403);
    await page.getByRole('button', { name: text('form.save') }).click();
    await expect(page.locator('h1')).toHaveText('Request refused');
    await check(page, { schemes: ['light', 'dark'] });
    await page.getByRole('link', { name: text('refused.back') }).click();
    await expect(page.locator('h1')).toHaveText('Audio');
});

test('a request for an unknown page does no harm', async ({ page }) => {
    await signIn(page);
    const answer = await get(page.request, '/servlet?p=nowhere');
    expect(answer.status()).toBe(404);
    expect(await answer.text()).toContain('There is no page at this address.');

    await open(page, 'status');
    await expectSignedIn(page);
});

test('an address that contains a script is refused', async ({ page, expectStatus }) => {
        expectStatus(404);
        await page.goto('/servlet?p=%3Cscript%3E');
        expect(await page.locator('script').count()).toBe(0);
    });
