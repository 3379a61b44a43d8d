// Takes the picture of the page, with the file to write as its argument: script/screenshot runs it.
import {Appliance} from '../tests/page/appliance.js';
import {openBrowser} from '../tests/page/browser.js';

const [, , file] = process.argv;
const LAST_LOOK_S = Date.now() / 1000 - 20 * 60;

const appliance = new Appliance();
await appliance.serve();
const browser = await openBrowser();
const context = await browser.newContext({
  viewport: {width: 1280, height: 880}, locale: 'en-GB', colorScheme: 'light', permissions: ['notifications'],
});
await context.addInitScript(lastLook => localStorage.setItem('alice:lastLook', lastLook), LAST_LOOK_S);
const page = await context.newPage();
await page.goto(appliance.signInLink('alice'));
await page.locator('#desktop').click();
const warning = page.locator('.row[data-level=warning]').first();
await warning.getByRole('button').click();
await warning.locator('.mail').filter({hasText: 'atlas'}).waitFor();
await page.mouse.move(0, 0);
await page.evaluate(() => document.activeElement.blur());
await page.screenshot({path: file, animations: 'disabled'});
await browser.close();
await appliance.stop();
