// Every error message and every result of a form, in each language and without script.
import { rename } from 'node:fs/promises';
import { kLanguages, textIn } from '../support/languages.js';
import { addContact, confirmAndSend, errorOf, expectSignedOut, field, file, fill, fillSignIn, formOf,
    get, image, kAdmin, open, postSignIn, resultMessage, signIn } from '../support/phone.js';
import { expect, startWithNewPhone, test as base } from '../support/test.js';

const test = base.extend({
    javaScriptEnabled: false,

    // axe-core is a script, so it runs in a second browser context that allows scripts and gets the
    // same response without the page's scripts. It is slow and finds the same in every language: one
    // is enough.
    check: async ({ visit, check, watches, language }, use) => {
        if (language !== kLanguages[0]) {
            await use((page) => check(page, { schemes: [] }));
            return;
        }
        const reader = await visit({ javaScriptEnabled: true });
        await reader.route('**/*.js*', (route) => route.fulfill({
            contentType: 'text/javascript', body: '' }));
        await use(async (page) => {
            const body = await watches.get(page.context()).documentOf(page).body();
            await reader.route(page.url(), (route) => route.fulfill({
                contentType: 'text/html; charset=utf-8', body }), { times: 1 });
            await reader.goto(page.url());
            await check(reader);
        });
    },
});

// Sends the form without the browser's validation, so that only the phone checks it.
async function send(page, values, isConfirmed = false) {
    const form = formOf(page, Object.keys(values)[0]);
    await form.evaluate((element) => { element.noValidate = true; });
    for (const [name, value] of Object.entries(values)) {
        await (value.buffer ? field(page, name).setInputFiles(value) : fill(page, { [name]: value }));
    }
    if (isConfirmed) {
        await form.locator('[name=confirm]').check();
    }
    await form.locator('button:not([type=button])').first().click();
}

const action = (page, query) => page.locator(`#main form[action$="${query}"] button`)
    .locator('visible=true').first();

for (const language of kLanguages) {
    test.describe(`in ${language}`, () => {
        test.use({ language });
        startWithNewPhone();

        const text = textIn(language);
        const errors = (count) => text('form.errors', { errorCount: count });

        // Expects this message, on a page that passes all checks.
        async function expectAnswer(page, check, says) {
            await expect(resultMessage(page)).toHaveText(says);
            await check(page);
        }

        async function expectErrors(page, wanted) {
            for (const [name, [error, limit]] of Object.entries(wanted)) {
                await expect(errorOf(page, name), name).toHaveText(text(`error.${error}`, { limit }));
            }
            await expect(page.locator('#main .error:not(:empty)')).toHaveCount(
                Object.keys(wanted).length);
        }

        test('the settings forms show errors and results', async ({ page, check, expectStatus }) => {
            await signIn(page);
            const refused = [
                ['accounts', { label: '', userName: 'a b', server: 'no_such host', port: '0',
                    expiry: '86401' },
                { label: ['required'], userName: ['badUserName'], server: ['badHost'],
                    port: ['tooSmall', 1], expiry: ['tooLarge', 86400] }],
                ['network', { mode: 'static', address: '224.0.0.1', netmask: '255.0.255.0',
                    gateway: '', dns1: 'x', hostname: '-desk', vlan: '4095' },
                { address: ['reserved'], netmask: ['badMask'], gateway: ['required'],
                    dns1: ['badAddress'], hostname: ['badHost'], vlan: ['tooLarge', 4094] }],
                ['security', { oldPassword: 'not it', newPassword: 'short', repeat: 'short' },
                    { oldPassword: ['wrongPassword'], newPassword: ['tooShort', 8] }],
                ['security', { oldPassword: 'not it', newPassword: 'long enough', repeat: 'other' },
                    { oldPassword: ['wrongPassword'], repeat: ['mismatch'] }],
                ['security', { idleSeconds: '9', remoteAddresses: '127.0.0.1\n127.0.0.1' },
                    { idleSeconds: ['tooSmall', 10], remoteAddresses: ['duplicate'] }],
            ];
            for (const [p, values, wanted] of refused) {
                await test.step(`${p}: ${Object.keys(values)[0]}`, async () => {
                    await open(page, p);
                    expectStatus(422);
                    await send(page, values);
                    await expectErrors(page, wanted);
                    await expectAnswer(page, check, errors(Object.keys(wanted).length));
                });
            }
            await test.step('audio, as it is', async () => {
                await open(page, 'audio');
                await send(page, { ringtone: 'classic' });
                await expectAnswer(page, check, text('form.saved'));
            });
        });

        test('the contacts page shows errors and results', async ({ page, check, expectStatus }) => {
            await signIn(page);
            await open(page, 'contacts');
            const remove = (on) => on.locator('button[form=remove]').first();
            const [other, name] = [await page.context().newPage(), '0 Aaron Aaronson'];
            await addContact(page, { name, number: '1' });
            await expectAnswer(page, check, text('contacts.added'));
            await open(other, 'contacts');
            expectStatus(422);
            await addContact(page, { name, number: '1' });
            await expectErrors(page, { name: ['duplicate'] });
            await expectAnswer(page, check, text('form.oneError'));
            await expect(remove(page)).toHaveAttribute('value', name);
            await remove(page).click();
            const undo = text('contacts.undo');
            await expectAnswer(page, check, `${text('contacts.removed', { removedName: name })} ${undo}`);
            await page.getByRole('button', { name: undo }).click();
            await expectAnswer(page, check, text('contacts.restored'));
            await page.getByRole('link', { name: `${text('contacts.edit')}: ${name}` }).click();
            await send(page, { number: '2' });
            await expectAnswer(page, check, text('contacts.saved'));
            await remove(page).click();
            await remove(other).click();
            await expect(resultMessage(other).first()).toHaveText(text('contacts.gone'));
        });

        test('the import of contacts shows errors and results', async ({ page, check, expectStatus }) => {
            await signIn(page);
            const preview = async (content) => {
                await open(page, 'contacts-preview');
                await send(page, { contacts: file('list.csv', content) });
            };
            await preview('Aaron Aaronson,1\nBenjamin Brooks,222\nNobody,none\n,333\n"open,4\n');
            await expect(page.locator('#main h2')).toHaveText(
                ['what', 'refused', 'changed', 'new'].map((key) => text(`preview.${key}`)));
            await expect(page.locator('#main table').first().locator('td:last-child')).toHaveText([
                `${text('contacts.number')}: ${text('error.badNumber')}`,
                `${text('contacts.name')}: ${text('error.required')}`, text('error.badLine')]);
            await check(page);

            const elsewhere = await page.context().newPage();
            await open(elsewhere, 'audio');
            expectStatus(409);
            await action(page, 'q=apply').click();
            await expectAnswer(page, check, text('preview.gone'));

            expectStatus(422);
            await preview('');
            await expectAnswer(page, check, text('upload.empty'));
        });

        test('the import of a configuration shows errors and results', async ({ page, check, expectStatus }) => {
            await signIn(page);
            await open(page, 'settings-config');
            expectStatus(422);
            await send(page, { config: file('wrong.xml', `<configuration><account><port>0</port>
                <expiry>soon</expiry></account><network><colour/></network></configuration>`) }, true);
            await expect(page.locator('#main tbody tr')).toHaveText([
                `account[1]/port${text('error.tooSmall', { limit: 1 })}`,
                `account[1]/expiry${text('error.notANumber')}`,
                `network/colour${text('error.unknownElement')}`]);
            await expectAnswer(page, check, text('config.errors'));

            expectStatus(422);
            await send(page, { config: file('right.xml', '<configuration/>') });
            await expectAnswer(page, check, text('confirm.missing'));
            await send(page, { config: file('right.xml', '<configuration/>') }, true);
            await expectAnswer(page, check, text('config.imported'));
            await confirmAndSend(page, 'type=import');
            await expectAnswer(page, check, text('config.restored'));
            const other = await page.context().newPage();
            await open(other, 'settings-config');
            await action(other, 'type=remove').click();
            await expectAnswer(other, check, text('config.removed'));
            expectStatus(422);
            await confirmAndSend(page, 'type=import');
            await expectAnswer(page, check, text('config.noCopy'));
        });

        test('the firmware upload shows errors and results', async ({ page, check, expectStatus }) => {
            await signIn(page);
            await open(page, 'settings-upgrade');
            const damaged = image();
            damaged[50] ^= 1;
            for (const [content, says] of [
                [Buffer.alloc(100, 'x'), 'upgrade.notImage'],
                [damaged, 'upgrade.damaged'],
                [image({ model: 'Wall phone' }), 'upgrade.otherModel'],
                [image().subarray(0, -1), 'upgrade.incomplete'],
                ['', 'upgrade.incomplete'],
            ]) {
                await test.step(says, async () => {
                    expectStatus(422);
                    await send(page, { firmware: file('new.img', content) }, true);
                    await expectAnswer(page, check, text(says));
                });
            }
            const newImage = file('new.img', image({ version: '9.8.7' }));
            expectStatus(422);
            await send(page, { firmware: newImage });
            await expectAnswer(page, check, text('confirm.missing'));
            await send(page, { firmware: newImage }, true);
            await expectAnswer(page, check,
                `new.img: ${text('upgrade.received', { newVersion: '9.8.7' })}`);

        });

        test('a restart and a reset name what they do', async ({ page, request, check, expectStatus }) => {
            await signIn(page);
            for (const [query, summary] of [['q=reboot', 'restartOpen'], ['q=reset', 'resetOpen']]) {
                await test.step(query, async () => {
                    await open(page, 'settings-upgrade');
                    const part = page.locator(`#main details:has(form[action$="${query}"])`);
                    await part.getByText(text(`upgrade.${summary}`)).click();
                    await expect(part).toContainText(
                        text('confirm.restartTakes', { restartSeconds: 8 }));
                    await expect(part).toContainText(text('confirm.noCall'));
                    expectStatus(422);
                    await part.locator('form').evaluate((form) => { form.noValidate = true; });
                    await part.locator('button').click();
                    await expectAnswer(page, check, text('confirm.missing'));

                    await get(request, '/servlet?command=ring');
                    expectStatus(422);
                    await confirmAndSend(page, query);
                    await expectAnswer(page, check, text('confirm.callBegan'));
                    await part.getByText(text(`upgrade.${summary}`)).click();
                    await expect(part).toContainText(text('confirm.callEnds'));
                    await check(page);
                    await get(request, '/servlet?command=hangup');
                });
            }
        });

        test('an unknown key is refused', async ({ page, check, expectStatus }) => {
            await signIn(page);
            await open(page, 'phone');
            const key = action(page, 'q=key');
            await key.evaluate((button) => { button.value = 'NOSUCHKEY'; });
            expectStatus(422);
            await key.click();
            await expect(page.locator('h1')).toHaveText(text('phone.title'));
            await check(page);
        });

        test('an error has a page of its own', async ({ page, check, expectStatus }) => {
            const title = page.locator('h1');
            const expectAlert = async (says) => {
                await expect(page.locator('#main [role=alert]')).toHaveText(says);
                await check(page);
            };
            const forge = (form, values) => form.evaluate((element, [action, token]) => {
                element.action = action ?? element.action;
                element.token.value = token ?? element.token.value;
            }, values);
            await signIn(page);
            await test.step('not found', async () => {
                expectStatus(404);
                await open(page, 'nowhere');
                await expect(title).toHaveText(text('message.notFound'));
                await check(page);
            });
            await test.step('no such action', async () => {
                await open(page, 'security');
                await forge(formOf(page, 'idleSeconds'), ['/servlet?p=security&q=nonsense']);
                expectStatus(404);
                await send(page, { idleSeconds: '600' });
                await expect(title).toHaveText(text('message.noAction'));
                await expectAlert(text('message.noActionHint'));
            });
            await test.step('forbidden', async () => {
                const signOut = page.locator('form[action*="q=logout"]').locator('visible=true');
                await forge(signOut, [undefined, '0']);
                expectStatus(403);
                await signOut.locator('button').click();
                await expect(title).toHaveText(text('refused.title'));
                await expectAlert(text('refused.text'));
            });
            await test.step('failed', async () => {
                const template = `${process.env.BUILD}/device/phone/www/WEB-INFO/templates/${language}/log.html`;
                await rename(template, `${template}.away`);
                try {
                    expectStatus(500);
                    await open(page, 'log');
                } finally {
                    await rename(`${template}.away`, template);
                }
                await expect(title).toHaveText(text('message.failed'));
                await expectAlert(text('message.faultHint'));
            });
            await page.getByRole('link', { name: text('message.back') }).click();
            await expect(title).toHaveText(text('status.title'));
        });

        test('a restarting phone is busy', async ({ page, check, expectStatus }) => {
            await signIn(page);
            const [other, third] = [await page.context().newPage(), await page.context().newPage()];
            await open(other, 'settings-autop');
            await send(other, { server: 'http://192.0.2.5/' });
            await open(third, 'settings-upgrade');
            await open(page, 'settings-upgrade');
            await confirmAndSend(page, 'q=reboot');
            await expect(page.locator('h1')).toHaveText(text('restart.title'));
            await expect(page.locator('#main p').first()).toHaveText(text('restart.reboot'));

            // Before the checks, which take as long as the restart on a slow machine.
            expectStatus(409);
            await action(other, 'now=true').click();
            await expect(resultMessage(other)).toHaveText(
                `${text('message.busy')}. ${text('message.busyHint')}`);
            expectStatus(409);
            await confirmAndSend(third, 'q=reboot');
            await expect(third.locator('h1')).toHaveText(text('message.busy'));
            await expect(third.locator('#main [role=alert]')).toHaveText(text('message.busyHint'));
            await check(page);
            await check(third);
            await check(other);
        });

        // Last, because sign-in attempts are limited afterwards.
        test('the sign-in form shows errors', async ({ page, check, expectStatus }) => {
            const wrong = { ...kAdmin, password: 'wrong' };
            const alert = page.getByRole('alert');
            await page.goto('/');
            expectStatus(403);
            await fillSignIn(page, wrong);
            await expect(alert).toHaveText(text('login.wrong'));
            await expectSignedOut(page);
            await check(page);

            await page.locator('[name=user]').fill(kAdmin.user);
            await page.locator('[name=password]').fill(kAdmin.password);
            const guess = () => postSignIn(page.request, wrong);
            while ((await guess()).status() !== 429) {
                // Keeps guessing; each wait is twice as long as the previous one.
            }
            expectStatus(429);
            await page.locator('form button').click(); // at once, before the wait is over
            await expect.poll(async () => (await alert.innerText()).replace(/\d+/, '{seconds}'))
                .toBe(text('login.wait'));
            await expectSignedOut(page);
            await check(page);
        });
    });
}
