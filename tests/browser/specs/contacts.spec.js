// The directory: a thousand contacts to begin with.
import { download, errorOf, expectAt, expectValues, field, file, open, send, signInTo, told }
    from '../support/phone.js';
import { expect, startWithNewPhone, test } from '../support/test.js';

startWithNewPhone();

const kBothSchemes = { schemes: ['light', 'dark'] };

const rows = (page) => page.locator('form[action$="q=remove"] tbody tr');
const search = (page, text) => send(page, { search: text });
const csv = (text) => file('list.csv', text, 'text/csv');

async function preview(page, text) {
    await open(page, 'contacts-preview');
    await field(page, 'contacts').setInputFiles(csv(text));
    await page.getByRole('button', { name: 'Show preview' }).click();
}

async function expectCounts(page, counts) {
    await expect(page.locator('.counts dd')).toHaveText(counts.map(String));
}

test.describe('the list', () => {
    test('is shown page by page', async ({ page, check }) => {
        await signInTo(page, 'contacts');
        await expect(page.getByText('Contacts: 1000')).toBeVisible();
        await expect(page.locator('.paging')).toHaveText(/^\s*Page 1 of 50\s+Next\s*$/);
        const first = await rows(page).first().innerText();
        await page.getByRole('link', { name: 'Next' }).click();
        await expect(page.locator('.paging')).toContainText('Page 2 of 50');
        await expect(rows(page)).toHaveCount(20);
        expect(await rows(page).first().innerText()).not.toBe(first);
        await check(page, kBothSchemes);
        await page.getByRole('link', { name: 'Previous' }).click();
        expect(await rows(page).first().innerText()).toBe(first);
    });

    test('has a page for every number', async ({ page }) => {
        await signInTo(page, 'contacts');
        for (const [wanted, shown] of [
            ['50', 50], ['51', 50], ['0', 1], ['-7', 1], ['x', 1], ['9999999999999999999999', 1],
        ]) {
            await open(page, 'contacts', `&page=${wanted}`);
            await expect(page.locator('.paging'), wanted).toContainText(`Page ${shown} of 50`);
        }
    });

    test('is searched by name and number, and the search is kept', async ({ page, check }) => {
        await signInTo(page, 'contacts');
        await search(page, 'ALICE and');
        await expect(rows(page)).toContainText(['Alice Anderson']);
        await check(page, kBothSchemes);
        await search(page, '49 30 23125');
        await expect(page.getByText(/^Found: \d+\. /)).toBeVisible();
        await page.getByRole('link', { name: 'Next' }).click();
        await expect(page.locator('.paging')).toContainText('Page 2');
        await expectValues(page, { search: '49 30 23125' });
        await page.getByRole('link', { name: 'Show all' }).click();
        await expect(page.getByText('Contacts: 1000')).toBeVisible();
    });

    test('is searched in any script', async ({ page }) => {
        await signInTo(page, 'contacts');
        for (const text of ['伟', 'Åsa', "O'Neill"]) {
            await search(page, text);
            await expect(rows(page).first()).toContainText(text);
        }
    });

    test('shows what was searched in vain as it was entered', async ({ page, check }) => {
        await signInTo(page, 'contacts');
        for (const text of [
            'zq\'"<>&%', '%', '.*', '\\', '<TMPL_VAR name="token">', '&amp;', '%3Cb%3E', '\u202e',
            '😀'.repeat(32),
        ]) {
            await search(page, text);
            await expectAt(page, 'contacts');
            await expect(page.getByText(`No contacts match "${text}".`), text).toBeVisible();
            await expectValues(page, { search: text });
        }
        await check(page);
    });
});

test.describe('a contact', () => {
    const kContact = { name: 'Zoltan "Zed" Quick', number: '+36 (1) 555-0199' };

    test('is added, found and removed', async ({ page, check }) => {
        await signInTo(page, 'contacts');
        await send(page, kContact);
        await expect(told(page)).toHaveText('The contact was added.');
        await search(page, 'zed');
        await expect(rows(page)).toHaveCount(1);
        await expect(rows(page)).toContainText(kContact.name);
        await expect(rows(page)).toContainText(kContact.number);
        await check(page, kBothSchemes);

        await page.getByRole('button', { name: `Remove: ${kContact.name}` }).click();
        await expect(told(page)).toHaveText('The contact was removed.');
        await expect(page.getByText('No contacts match "zed".')).toBeVisible();
    });

    test('that is removed twice is said to be gone', async ({ visit }) => {
        const [one, other] = [await visit(), await visit()];
        for (const page of [one, other]) {
            await signInTo(page, 'contacts');
        }
        for (const [page, text] of [
            [one, 'The contact was removed.'],
            [other, 'This contact no longer exists.'],
        ]) {
            await rows(page).first().getByRole('button').click();
            await expect(told(page)).toHaveText(text);
        }
    });

    test('has a name of its own', async ({ page, expectStatus, check }) => {
        await signInTo(page, 'contacts');
        expectStatus(422);
        await send(page, { name: 'Alice Brooks', number: '1' });
        await expect(errorOf(page, 'name')).toHaveText('This entry already exists.');
        await expectValues(page, { name: 'Alice Brooks', number: '1' });
        await check(page, kBothSchemes);
    });

    test('has a number that can be dialled', async ({ page }) => {
        await signInTo(page, 'contacts');
        await send(page, { name: 'Nobody', number: 'call me' });
        await expect(errorOf(page, 'number')).toHaveText(
            'Use only digits, spaces and + * # ( ) -, with at least one digit.');
        await send(page, { name: '', number: '1' });
        await expect(errorOf(page, 'name')).toHaveText('Please fill in this field.');
        await expect(told(page)).toHaveCount(0);
    });
});

test.describe('a list', () => {
    test('is taken from the phone', async ({ page }) => {
        await signInTo(page, 'contacts');
        const { name, content } = await download(page, page.getByRole('link', { name: 'Export' }));
        expect(name).toBe('contacts.csv');
        const lines = content.toString('utf-8').split('\r\n');
        expect(lines[0]).toBe('name,number');
        expect(lines).toContain('Alice Anderson,+1 202 555-0100');
    });

    const kList = ['name,number', '"Aaron, A.",111', 'Benjamin Brooks,222', 'Nobody,none', ',333',
        '"open,444', ''].join('\n');

    test('is shown before it is imported', async ({ page, check }) => {
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

        await page.getByRole('button', { name: 'Import now' }).click();
        await expect(told(page)).toHaveText('The contacts were imported.');
        await expect(rows(page).first()).toContainText('Aaron, A.');
        await search(page, 'Benjamin Brooks');
        await expect(rows(page)).toContainText('222');
    });

    test('that is imported once more changes nothing', async ({ page }) => {
        await signInTo(page, 'contacts');
        const { content } = await download(page, page.getByRole('link', { name: 'Export' }));
        await preview(page, content);
        await expect(page.locator('.counts dd').first()).toHaveText('0');
        await expect(page.getByText('There is nothing to import.')).toBeVisible();
        await expect(page.getByRole('button', { name: 'Import now' })).toHaveCount(0);
    });

    test('that is shown is dropped by going elsewhere', async ({ page, expectStatus, check }) => {
        await signInTo(page, 'contacts');
        await preview(page, 'Zoltan Quick,1\n');
        await expectCounts(page, [1, 0, 0, 0]);
        await page.reload();
        await expectCounts(page, [1, 0, 0, 0]);

        const elsewhere = await page.context().newPage();
        await open(elsewhere, 'audio');
        expectStatus(409);
        await page.getByRole('button', { name: 'Import now' }).click();
        await expect(told(page)).toHaveText(
            'The preview has expired. Select the file again.');
        await check(page, kBothSchemes);
        await open(page, 'contacts-preview');
        await expect(page.locator('.counts')).toHaveCount(0);
    });

    test('that is shown to one is not shown to another', async ({ visit }) => {
        const [one, other] = [await visit(), await visit()];
        await signInTo(one, 'contacts');
        await preview(one, 'Zoltan Quick,1\n');
        await signInTo(other, 'audio');
        await open(other, 'contacts-preview');
        await expect(other.locator('.counts')).toHaveCount(0);
        await one.reload();
        await expectCounts(one, [1, 0, 0, 0]);
    });

    test('is discarded', async ({ page }) => {
        await signInTo(page, 'contacts');
        await preview(page, 'Zoltan Quick,1\n');
        await page.getByRole('link', { name: 'Discard' }).click();
        await search(page, 'Zoltan Quick');
        await expect(page.getByText('No contacts match "Zoltan Quick".')).toBeVisible();
    });

    for (const [what, text, says] of [
        ['is empty', '', 'No file was selected, or the file is empty.'],
        ['is too large', 'x'.repeat(1024 * 1024 + 1),
            'The file is too large. The maximum size is 1 MiB.'],
    ]) {
        test(`that ${what} is refused`, async ({ page, expectStatus, check }) => {
            await signInTo(page, 'contacts');
            expectStatus(422);
            await preview(page, text);
            await expect(told(page)).toHaveText(says);
            await check(page);
        });
    }

    test('that is no text is refused line by line', async ({ page, check }) => {
        await signInTo(page, 'contacts');
        await preview(page, Buffer.from([0xff, 0xfe, 0x00, 0x2c, 0x31, 0x0a]));
        await expectCounts(page, [0, 0, 0, 1]);
        await check(page);
    });
});
