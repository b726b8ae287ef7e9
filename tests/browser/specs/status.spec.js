// Live updates of the status page and the phone page.
import { text } from '../support/languages.js';
import { expectAt, get, open, signInTo } from '../support/phone.js';
import { expect, kJourney, startWithNewPhone, test } from '../support/test.js';

startWithNewPhone();

// A remote event as another device sends it: the query consists of the event.
async function sendEvent(request, event) {
    const answer = await get(request, `/servlet?${event}`);
    expect([event, answer.status(), await answer.text()]).toEqual([event, 200, 'OK\n']);
}

// Marks the document, to detect whether it was loaded again.
const mark = (page) => page.evaluate(() => { document.body.dataset.mark = 'yes'; });
const expectNotLoadedAgain = (page) => expect(page.locator('body[data-mark]')).toHaveCount(1);

const line = (page, name) => page.locator(`[data-line="${name}"]`);
const display = (page, row) => page.locator(`.desk [data-desk="line${row}"]`);
const state = (page) => page.locator('dd[data-desk="state"]');
const lamp = (page, name) => page.locator(`.desk [data-lamp="${name}"]`);

async function hangUp(request) {
    await get(request, '/servlet?command=hangup');
}

test.describe('the status page', () => {
    test('draws the live data', kJourney, async ({ page, check }) => {
        await signInTo(page, 'status');
        await mark(page);
        for (const name of ['memory', 'received', 'sent']) {
            await expect(line(page, name)).toHaveAttribute('d', /^M[\d. ]+L[\d. L]+$/, { timeout: 15_000 });
        }
        await expect(line(page, 'events')).toHaveAttribute('d', /^M[\d. ]+V[\d.]+h0\.8V100/);
        await expect(page.locator('[data-now=memory]')).toHaveText(/[KMG]iB of .*[KMG]iB in use/);
        for (const name of ['received', 'sent']) {
            await expect(page.locator(`[data-now=${name}]`)).toHaveText(/^[\d.,]+ [KMG]?i?B\/s$/);
        }
        await expectNotLoadedAgain(page);
        await check(page, { schemes: ['light', 'dark'] });
    });

    test('lists remote events as they arrive', kJourney, async ({ page, request, check }) => {
        await signInTo(page, 'status');
        await mark(page);
        await expect(page.getByText(text('status.noEvents'))).toBeVisible();
        await sendEvent(request, 'key=OK');
        const newest = page.locator('[data-events] tr').first();
        await expect(newest.locator('td')).toHaveText(
            [/^just now\s*\d{4}-\d\d-\d\d/, 'key', 'OK', '127.0.0.1', 'Done']);
        await expect(page.getByText(text('status.noEvents'))).toBeHidden();

        await sendEvent(request, 'number=123');
        await expect(newest.locator('td')).toHaveText(
            [/./, 'number', '123', '127.0.0.1', 'Done']);
        await expect(page.locator('[data-now=events]')).toHaveText('2 since startup');
        await expectNotLoadedAgain(page);
        await check(page, { schemes: ['light', 'dark'] });
        await hangUp(request);
    });

    test('shows events that the phone cannot carry out', async ({ page, request }) => {
        await signInTo(page, 'status');
        const answer = await get(request, `/servlet?key=${encodeURIComponent('zq\'"&%')}`);
        expect(answer.status()).toBe(400);
        await expect(page.locator('[data-events] tr').first().locator('td').nth(2))
            .toHaveText('zq\'"&%');
        const result = page.locator('[data-events] tr').first().locator('.state');
        await expect(result).toHaveText(text('result.notPossible'));
        await expect(result).toHaveAttribute('data-state', 'notPossible');
    });

    test('does not interrupt a click on a link', async ({ page, expectStatus }) => {
        let answerLate;
        await signInTo(page, 'status');
        await page.route(/p=status-data/, (route) => {
            answerLate = () => route.fulfill({ status: 403, body: 'Not signed in.' });
        });
        await expect.poll(() => answerLate !== undefined).toBe(true);
        await page.route(/p=audio/, async (route) => {
            expectStatus(403);
            const answered = page.waitForResponse(/p=status-data/);
            await answerLate();
            await (await answered).finished();
            await route.continue();
        });
        await page.getByRole('link', { name: 'Audio' }).click();
        await expectAt(page, 'audio');
    });

    test('links to the accounts', async ({ page }) => {
        await signInTo(page, 'status');
        await page.getByRole('link', { name: 'Line 2' }).click();
        await expectAt(page, 'accounts');
        await expect(page.locator('#label')).toHaveValue('Line 2');
    });
});

test.describe('the phone page', () => {
    test('shows changes of the phone as they happen', async ({ page, request, check }) => {
        await signInTo(page, 'phone');
        await mark(page);
        await expect(state(page)).toHaveText('On hook');

        await sendEvent(request, 'command=ring');
        await expect(state(page)).toHaveText('Ringing');
        await expect(lamp(page, 'L1')).toHaveAttribute('data-state', 'blinking');
        await expect(page.locator('[data-lamp-text=L1]')).toHaveText('flashing');
        await check(page, { schemes: ['light', 'dark'] });

        const lit = page.locator('.desk [data-key="OK"].pressed');
        await expect(lit).toHaveCount(0);
        await sendEvent(request, 'key=OK');
        await expect(lit).toHaveCount(1);
        await expect(page.locator('[data-desk=key]')).toHaveText('OK');
        await expect(lit).toHaveCount(0);
        await expect(state(page)).toHaveText(text('desk.talking'));
        await expect(display(page, 1)).toHaveText('Line 1: In call');
        await expect(lamp(page, 'L1')).toHaveAttribute('data-state', 'on');
        await expect(lamp(page, 'speaker')).toHaveAttribute('data-state', 'on');

        await sendEvent(request, 'command=message_on');
        await expect(lamp(page, 'message')).toHaveAttribute('data-state', 'blinking');
        await sendEvent(request, 'command=message_off');
        await sendEvent(request, 'command=hangup');
        await expect(state(page)).toHaveText('On hook');
        await expect(lamp(page, 'message')).toHaveAttribute('data-state', 'off');

        await sendEvent(request, 'number=123');
        await expect(display(page, 2)).toHaveText('123');
        await hangUp(request);
        await expectNotLoadedAgain(page);
    });

    test('has working keys and is not reloaded', kJourney, async ({ page, request }) => {
        await signInTo(page, 'phone');
        await mark(page);
        for (const key of [/^5/, /^0/, 'Star']) {
            await page.getByRole('button', { name: key }).click();
        }
        await expect(display(page, 2)).toHaveText('50*');
        await page.getByRole('button', { name: 'Cancel' }).click();
        await expect(display(page, 2)).toHaveText('50');
        await page.getByRole('button', { name: 'Line 3' }).focus();
        await page.keyboard.press('Enter');
        await expect(lamp(page, 'L3')).toHaveAttribute('data-state', 'on');
        await page.getByRole('button', { name: text('key.ok') }).click();
        await page.getByRole('button', { name: text('key.mute') }).click();
        await expect(lamp(page, 'mute')).toHaveAttribute('data-state', 'on');
        await page.getByRole('button', { name: text('key.hold') }).click();
        await expect(state(page)).toHaveText('On hold');
        await expectNotLoadedAgain(page);
        await hangUp(request);
    });
});

test('an event from an address that is not allowed is refused but listed',
    async ({ page, request }) => {
        await signInTo(page, 'security');
        await page.locator('#remoteAddresses').fill('192.0.2.7');
        await page.locator('form[action$="q=access"] button').click();
        await expect(page.getByText(text('form.saved'))).toBeVisible();
        const answer = await get(request, '/servlet?command=ring');
        expect(answer.status()).toBe(403);

        await open(page, 'phone');
        await expect(state(page)).toHaveText('On hook');
        await open(page, 'status');
        await expect(page.locator('[data-events] tr').first().locator('td')).toHaveText(
            [/./, 'command', 'ring', '127.0.0.1', text('result.notAllowed')]);
    });
