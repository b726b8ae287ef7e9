// Properties of every page, in every language.
import { kLanguages, textsIn } from '../support/languages.js';
import { expectAt, expectSignedOut, kAdmin, kPages, open, signIn, signInTo, signOut }
    from '../support/phone.js';
import { expect, kJourney, startWithNewPhone, test } from '../support/test.js';

startWithNewPhone();

const kDesk = { width: 1280, height: 800 };
const kHand = { width: 390, height: 800 };
const kBothSchemes = { schemes: ['light', 'dark'] };

async function expectNoSidewaysScrolling(page) {
    for (const viewport of [kHand, kDesk]) {
        await page.setViewportSize(viewport);
        const beyond = await page.evaluate(
            () => document.documentElement.scrollWidth - document.documentElement.clientWidth);
        expect(beyond, `pixels beyond ${viewport.width}`).toBe(0);
    }
}

const languageLink = (page, name) =>
    page.locator('.languages').getByRole('link', { name }).locator('visible=true');
const languageOf = (page) => page.locator('html').getAttribute('lang');

test('what the web server answers itself fits its window and passes all checks', async ({
    page, check, expectStatus }) => {
    expectStatus(404);
    for (const [path, text] of [
        ['/nothing', 'Page not found · Seite nicht gefunden · 未找到页面'],
        ['/error-413.html', 'Too much data · Zu viele Daten · 数据过大'],
        ['/error-503.html', 'The phone is starting · Das Telefon startet · 话机正在启动'],
    ]) {
        await page.goto(path);
        await expect(page).toHaveTitle(text);
        await expect(page.locator('h1')).toHaveText(text);
        await expectNoSidewaysScrolling(page);
        await check(page, kBothSchemes);
    }
    await page.getByRole('link', { name: 'Noch einmal versuchen' }).click();
    await expect(page).toHaveURL('/error-503.html');
});

for (const language of kLanguages) {
    test.describe(`in ${language}`, () => {
        test.use({ language });
        const texts = textsIn(language);

        test('each page has its title, fits its window and passes all checks', async ({ page, check }) => {
            test.setTimeout(180_000);
            const titles = { ...kPages, 'contacts-preview': 'preview.title' };
            await signInTo(page, 'status');
            for (const [p, title] of Object.entries(titles)) {
                await test.step(p, async () => {
                    await open(page, p);
                    await expect(page).toHaveTitle(`${texts[title]} – ${texts.product}`);
                    await expect(page.locator('h1')).toHaveText(texts[title]);
                    await expectNoSidewaysScrolling(page);
                    await check(page, kBothSchemes);
                });
            }
        });

        test('the sign-in page has its title and fits its window', async ({ page }) => {
            await page.goto('/');
            await expect(page).toHaveTitle(`${texts['login.title']} – ${texts.product}`);
            await expectNoSidewaysScrolling(page);
        });

        test('the navigation leads to each page', async ({ page }) => {
            await signInTo(page, 'status');
            const links = page.locator('.side a');
            await expect(links).toHaveCount(Object.keys(kPages).length);
            for (const [p, title] of Object.entries(kPages)) {
                await links.and(page.locator(`[href="/servlet?p=${p}"]`)).click();
                await expectAt(page, p);
                await expect(page.locator('.side [aria-current=page]')).toHaveText(
                    await links.and(page.locator(`[href="/servlet?p=${p}"]`)).innerText());
                await expect(page.locator('h1')).toHaveText(texts[title]);
            }
        });
    });
}

test.describe('the language', () => {
    const german = textsIn('de');

    test('can be chosen on any page, which stays open, and is remembered', async ({ page, context }) => {
        await signInTo(page, 'network');
        await languageLink(page, 'Deutsch').click();
        await expectAt(page, 'network');
        await expect(page.locator('h1')).toHaveText(german['network.title']);
        expect(await languageOf(page)).toBe('de');

        const cookie = (await context.cookies()).find(({ name }) => name === 'lang');
        expect(cookie).toMatchObject({ value: 'de', httpOnly: true, sameSite: 'Lax' });
        const days = (cookie.expires - Date.now() / 1000) / 86_400;
        expect(Math.round(days)).toBe(365);

        await signOut(page);
        await expect(page.locator('h1')).toHaveText(german['login.title']);
        await languageLink(page, '中文').click();
        await expectSignedOut(page);
        expect(await languageOf(page)).toMatch(/^zh/);
    });

    test('follows the browser\'s preferences', async ({ visit }) => {
        for (const [liked, spoken] of [
            ['de-AT', 'de'], ['zh-CN', 'zh'], ['fr', 'en'], ['sv-SE', 'en'],
        ]) {
            const page = await visit({ locale: liked });
            await page.goto('/');
            expect((await languageOf(page)).split('-')[0], liked).toBe(spoken);
        }
    });

    test('ignores unknown languages in addresses and cookies',
        async ({ page, context, baseURL }) => {
            await open(page, 'language', '&to=xx&back=status');
            expect(await languageOf(page)).toBe('en');
            expect(await context.cookies()).not.toContainEqual(
                expect.objectContaining({ name: 'lang' }));

            await context.addCookies([{ name: 'lang', value: '../de', url: baseURL }]);
            await page.goto('/');
            expect(await languageOf(page)).toBe('en');
        });
});

test.describe('with the keyboard alone', () => {
    const focused = (page) => page.evaluate(() => {
        const element = document.activeElement;
        return element.getAttribute('href') ?? element.name ?? element.tagName;
    });

    test('the first Tab stop skips the navigation', async ({ page }) => {
        await signInTo(page, 'audio');
        await page.keyboard.press('Tab');
        const skip = page.getByRole('link', { name: 'Skip to content' });
        await expect(skip).toBeFocused();
        await expect(skip).toBeInViewport();
        await page.keyboard.press('Enter');
        await expect(page.locator('main')).toBeFocused();
        await page.keyboard.press('Tab');
        await expect(page.locator('#ringtone')).toBeFocused();
    });

    test('everything on a page can be reached in reading order',
        async ({ page }) => {
            await signInTo(page, 'security');
            const wanted = await page.evaluate(() => [
                ...document.querySelectorAll('a[href], button, input:not([type=hidden]), textarea'),
            ].filter((element) => element.checkVisibility()).map(
                (element) => element.getAttribute('href') ?? element.name ?? element.tagName));
            const reached = [];
            for (let i = 0; i < wanted.length; ++i) {
                await page.keyboard.press('Tab');
                reached.push(await focused(page));
            }
            expect(reached).toEqual(wanted);
            expect(wanted).toContain('remoteAddresses');
        });

    test('the phone can be used from sign-in to sign-out', kJourney, async ({ page }) => {
        await page.goto('/');
        await expect(page.locator('[name=user]')).toBeFocused();
        await page.keyboard.type('admin');
        await page.keyboard.press('Tab');
        await page.keyboard.type(kAdmin.password);
        await page.keyboard.press('Enter');
        await expectAt(page, 'status');

        await page.locator('.sign-out button').locator('visible=true').focus();
        await page.keyboard.press('Enter');
        await expectSignedOut(page);
    });
});

test.describe('in a narrow window', () => {
    test.use({ viewport: kHand });

    test('the menu opens, leads to a page and signs out', kJourney, async ({ page, check }) => {
        await signIn(page);
        const menu = page.locator('.menu');
        await expect(menu.getByRole('link', { name: 'Audio' })).toBeHidden();

        await menu.locator('summary').focus();
        await page.keyboard.press('Enter');
        await check(page, kBothSchemes);
        await page.keyboard.press('Tab');
        await expect(menu.getByRole('link', { name: 'Status' })).toBeFocused();
        await menu.getByRole('link', { name: 'Audio' }).click();
        await expectAt(page, 'audio');

        await menu.locator('summary').click();
        await signOut(page);
    });

    test('the menu contains the whole navigation', async ({ page }) => {
        await signIn(page);
        const addressesIn = (place) => page.locator(`${place} nav a`).evaluateAll(
            (links) => links.map((link) => link.getAttribute('href')));
        expect(await addressesIn('.menu')).toEqual(await addressesIn('.side'));
    });
});
