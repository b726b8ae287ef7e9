// The contacts page, starting with a thousand contacts.
import { text } from '../support/languages.js';
import { addContact, download, errorOf, expectAt, expectValues, field, file, open, resultMessage, send,
    signInTo } from '../support/phone.js';
import { expect, kJourney, startWithNewPhone, test } from '../support/test.js';

startWithNewPhone();

const kBothSchemes = { schemes: ['light', 'dark'] };

const rows = (page) => page.locator('#list tbody tr');
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
        await expect(page.locator('.paging')).toHaveText(/^\s*1\s+2\s+…\s+50\s+Next\s*$/);
        const first = await rows(page).first().innerText();
        await page.getByRole('link', { name: text('contacts.next') }).click();
        await expect(page.locator('.paging [aria-current]')).toHaveText('2');
        await expect(rows(page)).toHaveCount(20);
        expect(await rows(page).first().innerText()).not.toBe(first);
        await check(page, kBothSchemes);
        await page.getByRole('link', { name: text('contacts.previous') }).click();
        await expect.poll(() => rows(page).first().innerText()).toBe(first);
        await page.getByRole('link', { name: text('contacts.page', { link: 50 }) }).click();
        await expect(page.locator('.paging [aria-current]')).toHaveText('50');
    });

    test('has an index by letter', async ({ page }) => {
        await signInTo(page, 'contacts');
        const letters = page.getByRole('navigation', { name: text('contacts.letters') });
        await letters.getByRole('link', { name: 'Ö', exact: true }).waitFor({ state: 'detached' });
        await letters.getByRole('link', { name: 'O', exact: true }).click();
        await expect(page.locator('tr:target')).toContainText(/^\s*[OÖ]/);
        await letters.getByRole('link', { name: text('contacts.chinese') }).click();
        await expect(page.locator('tr:target')).toContainText(/[陈黄李刘王吴杨张赵周]/);
    });

    test('lists Chinese names by letter in Chinese', async ({ visit }) => {
        const page = await visit({ language: 'zh' });
        await signInTo(page, 'contacts');
        await page.locator('.letters').getByRole('link', { name: 'X', exact: true })
            .waitFor({ state: 'detached' });
        await page.locator('.letters').getByRole('link', { name: 'L', exact: true }).click();
        await expect(page.locator('tr:target')).toContainText(/^\s*L/);
        await page.goto('/servlet?p=contacts&page=50');
        await expect(rows(page).last()).toContainText(/^\s*(赵|周)/);
    });

    test('shows the nearest page for any page number', async ({ page }) => {
        await signInTo(page, 'contacts');
        for (const [wanted, shown] of [
            ['50', 50], ['51', 50], ['0', 1], ['-7', 1], ['x', 1], ['9999999999999999999999', 1],
        ]) {
            await open(page, 'contacts', `&page=${wanted}`);
            await expect(page.locator('.paging [aria-current]'), wanted).toHaveText(String(shown));
        }
    });

    test('can be searched by name and number, and keeps the search', kJourney, async ({ page, check }) => {
        await signInTo(page, 'contacts');
        await search(page, 'ALICE and');
        await expect(rows(page)).toContainText(['Alice Anderson']);
        await check(page, kBothSchemes);
        await search(page, '49 30 23125');
        await expect(page.locator('#count')).toHaveText(/^Found: \d+\. /);
        await page.getByRole('link', { name: text('contacts.next') }).click();
        await expect(page.locator('.paging [aria-current]')).toHaveText('2');
        await expectValues(page, { search: '49 30 23125' });
        await page.getByRole('link', { name: text('contacts.all') }).click();
        await expect(page.getByText(text('contacts.count', { contactCount: 1000 }))).toBeVisible();
    });

    test('can be searched in any script', async ({ page }) => {
        await signInTo(page, 'contacts');
        for (const [wanted, found] of [
            ['伟', '伟'], ['åSA', 'Åsa'], ["o'neill", "O'Neill"], ['MÜLLER', 'Müller'],
            ['mueller', 'Müller'], ['adele', 'Adèle'], ['33199', '+33 1 99'],
        ]) {
            await search(page, wanted);
            await expect(rows(page).first()).toContainText(found);
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

    test('can be added, found, removed and restored', kJourney, async ({ page, check }) => {
        await signInTo(page, 'contacts');
        await addContact(page, kContact);
        await expect(resultMessage(page)).toHaveText(text('contacts.added'));
        await expect(page.locator('tr.wanted')).toContainText(kContact.name);
        await search(page, 'zed');
        await expect(rows(page)).toHaveCount(1);
        await expect(rows(page)).toContainText(kContact.name);
        await expect(rows(page)).toContainText(kContact.number);
        await check(page, kBothSchemes);

        await page.getByRole('button', { name: `Remove: ${kContact.name}` }).click();
        await expect(resultMessage(page)).toContainText(
            text('contacts.removed', { removedName: kContact.name }));
        await expect(page.getByText(text('contacts.nothing', { search: 'zed' }))).toBeVisible();
        await check(page, kBothSchemes);
        await page.getByRole('button', { name: text('contacts.undo') }).click();
        await expect(resultMessage(page)).toHaveText(text('contacts.restored'));
        await expect(rows(page)).toContainText(kContact.number);
    });

    test('is removed without leaving its place in the list', async ({ page }) => {
        await signInTo(page, 'contacts');
        await open(page, 'contacts', '&page=7');
        const removed = rows(page).nth(15);
        const name = await removed.locator('td').first().innerText();
        const next = await rows(page).nth(16).locator('td').first().innerText();
        await removed.scrollIntoViewIfNeeded();
        const before = await page.evaluate(() => window.scrollY);
        expect(before).toBeGreaterThan(0);
        await removed.getByRole('button', { name: `Remove: ${name}` }).click();
        const undo = page.getByRole('button', { name: text('contacts.undo') });
        await expect(undo).toBeFocused();
        await expect(undo).toBeInViewport();
        await expect(page.locator('#spoken')).toHaveText(
            text('contacts.removed', { removedName: name }));
        expect(await page.evaluate(() => window.scrollY)).toBe(before);
        await expect(page.locator('.paging [aria-current]')).toHaveText('7');
        await expect(rows(page).nth(15)).toContainText(next);

        await page.keyboard.press('Enter');
        await expect(rows(page).nth(15)).toContainText(name);
        await expect(page.getByRole('link', { name: `Edit: ${name}` })).toBeFocused();
        await expect(page.locator('#spoken')).toHaveText(text('contacts.restored'));
        await expect(undo).toHaveCount(0);
    });

    test('can no longer be restored after some seconds', async ({ page }) => {
        await page.clock.install();
        await signInTo(page, 'contacts');
        await rows(page).first().getByRole('button', { name: 'Remove' }).click();
        const undo = page.getByRole('button', { name: text('contacts.undo') });
        await expect(undo).toBeFocused();
        await page.clock.fastForward(60_000);
        await expect(undo, 'not from under the focus').toBeVisible();
        await page.locator('#search').focus();
        await page.clock.fastForward(2_000);
        await expect(undo).toHaveCount(0);
    });

    test('can be edited in its place', async ({ page, check, expectStatus }) => {
        await signInTo(page, 'contacts');
        await search(page, 'Victor');
        const row = rows(page).first();
        await expect(row).toContainText('Victor');
        const name = await row.locator('td').first().innerText();
        await page.getByRole('link', { name: `Edit: ${name}` }).click();
        await expect(field(page, 'name')).toBeFocused();
        await expectValues(page, { name });
        await check(page, kBothSchemes);

        await page.getByRole('link', { name: text('contacts.cancel') }).click();
        await expect(page.getByRole('link', { name: `Edit: ${name}` })).toBeFocused();

        await page.keyboard.press('Enter');
        await send(page, { number: 'none' });
        await expect(errorOf(page, 'number')).toHaveText(text('error.badNumber'));
        expectStatus(422);
        await send(page, { name: 'Alice Brooks', number: '4711' });
        await expect(errorOf(page, 'name')).toHaveText(text('error.duplicate'));
        await expect(field(page, 'name')).toBeFocused();
        await send(page, { name: 'Victor Victorious' });
        await expect(resultMessage(page)).toHaveText(text('contacts.saved'));
        await expect(rows(page).filter({ hasText: 'Victor Victorious' })).toContainText('4711');
        await expect(page.getByRole('link', { name: 'Edit: Victor Victorious' })).toBeFocused();
    });

    test('is found while its name is typed', async ({ page }) => {
        await signInTo(page, 'contacts');
        await page.locator('#search').focus();
        await page.keyboard.type('adele fontaine');
        await expect(rows(page)).toHaveCount(1);
        await expect(rows(page)).toContainText('Adèle Fontaine');
        await expect(page.locator('#search')).toBeFocused();
        await expectValues(page, { search: 'adele fontaine' });
        await expect(page.locator('#spoken')).toHaveText(
            text('contacts.found', { contactCount: 1 }));
        await page.reload();
        await expect(rows(page)).toHaveCount(1);
    });

    test('can be called from the list', async ({ page }) => {
        await signInTo(page, 'contacts');
        await search(page, 'Alice Foster');
        await page.getByRole('button', { name: 'Call: Alice Foster, +' }).click();
        await expectAt(page, 'phone');
        await expect(page.locator('#main')).toContainText('+1');
        await page.request.get('/servlet?command=hangup');
    });

    test('that another user removed is reported', async ({ visit }) => {
        const [one, other] = [await visit(), await visit()];
        for (const page of [one, other]) {
            await signInTo(page, 'contacts');
        }
        const name = await rows(one).first().locator('td').first().innerText();
        for (const [page, message] of [
            [one, text('contacts.removed', { removedName: name })],
            [other, text('contacts.gone')],
        ]) {
            await rows(page).first().getByRole('button', { name: 'Remove' }).click();
            await expect(resultMessage(page)).toContainText(message);
        }
    });

    test('must have a unique name', async ({ page, expectStatus, check }) => {
        await signInTo(page, 'contacts');
        expectStatus(422);
        await addContact(page, { name: 'Alice Brooks', number: '1' });
        await expect(errorOf(page, 'name')).toHaveText(text('error.duplicate'));
        await expectValues(page, { name: 'Alice Brooks', number: '1' });
        await check(page, kBothSchemes);
    });

    test('must have a number that can be dialled', async ({ page }) => {
        await signInTo(page, 'contacts');
        await addContact(page, { name: 'Nobody', number: 'call me' });
        await expect(errorOf(page, 'number')).toHaveText(
            text('error.badNumber'));
        await addContact(page, { name: '', number: '1' });
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
        expect(lines[0]).toBe('name,number,mobile,home');
        expect(lines).toContain('Alice Anderson,+1 202 555-0100,,');
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
        await expect(rows(page)).toContainText(['222']);
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
        await preview(page, 'Xenia Unseen,1\n');
        await page.getByRole('link', { name: text('preview.leave') }).click();
        await search(page, 'Xenia Unseen');
        const message = text('contacts.nothing', { search: 'Xenia Unseen' });
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

    for (const [what, content] of [
        ['a workbook', Buffer.from('PK\x03\x04,1\n')],
        ['a letter', 'Dear Sir or Madam\nthis is no list\n'],
    ]) {
        test(`that is ${what} is rejected with one message`, async ({ page, expectStatus, check }) => {
            await signInTo(page, 'contacts');
            expectStatus(422);
            await preview(page, content);
            await expect(resultMessage(page)).toHaveText(text('preview.noList'));
            await expect(page.locator('.counts')).toHaveCount(0);
            await check(page);
        });
    }

    test('of Excel is read with its delimiter, encoding and titles', async ({ visit }) => {
        for (const [language, content] of [
            ['en', Buffer.from('\ufeffFull Name,Business Phone\r\nAda Übel,1\r\n')],
            ['de', Buffer.from('Name;Telefon;Mobil\r\nAda Übel;1;\r\n', 'latin1')],
            ['zh', Buffer.from('\ufeff姓名\t电话\r\nAda Übel\t1\r\n', 'utf16le')],
        ]) {
            const page = await visit({ language });
            await signInTo(page, 'contacts-preview');
            await field(page, 'contacts').setInputFiles(csv(content));
            await page.locator('form[action$="q=preview"] button').click();
            await expectCounts(page, [1, 0, 0, 0]);
            await expect(page.getByRole('cell', { name: 'Ada Übel', exact: true })).toBeVisible();
        }
    });

    test('with other titles can have its columns corrected', async ({ page, check }) => {
        await signInTo(page, 'contacts');
        await preview(page, 'Wer,Wo,Was\nAda,Berlin,400\n');
        await expectCounts(page, [0, 0, 0, 2]);
        await page.locator('#column-number').selectOption(text('preview.noColumn'));
        await page.locator('#column-mobile').selectOption(
            text('preview.column', { columnNumber: 3, title: 'Was' }));
        await page.getByRole('button', { name: text('preview.useColumns') }).click();
        await expectCounts(page, [1, 0, 0, 1]);
        await check(page, kBothSchemes);
        await page.getByRole('button', { name: text('preview.apply') }).click();
        await search(page, 'Ada');
        await expect(rows(page).first()).toContainText(text('contacts.mobile'));
    });

    test('of 1,200 lines is previewed in pages', async ({ page }) => {
        await signInTo(page, 'contacts');
        const lines = Array.from({ length: 900 }, (_, i) => `Visitor ${1000 + i},${1000 + i}`);
        await preview(page, [...lines, ...Array(300).fill('nobody,none')].join('\n'));
        await expectCounts(page, [900, 0, 0, 300]);
        await expect(page.locator('.paging')).toContainText(
            text('contacts.pageOf', { pageNumber: 1, pages: 20 }));
        await open(page, 'contacts-preview', '&page=20');
        await expect(page.getByRole('cell', { name: 'Visitor 1899', exact: true })).toBeVisible();
        await expect(page.locator('#main tbody tr')).toHaveCount(50);
    });
});
