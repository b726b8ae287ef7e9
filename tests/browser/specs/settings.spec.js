// The settings forms: errors are shown next to the fields, before and after sending; values are
// saved.
import { text } from '../support/languages.js';
import { errorOf, expectValues, field, get, open, resultMessage, send, signInTo }
    from '../support/phone.js';
import { expect, kJourney, startWithNewPhone, test } from '../support/test.js';

startWithNewPhone();

const kBothSchemes = { schemes: ['light', 'dark'] };

const kAccount = { enabled: true, label: 'Desk 7', displayName: 'Zoë Müller', userName: '1007',
    server: 'sip.example.net', port: '5070', transport: 'tls', expiry: '600' };
const kNetwork = { mode: 'static', address: '10.0.0.5', netmask: '255.255.255.0',
    gateway: '10.0.0.1', dns1: '10.0.0.2', dns2: '', hostname: 'desk-7', vlan: '12' };
const kAudio = { ringtone: 'pulse', ringVolume: '0', speakerVolume: '10', handsetVolume: '7',
    micGain: '-6', echo: false, codec: 'pcmu' };
const kAccess = { idleSeconds: '300', remoteAddresses: '127.0.0.1\n2001:db8::7',
    hostNames: 'phone.example\nhall' };
const kProvisioning = { server: 'https://provisioning.example.com/phones' };

// Sends the form without the page's validation, so that only the phone checks it.
async function uncheckedSend(page, expectStatus, values) {
    expectStatus(422);
    await page.evaluate(() => {
        for (const form of document.querySelectorAll('#main form')) {
            form.addEventListener('submit', (event) => {
                event.stopImmediatePropagation();
                event.preventDefault();
                form.submit();
            }, true);
        }
    });
    await send(page, values);
}

for (const [p, good, wrong, tag] of [
    ['accounts', kAccount, [
        // Field, value, the error shown by the page, and the one shown by the phone if it differs.
        // null: only the phone finds the error.
        ['label', '', text('error.required')],
        ['userName', '', text('error.required')],
        ['userName', 'a b', text('error.badUserName')],
        ['server', '', text('error.required')],
        ['server', 'no_such host', text('error.badHost')],
        ['server', '300.1.1.1', null, text('error.badHost')],
        ['port', '', text('error.required')],
        ['port', '0', text('error.tooSmall', { limit: 1 })],
        ['port', '65536', text('error.tooLarge', { limit: 65535 })],
        ['port', '1.5', text('error.notANumber')],
        ['expiry', '59', text('error.tooSmall', { limit: 60 })],
        ['expiry', '86401', text('error.tooLarge', { limit: 86400 })],
    ], kJourney],
    ['network', kNetwork, [
        ['address', '', text('error.required')],
        ['address', '10.0.0.256', text('error.badAddress')],
        ['address', '224.0.0.1', null, text('error.reserved')],
        ['address', '10.0.0.255', null, text('error.reserved')],
        ['netmask', '255.0.255.0', null, text('error.badMask')],
        ['netmask', 'big', text('error.badMask')],
        ['gateway', '10.0.1.1', null, text('error.notInNetwork')],
        ['dns1', '', text('error.required')],
        ['dns2', 'x', text('error.badAddress')],
        ['hostname', '-desk', text('error.badHost')],
        ['hostname', '', text('error.required')],
        ['vlan', '4095', text('error.tooLarge', { limit: 4094 })],
    ], kJourney],
    ['security', kAccess, [
        ['idleSeconds', '9', text('error.tooSmall', { limit: 10 })],
        ['idleSeconds', '3601', text('error.tooLarge', { limit: 3600 })],
        ['remoteAddresses', 'nobody', null, text('error.badAddress')],
        ['remoteAddresses', '127.0.0.1\n127.0.0.1', null, text('error.duplicate')],
        ['hostNames', 'no_such host', null, text('error.badHost')],
        ['remoteAddresses', Array.from({ length: 17 }, (_, i) => `192.0.2.${i}`).join('\n'), null,
            text('error.tooMany', { limit: 16 })],
    ], kJourney],
    ['settings-autop', kProvisioning, [
        ['server', 'provisioning.example.com', text('error.badUrl')],
        ['server', 'https://example.com/?a=1', text('error.badUrl')],
        ['server', 'ftp://example.com', null, text('error.badUrl')],
    ], {}],
]) {
    test.describe(`the form of the page ${p}`, () => {
        test('shows errors before it is sent', async ({ page, check }) => {
            await signInTo(page, p);
            for (const [name, value, error] of wrong.filter(([, , text]) => text !== null)) {
                await send(page, { ...good, [name]: value });
                await expect(errorOf(page, name), `${name}: ${value}`).toHaveText(error);
                await expect(field(page, name)).toBeFocused();
                await expect(field(page, name)).toHaveAttribute('aria-invalid', 'true');
                await expect(page.locator('#main .error:not(:empty)')).toHaveCount(1);
                await expect(resultMessage(page)).toHaveCount(0);
            }
            await check(page, kBothSchemes);
        });

        test('removes the message once the value is valid', async ({ page }) => {
            const [name, value] = wrong[0];
            await signInTo(page, p);
            await send(page, { ...good, [name]: value });
            await expect(errorOf(page, name)).not.toBeEmpty();
            await field(page, name).fill(good[name]);
            await expect(errorOf(page, name)).toBeEmpty();
            await expect(field(page, name)).not.toHaveAttribute('aria-invalid');
        });

        test('keeps the values entered if the phone rejects them', async ({ page, expectStatus, check }) => {
            await signInTo(page, p);
            for (const [name, value, error, ofPhone] of wrong.filter(([, value]) => value !== '1.5')) {
                await open(page, p);
                await uncheckedSend(page, expectStatus, { ...good, [name]: value });
                await expect(errorOf(page, name), `${name}: ${value}`).toHaveText(ofPhone ?? error);
                await expect(resultMessage(page)).toHaveText(text('form.oneError'));
                await expect(field(page, name)).toBeFocused();
                await expectValues(page, { ...good, [name]: value });
            }
            await check(page, kBothSchemes);
        });

        test('is saved and shows the saved values', tag, async ({ page, check }) => {
            await signInTo(page, p);
            await send(page, good);
            await expect(resultMessage(page)).toHaveText('Saved.');
            await expectValues(page, good);
            await check(page, kBothSchemes);
            await open(page, p);
            await expect(resultMessage(page)).toHaveCount(0);
            await expectValues(page, good);
        });
    });
}

test.describe('the page accounts', () => {
    test('has a form for each of the six accounts', kJourney, async ({ page }) => {
        await signInTo(page, 'accounts');
        const tabs = page.locator('.tabs a');
        await expect(tabs).toHaveCount(6);
        await tabs.nth(5).click();
        await expect(tabs.nth(5)).toHaveAttribute('aria-current', 'page');
        await send(page, { label: 'The sixth' });
        await expect(resultMessage(page)).toHaveText('Saved.');
        await expect(tabs.nth(5)).toHaveText('6 The sixth');
        await tabs.nth(4).click();
        await expect(field(page, 'label')).toHaveValue('Line 5');
    });

    test('never shows a password', async ({ page }) => {
        await signInTo(page, 'accounts');
        await send(page, { ...kAccount, secret: 'open sesame' });
        await expect(resultMessage(page)).toHaveText('Saved.');
        expect(await page.content()).not.toContain('open sesame');
        const kept = await get(page.request, '/servlet?p=settings-config&q=export');
        expect(await kept.text()).not.toContain('open sesame');
    });

    test('reports unknown accounts', async ({ page, expectStatus, check }) => {
        await signInTo(page, 'accounts');
        for (const acc of ['-1', '6', '99999999999999999999']) {
            expectStatus(404);
            await open(page, 'accounts', `&acc=${acc}`);
            await expect(page.locator('#main h2'), acc).toHaveText(text('accounts.none'));
            await expect(page.locator('#main form')).toHaveCount(0);
        }
        await check(page, kBothSchemes);
        await page.locator('.tabs a').first().click();
        await expect(field(page, 'label')).toBeVisible();
    });

    test('refuses invalid account numbers', async ({ page, expectStatus }) => {
        await signInTo(page, 'accounts');
        for (const acc of ['x', '1x', '1.5', '0x1']) {
            expectStatus(404);
            await open(page, 'accounts', `&acc=${acc}`);
            await expect(page.locator('body'), acc).toHaveText('404 - Not Found');
        }
    });
});

test.describe('the page network', () => {
    test('asks for addresses only in static mode', kJourney, async ({ page }) => {
        await signInTo(page, 'network');
        await page.getByLabel(text('network.dhcp')).check();
        await expect(field(page, 'address')).toBeHidden();
        await page.getByLabel(text('network.static')).check();
        await expect(field(page, 'address')).toBeVisible();
        await send(page, { mode: 'dhcp', hostname: 'desk' });
        await expect(resultMessage(page)).toHaveText('Saved.');
    });
});

test.describe('the page audio', () => {
    test('shows each value next to its slider', kJourney, async ({ page }) => {
        await signInTo(page, 'audio');
        await field(page, 'micGain').focus();
        await page.keyboard.press('Home');
        await expect(page.locator('[data-reading=micGain]')).toHaveText('-6');
        await page.keyboard.press('ArrowRight');
        await expect(page.locator('[data-reading=micGain]')).toHaveText('-5');
    });

    test('is saved and shows the saved values', kJourney, async ({ page, check }) => {
        await signInTo(page, 'audio');
        await send(page, kAudio);
        await expect(resultMessage(page)).toHaveText('Saved.');
        await expectValues(page, kAudio);
        await check(page);
    });

    test('rejects values that its form does not offer', async ({ page, expectStatus, check }) => {
        await signInTo(page, 'audio');
        await page.locator('#codec option').first().evaluate((option) => { option.value = 'mp3'; });
        await page.locator('#micGain').evaluate((slider) => { slider.max = 100; });
        expectStatus(422);
        await send(page, { codec: 'mp3', micGain: '99' });
        await expect(resultMessage(page)).toHaveText(text('form.errors', { errorCount: 2 }));
        await expect(errorOf(page, 'codec')).toHaveText(text('error.badChoice'));
        await expect(errorOf(page, 'micGain')).toHaveText(text('error.tooLarge', { limit: 6 }));
        await check(page, kBothSchemes);
    });
});
