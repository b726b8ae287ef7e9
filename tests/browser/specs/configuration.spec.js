// The configuration file.
import { text } from '../support/languages.js';
import { confirmAndSend, download, expectValues, field, file, open, resultMessage, send, signInTo }
    from '../support/phone.js';
import { expect, kJourney, startWithNewPhone, test } from '../support/test.js';

startWithNewPhone();

const kRestore = 'q=localconfig&type=import';
const kBothSchemes = { schemes: ['light', 'dark'] };

const takeFile = (page) => download(page, page.getByRole('link', { name: 'Download' }));

async function importFile(page, content) {
    await open(page, 'settings-config');
    await field(page, 'config').setInputFiles(
        file('configuration.xml', content, 'application/xml'));
    await confirmAndSend(page, 'q=import');
}

async function setHostName(page, hostname) {
    await open(page, 'network');
    await send(page, { hostname });
    await expect(resultMessage(page)).toHaveText('Saved.');
}

async function expectHostName(page, hostname) {
    await open(page, 'network');
    await expectValues(page, { hostname });
}

test('an exported configuration can be imported', kJourney, async ({ page, check }) => {
    await signInTo(page, 'network');
    await setHostName(page, 'before');
    await open(page, 'settings-config');
    const { name, content } = await takeFile(page);
    expect(name).toBe('configuration.xml');

    await setHostName(page, 'after');
    await importFile(page, content);
    await expect(resultMessage(page)).toHaveText(text('config.imported'));
    await check(page, kBothSchemes);
    expect((await takeFile(page)).content).toEqual(content);
    await expectHostName(page, 'before');
});

test('the local copy restores the settings from before an import', async ({ page, check }) => {
    await signInTo(page, 'network');
    await setHostName(page, 'kept');
    await importFile(page,
        '<configuration><network><hostname>new</hostname></network></configuration>');
    await expectHostName(page, 'new');

    await open(page, 'settings-config');
    const form = page.locator(`#main form[action$="${kRestore}"]`);
    await page.getByText(text('config.restoreOpen')).click();
    await form.getByRole('button').click();
    await expect(page.locator('#restore-confirm-error')).toHaveText(text('error.required'));
    await check(page, kBothSchemes);
    await confirmAndSend(page, kRestore);
    await expect(resultMessage(page)).toHaveText(text('config.restored'));
    await check(page);
    await expectHostName(page, 'kept');

    await open(page, 'settings-config');
    await page.getByRole('button', { name: 'Remove' }).click();
    await expect(resultMessage(page)).toHaveText(text('config.removed'));
    await expect(page.getByText(text('config.localNone'))).toBeVisible();
    await expect(page.getByText(text('config.restoreOpen'))).toHaveCount(0);
});

test('a removed local copy cannot be restored', async ({ page, expectStatus, check }) => {
    await signInTo(page, 'settings-config');
    await importFile(page, '<configuration/>');
    const other = await page.context().newPage();
    await open(other, 'settings-config');
    await other.getByRole('button', { name: 'Remove' }).click();
    await expect(resultMessage(other)).toHaveText(text('config.removed'));

    expectStatus(422);
    await confirmAndSend(page, kRestore);
    await expect(resultMessage(page)).toHaveText(text('config.noCopy'));
    await check(page);
});

const kRefused = {
    'bad values': [`<configuration>
        <account><label>Fine</label></account><account><port>0</port><expiry>soon</expiry></account>
        <network><hostname>-</hostname><colour>red</colour></network></configuration>`, [
        ['account[2]/port', text('error.tooSmall', { limit: 1 })],
        ['account[2]/expiry', text('error.notANumber')],
        ['network/colour', text('error.unknownElement')],
        ['network/hostname', text('error.badHost')],
    ]],
    'no XML': ['hostname = desk', [['config', text('error.notXml')]]],
    'XML of something else': ['<html/>', [['html', text('error.unknownElement')]]],
    'a document type': ['<!DOCTYPE a [<!ENTITY b "c">]><configuration/>',
        [['config', text('error.notXml')]]],
    'another encoding': [Buffer.from([0x3c, 0xe4, 0x2f, 0x3e]),
        [['config', text('error.notUtf8')]]],
};

test('a file with errors is rejected as a whole', kJourney, async ({ page, expectStatus, check }) => {
    await signInTo(page, 'network');
    await setHostName(page, 'stays');
    for (const [what, [content, rows]] of Object.entries(kRefused)) {
        await test.step(what, async () => {
            expectStatus(422);
            await importFile(page, content);
            await expect(resultMessage(page)).toHaveText(
                text('config.errors'));
            await expect(page.locator('tbody td')).toHaveText(rows.flat());
            await check(page);
        });
    }
    expectStatus(422);
    await importFile(page, `<configuration>${' '.repeat(64 * 1024)}</configuration>`);
    await expect(resultMessage(page)).toHaveText(text('config.tooLarge'));
    await expectHostName(page, 'stays');
});

test('the form is not sent without a file', async ({ page }) => {
    await signInTo(page, 'settings-config');
    await page.getByRole('button', { name: 'Import' }).click();
    await expect(page.locator('#config-error')).toHaveText(text('error.required'));
    await expect(page.locator('#confirm-error')).toHaveText(text('error.required'));
    await expect(resultMessage(page)).toHaveCount(0);
});
