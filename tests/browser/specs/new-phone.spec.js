// startWithNewPhone() really resets the phone.
import { access, writeFile } from 'node:fs/promises';
import { expectSignedOut, renewPhone, signIn } from '../support/phone.js';
import { expect, kJourney, startWithNewPhone, test } from '../support/test.js';

startWithNewPhone();

test('a new phone has no earlier data and responds at once', kJourney, async ({ page, request }) => {
    const kept = `${process.env.BUILD}/device/phone/data/kept`;
    await signIn(page);
    await writeFile(kept, 'something');

    await renewPhone(request);
    await expect(access(kept)).rejects.toThrow('ENOENT');
    await page.goto('/servlet?p=status');
    await expectSignedOut(page);
});
