// The addresses of the previous web interface still work.
import { expectAt, expectSignedOut, fillSignIn, signIn } from '../support/phone.js';
import { kJourney, startWithNewPhone, test } from '../support/test.js';

startWithNewPhone();

for (const address of [
    '/cgi-bin/Velmoranix.acx?Id=1&x=y',
    '/cgi-bin/Quillpage.tpx?page=Status.htm',
    '/cgi-bin/Quillpage.tpx?p=status',
]) {
    test(`${address} leads to the sign-in form and then to the status page`, async ({ page }) => {
        await page.goto(address);
        await expectSignedOut(page);
        await fillSignIn(page);
        await expectAt(page, 'status');
        await page.goto(address);
        await expectAt(page, 'status');
    });
}

test('/cgi-bin/Quillpage.tpx?p=network leads to the page network', kJourney, async ({ page }) => {
    await signIn(page);
    await page.goto('/cgi-bin/Quillpage.tpx?p=network');
    await expectAt(page, 'network');
});
