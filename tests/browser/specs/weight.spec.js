// What the browser transfers for a page.
import { kPages, open, postSignIn, signInTo } from '../support/phone.js';
import { expect, startWithNewPhone, test } from '../support/test.js';

startWithNewPhone();

const kLimit = 60 * 1024;

// Records the responses in this page. Returns a function that returns those until now: path, type,
// headers, status and transferred bytes.
async function record(page) {
    const browser = await page.context().newCDPSession(page);
    const recorded = new Map();
    const answer = (id) => {
        recorded.set(id, recorded.get(id) ?? { bytes: 0 });
        return recorded.get(id);
    };
    browser.on('Network.responseReceived', ({ requestId, type, response }) => {
        Object.assign(answer(requestId),
            { type, path: new URL(response.url).pathname, headers: new Headers(response.headers) });
    });
    // The status that arrived: the one above is the cached response's.
    browser.on('Network.responseReceivedExtraInfo', ({ requestId, statusCode }) => {
        answer(requestId).status = statusCode;
    });
    browser.on('Network.loadingFinished', ({ requestId, encodedDataLength }) => {
        answer(requestId).bytes = encodedDataLength;
    });
    await browser.send('Network.enable');
    return () => [...recorded.values()].filter(({ path }) => path !== undefined);
}

const isFile = ({ path }) => !path.startsWith('/servlet');

function expectLight(answers) {
    const counted = answers.filter(({ type }) => type !== 'Image');
    expect(counted.map(({ path }) => path))
        .toEqual(expect.arrayContaining(['/servlet', '/style.css', '/app.js']));
    expect(counted.reduce((sum, { bytes }) => sum + bytes, 0), 'bytes').toBeLessThan(kLimit);
    for (const { path, bytes, headers } of answers.filter(isFile)) {
        expect(bytes, `${path}: not from a cache`).toBeGreaterThan(0);
        expect(headers.get('etag'), `${path}: ETag`).toBeTruthy();
        expect(headers.get('content-encoding'), path).toBe('gzip');
    }
}

for (const p of ['login', ...Object.keys(kPages)]) {
    test(`the page ${p} is light at the first visit`, async ({ page }) => {
        if (p !== 'login') {
            await postSignIn(page.request);
        }
        const answers = await record(page);
        await open(page, p, p === 'login' ? '&q=loginForm' : '');
        await expect(page).toHaveURL(new RegExp(`[?]p=${p}(&|$)`));
        expectLight(answers());
    });
}

test('the files of a page are not transferred at the second visit', async ({ page }) => {
    await signInTo(page, 'status');
    const answers = await record(page);
    await open(page, 'status');
    const files = answers().filter(isFile);
    expect(files.map(({ path }) => path)).toContain('/style.css');
    expect(files.filter(({ bytes, status }) => bytes > 0 && status !== 304)).toEqual([]);
});
