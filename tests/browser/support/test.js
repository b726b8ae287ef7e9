// The `test` of all specs. It watches every page it provides; a problem in one fails the test at its
// end.
//   page, visit({language, ...})  a page; a page of another user, with separate cookies
//   expectStatus(403)             expects a response that would otherwise be a problem
//   expectFailure()               expects a request without a response
//   check(page, {schemes})        see check.js
//   language                      an option: test.use({ language: 'de' })
import { expect, test as base } from '@playwright/test';
import { faultsOf } from './check.js';
import { hasFactoryPassword, renewPhone, setOwnPassword } from './phone.js';
import { Watch } from './watch.js';

export { expect };

// Marks the tests of the main journeys, which scripts/test runs; scripts/test --all runs all.
export const kJourney = { tag: '@journey' };

export const test = base.extend({
    // Specs that do not start with a new phone may find one nevertheless, in a fresh build folder.
    ownPassword: [async ({ playwright }, use) => {
        const request = await playwright.request.newContext(
            { baseURL: `http://127.0.0.1:${process.env.PHONE_PORT}` });
        if (await hasFactoryPassword()) {
            await setOwnPassword(request);
        }
        await request.dispose();
        await use();
    }, { scope: 'worker', auto: true }],

    language: ['en', { option: true }],
    locale: async ({ language }, use) => use(language),

    watches: async ({}, use) => {
        const watches = new Map();
        await use(watches);
        const problems = [...watches.values()].flatMap((watch) => watch.takeProblems());
        expect(problems, 'problems in the pages').toEqual([]);
    },

    context: async ({ context, language, watches }, use) => {
        watches.set(context, new Watch(context, language));
        await use(context);
    },

    visit: async ({ browser, contextOptions, language, watches }, use) => {
        const contexts = [];
        await use(async (options = {}) => {
            const { language: spoken = language, ...rest } = options;
            const context = await browser.newContext({ ...contextOptions, locale: spoken, ...rest });
            contexts.push(context);
            watches.set(context, new Watch(context, spoken));
            return context.newPage();
        });
        await Promise.all(contexts.map((context) => context.close()));
    },

    expectStatus: async ({ context, watches }, use) => {
        await use((status, page) => watches.get(page?.context() ?? context).expectStatus(status));
    },

    expectFailure: async ({ context, watches }, use) => {
        await use(() => watches.get(context).expectFailure());
    },

    check: async ({ watches }, use) => {
        await use(async (page, { schemes = ['light'] } = {}) => {
            const watch = watches.get(page.context());
            const faults = await faultsOf(
                page, watch.documentOf(page), { language: watch.language, schemes });
            expect(faults, `faults of ${page.url()}`).toEqual([]);
        });
    },
});

// Call in spec files that change the phone's stored data.
export function startWithNewPhone() {
    test.beforeAll(async ({ playwright, baseURL }) => {
        const request = await playwright.request.newContext({ baseURL });
        await renewPhone(request);
        await request.dispose();
    });
}
