// What scripts/paint runs: as the tests, with another folder of what to do and no report.
import tests from './playwright.config.js';

export default { ...tests, testDir: 'paint', reporter: 'line' };
