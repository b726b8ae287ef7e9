// When a page is first painted on a slow network: prints a table for docs/benchmarks.md.
import { kPages, open, postSignIn } from '../support/phone.js';
import { expect, startWithNewPhone, test } from '../support/test.js';

startWithNewPhone();

const kVisits = 5;
const kLogin = 'login'; // the page without a sign-in
// A slow mobile network.
const kNetwork = {
    offline: false,
    latency: 150, // milliseconds
    downloadThroughput: 1_600_000 / 8, // bytes per second
    uploadThroughput: 750_000 / 8,
};

// Returns the milliseconds until the first text or picture of a page that nothing is cached of.
async function firstPaint(page, p) {
    const browser = await page.context().newCDPSession(page);
    await browser.send('Network.enable');
    await browser.send('Network.emulateNetworkConditions', kNetwork);
    await open(page, p, p === kLogin ? '&q=loginForm' : '');
    await expect(page).toHaveURL(new RegExp(`[?]p=${p}(&|$)`));
    const painted = await page.waitForFunction(
        () => performance.getEntriesByName('first-contentful-paint')[0]?.startTime);
    return painted.jsonValue();
}

test('the first paint of each page', async ({ visit }) => {
    test.setTimeout(600_000);
    const rows = [];
    for (const p of [kLogin, ...Object.keys(kPages)]) {
        const times = [];
        for (let i = 0; i < kVisits; ++i) {
            const page = await visit({ viewport: { width: 390, height: 760 } });
            if (p !== kLogin) {
                await postSignIn(page.request);
            }
            times.push(await firstPaint(page, p));
            await page.close();
        }
        times.sort((one, other) => one - other);
        rows.push(`| ${p} | ${Math.round(times[Math.floor(kVisits / 2)])} | ${Math.round(times.at(-1))} |`);
    }
    console.log(['', '| page | median, ms | slowest, ms |', '|---|---|---|', ...rows].join('\n'));
});
