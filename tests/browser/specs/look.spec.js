// The look that all pages share: colours, the choice between light and dark, the save bar, file
// inputs and motion.
import { kLanguages, text, textIn } from '../support/languages.js';
import { field, file, signInTo } from '../support/phone.js';
import { expect, startWithNewPhone, test } from '../support/test.js';

startWithNewPhone();

const themeButton = (page, name) => page.getByRole('button', { name: text(`theme.${name}`), exact: true });
const backgroundOf = (page) => page.evaluate(() => getComputedStyle(document.body).backgroundColor);

test.describe('the choice between light and dark', () => {
    test.use({ colorScheme: 'light' });

    test('changes the colours at once, and is kept', async ({ page, check }) => {
        await page.goto('/');
        const light = await backgroundOf(page);
        await themeButton(page, 'dark').click();
        await expect(themeButton(page, 'dark')).toHaveAttribute('aria-pressed', 'true');
        await expect(themeButton(page, 'system')).toHaveAttribute('aria-pressed', 'false');
        const dark = await backgroundOf(page);
        expect(dark).not.toBe(light);
        await check(page, { schemes: ['light'] });

        await signInTo(page, 'audio');
        expect(await backgroundOf(page)).toBe(dark);
        await expect(themeButton(page, 'dark')).toHaveAttribute('aria-pressed', 'true');

        await themeButton(page, 'system').click();
        expect(await backgroundOf(page)).toBe(light);
        await page.emulateMedia({ colorScheme: 'dark' });
        expect(await backgroundOf(page)).toBe(dark);
        await themeButton(page, 'light').click();
        expect(await backgroundOf(page)).toBe(light);
        await check(page, { schemes: ['dark'] });
    });

    test('is known before the first part of a page is drawn', async ({ page }) => {
        await page.goto('/');
        await themeButton(page, 'dark').click();
        await page.addInitScript(() => {
            new MutationObserver((changes, observer) => {
                if (document.body) {
                    window.themeAtBody = document.documentElement.dataset.theme;
                    observer.disconnect();
                }
            }).observe(document, { childList: true, subtree: true });
        });
        await page.reload();
        expect(await page.evaluate(() => window.themeAtBody)).toBe('dark');
    });

    test('reaches other windows of the browser', async ({ page, context }) => {
        await page.goto('/');
        const other = await context.newPage();
        await other.goto('/');
        await themeButton(page, 'dark').click();
        await expect(themeButton(other, 'dark')).toHaveAttribute('aria-pressed', 'true');
        expect(await backgroundOf(other)).toBe(await backgroundOf(page));
    });
});

test('success, warning, danger and selection differ in colour and in sign', async ({ page, check }) => {
    await signInTo(page, 'network');
    await page.locator('main').evaluate((main) => {
        for (const name of ['good', 'warning', 'bad']) {
            const message = document.createElement('p');
            message.className = name;
            message.textContent = name;
            main.append(message);
        }
    });
    await check(page, { schemes: ['light', 'dark'] });
    const looks = await page.locator('main > p, .side [aria-current]').evaluateAll(
        (elements) => elements.map((element) => {
            const { backgroundColor, color, boxShadow } = getComputedStyle(element);
            const disc = getComputedStyle(element, '::before');
            const sign = getComputedStyle(element, '::after');
            return { backgroundColor, color,
                sign: [boxShadow, disc.clipPath, sign.content, sign.transform].join() };
        }));
    expect(looks).toHaveLength(4);
    for (const property of ['backgroundColor', 'color', 'sign']) {
        expect(new Set(looks.map((look) => look[property])).size, property).toBe(4);
    }
});

// Presses Tab until the field has the focus; beside some is a button, such as that of a password.
async function tabTo(page, field) {
    const hasFocus = () => field.evaluate((element) => element === document.activeElement);
    for (let presses = 0; presses < 3 && !await hasFocus(); ++presses) {
        await page.keyboard.press('Tab');
    }
    await expect(field).toBeFocused();
}

test.describe('the save bar', () => {
    for (const viewport of [{ width: 390, height: 560 }, { width: 1440, height: 560 }]) {
        test(`stays in sight ${viewport.width} wide and covers no focused field`, async ({ page }) => {
            await page.setViewportSize(viewport);
            await signInTo(page, 'accounts');
            const save = page.locator('.save button');
            await expect(save).toBeInViewport({ ratio: 1 });
            const top = (await page.locator('.save').boundingBox()).y;
            const fields = page.locator('form.card').locator('input:not([type=hidden]), select');
            const count = await fields.count();
            await fields.first().focus();
            for (let i = 0; i < count; ++i) {
                await tabTo(page, fields.nth(i));
                const box = await fields.nth(i).boundingBox();
                const below = await page.locator('.save').boundingBox();
                expect(box.y + box.height, await fields.nth(i).getAttribute('name'))
                    .toBeLessThanOrEqual(Math.max(top, below.y));
            }
            await expect(save).toBeInViewport({ ratio: 1 });
        });
    }
});

test.describe('file inputs', () => {
    for (const language of kLanguages) {
        test.describe(`in ${language}`, () => {
            test.use({ language });
            const say = textIn(language);

            test('speak the language of the page and show the file', async ({ page }) => {
                await signInTo(page, 'settings-upgrade');
                const shown = page.locator('.file');
                await expect(shown).toHaveText(
                    new RegExp(`${say('upload.choose')}\\s+${say('upload.none')}`));
                // The native text is in the language of the browser.
                await expect(field(page, 'firmware')).toHaveCSS('opacity', '0');
                await field(page, 'firmware').setInputFiles(file('phone-2.1.0.img', 'image'));
                await expect(shown).toHaveText(
                    new RegExp(`${say('upload.choose')}\\s+phone-2\\.1\\.0\\.img`));
                await field(page, 'firmware').setInputFiles([]);
                await expect(shown).toContainText(say('upload.none'));
            });
        });
    }

    test('open the file dialog wherever they are pressed', async ({ page }) => {
        await signInTo(page, 'settings-config');
        for (const place of ['.file .button', '.file .chosen']) {
            const chooser = page.waitForEvent('filechooser');
            await page.locator(place).scrollIntoViewIfNeeded();
            const { x, y, width, height } = await page.locator(place).boundingBox();
            await page.mouse.click(x + width / 2, y + height / 2);
            await chooser;
        }
    });

    test.describe('without the script', () => {
        test.use({ javaScriptEnabled: false });

        test('are the browser\'s own', async ({ page }) => {
            await signInTo(page, 'settings-config');
            await expect(field(page, 'config')).toHaveCSS('opacity', '1');
            await expect(page.locator('.file .button')).toBeHidden();
        });
    });
});

test('nothing moves for those who asked for that', async ({ page }) => {
    await signInTo(page, 'audio');
    const save = page.locator('.save button');
    await expect(save).toHaveCSS('transition-duration', '0s');
    await page.emulateMedia({ reducedMotion: 'no-preference' });
    await expect(save).not.toHaveCSS('transition-duration', '0s');
});

test('the icons of the navigation exist', async ({ page }) => {
    await signInTo(page, 'status');
    const wanted = await page.locator('use').evaluateAll(
        (uses) => uses.map((use) => use.getAttribute('href')));
    expect(wanted.length).toBeGreaterThan(20);
    const drawn = await page.evaluate(async () => {
        const sprite = await (await fetch('/icons.svg')).text();
        return [...new DOMParser().parseFromString(sprite, 'image/svg+xml')
            .querySelectorAll('symbol')].map((symbol) => `/icons.svg#${symbol.id}`);
    });
    for (const href of wanted) {
        expect(drawn).toContain(href);
    }
});
