// The charts of the status page, with data that the test chooses.
import { kLanguages, textIn } from '../support/languages.js';
import { signInTo } from '../support/phone.js';
import { expect, startWithNewPhone, test } from '../support/test.js';

startWithNewPhone();

const kMiB = 1024;
const kHour = Array.from({ length: 60 }, (_, i) => [100 * kMiB + i * kMiB, 50_000 + 1000 * i, 20_000, i % 4]);

// Answers the page with these samples, which it is to ask for once, then with none.
async function serve(page, samples, changes = {}) {
    const asked = [];
    await page.route(/p=status-data/, (route) => {
        const since = Number(new URL(route.request().url()).searchParams.get('since'));
        asked.push(since);
        return route.fulfill({ json: {
            uptime: { seconds: 2 * 86_400 + 3 * 3600 + asked.length },
            memory: { total: 256 * kMiB, available: 96 * kMiB },
            traffic: { received: 1000 * asked.length, sent: 500 * asked.length },
            events: { count: 1234, recent: [] },
            accounts: [],
            history: { next: samples.length, events: 1232, samples: samples.slice(since) },
            ...changes,
        } });
    });
    return asked;
}

const pathOf = (page, name) => page.locator(`[data-line="${name}"]`).getAttribute('d');
const scale = (page, name) => page.locator(`[data-scale="${name}"] li`);

for (const language of kLanguages) {
    test.describe(`in ${language}`, () => {
        test.use({ language });
        const say = textIn(language);

        test('the charts begin with the last hour, and have units and a span', async ({ page }) => {
            const asked = await serve(page, kHour);
            await signInTo(page, 'status');
            await expect.poll(() => pathOf(page, 'memory')).toMatch(/^M1 /);
            for (const name of ['memory', 'received', 'sent']) {
                expect((await pathOf(page, name)).split('L')).toHaveLength(60);
            }
            expect((await pathOf(page, 'events')).match(/M/g)).toHaveLength(60);
            await expect(scale(page, 'memory')).toHaveText(['256 MiB', '128 MiB', '0']);
            const rate = (size) => say('chart.perSecond', { rate: size });
            await expect(scale(page, 'traffic')).toHaveText([rate('200 KiB'), rate('100 KiB'), '0']);
            await expect(scale(page, 'events')).toHaveText(['4', '2', '0']);
            await expect(page.locator('.span').first().locator('li')).toHaveText(
                [say('chart.start'), say('chart.middle'), say('chart.end')]);
            await expect(page.locator('.legend li')).toContainText(
                [say('chart.received'), say('chart.sent')]);
            await expect(page.locator('[data-chart=memory]')).toHaveAccessibleName(
                say('chart.summary', { name: say('chart.memory'), lowest: '101 MiB',
                    highest: '160 MiB' }));
            await expect.poll(() => asked.length).toBeGreaterThan(1);
            expect(asked.slice(0, 2)).toEqual([0, 60]);
        });

        test('durations have the plural of the language', async ({ page }) => {
            const event = (ago) => ({ time: '2026-03-02 09:41:07', name: 'key', value: '1',
                from: '192.0.2.9', result: 'notAllowed', ago });
            await serve(page, [], { events: { count: 5,
                recent: [0, 60, 7200, 86_400, 3 * 86_400].map(event) } });
            await signInTo(page, 'status');
            await expect(page.locator('[data-value=uptime]')).toHaveText(
                `${say('time.days', { days: 2 })} ${say('time.hours', { hours: 3 })}`);
            await expect(page.locator('[data-events] [data-ago]')).toHaveText([
                say('ago.now'), say('ago.minutes', { minutes: 1 }), say('ago.hours', { hours: 2 }),
                say('ago.day'), say('ago.days', { days: 3 })]);
            await expect(page.locator('[data-events] .state').first())
                .toHaveText(say('result.notAllowed'));
        });
    });
}

test('a phone that has just started shows the current minute', async ({ page, check }) => {
    await serve(page, []);
    await signInTo(page, 'status');
    await expect(page.locator('[data-line=memory]')).toHaveAttribute('d', 'M59 37.5L60 37.5');
    await check(page, { schemes: ['light', 'dark'] });
});

test('the history begins anew after a restart', async ({ page }) => {
    let samples = kHour;
    await page.route(/p=status-data/, (route) => {
        const since = Number(new URL(route.request().url()).searchParams.get('since'));
        const first = since > samples.length ? 0 : since;
        return route.fulfill({ json: {
            uptime: { seconds: samples.length }, memory: { total: 256 * kMiB, available: 96 * kMiB },
            traffic: { received: 0, sent: 0 }, events: { count: 0, recent: [] }, accounts: [],
            history: { next: samples.length, events: 0, samples: samples.slice(first) } } });
    });
    await signInTo(page, 'status');
    await expect.poll(async () => (await pathOf(page, 'memory'))?.split('L').length).toBe(60);
    samples = kHour.slice(0, 2);
    await expect.poll(async () => (await pathOf(page, 'memory')).split('L').length).toBe(3);
});
