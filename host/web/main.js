import {Api, Refused, Unreachable} from './api.js';
import {Desktop} from './desktop.js';
import {List} from './list.js';
import {categoryOf, fill, keysOf, parametersOf, SYSTEM_TITLE} from './text.js';
import {hasCome, timeOf, timesIn} from './time.js';
import {Watch} from './watch.js';
import {languageFor, nameOf, tagOf, wordsIn} from './words.js';

const PAGE = 30;
// A filter may have to look far back for a page of its own: in steps that are few and not too large.
const SEARCH_STEP = 500;
const TOKEN = 'token';
const OTHER = Symbol('notifications of no listed category');
const VIEWS = ['loading', 'sign-in', 'failed', 'centre'];

const byId = id => document.getElementById(id);
const say = (key, values) => words.say(key, values);

let words;
let api;
let session;
let list;
let desktop;
let watch;

let categories = [];
let strings = {};
let filters = new Map();    // what the list can be filtered by: the name and button of each category
let filter = null;          // the one in use: a category's English title, OTHER, or null for all
let hiddenToo = false;
let loaded = [];            // the newest notifications, newest first
let total = 0;
let newest = 0;             // the time of the newest one, in seconds
let wanted = PAGE;          // how many a person has asked to see
let lastLook = Infinity;    // what is later than this is new
let lastAnswer = null;      // what the last look was told, to compare the next one's answer with

// Requests go one after the other, so that each finds the state that the one before it left.
let turn = Promise.resolve();
function inTurn(action) {
  turn = turn.then(action).catch(reportError);
  return turn;
}

start();

function start() {
  const token = takeToken();
  words = wordsIn(languageFor(navigator.languages));
  translate();
  addEventListener('hashchange', () => {
    if (takeToken() !== token)
      location.reload();
  });
  byId('retry').addEventListener('click', () => inTurn(open));
  if (!token) {
    askToSignIn('signInMissing');
    return;
  }
  // No request can carry another character, such as the dots of a link that was cut short.
  if (!/^[\x21-\x7e]+$/.test(token)) {
    askToSignIn('signInWrong');
    return;
  }
  api = new Api(token);
  list = new List(byId('list'), openMail);
  inTurn(open);
}

// The token is kept for this tab only, and out of the address, which gets copied and remembered.
function takeToken() {
  const given = new URLSearchParams(location.hash.slice(1)).get('token');
  if (given) {
    sessionStorage.setItem(TOKEN, given);
    history.replaceState(null, '', location.pathname);
  }
  return sessionStorage.getItem(TOKEN);
}

// What this browser keeps for the user, beyond this tab unless it denies the page its storage.
const keptHere = new Map();
function memory(name) {
  const key = `${session.user}:${name}`;
  return {
    get() {
      try {
        return keptHere.get(key) ?? localStorage.getItem(key);
      } catch {
        return null;
      }
    },
    set(value) {
      try {
        localStorage.setItem(key, value);
      } catch {
        keptHere.set(key, value);
      }
    },
  };
}

async function open() {
  show('loading');
  try {
    session = await api.session();
    const {languages} = session;
    api.language = [memory('language').get(), session.language, 'enu'].find(language => languages.includes(language))
      ?? languages[0] ?? session.language;
    const [answer] = await Promise.all([load(PAGE), readTexts()]);
    take(answer);
    lastAnswer = {total, newest};
    // Whoever comes for the first time has nothing to compare with.
    lastLook = rememberedLook() ?? latestSince(0);
    desktop = new Desktop(memory('desktop'));
    speak();
    draw();
    // Last, for a second try must find nothing wired by the first.
    watch = new Watch(() => attempt(look));
    wire();
    show('centre');
  } catch (error) {
    fail(error);
  }
}

const isNew = notification => timeOf(notification) > lastLook;

const latestSince = time => loaded.reduce((latest, notification) => Math.max(latest, timeOf(notification)), time);

// Null for one that is not there or cannot be: nothing would be new after it.
function rememberedLook() {
  const text = memory('lastLook').get();
  return text !== null && hasCome(Number(text)) ? Number(text) : null;
}

// The texts come after the categories: asking for these is what makes an appliance write the file
// that both are read from. A list without either is still worth showing.
async function readTexts() {
  const rows = await unlessRefused(api.categories(), []);
  // Tags are anyone's names, and some are those of every object's own members.
  strings = Object.assign(Object.create(null), await unlessRefused(api.strings(), {}));
  categories = rows;
}

async function unlessRefused(asked, fallback) {
  try {
    return await asked;
  } catch (error) {
    if (error instanceof Refused && error.code !== 401)
      return fallback;
    throw error;
  }
}

function load(limit, offset = 0) {
  return api.load({limit, offset, all: hiddenToo});
}

function take(answer) {
  loaded = answer.items;
  total = answer.total;
  newest = answer.newestMsgTime;
}

// Looks for news with the smallest answer there is, and asks for the list only when there are some.
async function look() {
  const {total: nowTotal, newestMsgTime: nowNewest} = await load(1);
  if (nowTotal === lastAnswer.total && nowNewest === lastAnswer.newest)
    return;
  const grown = Math.max(0, nowTotal - lastAnswer.total);
  const arrived = adopt(await load(Math.max(PAGE, loaded.length + grown)));
  lastAnswer = {total: nowTotal, newest: nowNewest};
  // The last row stays in its place, for somebody may be reading it.
  wanted += arrived.filter(isWanted).length;
  tell(arrived);
}

// Takes the list anew and gives what has arrived since it was last taken.
function adopt(answer) {
  const known = new Set(keysOf(loaded));
  take(answer);
  const keys = keysOf(loaded);
  // Below the last known one are older ones that were not loaded before.
  const end = keys.findLastIndex(key => known.has(key));
  return loaded.filter((notification, index) =>
    !known.has(keys[index]) && (index < end || (end < 0 && isNew(notification))));
}

function tell(arrived) {
  if (arrived.length === 0)
    return;
  byId('live').textContent = say('arrived', {COUNT: arrived.length});
  const chosen = arrived.filter(({title}) => isOn(rowOf(title)));
  desktop.raise(
    chosen.map(notification => {
      const {title: tag} = notification;
      return {
        title: titleOf(tag) || say('heading'),
        body: strings[tag] ? fill(strings[tag].msg, parametersOf(notification)) : tag,
        key: JSON.stringify(notification),
      };
    }), say('arrived', {COUNT: chosen.length}));
}

const rowOf = tag => categoryOf(strings[tag]?.title, categories);

// Whether the user has the category's desktop notifications on; what is of none is never switched off.
const isOn = row => !row || row.nexnotify === 'on';

function titleOf(tag) {
  const title = strings[tag]?.title ?? '';
  return title === SYSTEM_TITLE ? say('systemEvent') : title;
}

const isWanted = ({title}) => filter === null || (rowOf(title)?.category_enu ?? OTHER) === filter;

const matching = () => loaded.filter(isWanted);

// Loads until as many as wanted can be shown, or all there are.
async function fillPage() {
  while (matching().length < wanted && loaded.length < total) {
    const step = filter === null ? wanted - loaded.length : SEARCH_STEP;
    // From the last one that is known: when another stands in its place, the list has moved.
    const last = loaded.length - 1;
    const answer = await load(1 + step, last);
    if (JSON.stringify(answer.items[0]) === JSON.stringify(loaded[last])) {
      loaded.push(...answer.items.slice(1));
      total = answer.total;
    } else {
      tell(adopt(await load(loaded.length + step)));
    }
  }
}

// Runs what a person or the watch asked for and shows how it went.
function attempt(action) {
  return inTurn(async () => {
    const before = api.answers;
    try {
      await action();
      // What was done without a request tells nothing about the host.
      if (api.answers > before)
        answered();
    } catch (error) {
      if (error.code === 401) {
        fail(error);
        return;
      }
      report(error);
    }
    draw();
  });
}

function answered() {
  if (!byId('trouble').hidden) {
    setHidden('trouble', true);
    byId('live').textContent = say('answersAgain');
  }
  watch.went(true);
}

function report(error) {
  watch.went(false);
  byId('trouble').hidden = false;
  byId('trouble').querySelector('p').textContent = `${reasonOf(error)} ${say('nextTry', {COUNT: watch.seconds})}`;
}

function reasonOf(error) {
  if (error instanceof Unreachable)
    return say('unreachable');
  if (error instanceof Refused)
    return say('refused', {CODE: error.code});
  reportError(error);
  return say('pageFailed');
}

function fail(error) {
  if (error.code === 401) {
    askToSignIn('signInWrong');
    return;
  }
  byId('failed-why').textContent = reasonOf(error);
  show('failed');
}

function askToSignIn(why) {
  sessionStorage.removeItem(TOKEN);
  watch?.stop();
  byId('confirm').close();
  byId('trouble').hidden = true;
  byId('sign-in-why').textContent = say(why);
  byId('sample').textContent = `${location.origin}/#token=…`;
  show('sign-in');
  byId('sign-in').querySelector('h2').focus();
}

async function openMail(tag) {
  try {
    return await api.mail(tag);
  } catch (error) {
    if (error.code === 401)
      fail(error);
    return say(error instanceof Refused && error.code === 117 ? 'noMail' : 'mailFailed');
  }
}

function wire() {
  byId('user').textContent = session.user;
  byId('administrator').hidden = !session.administrator;
  byId('language').append(...session.languages.map(language =>
    new Option(nameOf(language), language, false, language === api.language)));

  const on = (id, event, action) => byId(id).addEventListener(event, action);
  on('language', 'change', () => attempt(changeLanguage));
  on('sign-out', 'click', () => {
    sessionStorage.removeItem(TOKEN);
    location.reload();
  });
  on('more', 'click', async () => {
    const last = byId('list').lastElementChild;
    wanted += PAGE;
    byId('more').textContent = say('loadingMore');
    await attempt(fillPage);
    // The button is gone with the last page, and the focus was on it.
    if (byId('more').hidden && document.activeElement === byId('content'))
      list.focusAfter(last);
  });
  on('hidden-too', 'change', () => attempt(reload));
  on('desktop', 'click', async () => {
    await desktop.toggle();
    draw();
  });
  on('delete', 'click', () => attempt(askToDelete));
  on('cancel', 'click', () => byId('confirm').close());
  on('confirm-delete', 'click', () => {
    byId('confirm').close();
    attempt(deleteAll);
  });
  byId('trouble').querySelector('button').addEventListener('click', () => watch.now());
  byId('news').querySelector('button').addEventListener('click', seen);
  byId('empty').querySelector('button').addEventListener('click', () => choose(null));

  // Leaving the page ends the look: whoever comes back wants to know what came since.
  document.addEventListener('visibilitychange', () => document.hidden && seen());
  addEventListener('storage', () => {
    lastLook = rememberedLook() ?? lastLook;
    draw();
  });
}

function seen() {
  lastLook = latestSince(lastLook);
  memory('lastLook').set(lastLook);
  draw();
}

async function changeLanguage() {
  const before = api.language;
  api.language = byId('language').value;
  try {
    await readTexts();
  } catch (error) {
    api.language = before;
    byId('language').value = before;
    throw error;
  }
  memory('language').set(api.language);
  speak();
}

async function reload() {
  hiddenToo = byId('hidden-too').checked;
  take(await load(wanted));
  lastAnswer = {total, newest};
  await fillPage();
}

function choose(category) {
  filter = category;
  wanted = PAGE;
  attempt(fillPage);
}

// The numbers are asked for anew, and hidden kinds counted: all of them go.
async function askToDelete() {
  const [{total: all}, {total: visible}] =
    await Promise.all([true, false].map(everything => api.load({limit: 1, all: everything})));
  const hidden = all - visible;
  byId('confirm-title').textContent = say('confirmTitle', {COUNT: all});
  byId('confirm-hidden').textContent = say('confirmHidden', {COUNT: hidden});
  byId('confirm-hidden').hidden = hidden === 0;
  byId('confirm-delete').textContent = say('confirm', {COUNT: all});
  byId('confirm').showModal();
}

async function deleteAll() {
  await api.deleteAll();
  await reload();
  byId('live').textContent = say('deleted');
}

// Puts the language's words, texts and times everywhere.
function speak() {
  words = wordsIn(api.language);
  translate();
  byId('list').lang = byId('categories').lang = tagOf(api.language);
  byId('text-note').hidden = Object.keys(strings).length > 0;
  list.setTexts({strings, titleOf, words, times: timesIn(words.tag)});
  drawCategories();
}

function translate() {
  document.documentElement.lang = words.tag;
  for (const element of document.querySelectorAll('[data-word]'))
    element.textContent = say(element.dataset.word);
  for (const element of document.querySelectorAll('[data-word-label]'))
    element.setAttribute('aria-label', say(element.dataset.wordLabel));
  document.title = say('heading');
}

function show(view) {
  for (const id of VIEWS)
    byId(id).hidden = id !== view;
  byId('skip').hidden = byId('account').hidden = view !== 'centre';
}

function draw() {
  const found = matching();
  const shown = found.slice(0, wanted);
  const isEmpty = shown.length === 0 && loaded.length >= total;
  list.draw(shown, isNew);
  byId('list').hidden = shown.length === 0;
  byId('skip').href = shown.length === 0 ? '#content' : '#list';  // to what is there

  // Written anew it would be read out anew.
  const counts = isEmpty ? '' : countsOf(shown.length);
  if (byId('shown').textContent !== counts)
    byId('shown').textContent = counts;

  const fresh = loaded.filter(isNew).length;
  // Only what is loaded can be counted: when all of it is new, there may be more.
  const count = fresh === loaded.length && loaded.length < total ? `${fresh}+` : `${fresh}`;
  byId('badge').textContent = count;
  byId('badge').hidden = fresh === 0;
  setHidden('news', fresh === 0);
  byId('news').querySelector('strong').textContent = say('newCount', {NUMBER: count, COUNT: fresh});
  document.title = `${fresh ? `(${count}) ` : ''}${say('heading')}`;

  const empty = byId('empty');
  setHidden('empty', !isEmpty);
  empty.querySelector('p').textContent = say(filter === null ? 'empty' : 'emptyCategory');
  empty.querySelector('button').hidden = filter === null;

  byId('more').textContent = say('showMore');
  setHidden('more', found.length <= wanted && loaded.length >= total);
  setHidden('delete', total === 0);
  for (const [category, {button}] of filters)
    button.setAttribute('aria-pressed', category === filter);
  drawDesktop();
}

function countsOf(shown) {
  if (filter === null)
    return say('shown', {SHOWN: shown, COUNT: total});
  const inCategory = say('shownInCategory', {SHOWN: shown, CATEGORY: filters.get(filter).name});
  return `${inCategory} · ${say('searched', {LOADED: loaded.length, TOTAL: total})}`;
}

// Whoever was on a control that goes away goes on at the list, not at the top of the page.
function setHidden(id, hidden) {
  const hadFocus = byId(id).contains(document.activeElement);
  byId(id).hidden = hidden;
  if (hidden && hadFocus)
    byId('content').focus();
}

function drawDesktop() {
  const {state} = desktop;
  byId('desktop').setAttribute('aria-checked', state === 'on');
  byId('desktop').disabled = state === 'denied' || state === 'unsupported';
  byId('desktop-note').textContent = say({
    on: 'desktopOn', off: 'desktopOff', denied: 'desktopDenied', unsupported: 'desktopUnsupported',
  }[state]);
}

function drawCategories() {
  filters = new Map();
  if (categories.length > 0) {
    addFilter(null, say('allCategories'));
    for (const row of categories)
      addFilter(row.category_enu, row.category, isOn(row) ? 'on' : 'off');
    addFilter(OTHER, say('otherCategories'));
  }
  if (!filters.has(filter))
    filter = null;
  byId('categories').replaceChildren(...[...filters.values()].map(({button}) => {
    const item = document.createElement('li');
    item.append(button);
    return item;
  }));
  byId('category-note').textContent = say(categories.length > 0 ? 'choiceNote' : 'noCategories');
}

function addFilter(category, name, choice) {
  const button = byId('category').content.cloneNode(true).firstElementChild;
  button.querySelector('.name').textContent = name;
  button.querySelector('.choice').hidden = !choice;
  if (choice) {
    button.dataset.choice = choice;
    button.querySelector('use').setAttribute('href', choice === 'on' ? '#icon-bell' : '#icon-bell-off');
    button.querySelector('.unseen').textContent = say('choice');
    button.querySelector('.choice-word').textContent = say(choice);
  }
  button.addEventListener('click', () => choose(category));
  filters.set(category, {name, button});
}
