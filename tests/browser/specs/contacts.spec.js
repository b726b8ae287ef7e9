// The contacts page, starting with a thousand contacts.
import { text } from '../support/languages.js';
import { download, errorOf, expectAt, expectValues, field, file, open, resultMessage, send,
    signInTo } from '../support/phone.js';
import { expect, kJourney, startWithNewPhone, test } from '../support/test.js';

startWithNewPhone();

const kBothSchemes = { schemes: ['light', 'dark'] };

const rows = (page) => page.locator('form[action$="q=remove"] tbody tr');
const search = (page, wanted) => send(page, { search: wanted });
const csv = (content) => file('list.csv', content, 'text/csv');

async function preview(page, content) {
    await open(page, 'contacts-preview');
    await field(page, 'contacts').setInputFiles(csv(content));
    await page.getByRole('button', { name: text('preview.submit') }).click();
}

async function expectCounts(page, counts) {
    await expect(page.locator('.counts dd')).toHaveText(counts.map(String));
}

test.describe('the contact list', () => {
    test('is split into pages', async ({ page, check }) => {
        await signInTo(page, 'contacts');
        await expect(page.getByText(text('contacts.count', { contactCount: 1000 }))).toBeVisible();
        await expect(page.locator('.paging')).toHaveText(/^\s*Page 1 of 50\s+Next\s*$/);
        const first = await rows(page).first().innerText();
        await page.getByRole('link', { name: text('contacts.next') }).click();
        await expect(page.locator('.paging')).toContainText(
            text('contacts.pageOf', { pageNumber: 2, pages: 50 }));
        await expect(rows(page)).toHaveCount(20);
        expect(await rows(page).first().innerText()).not.toBe(first);
        await check(page, kBothSchemes);
        await page.getByRole('link', { name: text('contacts.previous') }).click();
        expect(await rows(page).first().innerText()).toBe(first);
    });

    test('shows the nearest page for any page number', async ({ page }) => {
        await signInTo(page, 'contacts');
        for (const [wanted, shown] of [
            ['50', 50], ['51', 50], ['0', 1], ['-7', 1], ['x', 1], ['9999999999999999999999', 1],
        ]) {
            await open(page, 'contacts', `&page=${wanted}`);
            await expect(page.locator('.paging'), wanted).toContainText(`Page ${shown} of 50`);
        }
    });

    test('can be searched by name and number, and keeps the search', kJourney, async ({ page, check }) => {
        await signInTo(page, 'contacts');
        await search(page, 'ALICE and');
        await expect(rows(page)).toContainText(['Alice Anderson']);
        await check(page, kBothSchemes);
        await search(page, '49 30 23125');
        await expect(page.getByText(/^Found: \d+\. /)).toBeVisible();
        await page.getByRole('link', { name: text('contacts.next') }).click();
        await expect(page.locator('.paging')).toContainText('Page 2');
        await expectValues(page, { search: '49 30 23125' });
        await page.getByRole('link', { name: text('contacts.all') }).click();
        await expect(page.getByText(text('contacts.count', { contactCount: 1000 }))).toBeVisible();
    });

    test('can be searched in any script', async ({ page }) => {
        await signInTo(page, 'contacts');
        for (const wanted of ['伟', 'Åsa', "O'Neill"]) {
            await search(page, wanted);
            await expect(rows(page).first()).toContainText(wanted);
        }
    });

    test('shows a search text without matches exactly as entered', async ({ page, check }) => {
        await signInTo(page, 'contacts');
        for (const wanted of [
            'zq\'"<>&%', '%', '.*', '\\', '<TMPL_VAR name="token">', '&amp;', '%3Cb%3E', '\u202e',
            '😀'.repeat(32),
        ]) {
            await search(page, wanted);
            await expectAt(page, 'contacts');
            const message = text('contacts.nothing', { search: wanted });
            await expect(page.getByText(message), wanted).toBeVisible();
            await expectValues(page, { search: wanted });
        }
        await check(page);
    });
});

test.describe('a contact', () => {
    const kContact = { name: 'Zoltan "Zed" Quick', number: '+36 (1) 555-0199' };

    test('can be added, found and removed', kJourney, async ({ page, check }) => {
        await signInTo(page, 'contacts');
        await send(page, kContact);
        await expect(resultMessage(page)).toHaveText(text('contacts.added'));
        await search(page, 'zed');
        await expect(rows(page)).toHaveCount(1);
        await expect(rows(page)).toContainText(kContact.name);
        await expect(rows(page)).toContainText(kContact.number);
        await check(page, kBothSchemes);

        await page.getByRole('button', { name: `Remove: ${kContact.name}` }).click();
        await expect(resultMessage(page)).toHaveText(text('contacts.removed'));
        await expect(page.getByText(text('contacts.nothing', { search: 'zed' }))).toBeVisible();
    });

    test('that another user removed is reported', async ({ visit }) => {
        const [one, other] = [await visit(), await visit()];
        for (const page of [one, other]) {
            await signInTo(page, 'contacts');
        }
        for (const [page, message] of [
            [one, text('contacts.removed')],
            [other, text('contacts.gone')],
        ]) {
            await rows(page).first().getByRole('button').click();
            await expect(resultMessage(page)).toHaveText(message);
        }
    });

    test('must have a unique name', async ({ page, expectStatus, check }) => {
        await signInTo(page, 'contacts');
        expectStatus(422);
        await send(page, { name: 'Alice Brooks', number: '1' });
        await expect(errorOf(page, 'name')).toHaveText(text('error.duplicate'));
        await expectValues(page, { name: 'Alice Brooks', number: '1' });
        await check(page, kBothSchemes);
    });

    test('must have a number that can be dialled', async ({ page }) => {
        await signInTo(page, 'contacts');
        await send(page, { name: 'Nobody', number: 'call me' });
        await expect(errorOf(page, 'number')).toHaveText(
            text('error.badNumber'));
        await send(page, { name: '', number: '1' });
        await expect(errorOf(page, 'name')).toHaveText(text('error.required'));
        await expect(resultMessage(page)).toHaveCount(0);
    });
});

test.describe('a contact file', () => {
    test('can be exported', kJourney, async ({ page }) => {
        await signInTo(page, 'contacts');
        const link = page.getByRole('link', { name: text('contacts.export') });
        const { name, content } = await download(page, link);
        expect(name).toBe('contacts.csv');
        const lines = content.toString('utf-8').split('\r\n');
        expect(lines[0]).toBe('name,number');
        expect(lines).toContain('Alice Anderson,+1 202 555-0100');
    });

    const kList = ['name,number', '"Aaron, A.",111', 'Benjamin Brooks,222', 'Nobody,none', ',333',
        '"open,444', ''].join('\n');

    test('is previewed before it is imported', kJourney, async ({ page, check }) => {
        await signInTo(page, 'contacts');
        await preview(page, kList);
        await expectCounts(page, [1, 1, 0, 3]);
        const cells = (title) => page.locator('section.card', {
            has: page.getByRole('heading', { name: title, exact: true }) }).locator('tbody tr');
        await expect(cells('New').locator('td')).toHaveText(['Aaron, A.', '111']);
        await expect(cells('Changed').locator('td').first()).toHaveText('Benjamin Brooks');
        await expect(cells('Changed').locator('td').last()).toHaveText('222');
        await expect(cells('Rejected')).toHaveText([/^4.*Number: Use only digits/s,
            /^5.*Name: Please fill in/s, /^6.*"open,444.*two columns, or a quotation mark/s]);
        await check(page, kBothSchemes);

        await page.getByRole('button', { name: text('preview.apply') }).click();
        await expect(resultMessage(page)).toHaveText(text('contacts.imported'));
        await expect(rows(page).first()).toContainText('Aaron, A.');
        await search(page, 'Benjamin Brooks');
        await expect(rows(page)).toContainText('222');
    });

    test('that is imported again changes nothing', async ({ page }) => {
        await signInTo(page, 'contacts');
        const link = page.getByRole('link', { name: text('contacts.export') });
        const { content } = await download(page, link);
        await preview(page, content);
        await expect(page.locator('.counts dd').first()).toHaveText('0');
        await expect(page.getByText(text('preview.nothing'))).toBeVisible();
        await expect(page.getByRole('button', { name: text('preview.apply') })).toHaveCount(0);
    });

    test('loses its preview when its user opens another page', async ({ page, expectStatus, check }) => {
        await signInTo(page, 'contacts');
        await preview(page, 'Zoltan Quick,1\n');
        await expectCounts(page, [1, 0, 0, 0]);
        await page.reload();
        await expectCounts(page, [1, 0, 0, 0]);

        const elsewhere = await page.context().newPage();
        await open(elsewhere, 'audio');
        expectStatus(409);
        await page.getByRole('button', { name: text('preview.apply') }).click();
        await expect(resultMessage(page)).toHaveText(
            text('preview.gone'));
        await check(page, kBothSchemes);
        await open(page, 'contacts-preview');
        await expect(page.locator('.counts')).toHaveCount(0);
    });

    test('is previewed to its own user only', async ({ visit }) => {
        const [one, other] = [await visit(), await visit()];
        await signInTo(one, 'contacts');
        await preview(one, 'Zoltan Quick,1\n');
        await signInTo(other, 'audio');
        await open(other, 'contacts-preview');
        await expect(other.locator('.counts')).toHaveCount(0);
        await one.reload();
        await expectCounts(one, [1, 0, 0, 0]);
    });

    test('can be discarded', async ({ page }) => {
        await signInTo(page, 'contacts');
        await preview(page, 'Zoltan Quick,1\n');
        await page.getByRole('link', { name: text('preview.leave') }).click();
        await search(page, 'Zoltan Quick');
        const message = text('contacts.nothing', { search: 'Zoltan Quick' });
        await expect(page.getByText(message)).toBeVisible();
    });

    for (const [what, content, says] of [
        ['is empty', '', text('upload.empty')],
        ['is too large', 'x'.repeat(1024 * 1024 + 1),
            text('preview.tooLarge')],
    ]) {
        test(`that ${what} is rejected`, async ({ page, expectStatus, check }) => {
            await signInTo(page, 'contacts');
            expectStatus(422);
            await preview(page, content);
            await expect(resultMessage(page)).toHaveText(says);
            await check(page);
        });
    }

    test('that is not text is rejected line by line', async ({ page, check }) => {
        await signInTo(page, 'contacts');
        await preview(page, Buffer.from([0xff, 0xfe, 0x00, 0x2c, 0x31, 0x0a]));
        await expectCounts(page, [0, 0, 0, 1]);
        await check(page);
    });
});
