// Takes the pictures of the page, with the folder to write to as its argument: script/screenshot runs it.
import {Appliance} from '../tests/page/appliance.js';
import {openBrowser} from '../tests/page/browser.js';

const [, , folder] = process.argv;
const LAST_LOOK_S = Date.now() / 1000 - 20 * 60;

const appliance = new Appliance();
await appliance.serve();
const browser = await openBrowser();
for (const [name, options] of Object.entries({
  'notification-centre': {viewport: {width: 1280, height: 860}, colorScheme: 'light'},
  'notification-centre-phone': {viewport: {width: 390, height: 844}, colorScheme: 'dark', deviceScaleFactor: 2, hasTouch: true},
})) {
  const context = await browser.newContext({locale: 'en-GB', permissions: ['notifications'], ...options});
  await context.addInitScript(since => localStorage.setItem('alice:seen', JSON.stringify({since, later: []})), LAST_LOOK_S);
  const page = await context.newPage();
  await page.goto(appliance.signInLink('alice'));
  const warning = page.locator('.row.with-mail[data-level=warning]').first();
  await warning.locator('time').click();
  await warning.locator('.mail').filter({hasText: 'atlas'}).waitFor();
  await page.mouse.move(0, 0);
  await page.evaluate(() => {
    document.activeElement.blur();
    scrollTo(0, 0);
  });
  await page.screenshot({path: `${folder}/${name}.png`, animations: 'disabled'});
  await context.close();
}
await browser.close();
await appliance.stop();
