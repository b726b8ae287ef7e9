// startWithNewPhone() really resets the phone.
import { access, writeFile } from 'node:fs/promises';
import { text } from '../support/languages.js';
import { deliverPhone, expectAt, expectSignedOut, kAdmin, kFactory, open, renewPhone, resultMessage,
    send, signIn } from '../support/phone.js';
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

test('a new phone allows nothing until its owner has set a password', kJourney,
    async ({ page, request, check }) => {
        await deliverPhone(request);
        await signIn(page, kFactory);
        await expectAt(page, 'security');
        await expect(page.getByText(text('frame.factoryPassword'))).toBeVisible();
        await expect(page.getByText(text('security.setFirst'))).toBeVisible();
        await check(page, { schemes: ['light', 'dark'] });
        await open(page, 'network');
        await expectAt(page, 'security');

        await send(page, { oldPassword: kFactory.password, newPassword: kAdmin.password,
            repeat: kAdmin.password });
        await expect(resultMessage(page)).toHaveText('Saved.');
        await expect(page.getByText(text('frame.factoryPassword'))).toBeHidden();
        await open(page, 'network');
        await expectAt(page, 'network');
    });
