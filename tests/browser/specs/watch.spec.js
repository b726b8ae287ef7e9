// The checks themselves: every fault of a page makes a test fail.
import { faultsOf } from '../support/check.js';
import { faultsOfHtml } from '../support/html.js';
import { expect, test } from '../support/test.js';
import { Watch } from '../support/watch.js';

const kHead = '<meta charset="utf-8"><title>A page</title>';
const kGood = `<!DOCTYPE html>
<html lang="en"><head>${kHead}</head><body><main><h1>A page</h1></main></body></html>`;

const withBody = (body) => kGood.replace('<h1>A page</h1>', `<h1>A page</h1>${body}`);

// Serves a page at an unused address and returns the problems found.
const observed = test.extend({
    observe: async ({ browser, baseURL }, use) => {
        const context = await browser.newContext({ baseURL });
        await use(async (html, headers = {}) => {
            const watch = new Watch(context, 'en');
            await context.route('**/made-up', (route) => route.fulfill({
                contentType: 'text/html; charset=utf-8', headers, body: html }));
            const page = await context.newPage();
            await page.goto('/made-up');
            return { page, watch };
        });
        await context.close();
    },
});

observed('a page without faults passes', async ({ observe }) => {
    const { page, watch } = await observe(kGood);
    expect(watch.takeProblems()).toEqual([]);
    const faults = await faultsOf(
        page, watch.documentOf(page), { language: 'en', schemes: ['light', 'dark'] });
    expect(faults).toEqual([]);
});

for (const [what, body, problem] of [
    ['an error on the console', '<script>console.error("so bad")</script>', /^console error: so bad/],
    ['a warning', '<script>console.warn("beware")</script>', /^console warning: beware/],
    ['an exception', '<script>throw new Error("ouch")</script>', /^uncaught: .*ouch/],
    ['a rejected promise', '<script>Promise.reject(new Error("ouch"))</script>', /^uncaught: .*ouch/],
    ['a missing picture', '<img src="/none.png" alt="">', /^status 404: GET .*\/none.png/],
    ['a server that is away', '<img src="http://127.0.0.1:1/" alt="">', /^failed: GET http:\/\/127/],
]) {
    observed(`${what} is noticed`, async ({ observe }) => {
        const { watch } = await observe(withBody(body));
        expect(watch.takeProblems()).toContainEqual(expect.stringMatching(problem));
        expect(watch.takeProblems()).toEqual([]);
    });
}

observed('a violation of the content security policy is noticed', async ({ observe }) => {
    const { watch } = await observe(withBody('<script>var a</script>'),
        { 'Content-Security-Policy': "default-src 'self'" });
    expect(watch.takeProblems()).toEqual([expect.stringMatching(/Content Security Policy/)]);
});

test('a page that replaces itself is a fault, except without scripts', async () => {
    const refresh = '<meta http-equiv="refresh" content="9;url=/">';
    const withHead = (head) => kGood.replace('</head>', `\n${head}</head>`).concat('\n');
    expect(await faultsOfHtml(withHead(refresh))).toEqual(
        expect.arrayContaining([expect.stringMatching(/Meta refresh must be instant/)]));
    expect((await faultsOfHtml(withHead(`<noscript>${refresh}</noscript>`))).join())
        .not.toMatch(/refresh/);
});

observed('an expected error status passes once; its absence fails', async ({ observe }) => {
    const { page, watch } = await observe(kGood);
    watch.expectStatus(404);
    await page.goto('/none');
    expect(watch.takeProblems()).toEqual([]);
    await page.goto('/none');
    expect(watch.takeProblems()).toEqual([expect.stringMatching(/^status 404: GET/)]);
    watch.expectStatus(403);
    expect(watch.takeProblems()).toEqual(['no response with status 403']);
});

observed('an expected request without a response passes once; its absence fails', async ({ observe }) => {
    const { page, watch } = await observe(kGood);
    const ask = () => page.evaluate(() => fetch('http://127.0.0.1:1/').catch(() => {}));
    watch.expectFailure();
    await ask();
    expect(watch.takeProblems()).toEqual([]);
    await ask();
    expect(watch.takeProblems()).toEqual([expect.stringMatching(/^failed: GET/)]);
    watch.expectFailure();
    expect(watch.takeProblems()).toEqual(['no request without a response']);
});

async function giveUp(page) {
    const failed = page.waitForEvent('requestfailed');
    await page.evaluate(() => {
        const abort = new AbortController();
        fetch('/endless', { signal: abort.signal }).catch(() => {});
        setTimeout(() => abort.abort(), 100);
    });
    await failed;
}

observed('a request aborted by a page that stays open is noticed unless expected',
    async ({ observe }) => {
        const { page, watch } = await observe(kGood);
        await page.context().route('**/endless', () => {});
        await giveUp(page);
        expect(watch.takeProblems()).toEqual([
            expect.stringMatching(/^failed: GET .*\/endless: net::ERR_ABORTED$/)]);
        watch.expectFailure();
        await giveUp(page);
        expect(watch.takeProblems()).toEqual([]);
    });

observed('a request aborted because the page is left is no problem', async ({ observe }) => {
    const { page, watch } = await observe(kGood);
    await page.context().route('**/endless', () => {});
    const begun = page.waitForRequest('**/endless');
    await page.evaluate(() => { fetch('/endless'); });
    await begun;
    const failed = page.waitForEvent('requestfailed');
    await page.goto('/made-up');
    await failed;
    expect(watch.takeProblems()).toEqual([]);
});

function addModule(page, address) {
    return page.evaluate((src) => {
        const script = document.createElement('script');
        document.body.append(Object.assign(script, { type: 'module', src }));
    }, address);
}

observed('a module that has not arrived when the page is left is no problem', async ({ observe }) => {
    const { page, watch } = await observe(kGood);
    await page.context().route('**/endless', () => {});
    const begun = page.waitForRequest('**/endless');
    await addModule(page, '/endless');
    await begun;
    const failed = page.waitForEvent('requestfailed');
    await page.goto('/made-up');
    await failed;
    expect(watch.takeProblems()).toEqual([]);
});

observed('a module without a type is noticed', async ({ observe }) => {
    const { page, watch } = await observe(kGood);
    await page.context().route('**/untyped', (route) => route.fulfill({ contentType: '', body: '' }));
    const reported = page.waitForEvent('console');
    await addModule(page, '/untyped');
    await reported;
    expect(watch.takeProblems()).toEqual([expect.stringMatching(/MIME type of ""/)]);
});

observed('a request sent while the page is left is no problem', async ({ observe }) => {
    const { page, watch } = await observe(
        kGood.replace('</body>', '<script>onpagehide = () => fetch("/endless");</script></body>'));
    await page.context().route('**/endless', () => {});
    const failed = page.waitForEvent('requestfailed');
    await page.goto('/made-up');
    await failed;
    expect(watch.takeProblems()).toEqual([]);
});

observed('data refused to a page that signs out is no problem', async ({ observe }) => {
    const { page, watch } = await observe(kGood);
    let answerData;
    const isAnswered = new Promise((resolve) => { answerData = resolve; });
    await page.context().route('**/data', async (route) => {
        await isAnswered;
        await route.fulfill({ status: 403, body: '' });
    });
    const slow = new Promise((resolve) => { page.context().route('**/slow', resolve); });
    const asked = page.waitForRequest('**/data');
    await page.evaluate(() => { fetch('/data'); });
    await asked;
    const left = page.waitForRequest('**/slow');
    await page.evaluate(() => { location.assign('/slow'); });
    await left;
    const refused = page.waitForResponse('**/data');
    answerData();
    await refused;
    expect(watch.takeProblems()).toEqual([]);
    await (await slow).abort(); // closing the page would wait for it
});

observed('data refused to a page that stays open is noticed', async ({ observe }) => {
    const { page, watch } = await observe(kGood);
    await page.context().route('**/data', (route) => route.fulfill({ status: 403, body: '' }));
    await page.evaluate(() => fetch('/data'));
    expect(watch.takeProblems()).toEqual([expect.stringMatching(/^status 403: GET .*\/data$/)]);
});

for (const [what, html, fault] of [
    ['an image without a text', withBody('<img src="data:,">'), /^light: axe image-alt/],
    ['a text without contrast in the dark scheme',
        kGood.replace('</head>', `<style>:root { color-scheme: light dark }
            body { background: Canvas }
            @media (prefers-color-scheme: dark) { h1 { color: #222 } }</style></head>`),
        /^dark: axe color-contrast/],
    ['an element that is not closed', withBody('<div>'), /^html .*close-order/],
    ['an id twice', withBody('<p id="a">1</p><p id="a">2</p>'), /^html .*no-dup-id/],
    ['a page without a document type', kGood.replace('<!DOCTYPE html>', ''), /^html .*doctype/],
    ['a page in another language', kGood.replace('"en"', '"de"'), /^lang is de, not en$/],
]) {
    observed(`${what} is noticed`, async ({ observe }) => {
        const { page, watch } = await observe(html);
        const faults = await faultsOf(
            page, watch.documentOf(page), { language: 'en', schemes: ['light', 'dark'] });
        expect(faults).toContainEqual(expect.stringMatching(fault));
    });
}
