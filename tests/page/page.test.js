import assert from 'node:assert/strict';
import {createRequire} from 'node:module';
import {after, afterEach, before, it} from 'node:test';
import {Appliance} from './appliance.js';
import {openBrowser} from './browser.js';

const AXE = createRequire(import.meta.url).resolve('axe-core/axe.min.js');
const MARKUP = '<img src=x onerror="document.title=\'ran\'">';
const LOOK_MS = 6_000;

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
async function signIn(user, {context, query = '', ...options} = {}) {
  context ??= await newContext(options);
  const page = await context.newPage();
  await page.clock.install();
  await page.goto(appliance.signInLink(user).replace('#', `${query}#`));
  await page.locator('#content').waitFor();
  return page;
}

const rows = page => page.locator('.row');
const row = (page, text) => rows(page).filter({hasText: text});
const face = row => row.locator('.face');
const shows = (page, selector, text) => page.locator(selector).filter({hasText: text}).waitFor();
const button = (page, name) => page.getByRole('button', {name, exact: true});
const filterBy = (page, name) => page.locator('#filters').getByRole('button', {name}).click();
const focused = page => page.evaluate(() => document.activeElement.id || document.activeElement.className);
const inMenu = async (page, selector) => {
  await page.locator('.menu-button').click();
  return page.locator(selector);
};
const hide = (page, hidden) => page.evaluate(hidden => {
  Object.defineProperty(document, 'hidden', {configurable: true, value: hidden});
  document.dispatchEvent(new Event('visibilitychange'));
}, hidden);

// A test in a tab in which the user has signed in.
const as = (user, test) => async () => test(await signIn(user));

// Has the tool send a notification, which the page shows in a row with the text at its next look.
async function arrives(page, user, text, ...notification) {
  appliance.notify(user, ...notification);
  await page.clock.fastForward(LOOK_MS);
  await row(page, text).waitFor();
  return row(page, text);
}

it('signing in takes the code out of the address and keeps the token for the tab', as('alice', async page => {
  assert.equal(page.url(), `${appliance.origin}/`);
  assert.match(await (await inMenu(page, '.who')).innerText(), /alice\s+Administrator/);
  await page.reload();
  await rows(page).first().waitFor();

  const other = await page.context().newPage();
  await other.goto(appliance.origin);
  await shows(other, '#sign-in', 'has not been given one');
}));

it('signing in says how to get another link when one is wrong, takes it in the same tab, and is over when signed out', async () => {
  const page = await (await newContext()).newPage();
  await page.goto(`${appliance.origin}/#code=wrong`);
  await shows(page, '#sign-in', /has expired or is wrong.*webapi-host sign-in USER/s);
  assert.equal(page.url(), `${appliance.origin}/`);
  await page.goto(appliance.signInLink('bob'));
  await (await inMenu(page, '#sign-out')).click();
  await shows(page, '#sign-in h2', 'Sie sind abgemeldet');
  assert.equal(await rows(page).count(), 0);
  await page.reload();
  await shows(page, '#sign-in h2', 'Anmeldelink');

  const nowhere = await page.goto(`${appliance.origin}/no/such/page`);
  assert.equal(nowhere.status(), 404);
  await shows(page, 'h1', 'There is nothing here');
  assert.equal(await page.locator('a').evaluate(link => link.href), `${appliance.origin}/`);
});

it('the list shows the newest of 10,000, asks for each thing once, and says that it looks far back until it is stopped', async () => {
  appliance.store('bob', [...numbered(10_000, 'AtticNote', now - 50 * DAY_S), notification('LabAlarm', now - 999 * DAY_S, {ROOM: 'Deep'})]);
  const page = await signIn('bob');
  await shows(page, '#shown', /^30 von 10\.\d{3} /);
  await page.locator('.with-mail').first().waitFor();
  const asked = page.context().requests.map(({path, action, offset, title}) => [action ?? path, offset, title].join(' '));
  assert.deepEqual(asked.filter((each, index) => asked.indexOf(each) !== index), ['/session  ']);  // POST, then GET
  assert.equal(asked.filter(each => each.startsWith('load ')).length, 2);  // the second one counts

  let letGo;
  await page.route('**/notify', async route => {
    if (route.request().postDataJSON().offset > 2000)
      await new Promise(resolve => letGo = resolve);
    await route.continue();
  });
  await filterBy(page, /Labor/);
  await shows(page, '#search-progress', /Bisher 0 Treffer · [\d.]+ von 10\.\d{3} durchsucht/);
  await page.waitForFunction(() => document.querySelector('progress').value > 2000);
  await button(page, 'Anhalten').click();
  letGo();
  await shows(page, '#empty', 'Bisher nichts gefunden');
  await page.unroute('**/notify');
  await button(page, 'Mehr anzeigen').click();
  await row(page, 'Alarm in Deep').waitFor();
  await shows(page, '#shown', '1 von 1 Treffer');
});

it('the list goes on, page by page, until all are shown, newest first', as('alice', async page => {
  await (await inMenu(page, '#hidden-too')).check();
  await page.keyboard.press('Escape');
  while (await page.locator('#more').isVisible()) {
    const before = await page.locator('#shown').innerText();
    await button(page, 'Show more').click();
    await page.waitForFunction(before => document.querySelector('#shown').textContent !== before, before);
  }
  const [, shown, total] = (await page.locator('#shown').innerText()).match(/^(\d+) of (\d+) notifications/);
  assert.equal(shown, total);
  const times = await page.locator('.row time').evaluateAll(times => times.map(time => time.dateTime));
  assert.deepEqual(times, [...times].sort().reverse());
}));

it('the list shows label, level, text and time of what arrives, and leaves the focus where it is', as('alice', async page => {
  await page.locator('.with-mail').first().click();
  await page.locator('.with-mail .face').first().focus();
  const alarm = await arrives(page, 'alice', 'Alarm in Cellar: 9 {ROOM}', 'LabAlarm', 'ROOM=Cellar', 'VALUE=9 {ROOM}');
  assert.match(await alarm.innerText(), /^Laboratory\s+Error\s+New\s+(now|1 minute ago)\s+Alarm in Cellar: 9 \{ROOM\}/);
  assert.match(await alarm.locator('time').getAttribute('title'), new RegExp(`${new Date().getFullYear()}.*:`));
  assert.equal(await alarm.locator('use').first().getAttribute('href'), '#icon-error');
  assert.equal(await page.evaluate(() => document.activeElement.ariaExpanded), 'true');
}));

it('the list shows what is stored as text, never as markup, and short and apart whatever it is', as('alice', async page => {
  appliance.store('alice', [
    notification('LabMarkup', now - 59, {}),
    notification('LabAlarm', now - 58, {ROOM: MARKUP, VALUE: 5}),
    notification(`photos:${MARKUP}`, now - 57, {[MARKUP]: MARKUP}),
    {title: 'photos:bare', time: now - 56, msg: ['not JSON']},
    notification('LabAlarm', now - 55, {ROOM: '\u202Enwot', VALUE: 6}),
    notification('LabAlarm', now - 54, {ROOM: 'wide '.repeat(20_000), VALUE: 7}),
    ...[51, 52, 53].map(age => notification('LabAlarm', now - age, {ROOM: 'Again', VALUE: 8})),
  ]);
  await page.clock.fastForward(LOOK_MS);
  for (const text of [`${MARKUP} in {ROOM}`, `Alarm in ${MARKUP}: 5`, 'photos:bare'])
    await row(page, text).waitFor();
  assert.deepEqual(await row(page, `photos:${MARKUP}`).locator('dt, dd').allInnerTexts(), [MARKUP, MARKUP]);
  assert.equal(await page.locator('img').count(), 0);
  assert.doesNotMatch(await page.title(), /ran/);
  assert.deepEqual(await row(page, 'nwot').locator('bdi').allInnerTexts(), ['\u202Enwot', '6']);

  await shows(page, '.repeats:visible', '×3');
  assert.equal(await row(page, 'Again').count(), 1);
  const long = row(page, 'wide wide');
  const height = async () => (await long.boundingBox()).height;
  const folded = await height();
  assert.ok(folded < 200, `${folded}`);
  await long.getByRole('button', {name: 'More'}).click();
  assert.ok(await height() > 5_000);
  await long.getByRole('button', {name: 'Less'}).click();
  assert.equal(await height(), folded);
}));

it('filters by category, level and words find what is far back, count, and are in the address', as('alice', async page => {
  await filterBy(page, /Laboratory/);
  await shows(page, '#shown', /^30 of \d+ matches/);
  assert.equal(await page.locator('.row .title').filter({hasNotText: 'Laboratory'}).count(), 0);
  await filterBy(page, /Errors/);
  await page.getByRole('searchbox').fill('alarm 40');
  await shows(page, '#shown', '1 of 1 match');
  await row(page, 'Alarm in 40: 7').waitFor();
  assert.match(await page.locator('#categories [aria-pressed=true]').innerText(), /Laboratory\s+1$/);
  assert.equal(new URL(page.url()).search, '?category=Laboratory&level=error&search=alarm+40');

  await page.reload();
  await shows(page, '#shown', '1 of 1 match');
  assert.equal(await page.getByRole('searchbox').inputValue(), 'alarm 40');
  for (const query of ['?category=Laboratory&level=error', '?category=Laboratory', '']) {
    await page.goBack();
    assert.equal(new URL(page.url()).search, query);
  }
  await shows(page, '#shown', /^30 of \d+ notifications/);

  await page.getByRole('searchbox').fill('no such words');
  await shows(page, '#empty', 'matches the filter');
  await button(page, 'Show all notifications').click();
  await filterBy(page, /^Other/);
  await row(page, 'nexnotify:system_event').first().waitFor();
  assert.deepEqual(new Set(await page.locator('.row .title').allInnerTexts()), new Set(['Other']));
}));

it('a row opens and closes its mail, filled in, and does not where there is none', as('alice', async page => {
  const alarm = await arrives(page, 'alice', 'in Hall', 'LabAlarm', 'ROOM=Hall');
  await page.locator('.with-mail').filter({hasText: 'in Hall'}).locator('time').click();
  await alarm.locator('.mail').filter({hasText: `Mail about Hall\n\n${MARKUP}`}).waitFor();
  assert.equal(await face(alarm).getAttribute('aria-expanded'), 'true');
  await face(alarm).press('Enter');
  await alarm.locator('.mail').waitFor({state: 'hidden'});

  const without = await arrives(page, 'alice', 'in Yard', 'LabMarkup', 'ROOM=Yard');
  await without.click();
  assert.deepEqual([await without.getByRole('button').count(), await without.locator('.mail').isVisible()], [0, false]);
}));

it('the language changes texts, categories and the page’s own words, and is remembered for the user', as('alice', async page => {
  await filterBy(page, /Laboratory/);
  await (await inMenu(page, '#language')).selectOption({label: 'Deutsch'});
  await shows(page, 'h1', 'Benachrichtigungen');
  await shows(page, '#categories [aria-pressed=true]', 'Labor');
  await row(page, 'ist zu viel').first().waitFor();
  assert.equal(await page.locator('html').getAttribute('lang'), 'de');
  await page.reload();
  await shows(page, 'h1', 'Benachrichtigungen');

  const carol = await signIn('carol', {context: page.context()});
  assert.equal(await carol.locator('html').getAttribute('lang'), 'fr');
  // Rows of an application that she may not use have a filter like all others.
  await filterBy(carol, /Paquets/);
  await row(carol, 'Paquets').first().waitFor();
}));

it('what is new is noticed by a small request, counted, announced and marked until it is seen', as('alice', async page => {
  const {requests} = page.context();
  requests.length = 0;
  await Promise.all([page.waitForRequest(/notify/), page.clock.fastForward(LOOK_MS)]);
  assert.deepEqual(requests.filter(({action}) => action).map(({action, limit}) => [action, limit]), [['load', 1]]);

  const alarm = await arrives(page, 'alice', 'Alarm in Tower', 'LabAlarm', 'ROOM=Tower', 'VALUE=3');
  await alarm.locator('.new').waitFor();
  await shows(page, '#badge', '1');
  await shows(page, '#live', '1 new notification');
  assert.match(await page.title(), /^\(1\) /);
  await filterBy(page, /Warnings/);
  await page.locator('#news').waitFor({state: 'hidden'});
  await filterBy(page, /^All/);
  await button(page, 'Mark as seen').click();
  await page.locator('#badge').waitFor({state: 'hidden'});
  assert.equal(await focused(page), 'content');
  assert.doesNotMatch(await page.title(), /\(/);

  // Of what comes while the page is scrolled down, only what has been on screen is seen afterwards, in every tab.
  const second = await signIn('alice', {context: page.context()});
  const top = () => page.evaluate(() => document.querySelector('.bar').getBoundingClientRect().height);
  const before = await top();
  await rows(page).last().scrollIntoViewIfNeeded();
  appliance.store('alice', [1, 2, 3].map(later => notification('AtticNote', Math.ceil(Date.now() / 1000) + later, {FLOOR: `${later}`})));
  for (const tab of [page, second]) {
    await tab.bringToFront();
    await tab.clock.fastForward(LOOK_MS);
    await shows(tab, '#badge', '3');
  }
  await shows(page, '#news-above', '3 new ↑');
  assert.equal(await top(), before);
  await page.bringToFront();
  await hide(page, true);
  await hide(page, false);
  assert.equal(await page.locator('#badge').innerText(), '3');
  await page.locator('#news-above').click();
  await page.locator('#news-above').waitFor({state: 'hidden'});
  assert.match(await page.evaluate(() => document.activeElement.innerText), /Note from 3/);
  await hide(page, true);
  for (const tab of [page, second])
    await tab.locator('#badge').waitFor({state: 'hidden'});
}));

it('what is new is looked for more slowly while the page is hidden', as('alice', async page => {
  const {requests} = page.context();
  const looks = () => requests.filter(({action}) => action === 'load').length;
  await shows(page, '#everything .count', /^[^+]+$/);
  await hide(page, true);
  const before = looks();
  await page.clock.runFor(110_000);
  assert.equal(looks(), before);
  await Promise.all([page.waitForResponse(/notify/), page.clock.runFor(11_000)]);
  await Promise.all([page.waitForResponse(/notify/), hide(page, false)]);
  assert.equal(looks(), before + 2);
}));

it('what is new raises desktop notifications of the categories that are on, once they were asked for, in a hidden tab too', async () => {
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
  await (await inMenu(page, '#desktop')).check();
  await page.keyboard.press('Escape');
  assert.deepEqual(await page.locator('#categories li').filter({has: page.locator('.silent:visible')}).locator('.name').allInnerTexts(),
    ['Dachboden']);
  await arrives(page, 'bob', 'Silent', 'AtticNote', 'FLOOR=Silent');
  await hide(page, true);
  appliance.notify('bob', 'LabAlarm', 'ROOM=Loud', 'VALUE=2');
  await page.clock.runFor(16_000);
  await page.waitForFunction(() => raised.length > 0);
  assert.deepEqual(await page.evaluate(() => raised.map(text => text.replace(/[\u2068\u2069]/g, ''))),
    ['Labor: Alarm in Loud: 2 ist zu viel']);
});

it('a host that does not answer is said so, asked ever more slowly, and found again, with what was asked meanwhile', as('bob', async page => {
  await appliance.stop();
  const failed = () => page.waitForEvent('requestfailed');
  await Promise.all([failed(), page.clock.runFor(LOOK_MS)]);
  await shows(page, '#trouble', /antwortet nicht.* 10 Sekunden/);
  await page.clock.runFor(4_000);
  await shows(page, '#trouble', '6 Sekunden');
  await Promise.all([failed(), page.clock.runFor(LOOK_MS)]);
  await shows(page, '#trouble', /(20|19) Sekunden/);
  await filterBy(page, /Labor/);
  await page.waitForTimeout(100);

  await appliance.serve();
  await button(page, 'Jetzt versuchen').click();
  await page.locator('#trouble').waitFor({state: 'hidden'});
  await shows(page, '#live', 'antwortet wieder');
  await shows(page, '#shown', /^\d+ von \d+ Treffer/);
}));

it('a host that does not answer has its own page when nothing is loaded yet, with a way on', async () => {
  const page = await (await newContext()).newPage();
  await page.route('**/session', route => route.abort(), {times: 1});
  await page.goto(appliance.signInLink('alice'));
  await shows(page, '#failed', 'does not answer');
  await button(page, 'Try again').click();
  await rows(page).first().waitFor();
});

it('deleting all names the number, asks, says what else goes, and empties the list in every tab', as('carol', async page => {
  const second = await signIn('carol', {context: page.context()});
  await (await inMenu(page, '#language')).selectOption({label: 'English'});
  await shows(page, '#shown', ' of ');
  const shown = Number((await page.locator('#shown').innerText()).match(/of (\d+)/)[1]);
  await page.keyboard.press('Escape');
  await filterBy(page, /Warnings/);
  const ask = async () => (await inMenu(page, '#delete')).click();
  await ask();
  const dialog = page.getByRole('dialog');
  await dialog.waitFor();
  const [, all, hidden] = (await dialog.innerText()).match(
    /Delete all (\d+) notifications\?\s+All of them are deleted, not only those that match your filter.\s+This includes (\d+)/);
  assert.equal(Number(all), shown + Number(hidden));
  await page.keyboard.press('Escape');
  await dialog.waitFor({state: 'hidden'});
  await filterBy(page, /^All/);
  await (await inMenu(page, '#hidden-too')).check();
  await shows(page, '#shown', `of ${all} notifications`);
  await page.keyboard.press('Escape');
  await filterBy(page, /Security/);
  const marks = await page.locator('.row').evaluateAll(rows => rows.map(row =>
    [/sign-in attempts as/.test(row.innerText), row.querySelector('.hidden-kind').checkVisibility()]));
  assert.ok(marks.length > 1 && marks.every(([isHidden, isMarked]) => isHidden === isMarked), JSON.stringify(marks));
  await ask();
  await button(page, `Delete ${all}`).click();
  await shows(page, '#done', 'All your notifications are deleted');
  assert.equal(await rows(page).count(), 0);

  await second.clock.fastForward(LOOK_MS);
  await second.locator('#empty').waitFor();
}));

// Notifications that are newer than all before, of a page that shows everything.
async function send(page, ...contents) {
  await page.locator('#everything').click();
  appliance.store('bob', contents.map((content, later) => ({...content, time: Math.ceil(Date.now() / 1000) + later})));
}
const states = {
  '.mail:visible': async page => {
    await page.locator('.with-mail').first().click();
  },
  '.without-text .fold:visible': async page => {
    await send(page, notification('LabAlarm', 0, {ROOM: 'wide '.repeat(500)}),
      notification('photos:shared', 0, {FOLDER: 'Holiday '.repeat(200), COUNT: 3}));
    await page.clock.fastForward(LOOK_MS);
  },
  '#news': async page => {
    await send(page, notification('AtticNote', 0, {FLOOR: 1}));
    await page.clock.fastForward(LOOK_MS);
  },
  '#news-above': async page => {
    await send(page, notification('AtticNote', 0, {FLOOR: 2}));
    await rows(page).nth(20).scrollIntoViewIfNeeded();
    await page.clock.fastForward(LOOK_MS);
  },
  '#search-progress': async page => {
    await page.route('**/notify', route => route.request().postDataJSON().limit > 1000 || route.continue());
    await page.reload();
  },
  '#done': async page => {
    await page.route('**/notify', route => route.request().postDataJSON().action === 'apply' ?
      route.fulfill({json: {success: true}}) : route.continue());
    await (await inMenu(page, '#delete')).click();
    await page.locator('#confirm-delete').click();
  },
  '#menu': page => inMenu(page, ''),
  '#confirm': async page => (await inMenu(page, '#delete')).click(),
  '#keys': page => page.keyboard.press('?'),
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
  '#sign-in': async page => (await inMenu(page, '#sign-out')).click(),
};
const SIZES = [{width: 1440, height: 900}, {width: 1024, height: 768}, {width: 390, height: 844}];

for (const [state, reach] of Object.entries(states)) {
  it(`${state} has no barrier and fits at every size, light and dark`, async () => {
    const page = await signIn('bob', {query: '?level=error&search=backup', bypassCSP: true, reducedMotion: 'reduce'});
    await reach(page);
    await page.locator(state).waitFor();
    await page.addScriptTag({path: AXE});
    const looks = SIZES.flatMap(size => [[size, 'light'], [size, 'dark']]);
    for (const [viewport, colorScheme] of [...looks, [{width: 320, height: 700}, 'light']]) {
      await page.setViewportSize(viewport);
      await page.emulateMedia({colorScheme});
      const where = `${viewport.width} ${colorScheme}`;
      const {violations} = await page.evaluate(() => axe.run({resultTypes: ['violations']}));
      assert.deepEqual(violations.map(({id, nodes}) => [id, ...nodes.map(({html}) => html)]), [], where);
      assert.equal(await page.evaluate(() => document.documentElement.scrollWidth <= innerWidth), true, where);
      const overflows = await page.locator('.bar, #search-progress:visible').evaluateAll(all =>
        all.flatMap(each => [each.scrollWidth - each.clientWidth, each.scrollHeight - each.clientHeight]));
      assert.ok(overflows.every(pixels => pixels === 0), `${where}: ${overflows}`);
      if (viewport.width < 400 && state === '.mail:visible') {
        await page.evaluate(() => scrollTo(0, 0));
        assert.ok((await page.locator('#list').boundingBox()).y <= 160, where);
        const heights = await page.locator('.face, .filter, .menu-button').evaluateAll(all => all.map(each => each.offsetHeight));
        assert.ok(Math.min(...heights) >= 44, where);
      }
    }
  });
}

it('everything is reached by keyboard: the skip link, the list, and in it row by row', as('alice', async page => {
  await page.keyboard.press('Tab');
  assert.equal(await focused(page), 'skip');
  await page.keyboard.press('Tab');
  const current = () => page.evaluate(() => [...document.querySelectorAll('.face')].indexOf(document.activeElement));
  assert.equal(await current(), 0);
  for (const [key, place] of [['j', 1], ['ArrowDown', 2], ['k', 1], ['ArrowUp', 0], ['ArrowUp', 0]]) {
    await page.keyboard.press(key);
    assert.equal(await current(), place, key);
  }
  await page.locator('.with-mail .face').first().focus();
  await page.keyboard.press('Enter');
  await page.locator('.mail:visible').waitFor();
  await page.keyboard.press('/');
  assert.equal(await focused(page), 'search');
  await page.keyboard.type('k?');
  await page.keyboard.press('Escape');
  await page.locator('#skip').focus();
  await page.keyboard.press('?');
  await shows(page, '#keys', 'Next notification');
}));

it('5,000 rows and one that arrives are drawn', async context => {
  const page = await signIn('alice');
  const measured = await page.evaluate(async () => {
    const [{Notifications, foldRepeats}, {List}, {Texts}, {timesIn}, {wordsIn}, {Seen}] = await Promise.all(
      ['notifications', 'list', 'text', 'time', 'words', 'seen'].map(name => import(`/${name}.js`)));
    const item = index => ({title: 'AtticNote', time: 1.7e9 - index * 60, msg: [`{"FLOOR": "${index}"}`]});
    const stored = Array.from({length: 5000}, (_, index) => item(index));
    const load = async ({limit, offset}) => ({items: stored.slice(offset, offset + limit), total: stored.length, newestMsgTime: stored[0].time});
    const notifications = new Notifications(load);
    notifications.wanted = 5000;
    notifications.texts = new Texts({AtticNote: {msg: 'Note from {FLOOR}', title: 'Attic'}}, [], '');
    await notifications.reload();
    const seen = new Seen({get: () => null, set: () => {}}, notifications.items);
    const list = new List(document.getElementById('list'), async () => null, () => {});
    list.setTexts({words: wordsIn('enu'), times: timesIn('en')});
    const took = async draw => {
      const start = performance.now();
      await draw();
      notifications.counts();
      list.draw(foldRepeats(notifications.matching().slice(0, notifications.wanted)), {isNew: item => seen.isNew(item), isHidden: () => false});
      return Math.round(performance.now() - start);
    };
    const all = await took(() => {});
    // All the way down, so that all have a row.
    list.move(0);
    for (let rows = 0; rows < list.length;) {
      rows = list.length;
      list.move(rows);
    }
    stored.unshift(item(-1));
    const one = await took(() => notifications.look());
    return {all, one, rows: list.length};
  });
  assert.equal(measured.rows, 5000);
  context.diagnostic(`script time: 5,000 rows ${measured.all} ms, one arrival ${measured.one} ms`);
});
