// Forms: what is wrong is told beside the field, before and after sending; what is saved stays.
import { errorOf, expectValues, field, get, open, send, signInTo, told } from '../support/phone.js';
import { expect, startWithNewPhone, test } from '../support/test.js';

startWithNewPhone();

const kBothSchemes = { schemes: ['light', 'dark'] };

const kAccount = { enabled: true, label: 'Desk 7', displayName: 'Zoë Müller', userName: '1007',
    server: 'sip.example.net', port: '5070', transport: 'tls', expiry: '600' };
const kNetwork = { mode: 'static', address: '10.0.0.5', netmask: '255.255.255.0',
    gateway: '10.0.0.1', dns1: '10.0.0.2', dns2: '', hostname: 'desk-7', vlan: '12' };
const kAudio = { ringtone: 'pulse', ringVolume: '0', speakerVolume: '10', handsetVolume: '7',
    micGain: '-6', echo: false, codec: 'pcmu' };
const kAccess = { idleSeconds: '300', remoteAddresses: '127.0.0.1\n2001:db8::7' };

// Sends what the page would hold off; only the phone checks it.
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

for (const [p, good, wrong] of [
    ['accounts', kAccount, [
        // The field, its value, what is said of it, and what the phone itself says of it when that
        // is something else. No text: only the phone knows.
        ['label', '', 'Please fill in this field.'],
        ['userName', '', 'Please fill in this field.'],
        ['userName', 'a b', 'Spaces and control characters are not allowed.'],
        ['server', '', 'Please fill in this field.'],
        ['server', 'no_such host', 'Enter a valid host name.'],
        ['server', '300.1.1.1', null, 'Enter a valid host name.'],
        ['port', '', 'Please fill in this field.'],
        ['port', '0', 'Enter a value of at least 1.'],
        ['port', '65536', 'Enter a value of at most 65535.'],
        ['port', '1.5', 'Enter a whole number.'],
        ['expiry', '59', 'Enter a value of at least 60.'],
        ['expiry', '86401', 'Enter a value of at most 86400.'],
    ]],
    ['network', kNetwork, [
        ['address', '', 'Please fill in this field.'],
        ['address', '10.0.0.256', 'Enter an IP address, for example 192.168.1.20.'],
        ['address', '224.0.0.1', null, 'This address is reserved and cannot be used here.'],
        ['address', '10.0.0.255', null, 'This address is reserved and cannot be used here.'],
        ['netmask', '255.0.255.0', null, 'Enter a subnet mask, for example 255.255.255.0.'],
        ['netmask', 'big', 'Enter a subnet mask, for example 255.255.255.0.'],
        ['gateway', '10.0.1.1', null, "This address is outside the phone's network."],
        ['dns1', '', 'Please fill in this field.'],
        ['dns2', 'x', 'Enter an IP address, for example 192.168.1.20.'],
        ['hostname', '-desk', 'Enter a valid host name.'],
        ['hostname', '', 'Please fill in this field.'],
        ['vlan', '4095', 'Enter a value of at most 4094.'],
    ]],
    ['security', kAccess, [
        ['idleSeconds', '9', 'Enter a value of at least 10.'],
        ['idleSeconds', '3601', 'Enter a value of at most 3600.'],
        ['remoteAddresses', 'nobody', null, 'Enter an IP address, for example 192.168.1.20.'],
        ['remoteAddresses', '127.0.0.1\n127.0.0.1', null, 'This entry already exists.'],
        ['remoteAddresses', Array.from({ length: 17 }, (_, i) => `192.0.2.${i}`).join('\n'), null,
            'At most 16 entries are allowed.'],
    ]],
]) {
    test.describe(`the form of the page ${p}`, () => {
        test('says before it is sent what is wrong', async ({ page, check }) => {
            await signInTo(page, p);
            for (const [name, value, error] of wrong.filter(([, , text]) => text !== null)) {
                await send(page, { ...good, [name]: value });
                await expect(errorOf(page, name), `${name}: ${value}`).toHaveText(error);
                await expect(field(page, name)).toBeFocused();
                await expect(field(page, name)).toHaveAttribute('aria-invalid', 'true');
                await expect(page.locator('#main .error:not(:empty)')).toHaveCount(1);
                await expect(told(page)).toHaveCount(0);
            }
            await check(page, kBothSchemes);
        });

        test('takes the message away as soon as the value is right', async ({ page }) => {
            const [name, value] = wrong[0];
            await signInTo(page, p);
            await send(page, { ...good, [name]: value });
            await expect(errorOf(page, name)).not.toBeEmpty();
            await field(page, name).fill(good[name]);
            await expect(errorOf(page, name)).toBeEmpty();
            await expect(field(page, name)).not.toHaveAttribute('aria-invalid');
        });

        test('keeps what was entered when the phone refuses it', async ({ page, expectStatus, check }) => {
            await signInTo(page, p);
            for (const [name, value, error, ofPhone] of wrong.filter(([, value]) => value !== '1.5')) {
                await open(page, p);
                await uncheckedSend(page, expectStatus, { ...good, [name]: value });
                await expect(errorOf(page, name), `${name}: ${value}`).toHaveText(ofPhone ?? error);
                await expect(told(page)).toHaveText('One field needs attention. Nothing was saved.');
                await expect(field(page, name)).toBeFocused();
                await expectValues(page, { ...good, [name]: value });
            }
            await check(page, kBothSchemes);
        });

        test('is saved, and shows that again', async ({ page, check }) => {
            await signInTo(page, p);
            await send(page, good);
            await expect(told(page)).toHaveText('Saved.');
            await expectValues(page, good);
            await check(page, kBothSchemes);
            await open(page, p);
            await expect(told(page)).toHaveCount(0);
            await expectValues(page, good);
        });
    });
}

test.describe('the page accounts', () => {
    test('has a form for each of the six', async ({ page }) => {
        await signInTo(page, 'accounts');
        const tabs = page.locator('.tabs a');
        await expect(tabs).toHaveCount(6);
        await tabs.nth(5).click();
        await expect(tabs.nth(5)).toHaveAttribute('aria-current', 'page');
        await send(page, { label: 'The sixth' });
        await expect(told(page)).toHaveText('Saved.');
        await expect(tabs.nth(5)).toHaveText('6 The sixth');
        await tabs.nth(4).click();
        await expect(field(page, 'label')).toHaveValue('Line 5');
    });

    test('never shows a password', async ({ page }) => {
        await signInTo(page, 'accounts');
        await send(page, { ...kAccount, secret: 'open sesame' });
        await expect(told(page)).toHaveText('Saved.');
        expect(await page.content()).not.toContain('open sesame');
        const kept = await get(page.request, '/servlet?p=settings-config&q=export');
        expect(await kept.text()).not.toContain('open sesame');
    });

    test('says which accounts there are not', async ({ page, expectStatus, check }) => {
        await signInTo(page, 'accounts');
        for (const acc of ['-1', '6', '99999999999999999999']) {
            expectStatus(404);
            await open(page, 'accounts', `&acc=${acc}`);
            await expect(page.locator('#main h2'), acc).toHaveText('Account not found');
            await expect(page.locator('#main form')).toHaveCount(0);
        }
        await check(page, kBothSchemes);
        await page.locator('.tabs a').first().click();
        await expect(field(page, 'label')).toBeVisible();
    });

    test('is not to be had for what cannot be an account', async ({ page, expectStatus }) => {
        await signInTo(page, 'accounts');
        for (const acc of ['x', '1x', '1.5', '0x1']) {
            expectStatus(404);
            await open(page, 'accounts', `&acc=${acc}`);
            await expect(page.locator('body'), acc).toHaveText('404 - Not Found');
        }
    });
});

test.describe('the page network', () => {
    test('asks for addresses only when they are static', async ({ page }) => {
        await signInTo(page, 'network');
        await page.getByLabel('Automatic (DHCP)').check();
        await expect(field(page, 'address')).toBeHidden();
        await page.getByLabel('Static').check();
        await expect(field(page, 'address')).toBeVisible();
        await send(page, { mode: 'dhcp', hostname: 'desk' });
        await expect(told(page)).toHaveText('Saved.');
    });
});

test.describe('the page audio', () => {
    test('shows each value beside its slider', async ({ page }) => {
        await signInTo(page, 'audio');
        await field(page, 'micGain').focus();
        await page.keyboard.press('Home');
        await expect(page.locator('[data-reading=micGain]')).toHaveText('-6');
        await page.keyboard.press('ArrowRight');
        await expect(page.locator('[data-reading=micGain]')).toHaveText('-5');
    });

    test('is saved, and shows that again', async ({ page, check }) => {
        await signInTo(page, 'audio');
        await send(page, kAudio);
        await expect(told(page)).toHaveText('Saved.');
        await expectValues(page, kAudio);
        await check(page);
    });

    test('refuses what its form does not offer', async ({ page, expectStatus, check }) => {
        await signInTo(page, 'audio');
        await page.locator('#codec option').first().evaluate((option) => { option.value = 'mp3'; });
        await page.locator('#micGain').evaluate((slider) => { slider.max = 100; });
        expectStatus(422);
        await send(page, { codec: 'mp3', micGain: '99' });
        await expect(told(page)).toHaveText('2 fields need attention. Nothing was saved.');
        await expect(errorOf(page, 'codec')).toHaveText('Choose one of the listed options.');
        await expect(errorOf(page, 'micGain')).toHaveText('Enter a value of at most 6.');
        await check(page, kBothSchemes);
    });
});
