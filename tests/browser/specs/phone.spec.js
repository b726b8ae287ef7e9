// The drawing of the phone, which is pressed by mouse, touch and keyboard.
import { kLanguages, text, textIn } from '../support/languages.js';
import { get, signInTo } from '../support/phone.js';
import { expect, kJourney, startWithNewPhone, test } from '../support/test.js';

startWithNewPhone();

test.afterEach(async ({ request }) => {
    await get(request, '/servlet?command=hangup');
});

const display = (page, row) => page.locator(`.desk [data-desk="line${row}"]`);
const key = (page, name) => page.locator(`.desk [data-key="${name}"]`);
const answer = (page) => page.getByRole('button', { name: text('phone.answer') });

for (const language of kLanguages) {
    test.describe(`in ${language}`, () => {
        test.use({ language });
        const say = textIn(language);

        test('an incoming call is shown and can be answered or rejected', async ({ page, request, check }) => {
            await signInTo(page, 'phone');
            const button = (name) => page.getByRole('button', { name: say(name), exact: true });
            await expect(display(page, 1)).toHaveText('Line 1');
            await expect(display(page, 2)).toHaveText(say('screen.ready'));
            await expect(button('phone.answer')).toBeHidden();

            await get(request, '/servlet?command=ring');
            await expect(display(page, 1)).toHaveText(say('screen.ringing', { lineLabel: 'Line 1' }));
            await expect(display(page, 2)).toHaveText('1002');
            await check(page, { schemes: ['light', 'dark'] });
            await button('phone.answer').click();
            await expect(display(page, 1)).toHaveText(say('screen.talking', { lineLabel: 'Line 1' }));
            await expect(button('phone.answer')).toBeHidden();
            await button('phone.hangUp').click();
            await expect(display(page, 2)).toHaveText(say('screen.ready'));

            await get(request, '/servlet?command=ring');
            await button('phone.reject').click();
            await expect(display(page, 2)).toHaveText(say('screen.ready'));
        });
    });
}

test.describe('with a finger', () => {
    test.use({ viewport: { width: 390, height: 800 }, hasTouch: true });

    test('the keys are large enough and dial', async ({ page }) => {
        await signInTo(page, 'phone');
        const sizes = await page.locator('.desk button:visible').evaluateAll((buttons) => buttons.map(
            (button) => Math.min(button.offsetWidth, button.offsetHeight)));
        expect(sizes.length).toBeGreaterThan(20);
        expect(Math.min(...sizes)).toBeGreaterThanOrEqual(44);
        for (const name of ['4', '2', 'POUND']) {
            await key(page, name).tap();
        }
        await expect(display(page, 2)).toHaveText('42#');
    });
});

test.describe('the keyboard', () => {
    test('dials, calls and hangs up', kJourney, async ({ page }) => {
        await signInTo(page, 'phone');
        await page.keyboard.type('17*#');
        await expect(display(page, 2)).toHaveText('17*#');
        await page.keyboard.press('Escape');
        await expect(display(page, 2)).toHaveText('17*');
        await page.keyboard.press('Enter');
        await expect(display(page, 1)).toHaveText('Line 1: In call');
        await page.keyboard.press('Escape');
        await expect(display(page, 1)).toHaveText('Line 1');
    });

    test('presses the button that has the focus with Enter, which is no second key', async ({ page }) => {
        await signInTo(page, 'phone');
        await key(page, '7').focus();
        await page.keyboard.press('Enter');
        await expect(display(page, 2)).toHaveText('7');
        await page.keyboard.press('8');
        await expect(display(page, 2)).toHaveText('78');
        await expect(page.locator('[data-desk=state]')).toHaveText('Dialling');
    });

    test('can be left to the browser', async ({ page }) => {
        await signInTo(page, 'phone');
        await page.getByLabel(text('phone.typing')).uncheck();
        await page.keyboard.press('5');
        await page.getByLabel(text('phone.typing')).check();
        await page.keyboard.press('6');
        await expect(display(page, 2)).toHaveText('6');
    });

    test('leaves key combinations to the browser', async ({ page }) => {
        await signInTo(page, 'phone');
        await page.keyboard.press('Control+0');
        await page.keyboard.press('6');
        await expect(display(page, 2)).toHaveText('6');
    });
});

test('everything that is drawn has a name or is text', async ({ page }) => {
    await signInTo(page, 'phone');
    const lamps = { L1: 'Line 1 off', L6: 'Line 6 off', SPEAKER: 'Speaker off', MUTE: 'Mute off' };
    for (const [name, spoken] of Object.entries(lamps)) {
        await expect(key(page, name)).toHaveAccessibleName(spoken);
    }
    await expect(key(page, 'STAR')).toHaveAccessibleName(text('key.star'));
    await expect(page.locator('.screen')).toHaveRole('status');
    await expect(page.locator('.message')).toContainText('Messages off');
    await key(page, 'L6').click();
    await expect(key(page, 'L6')).toHaveAccessibleName('Line 6 on');
    await expect(answer(page)).toBeHidden();
});

test('nothing that is seen repeats the drawing', async ({ page }) => {
    await signInTo(page, 'phone');
    const unseen = page.locator('main .unseen');
    expect(await unseen.count()).toBeGreaterThan(10);
    const sizes = await unseen.evaluateAll((elements) => elements.map(
        (element) => element.offsetWidth * element.offsetHeight));
    expect(Math.max(...sizes)).toBeLessThanOrEqual(1);
    await expect(page.locator('main :is(dl, ul, ol, table):not(.unseen)')).toHaveCount(0);
});
