// Passwords: shown on demand, their strength, the commonest refused, and the wait after wrong ones.
import { kLanguages, text, textIn } from '../support/languages.js';
import { errorOf, field, fill, fillSignIn, kAdmin, open, postSignIn, resultMessage, send, signInTo }
    from '../support/phone.js';
import { expect, startWithNewPhone, test } from '../support/test.js';

startWithNewPhone();

// The name of the button that shows the field with this label.
const showOf = (label) => text('form.showOf', { shownField: text(label) });

const kBothSchemes = { schemes: ['light', 'dark'] };

test('can be shown with the keyboard, and are hidden when the form is sent', async ({ page, check }) => {
    await page.goto('/');
    const input = page.locator('[name=password]');
    const button = page.getByRole('button', { name: showOf('login.password') });
    await input.fill(kAdmin.password);
    await expect(button).toHaveAttribute('aria-pressed', 'false');
    await page.keyboard.press('Tab');
    await expect(button).toBeFocused();
    await page.keyboard.press('Space');
    await expect(button).toHaveAttribute('aria-pressed', 'true');
    await expect(input).toHaveAttribute('type', 'text');
    await check(page, kBothSchemes);
    await page.evaluate(() => {
        document.addEventListener('submit', (event) => event.preventDefault(), { once: true });
    });
    await input.press('Enter');
    await expect(input).toHaveAttribute('type', 'password');
    await expect(button).toHaveAttribute('aria-pressed', 'false');
});

test('shown ones are not kept when the session ends', async ({ page }) => {
    await signInTo(page, 'accounts');
    await fill(page, { label: 'Hall', secret: 'hush hush' });
    await page.getByRole('button', { name: showOf('accounts.secret') }).click();
    await field(page, 'secret').press('End');
    await page.keyboard.type('!');
    const draft = await page.evaluate(() => sessionStorage.getItem('draft'));
    expect(draft).toContain('Hall');
    expect(draft).not.toContain('hush');
});

test('show how strong they are, typed before the script has loaded', async ({ page }) => {
    await signInTo(page, 'security');
    let load;
    const typed = new Promise((resolve) => { load = resolve; });
    await page.route('**/passwords.js', async (route) => {
        await typed;
        await route.fallback();
    });
    await page.reload({ waitUntil: 'commit' });
    await field(page, 'newPassword').fill('garden gate');
    await expect(page.locator('[data-strength-of]')).toBeEmpty();
    load();
    await expect(page.locator('[data-strength-of]')).toHaveText(text('security.strengthFair'));
});

for (const language of kLanguages) {
    test.describe(`in ${language}`, () => {
        test.use({ language });
        const say = textIn(language);

        test('show how strong they are, and a common one is refused', async (
            { page, check, expectStatus }) => {
            await signInTo(page, 'security');
            const strength = page.getByRole('status').filter({ hasText: /./ });
            for (const [password, key] of [['abcdefgh123', 'Weak'], ['aaaabbbbcccc', 'Weak'],
                ['garden gate', 'Fair'], ['a garden gate and 7 hens', 'Strong']]) {
                await field(page, 'newPassword').fill(password);
                await expect(page.locator('[data-strength-of]')).toHaveText(
                    say(`security.strength${key}`));
            }
            await expect(strength).not.toHaveCount(0);
            await page.setViewportSize({ width: 390, height: 800 });
            await check(page, kBothSchemes);

            expectStatus(422);
            await send(page, { oldPassword: kAdmin.password, newPassword: 'Password2026!',
                repeat: 'Password2026!' });
            await expect(errorOf(page, 'newPassword')).toHaveText(say('error.tooCommon'));
            await expect(resultMessage(page)).toHaveText(say('form.oneError'));
            await check(page);
        });
    });
}

// Last, because sign-in attempts are limited afterwards.
test('the wait after wrong ones counts down', async ({ page, check, expectStatus }) => {
    const wrong = { ...kAdmin, password: 'wrong' };
    await page.goto('/');
    let wait = 0;
    while (wait < 8) {
        const answer = await postSignIn(page.request, wrong);
        wait = Number(answer.headers()['retry-after'] ?? 0);
    }
    await page.clock.install();
    await open(page, 'login');
    expectStatus(429);
    await fillSignIn(page, wrong);
    const message = page.locator('[data-wait]');
    const left = async () => Number((await message.innerText()).match(/\d+/));
    const first = await left();
    await page.clock.fastForward(2000);
    await expect.poll(left).toBeLessThanOrEqual(first - 2);
    await expect(message).toHaveAttribute('aria-live', 'off');
    await check(page);
    await page.clock.fastForward(60_000);
    await expect(message).toHaveText(text('login.waitOver'));
    await check(page, kBothSchemes);
});
