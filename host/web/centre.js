// What a person does with the open list, and what the watch does for them.
import {Refused} from './api.js';
import {Desktop} from './desktop.js';
import {List} from './list.js';
import {memoryOf} from './memory.js';
import {filterOf, foldRepeats, NO_FILTER, Notifications, PAGE, queryOf} from './notifications.js';
import {byId, draw, drawFilters, drawNewsAbove, reasonOf, say, setHidden, show, speak, tellDone, words} from './screen.js';
import {Seen} from './seen.js';
import {fillIsolated, LEVELS, OTHER, Texts} from './text.js';
import {timesIn} from './time.js';
import {Watch} from './watch.js';
import {nameOf} from './words.js';

const TYPING_MS = 250;

export class Centre {
  #api;
  #session;
  #leave;
  #spoken;
  #list;
  #notifications = new Notifications(parameters => this.#api.load(parameters));
  #texts;
  #seen;
  #desktop;
  #watch;
  #isSearching = false;
  #typing = 0;
  #countdown = 0;
  #end = new AbortController();
  // The hidden kinds are there for whoever looks for them, not to be told of.
  #isNew = item => this.#seen.isNew(item) && !this.#notifications.isHidden(item);
  // Requests go one after the other, so that each finds the state that the one before it left.
  #turn = Promise.resolve();

  // Opens the list of whoever the token belongs to. `leave(why)` is called when that ends, `spoken(language)` when a
  // language is spoken.
  static async open(api, {leave, spoken}) {
    const centre = new Centre();
    centre.#api = api;
    centre.#leave = leave;
    centre.#spoken = spoken;
    await centre.#open();
    return centre;
  }

  close() {
    this.#end.abort();
    this.#watch.stop();
    clearInterval(this.#countdown);
    clearTimeout(this.#typing);
    this.#list.close();
  }

  async #open() {
    this.#session = await this.#api.session();
    const {user, languages, language} = this.#session;
    this.#api.language = [this.#memory('language').get(), language, 'enu'].find(each => languages.includes(each))
      ?? languages[0] ?? language;
    await Promise.all([this.#notifications.reload(), this.#readTexts()]);
    this.#seen = new Seen(this.#memory('seen'), this.#notifications.items);
    this.#desktop = new Desktop(this.#memory('desktop'));
    this.#list = new List(byId('list'), tag => this.#api.mail(tag), () => drawNewsAbove(this.#list.newsAbove));
    byId('user').textContent = user;
    byId('administrator').hidden = !this.#session.administrator;
    byId('hidden-too').checked = false;
    byId('language').replaceChildren(...languages.map(each => new Option(nameOf(each), each, false, each === this.#api.language)));
    this.#speak();
    this.#takeFilter();
    this.#watch = new Watch(() => this.#attempt(() => this.#look()), () => this.#desktop.state === 'on');
    this.#wire();
    show('content');
    this.#draw();
    if (this.#notifications.lacks)
      this.#attempt(() => this.#fill());
  }

  #memory(name) {
    return memoryOf(this.#session.user, name);
  }

  #wire() {
    const {signal} = this.#end;
    const listen = (target, event, action) => target.addEventListener(event, action, {signal});
    const on = (id, event, action) => listen(byId(id), event, action);
    on('language', 'change', () => this.#attempt(() => this.#changeLanguage()));
    on('sign-out', 'click', () => this.#leave('signedOut'));
    on('more', 'click', () => this.#showMore());
    on('hidden-too', 'change', () => this.#attempt(async () => {
      this.#notifications.hiddenToo = byId('hidden-too').checked;
      await this.#reload();
    }));
    on('desktop', 'change', async () => {
      await this.#desktop.toggle();
      this.#draw();
    });
    on('delete', 'click', () => this.#attempt(() => this.#askToDelete()));
    on('cancel', 'click', () => byId('confirm').close());
    on('confirm-delete', 'click', () => {
      byId('confirm').close();
      this.#attempt(() => this.#deleteAll());
    });
    on('show-keys', 'click', () => this.#showDialog('keys'));
    on('close-keys', 'click', () => byId('keys').close());
    on('everything', 'click', () => this.#choose(NO_FILTER));
    listen(byId('empty').querySelector('button'), 'click', () => this.#choose(NO_FILTER));
    listen(byId('trouble').querySelector('button'), 'click', () => this.#watch.now());
    listen(byId('news').querySelector('button'), 'click', () =>
      this.#see(this.#notifications.matching().filter(this.#isNew)));
    on('news-above', 'click', () => this.#list.focusNews());
    listen(byId('search-progress').querySelector('button'), 'click', () => {
      this.#notifications.isStopped = true;
    });
    on('search', 'input', () => {
      clearTimeout(this.#typing);
      this.#typing = setTimeout(() => this.#choose({search: byId('search').value.trim()}), TYPING_MS);
    });
    listen(document, 'keydown', event => this.#press(event));
    listen(window, 'popstate', () => {
      this.#takeFilter();
      this.#filtered();
    });
    // Leaving the page ends the look: what was on screen is seen, and the rest is still new afterwards.
    listen(document, 'visibilitychange', () => document.hidden && this.#see(this.#list.met));
    listen(window, 'storage', () => {
      this.#seen.recall();
      this.#draw();
    });
  }

  #press(event) {
    const {key, target, ctrlKey, altKey, metaKey} = event;
    if (ctrlKey || altKey || metaKey || document.querySelector('dialog[open], :popover-open'))
      return;
    const inSearch = target === byId('search');
    const inList = byId('list').contains(target);
    const actions = {
      '/': () => byId('search').select(),
      '?': () => this.#showDialog('keys'),
      'j': () => this.#list.move(1),
      'k': () => this.#list.move(-1),
      ...(inList && {ArrowDown: () => this.#list.move(1), ArrowUp: () => this.#list.move(-1)}),
      ...(inList && {'Enter': () => this.#list.toggleFocused(), ' ': () => this.#list.toggleFocused()}),
    };
    const inSearchActions = {ArrowDown: () => this.#list.move(0), Enter: () => this.#list.move(0)};
    const action = (inSearch ? inSearchActions : actions)[key];
    if (action && action() !== false)
      event.preventDefault();
  }

  // The texts come after the categories: asking for these is what makes an appliance write the file
  // that both are read from. A list without either is still worth showing.
  async #readTexts() {
    const categories = await unlessRefused(this.#api.categories(), []);
    const strings = await unlessRefused(this.#api.strings(), {});
    this.#texts = [strings, categories];
  }

  // Puts the language's words, texts and times everywhere.
  #speak() {
    speak(this.#api.language);
    this.#spoken(this.#api.language);
    const [strings, categories] = this.#texts;
    const texts = new Texts(strings, categories, say('systemEvent'));
    this.#notifications.texts = texts;
    this.#list.setTexts({words, times: timesIn(words.tag)});
    drawFilters(texts, part => this.#toggle(part));
  }

  #takeFilter() {
    const {category, level, search} = filterOf(location.search);
    const {labels} = this.#notifications.texts;
    this.#notifications.filter = {
      category: [...labels, OTHER].includes(category) ? category : null, level: LEVELS.includes(level) ? level : null, search,
    };
  }

  // A click on what is chosen already takes the choice back.
  #toggle(part) {
    const {filter} = this.#notifications;
    const [[name, value]] = Object.entries(part);
    this.#choose({[name]: filter[name] === value ? null : value});
  }

  #choose(part) {
    const before = this.#notifications.filter;
    const filter = {...before, ...part};
    this.#notifications.filter = filter;
    const address = location.pathname + queryOf(filter);
    // Each letter of a search is no page of its own to go back to.
    if (filter.search && before.search && filter.search !== before.search)
      history.replaceState(null, '', address);
    else
      history.pushState(null, '', address);
    this.#filtered();
  }

  #filtered() {
    this.#notifications.wanted = PAGE;
    this.#notifications.isStopped = false;
    this.#draw();
    this.#attempt(() => this.#fill());
  }

  async #showMore() {
    const rows = this.#list.length;
    const hadFocus = document.activeElement === byId('more');
    this.#notifications.wanted += PAGE;
    this.#notifications.isStopped = false;
    await this.#attempt(() => this.#fill());
    // The button is gone with the last page, and the focus was on it.
    if (hadFocus && byId('more').hidden)
      this.#list.focusAfter(rows);
  }

  async #look() {
    this.#tell(await this.#notifications.look());
    await this.#fill();
  }

  async #fill() {
    if (!this.#notifications.lacks)
      return;
    this.#isSearching = this.#notifications.isSearching;
    try {
      this.#draw();
      this.#tell(await this.#notifications.fill(() => this.#draw()));
    } finally {
      this.#isSearching = false;
    }
  }

  async #reload() {
    await this.#notifications.reload();
    await this.#fill();
  }

  #tell(arrived) {
    if (arrived.length === 0)
      return;
    byId('live').textContent = say('arrived', {COUNT: arrived.length});
    const heard = arrived.filter(item => this.#notifications.texts.isOn(item.label) && !this.#notifications.isHidden(item));
    this.#desktop.raise(
      heard.map(({text, parameters, label, hasText, key}) =>
        ({title: label || say('heading'), body: hasText ? fillIsolated(text, parameters) : text, key})),
      say('arrived', {COUNT: heard.length}));
  }

  #see(items) {
    if (items.length === 0)
      return;
    this.#seen.add(items, this.#notifications.items);
    this.#draw();
  }

  async #changeLanguage() {
    const before = this.#api.language;
    this.#api.language = byId('language').value;
    try {
      await this.#readTexts();
    } catch (error) {
      this.#api.language = before;
      byId('language').value = before;
      throw error;
    }
    this.#memory('language').set(this.#api.language);
    this.#speak();
    history.replaceState(null, '', location.pathname + queryOf(this.#notifications.filter));
  }

  #showDialog(id) {
    byId('menu').hidePopover();
    byId(id).showModal();
  }

  // The numbers are asked for anew, and hidden kinds counted: all of them go.
  async #askToDelete() {
    const [all, visible] = await Promise.all([true, false].map(everything => this.#notifications.count(everything)));
    const hidden = all - visible;
    byId('confirm-title').textContent = say('confirmTitle', {COUNT: all});
    byId('confirm-filter').hidden = !this.#notifications.isFiltered;
    byId('confirm-hidden').textContent = say('confirmHidden', {COUNT: hidden});
    byId('confirm-hidden').hidden = hidden === 0;
    byId('confirm-delete').textContent = say('confirm', {COUNT: all});
    this.#showDialog('confirm');
  }

  async #deleteAll() {
    await this.#api.deleteAll();
    await this.#reload();
    tellDone(say('deleted'));
  }

  // Runs what a person or the watch asked for and shows how it went.
  #attempt(action) {
    this.#turn = this.#turn.then(async () => {
      const before = this.#api.answers;
      try {
        await action();
        // What was done without a request tells nothing about the host.
        if (this.#api.answers > before)
          this.#answered();
      } catch (error) {
        if (this.#end.signal.aborted)
          return;
        if (error.code === 401) {
          this.#leave('signInWrong');
          return;
        }
        this.#report(error);
      }
      this.#draw();
    }).catch(reportError);
    return this.#turn;
  }

  #answered() {
    clearInterval(this.#countdown);
    if (!byId('trouble').hidden) {
      setHidden(byId('trouble'), true);
      byId('live').textContent = say('answersAgain');
    }
    if (!this.#end.signal.aborted)
      this.#watch.went(true);
  }

  #report(error) {
    this.#watch.went(false);
    byId('trouble').hidden = false;
    byId('trouble-why').textContent = reasonOf(error);
    const count = () => {
      const {secondsLeft} = this.#watch;
      byId('trouble-wait').textContent = secondsLeft > 0 ? say('nextTry', {COUNT: secondsLeft}) : say('tryingNow');
    };
    clearInterval(this.#countdown);
    this.#countdown = setInterval(count, 1000);
    count();
  }

  #draw() {
    if (this.#end.signal.aborted)
      return;
    const notifications = this.#notifications;
    this.#list.draw(foldRepeats(notifications.matching().slice(0, notifications.wanted)), {
      isNew: this.#isNew, isHidden: item => notifications.isHidden(item),
    });
    draw({notifications, isNew: this.#isNew, desktop: this.#desktop, isSearching: this.#isSearching});
    drawNewsAbove(this.#list.newsAbove);
  }
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
