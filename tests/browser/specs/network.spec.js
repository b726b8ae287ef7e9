// A change of the phone's address, which must be confirmed from the new one.
import { text, textIn } from '../support/languages.js';
import { expectAt, expectValues, fillSignIn, open, resultMessage, send, signInTo } from
    '../support/phone.js';
import { expect, startWithNewPhone, test } from '../support/test.js';

startWithNewPhone();

const kBothSchemes = { schemes: ['light', 'dark'] };
const kNew = '192.168.1.20'; // playwright.config.js leads it to the phone
const kStatic = { mode: 'static', address: kNew, netmask: '255.255.255.0', gateway: '192.168.1.1',
    dns1: '192.168.1.2', hostname: 'desk-phone' };

const trial = (page) => page.locator('[data-trial]');
const timeLeft = (page) => trial(page).locator('[data-trial-left]');

test('a new address is kept once it is confirmed there', async ({ page, visit, check }) => {
    await signInTo(page, 'network');
    await expect(page.getByRole('heading', { name: text('lease.title') })).toBeVisible();
    await check(page, kBothSchemes);
    await send(page, kStatic);
    await expect(resultMessage(page).first()).toHaveText('Saved.');
    await expect(trial(page)).toContainText(text('trial.there'));
    await expect(timeLeft(page)).toHaveText(/^[12]:\d\d$/);
    await check(page, kBothSchemes);

    const there = await visit({ viewport: { width: 390, height: 800 } });
    await there.goto(await trial(page).getByRole('link', { name: kNew }).evaluate((link) => link.href));
    await fillSignIn(there);
    await expectAt(there, 'network');
    expect(new URL(there.url()).hostname).toBe(kNew);
    await check(there, kBothSchemes);
    await trial(there).getByRole('button', { name: text('trial.confirm') }).click();
    await expect(resultMessage(there)).toHaveText(text('trial.confirmed'));
    await expect(trial(there)).toBeHidden();
    await open(page, 'network');
    await expectValues(page, { mode: 'static', address: kNew });
    await expect(trial(page)).toBeHidden();
});

test('a new address can be undone at once', async ({ visit }) => {
    const page = await visit({ language: 'de' });
    await signInTo(page, 'network');
    await send(page, { ...kStatic, address: '192.168.1.30' });
    await expect(trial(page)).toContainText('192.168.1.30');
    await trial(page).getByRole('button', { name: textIn('de')('trial.undo') }).click();
    await expect(resultMessage(page)).toHaveText(textIn('de')('trial.undoneNow'));
    await expectValues(page, { mode: 'static', address: kNew });
});
