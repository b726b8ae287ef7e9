// The development loop: what is wrong with a project is shown until it is mended, and a page reloads
// itself after each build. No test navigates or reloads after it has opened the page.
import { Project, isRefusedANamespace, test } from '../support/development.js';
import { expect } from '../support/test.js';

test.skip(isRefusedANamespace(), 'this machine does not permit a mount namespace');

const { source, template, configuration } = Project;
const kBuilding = { timeout: 90_000 }; // normally a few seconds

const heading = (page) => page.getByRole('heading', { level: 1 });
const wrongLine = (page) => page.locator('li[aria-current=true]');

test.beforeEach(async ({ page, project }) => {
    test.setTimeout(3 * kBuilding.timeout);
    await page.goto(project.address);
    await expect(heading(page)).toHaveText('Picture');
});

// Each page goes away by itself.
test.afterEach(async ({ page, project }) => {
    project.mend();
    await expect(heading(page)).toHaveText('Picture', kBuilding);
});

// Expects the page that shows a line of a file, with the lines around it.
async function expectProblem(page, project, { title, file, line, message }) {
    await expect(page.getByRole('heading', { name: `${file}, line ${line}` }))
        .toBeVisible(kBuilding);
    await expect(heading(page)).toHaveText(title);
    await expect(page.locator('section').first().locator('p')).toContainText(message);
    const lines = project.read(file).split('\n');
    const first = Math.max(line - 4, 1);
    await expect(page.locator('section').first().locator('li'))
        .toHaveText(lines.slice(first - 1, line + 4));
    await expect(page.locator('ol').first()).toHaveAttribute('start', String(first));
    await expect(wrongLine(page).first()).toHaveText(lines[line - 1]);
}

const kNoBuild = 'The project does not build';
const kFailing = 'The pages would fail on the device';

for (const [what, title, breakIt, { file, message }] of [
    ['a compiler error', kNoBuild,
        (project) => project.replace(source, 'kMaxMiB = 1;', 'kMaxMiB = one;'),
        { file: source, message: 'was not declared' }],
    ['a broken template', kFailing,
        (project) => project.replace(template, '<TMPL_ELSE>', '<TMPL_ELS>'),
        { file: template, message: 'TMPL_ELS' }],
    ['a missing template', kFailing,
        (project) => {
            project.remove(template);
            return project.read(source).split('\n')
                .findIndex((line) => line.includes('"picture.html"')) + 1;
        },
        { file: source, message: 'names the template "picture.html", which does not exist' }],
    ['a missing export', kFailing,
        (project) => project.replace(configuration, 'createPicturePage', 'createPicturesPage'),
        { file: configuration, message: '"createPicturesPage"' }],
    ['a broken servlet.xml', kFailing,
        (project) => project.replace(configuration, '</servlets>', '</servlet>'),
        { file: configuration, message: 'not well-formed XML' }],
]) {
    test(`${what} is shown until it is mended`, async ({ page, project, expectStatus }) => {
        expectStatus(500);
        const line = breakIt(project);
        await expectProblem(page, project, { title, file, line, message });
        await expect(page.getByText('This page goes away by itself')).toBeVisible();
    });
}

test('the page of a problem is accessible', async ({ page, project, expectStatus, check }) => {
    expectStatus(500);
    project.replace(template, '</form>', '</form><TMPL_IF name="x">');
    await expect(wrongLine(page)).toBeVisible(kBuilding);
    await check(page, { schemes: ['light', 'dark'] });
});

test('a saved template is shown at once', async ({ page, project }) => {
    project.replace(template, 'No picture is stored yet.', 'Nothing is stored yet.');
    await expect(page.getByText('Nothing is stored yet.')).toBeVisible(kBuilding);
});
