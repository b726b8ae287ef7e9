// The configuration as a file.
import { download, expectValues, field, file, open, send, signInTo, told }
    from '../support/phone.js';
import { expect, startWithNewPhone, test } from '../support/test.js';

startWithNewPhone();

const kBothSchemes = { schemes: ['light', 'dark'] };

const takeFile = (page) => download(page, page.getByRole('link', { name: 'Download' }));

async function importFile(page, content) {
    await open(page, 'settings-config');
    await field(page, 'config').setInputFiles(
        file('configuration.xml', content, 'application/xml'));
    await page.getByRole('button', { name: 'Import' }).click();
}

async function setHostName(page, hostname) {
    await open(page, 'network');
    await send(page, { hostname });
    await expect(told(page)).toHaveText('Saved.');
}

async function expectHostName(page, hostname) {
    await open(page, 'network');
    await expectValues(page, { hostname });
}

test('what was taken from the phone is given back to it', async ({ page, check }) => {
    await signInTo(page, 'network');
    await setHostName(page, 'before');
    await open(page, 'settings-config');
    const { name, content } = await takeFile(page);
    expect(name).toBe('configuration.xml');

    await setHostName(page, 'after');
    await importFile(page, content);
    await expect(told(page)).toHaveText('The configuration was imported.');
    await check(page, kBothSchemes);
    expect((await takeFile(page)).content).toEqual(content);
    await expectHostName(page, 'before');
});

test('the settings from before an import are taken back', async ({ page, check }) => {
    await signInTo(page, 'network');
    await setHostName(page, 'kept');
    await importFile(page,
        '<configuration><network><hostname>new</hostname></network></configuration>');
    await expectHostName(page, 'new');

    await open(page, 'settings-config');
    await page.getByRole('button', { name: 'Restore' }).click();
    await expect(told(page)).toHaveText('The local copy was restored.');
    await check(page);
    await expectHostName(page, 'kept');

    await open(page, 'settings-config');
    await page.getByRole('button', { name: 'Remove' }).click();
    await expect(told(page)).toHaveText('The local copy was removed.');
    await expect(page.getByText('There is no local copy yet. Importing a configuration creates one.')).toBeVisible();
    await expect(page.getByRole('button', { name: 'Restore' })).toHaveCount(0);
});

test('a copy that is gone cannot be taken back', async ({ page, expectStatus, check }) => {
    await signInTo(page, 'settings-config');
    await importFile(page, '<configuration/>');
    const other = await page.context().newPage();
    await open(other, 'settings-config');
    await other.getByRole('button', { name: 'Remove' }).click();
    await expect(told(other)).toHaveText('The local copy was removed.');

    expectStatus(422);
    await page.getByRole('button', { name: 'Restore' }).click();
    await expect(told(page)).toHaveText('There is no local copy.');
    await check(page);
});

const kRefused = {
    'bad values': [`<configuration>
        <account><label>Fine</label></account><account><port>0</port><expiry>soon</expiry></account>
        <network><hostname>-</hostname><colour>red</colour></network></configuration>`, [
        ['account[2]/port', 'Enter a value of at least 1.'],
        ['account[2]/expiry', 'Enter a whole number.'],
        ['network/colour', 'The phone has no setting with this name.'],
        ['network/hostname', 'Enter a valid host name.'],
    ]],
    'no XML': ['hostname = desk', [['config', 'This is not a configuration file for this phone.']]],
    'XML of something else': ['<html/>', [['html', 'The phone has no setting with this name.']]],
    'a document type': ['<!DOCTYPE a [<!ENTITY b "c">]><configuration/>',
        [['config', 'This is not a configuration file for this phone.']]],
    'another encoding': [Buffer.from([0x3c, 0xe4, 0x2f, 0x3e]),
        [['config', 'The text is not encoded as UTF-8.']]],
};

test('a file that cannot be used is refused as a whole', async ({ page, expectStatus, check }) => {
    await signInTo(page, 'network');
    await setHostName(page, 'stays');
    for (const [what, [content, rows]] of Object.entries(kRefused)) {
        await test.step(what, async () => {
            expectStatus(422);
            await importFile(page, content);
            await expect(told(page)).toHaveText(
                'The file was not imported because it contains errors:');
            await expect(page.locator('tbody td')).toHaveText(rows.flat());
            await check(page);
        });
    }
    expectStatus(422);
    await importFile(page, `<configuration>${' '.repeat(64 * 1024)}</configuration>`);
    await expect(told(page)).toHaveText('The file is too large. The maximum size is 64 KiB.');
    await expectHostName(page, 'stays');
});

test('no file is not sent', async ({ page }) => {
    await signInTo(page, 'settings-config');
    await page.getByRole('button', { name: 'Import' }).click();
    await expect(page.locator('#config-error')).toHaveText('Please fill in this field.');
    await expect(told(page)).toHaveCount(0);
});
