// What is shown around the list: the page's words, its counts, its filters, and what is wrong.
import {Refused, Unreachable} from './api.js';
import {LEVELS, OTHER} from './text.js';
import {tagOf, translate, wordsIn} from './words.js';

const VIEWS = ['loading', 'sign-in', 'failed', 'content'];
const WITH_CENTRE = ['skip', 'tools', 'filters'];
const DONE_MS = 8000;

export const byId = id => document.getElementById(id);

export let words;
export const say = (key, values) => words.say(key, values);

let filters = [];    // the buttons, each with what it filters by

export function speak(language) {
  words = wordsIn(language);
  translate(words);
  document.title = say('heading');
  byId('list').lang = byId('categories').lang = tagOf(language);
}

export function show(view) {
  for (const id of VIEWS)
    byId(id).hidden = id !== view;
  for (const id of WITH_CENTRE)
    byId(id).hidden = view !== 'content';
  if (view !== 'content') {
    byId('trouble').hidden = byId('done').hidden = byId('badge').hidden = true;
    document.title = say('heading');
    byId('menu').hidePopover();
    for (const dialog of document.querySelectorAll('dialog'))
      dialog.close();
  }
}

export function tellFailure(error) {
  byId('failed-why').textContent = reasonOf(error);
  show('failed');
}

export function reasonOf(error) {
  if (error instanceof Unreachable)
    return say('unreachable');
  if (error instanceof Refused)
    return say('refused', {CODE: error.code});
  reportError(error);
  return say('pageFailed');
}

// For eyes and ears alike, for a while.
let doneTimer;
export function tellDone(text) {
  clearTimeout(doneTimer);
  byId('done').hidden = false;
  byId('done').textContent = text;
  doneTimer = setTimeout(() => byId('done').hidden = true, DONE_MS);
}

// Whoever was on a control that goes away goes on at the list, not at the top of the page.
export function setHidden(element, hidden) {
  const hadFocus = element.contains(document.activeElement);
  element.hidden = hidden;
  if (hidden && hadFocus)
    byId('content').focus();
}

// Makes the filters of the labels; `choose` is called with the part of the filter that a click changes.
export function drawFilters(texts, choose) {
  const ofLevels = LEVELS.map(level => filter({level}, say(`${level}sOnly`), `#icon-${level}`, false));
  const ofLabels = [...texts.labels, OTHER].map(category =>
    filter({category}, category || say('other'), null, !texts.isOn(category)));
  filters = [...ofLevels, ...ofLabels];
  byId('levels').replaceChildren(...ofLevels.map(({item}) => item));
  byId('categories').replaceChildren(...ofLabels.map(({item}) => item));
  byId('categories').hidden = byId('categories-name').hidden = texts.labels.length === 0;
  for (const note of document.querySelectorAll('.silent-note'))
    note.hidden = texts.labels.every(label => texts.isOn(label));

  function filter(part, name, icon, isSilent) {
    const item = byId('filter').content.cloneNode(true).firstElementChild;
    const button = item.firstElementChild;
    const [picture] = button.children;
    picture.firstElementChild.setAttribute('href', icon ?? '');
    picture.toggleAttribute('hidden', !icon);
    item.dataset.level = part.level ?? '';
    button.querySelector('.name').textContent = name;
    button.querySelector('.silent').hidden = !isSilent;
    button.querySelector('.silent').title = button.querySelector('.silent .unseen').textContent = say('silent');
    button.addEventListener('click', () => choose(part));
    return {...part, item, button};
  }
}

// Everything but the rows themselves.
export function draw({notifications, isNew, desktop, isSearching}) {
  const {items, total, wanted, filter, isFiltered, isComplete} = notifications;
  const found = notifications.matching();
  const shown = Math.min(found.length, wanted);

  drawCounts();
  drawNews();
  drawEmpty();
  drawPressed();
  drawDesktop(desktop);
  byId('text-note').hidden = !notifications.texts.isEmpty;
  byId('list').hidden = shown === 0;
  byId('skip').href = shown === 0 ? '#content' : '#list';  // to what is there
  write(byId('more'), say(isSearching ? 'loadingMore' : 'showMore'));
  setHidden(byId('more'), found.length <= wanted && isComplete);
  byId('delete').disabled = total === 0;

  function drawCounts() {
    byId('content').ariaBusy = isSearching;
    setHidden(byId('search-progress'), !isSearching);
    byId('shown').hidden = isSearching;
    const searched = say('searched', {LOADED: items.length, TOTAL: total});
    const soFar = `${say('foundSoFar', {COUNT: found.length})} · ${searched}`;
    if (isSearching) {
      const [text, , progress] = byId('search-progress').children;
      text.textContent = soFar;
      progress.max = total;
      progress.value = items.length;
    } else if (total === 0) {
      write(byId('shown'), '');
    } else if (isFiltered) {
      write(byId('shown'), isComplete ? say('found', {SHOWN: shown, COUNT: found.length}) : soFar);
    } else {
      write(byId('shown'), say('shown', {SHOWN: shown, COUNT: total}));
    }
  }

  function drawNews() {
    const fresh = items.filter(isNew).length;
    const count = numberOf(fresh, fresh < items.length || isComplete);
    byId('badge').textContent = count;
    byId('badge').hidden = fresh === 0;
    document.title = `${fresh ? `(${count}) ` : ''}${say('heading')}`;
    const here = isFiltered ? found.filter(isNew).length : fresh;
    setHidden(byId('news'), here === 0 || isSearching);
    byId('news').firstElementChild.textContent =
      say('newCount', {NUMBER: numberOf(here, here < found.length || isComplete), COUNT: here});
  }

  function drawEmpty() {
    const [, title, text, all] = byId('empty').children;
    setHidden(byId('empty'), shown > 0 || isSearching || notifications.lacks);
    title.textContent = say(isFiltered ? 'emptyFilterTitle' : 'emptyTitle');
    text.textContent = say(!isFiltered ? 'empty' : isComplete ? 'emptyFilter' : 'emptyStopped');
    all.hidden = !isFiltered;
  }

  function drawPressed() {
    const {labels, levels} = notifications.counts();
    byId('everything').ariaPressed = !isFiltered;
    byId('everything').querySelector('.count').textContent = numberOf(total, true);
    for (const {level, category, button} of filters) {
      const isPressed = level !== undefined ? filter.level === level : filter.category === category;
      button.ariaPressed = isPressed;
      const count = (level !== undefined ? levels.get(level) : labels.get(category)) ?? 0;
      write(button.querySelector('.count'), numberOf(count, isComplete));
    }
    if (document.activeElement !== byId('search'))
      byId('search').value = filter.search;
  }
}

// New ones above what is on screen; `here` are how many.
export function drawNewsAbove(here) {
  setHidden(byId('news-above'), here === 0);
  byId('news-above').textContent = say('newAbove', {COUNT: here});
}

function drawDesktop({state}) {
  byId('desktop').checked = state === 'on';
  byId('desktop').disabled = state === 'denied' || state === 'unsupported';
  write(byId('desktop-note'), say({
    on: 'desktopOn', off: 'desktopOff', denied: 'desktopDenied', unsupported: 'desktopUnsupported',
  }[state]));
}

// Of what is loaded only: when there may be more, a plus says so.
const numberOf = (count, isExact) => words.number(count) + (isExact ? '' : '+');

// Written anew it would be read out anew.
function write(element, text) {
  if (element.textContent !== text)
    element.textContent = text;
}
