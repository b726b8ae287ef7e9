// Checks that every page must pass.
import axe from 'axe-core';
import { expect } from '@playwright/test';
import { faultsOfHtml } from './html.js';

async function faultsOfAccess(page) {
    // Evaluated by the debugger, which the page's content security policy does not restrict.
    await page.evaluate(axe.source);
    const { violations } = await page.evaluate(() => window.axe.run({ preload: false }));
    return violations.flatMap(({ id, help, nodes }) => nodes.map(
        (node) => `axe ${id}: ${help}: ${node.target.join(' ')}\n${node.failureSummary}`));
}

async function faultsOfDocument(page, document, language) {
    expect(document?.url().split('#')[0], 'the response of the page')
        .toBe(page.url().split('#')[0]);
    const html = (await document.body()).toString('utf-8');
    const lang = await page.locator('html').getAttribute('lang');
    const wrong = lang?.split('-')[0] === language ? [] : [`lang is ${lang}, not ${language}`];
    return [...wrong, ...(await faultsOfHtml(html))];
}

// Returns accessibility problems in these colour schemes, HTML errors, and a wrong language.
export async function faultsOf(page, document, { language, schemes }) {
    const faults = await faultsOfDocument(page, document, language);
    for (const colorScheme of schemes) {
        await page.emulateMedia({ colorScheme });
        faults.push(...(await faultsOfAccess(page)).map((fault) => `${colorScheme}: ${fault}`));
    }
    await page.emulateMedia({ colorScheme: null });
    return faults;
}
