import assert from 'node:assert/strict';
import {createRequire} from 'node:module';
import {after, afterEach, before, it} from 'node:test';
import {Appliance} from './appliance.js';
import {openBrowser} from './browser.js';

const AXE = createRequire(import.meta.url).resolve('axe-core/axe.min.js');
const MARKUP = '<img src=x onerror="document.title=\'ran\'">';
const LOOK_MS = 31_000;
const SLOW_LOOK_MS = 121_000;

// Two categories with texts of the tests' own: Bob has the second one's desktop notifications off.
const TEXTS = {
  enu: ['Laboratory', 'Alarm in {ROOM}: {VALUE}', 'Mail about {ROOM}', 'Attic'],
  ger: ['Labor', 'Alarm in {ROOM}: {VALUE} ist zu viel', 'Mail über {ROOM}', 'Dachboden'],
  fre: ['Laboratoire', 'Alarme dans {ROOM} : {VALUE}', 'Courriel sur {ROOM}', 'Grenier'],
};
const sections = ([laboratory, alarm, mail, attic]) => Object.entries({
  LabAlarm: {category: laboratory, level: 'NOTIFICATION_ERROR', group: laboratory, message: alarm, mail: `${mail}\\n\\n${MARKUP}`},
  LabMarkup: {category: laboratory, group: laboratory, message: `${MARKUP} in {ROOM}`},
  AtticNote: {category: attic, level: 'NOTIFICATION_WARN', group: attic, message: 'Note from {FLOOR}'},
}).map(([tag, texts]) => [`[${tag}]`, ...Object.entries(texts).map(text => text.join('='))].join('\n')).join('\n');

const DAY_S = 86_400;
const now = Math.floor(Date.now() / 1000);
const notification = (title, time, parameters) => ({title, time, msg: [JSON.stringify(parameters)]});
const numbered = (count, title, newest) => Array.from({length: count},
  (_, index) => notification(title, newest - index * 60, {FLOOR: `${index + 1}`, ROOM: `${index + 1}`, VALUE: '7'}));

let appliance;
let browser;
const contexts = [];
const problems = [];

before(async () => {
  appliance = new Appliance();
  for (const [language, texts] of Object.entries(TEXTS))
    appliance.write(`var/cache/texts/${language}/mails`, `\n${sections(texts)}\n`, 'a');
  appliance.write('etc/kivo/settings/users/bob.json', JSON.stringify({'KIVO.ZUI.NEXNotify.Setting.Application':
    {notifcationSettings: [{category_enu: 'Attic', app: '', nexnotify: 'off'}]}}));
  appliance.store('alice', numbered(40, 'LabAlarm', now - 40 * DAY_S));
  await appliance.serve();
  browser = await openBrowser();
});

after(async () => {
  await browser?.close();
  await appliance?.stop();
});

afterEach(async () => {
  await Promise.all(contexts.splice(0).map(context => context.close()));
  assert.deepEqual(problems.splice(0), []);
});

async function newContext(options = {}) {
  const context = await browser.newContext({locale: 'en-GB', ...options});
  contexts.push(context);
  context.requests = [];
  context.on('request', request => {
    const {origin, pathname} = new URL(request.url());
    if (origin !== appliance.origin)
      problems.push(`asked ${origin}`);
    if (request.method() === 'POST' || pathname === '/session')
      context.requests.push({path: pathname.replace('/webapi/KIVO.Core.', ''), ...request.postDataJSON()});
  });
  context.on('console', message => {
    if (/Content Security Policy/.test(message.text()))
      problems.push(message.text());
  });
  context.on('weberror', error => problems.push(String(error.error())));
  return context;
}

// A tab in which the user has signed in, and whose clock can be put forward.
async function signIn(user, {context, ...options} = {}) {
  context ??= await newContext(options);
  const page = await context.newPage();
  await page.clock.install();
  await page.goto(appliance.signInLink(user));
  await page.locator('#centre').waitFor();
  return page;
}

const rows = page => page.locator('.row');
const row = (page, text) => rows(page).filter({hasText: text});
const showsRows = (page, count) =>
  page.waitForFunction(count => document.querySelectorAll('.row').length === count, count);
const shows = (page, selector, text) => page.locator(selector).filter({hasText: text}).waitFor();
const button = (page, name) => page.getByRole('button', {name, exact: true});
const filterBy = (page, name) => page.locator('#categories').getByRole('button', {name}).click();

// A test in a tab in which the user has signed in.
const as = (user, test) => async () => test(await signIn(user));

// Has the tool send a notification, which the page shows in a row with the text at its next look.
async function arrives(page, user, text, ...notification) {
  appliance.notify(user, ...notification);
  await page.clock.fastForward(LOOK_MS);
  await row(page, text).waitFor();
  return row(page, text);
}

it('signing in takes the token out of the address and keeps it for the tab', as('alice', async page => {
  assert.equal(page.url(), `${appliance.origin}/`);
  assert.match(await page.locator('#account').innerText(), /alice\s+Administrator/);
  await page.reload();
  await rows(page).first().waitFor();

  const other = await page.context().newPage();
  await other.goto(appliance.origin);
  await shows(other, '#sign-in', 'has not been given one');
}));

it('signing in says how to get a link when the token is wrong, and takes one in the same tab', async () => {
  const page = await (await newContext()).newPage();
  await page.goto(`${appliance.origin}/#token=wrong`);
  await shows(page, '#sign-in', 'not valid');
  await page.goto(appliance.signInLink('bob'));
  await shows(page, '#user', 'bob');

  await button(page, 'Abmelden').click();
  await page.locator('#sign-in').waitFor();
  await page.reload();
  await page.locator('#sign-in').waitFor();
});

it('the list shows the newest of 10,000 with one request of each kind', async () => {
  appliance.store('bob', numbered(10_000, 'AtticNote', now - 50 * DAY_S));
  const page = await signIn('bob');
  await showsRows(page, 30);
  assert.deepEqual(page.context().requests.map(({path, action}) => action ?? path).sort(),
    ['/session', 'NEXNotify.Strings/1/get', 'load', 'loadHaveNtAppList']);
});

it('the list goes on, page by page, until all are shown, newest first', as('alice', async page => {
  await page.locator('#hidden-too').check();
  let shown = 30;
  for (; await page.locator('#more').isVisible(); shown = await rows(page).count()) {
    await button(page, 'Show more').click();
    await page.waitForFunction(shown => document.querySelectorAll('.row').length > shown, shown);
  }
  await shows(page, '#shown', `${shown} of ${shown} notifications`);
  const times = await page.locator('.row time').evaluateAll(times => times.map(time => time.dateTime));
  assert.deepEqual(times, [...times].sort().reverse());
}));

it('the list starts over when notifications arrived since the page that it goes on from', async () => {
  appliance.store('carol', numbered(40, 'AtticNote', now - 60 * DAY_S));
  const page = await signIn('carol');
  appliance.notify('carol', 'LabAlarm', 'ROOM=Between', 'VALUE=1');
  await page.locator('#more').click();
  await row(page, 'Between').waitFor();
  await showsRows(page, 60);
  const notes = await page.locator('.row .text').filter({hasText: 'Note'}).allInnerTexts();
  assert.equal(new Set(notes).size, notes.length);
});

it('the list shows level, category, text and time of what arrives, and leaves the focus where it is', as('alice', async page => {
  await rows(page).nth(1).getByRole('button').click();
  const alarm = await arrives(page, 'alice', 'Alarm in Cellar: 9 {ROOM}', 'LabAlarm', 'ROOM=Cellar', 'VALUE=9 {ROOM}');
  assert.match(await alarm.innerText(), /Error\s+Laboratory\s+New\s+Alarm in Cellar: 9 \{ROOM\}\s+\d\d:\d\d/);
  assert.match(await alarm.locator('.ago').innerText(), /now|minute ago/);
  assert.equal(await alarm.locator('use').first().getAttribute('href'), '#icon-error');
  assert.equal(await page.evaluate(() => document.activeElement.getAttribute('aria-expanded')), 'true');
}));

it('the list shows what is stored as text, never as markup', as('alice', async page => {
  appliance.store('alice', [
    notification('LabMarkup', now - 59, {}),
    notification('LabAlarm', now - 58, {ROOM: MARKUP, VALUE: 5}),
    notification(`photos:${MARKUP}`, now - 57, {[MARKUP]: MARKUP}),
    {title: 'photos:bare', time: now - 56, msg: ['not JSON']},
  ]);
  await page.clock.fastForward(LOOK_MS);
  for (const text of [`${MARKUP} in {ROOM}`, `Alarm in ${MARKUP}: 5`, 'photos:bare'])
    await row(page, text).waitFor();
  assert.deepEqual(await row(page, `photos:${MARKUP}`).locator('dt, dd').allInnerTexts(), [MARKUP, MARKUP]);
  assert.equal(await page.locator('img').count(), 0);
  assert.doesNotMatch(await page.title(), /ran/);
}));

it('the list finds the notifications of a category however far back they are', as('alice', async page => {
  await filterBy(page, 'Laboratory');
  await shows(page, '#shown', 'Showing 30 of “Laboratory”');
  assert.equal(page.context().requests.filter(({action}) => action === 'load').length, 2);
  assert.equal(await page.locator('.row .title').filter({hasNotText: 'Laboratory'}).count(), 0);
  await button(page, 'Show more').click();
  await row(page, 'Alarm in 40: 7').waitFor();
  assert.equal(await page.locator('#more').isVisible(), false);

  await filterBy(page, 'Attic');
  await shows(page, '#empty', 'None of your notifications');
  await button(page, 'Show all categories').click();
  await showsRows(page, 30);

  await filterBy(page, 'Other');
  await row(page, 'nexnotify:system_event').first().waitFor();
  assert.equal(await row(page, 'Laboratory').count(), 0);
}));

it('mail is shown on demand, filled in, and said to be absent where there is none', as('alice', async page => {
  for (const [tag, room, mail] of [['LabAlarm', 'Hall', `Mail about Hall\n\n${MARKUP}`], ['LabMarkup', 'Yard', 'No mail is sent']]) {
    const arrived = await arrives(page, 'alice', `in ${room}`, tag, `ROOM=${room}`);
    await arrived.getByRole('button').click();
    await arrived.locator('.mail').filter({hasText: mail}).waitFor();
    await arrived.getByRole('button').click();
    await arrived.locator('.mail').waitFor({state: 'hidden'});
  }
}));

it('the language changes texts, categories and the page’s own words, and is remembered for the user', as('alice', async page => {
  await page.locator('#language').selectOption({label: 'Deutsch'});
  await shows(page, 'h1', 'Benachrichtigungen');
  await filterBy(page, 'Labor');
  await row(page, 'ist zu viel').first().waitFor();
  assert.equal(await page.locator('html').getAttribute('lang'), 'de');
  await page.reload();
  await shows(page, 'h1', 'Benachrichtigungen');

  const carol = await signIn('carol', {context: page.context()});
  assert.equal(await carol.locator('html').getAttribute('lang'), 'fr');
}));

it('what is new is noticed by a small request, counted, announced and marked until it is seen', as('alice', async page => {
  const {requests} = page.context();
  requests.length = 0;
  await Promise.all([page.waitForResponse(/notify/), page.clock.fastForward(LOOK_MS)]);
  assert.deepEqual(requests.map(({action, limit}) => [action, limit]), [['load', 1]]);

  const alarm = await arrives(page, 'alice', 'Alarm in Tower', 'LabAlarm', 'ROOM=Tower', 'VALUE=3');
  await alarm.locator('.new').waitFor();
  await shows(page, '#badge', '1');
  await shows(page, '#live', '1 new notification');
  assert.match(await page.title(), /^\(1\) /);

  await button(page, 'Mark as seen').click();
  await page.locator('#badge').waitFor({state: 'hidden'});
  assert.equal(await page.evaluate(() => document.activeElement.id), 'content');
  assert.doesNotMatch(await page.title(), /\(/);

  await page.goto('about:blank');
  appliance.store('alice', [1, 2, 3].map(later =>
    notification('AtticNote', Math.ceil(Date.now() / 1000) + later, {FLOOR: '1'})));
  await page.goto(appliance.origin);
  await shows(page, '#badge', '3');
  await page.reload();
  await rows(page).first().waitFor();
  assert.equal(await page.locator('#badge').isVisible(), false);
}));

it('what is new is looked for more slowly while the page is hidden', as('alice', async page => {
  const {requests} = page.context();
  const hide = hidden => page.evaluate(hidden => {
    Object.defineProperty(document, 'hidden', {configurable: true, value: hidden});
    document.dispatchEvent(new Event('visibilitychange'));
  }, hidden);
  await hide(true);
  requests.length = 0;
  await page.clock.runFor(SLOW_LOOK_MS - LOOK_MS);
  assert.equal(requests.length, 0);
  await Promise.all([page.waitForResponse(/notify/), page.clock.runFor(LOOK_MS)]);
  await Promise.all([page.waitForResponse(/notify/), hide(false)]);
  assert.equal(requests.length, 2);
}));

it('what is new raises desktop notifications of the categories that are on, once they were asked for', async () => {
  const context = await newContext({permissions: ['notifications']});
  await context.addInitScript(() => {
    window.raised = [];
    window.Notification = class extends Notification {
      constructor(title, options) {
        super(title, options);
        raised.push(`${title}: ${options.body}`);
      }
    };
  });
  const page = await signIn('bob', {context});
  await arrives(page, 'bob', 'Unasked', 'LabAlarm', 'ROOM=Unasked');
  await page.locator('#desktop').click();
  await shows(page, '#desktop[aria-checked=true]', '');
  await arrives(page, 'bob', 'Silent', 'AtticNote', 'FLOOR=Silent');
  await arrives(page, 'bob', 'Loud', 'LabAlarm', 'ROOM=Loud', 'VALUE=2');
  await page.waitForFunction(() => raised.length > 0);
  assert.deepEqual(await page.evaluate(() => raised), ['Labor: Alarm in Loud: 2 ist zu viel']);
});

it('a host that does not answer is said so, asked ever more slowly, and found again', as('alice', async page => {
  await appliance.stop();
  const failed = () => page.waitForEvent('requestfailed');
  await Promise.all([failed(), page.clock.runFor(LOOK_MS)]);
  await shows(page, '#trouble', /does not answer.* 60 seconds/);
  await Promise.all([failed(), page.clock.runFor(2 * LOOK_MS)]);
  await shows(page, '#trouble', '120 seconds');
  assert.equal(await rows(page).count(), 30);

  await appliance.serve();
  await button(page, 'Try now').click();
  await page.locator('#trouble').waitFor({state: 'hidden'});
  await shows(page, '#live', 'answers again');
}));

it('a host that does not answer has its own page when nothing is loaded yet, with a way on', async () => {
  const page = await (await newContext()).newPage();
  await page.route('**/session', route => route.abort(), {times: 1});
  await page.goto(appliance.signInLink('alice'));
  await shows(page, '#failed', 'does not answer');
  await button(page, 'Try again').click();
  await rows(page).first().waitFor();
});

it('deleting all names the number, asks, and empties the list in every tab', as('carol', async page => {
  const second = await signIn('carol', {context: page.context()});
  await page.locator('#language').selectOption({label: 'English'});
  await button(page, 'Delete all…').click();
  const dialog = page.getByRole('dialog');
  await dialog.waitFor();
  const shown = Number((await page.locator('#shown').innerText()).match(/of (\d+)/)[1]);
  const [, all, hidden] = (await dialog.innerText()).match(/Delete all (\d+) notifications\?\s+This includes (\d+)/);
  assert.equal(Number(all), shown + Number(hidden));
  await page.keyboard.press('Escape');
  await dialog.waitFor({state: 'hidden'});
  await page.locator('#hidden-too').check();
  await shows(page, '#shown', `of ${all} notifications`);
  await button(page, 'Delete all…').click();
  await button(page, `Delete ${all}`).click();
  await shows(page, '#empty', 'You have no notifications');
  assert.equal(await rows(page).count(), 0);

  await second.clock.fastForward(LOOK_MS);
  await second.locator('#empty').waitFor();
}));

const states = {
  '.mail:visible': page => rows(page).nth(1).getByRole('button').click(),
  dialog: page => page.locator('#delete').click(),
  '#empty': async page => {
    await page.route('**/notify', route => route.fulfill({json: {success: true, data: {items: [], total: 0, newestMsgTime: 0}}}));
    await page.reload();
  },
  '#trouble': async page => {
    await page.route('**/notify', route => route.abort());
    await page.clock.fastForward(LOOK_MS);
  },
  '#failed': async page => {
    await page.route('**/session', route => route.abort());
    await page.reload();
  },
  '#sign-in': page => page.locator('#sign-out').click(),
};

for (const [state, reach] of Object.entries(states)) {
  for (const [look, options] of Object.entries({
    'light and wide': {colorScheme: 'light', viewport: {width: 1280, height: 900}},
    'dark and narrow': {colorScheme: 'dark', viewport: {width: 360, height: 740}},
  })) {
    it(`${state}, ${look}, has no barrier and fits`, async () => {
      const page = await signIn('bob', {bypassCSP: true, reducedMotion: 'reduce', ...options});
      await reach(page);
      await page.locator(state).waitFor();
      await page.addScriptTag({path: AXE});
      const {violations} = await page.evaluate(() => axe.run());
      assert.deepEqual(violations.map(({id, nodes}) => [id, ...nodes.map(({html}) => html)]), []);
      assert.equal(await page.evaluate(() => document.documentElement.scrollWidth <= innerWidth), true);
    });
  }
}

it('everything is reached by keyboard: the skip link first, then the controls in the order of the page', as('alice', async page => {
  const focused = () => page.evaluate(() => document.activeElement.id);
  await page.keyboard.press('Tab');
  assert.equal(await focused(), 'skip');
  await page.keyboard.press('Enter');
  assert.equal(await focused(), 'list');
  await page.keyboard.press('Tab');
  await page.keyboard.press('Enter');
  await rows(page).first().locator('.mail').waitFor();
}));
