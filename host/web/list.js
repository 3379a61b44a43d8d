import {Mails} from './mails.js';
import {piecesOf, withoutEnd} from './text.js';

// Shorter texts cannot fill four lines, so that only these need measuring.
const LONG = 120;
// What is folded up needs no more in the document.
const FOLDED = 2000;

// Thousands of rows are made as a person comes to them.
const AT_ONCE = 100;

// The list of notifications in the document. Rows are kept from one drawing to the next, so that
// what a person has focused, selected or opened stays so while new rows arrive above it.
export class List {
  #element;
  #template = document.getElementById('row');
  #drawn = new Map();     // rows by the key of their oldest item, and the headings of days
  #rowOf = new Map();     // by element
  #current = null;        // the row that the Tab key reaches
  #texts;
  #groups = [];
  #marks;
  #reach = AT_ONCE;       // how many of the groups have a row
  #mailOf;
  #mails;
  #moved;
  #rowsMade = 0;
  #met = new Set();       // keys of new items that have been on screen
  #observer = new IntersectionObserver(entries => this.#observe(entries), {rootMargin: '-56px 0px -16px 0px'});
  #atEnd = new IntersectionObserver(entries => entries.some(({isIntersecting}) => isIntersecting) && this.#goOn(),
    {rootMargin: '0px 0px 1500px 0px'});

  // `mailOf(tag)` gives the mail's text, null when there is none. `moved()` is called when new rows came on screen or
  // left it.
  constructor(element, mailOf, moved) {
    this.#element = element;
    this.#mailOf = mailOf;
    this.#moved = moved;
    element.addEventListener('click', event => this.#click(event));
    element.addEventListener('focusin', ({target}) => this.#rest(this.#rowOf.get(target.closest('.row'))));
  }

  // What rows are made of: the page's words and the times.
  setTexts(texts) {
    this.#texts = texts;
    this.#mails = new Mails(this.#mailOf, tag => this.#offerMails(tag));
    this.#place(new Map());
  }

  // Each of the groups becomes a row.
  draw(groups, marks) {
    this.#groups = groups;
    this.#marks = marks;
    this.#draw();
  }

  #draw() {
    const {isNew, isHidden} = this.#marks;
    const {times, words} = this.#texts;
    const now = new Date();
    const wanted = new Map();
    let day;

    for (const items of this.#groups.slice(0, this.#reach)) {
      const [item] = items;
      const {key} = items.at(-1);
      if (item.day !== undefined && item.day !== day) {
        day = item.day;
        // Days can come up twice: the order is that of arrival, not of the times inside.
        const heading = this.#drawn.get(`day before ${key}`) ?? {element: dayHeading()};
        write(heading.element.firstChild, times.day(item.moment, now));
        wanted.set(`day before ${key}`, heading);
      }
      const row = this.#drawn.get(key) ?? this.#row(item);
      const news = items.filter(isNew);
      if (row.items[0] !== item || row.news.length !== news.length || row.items.length !== items.length) {
        row.new.hidden = news.length === 0;
        row.repeats.hidden = items.length === 1;
        row.repeats.textContent = `×${items.length}`;
        row.repeats.title = words.say('repeats', {COUNT: items.length, TIME: times.full(items.at(-1).moment)});
        this.#observer.unobserve(row.element);  // so that it is judged again
        if (news.length > 0 || row.isLong)
          this.#observer.observe(row.element);
      }
      if (row.items[0] !== item)
        this.#date(row, item);
      Object.assign(row, {items, news});
      write(row.time, item.moment ? times.ago(item.moment, now) : String(item.notification.time));
      row.hidden.hidden = !isHidden(item);
      wanted.set(key, row);
    }

    this.#place(wanted);
    this.#offerMails();
    this.#atEnd.disconnect();
    if (this.#reach < this.#groups.length)
      this.#atEnd.observe(this.#element.lastElementChild);
  }

  #goOn() {
    this.#reach += AT_ONCE;
    this.#draw();
  }

  // How many new ones lie above what is on screen and have not been on it.
  get newsAbove() {
    return this.#rows().filter(row => row.isAbove).flatMap(({news}) => news).filter(({key}) => !this.#met.has(key)).length;
  }

  // The new items that have been on screen.
  get met() {
    return this.#rows().flatMap(({news}) => news).filter(({key}) => this.#met.has(key));
  }

  focusNews() {
    const row = this.#rows().find(({news}) => news.length > 0);
    this.#focus(row);
    row?.element.scrollIntoView({block: 'center'});
  }

  // To the row so many places further, from the one that the Tab key reaches.
  move(places) {
    const isHere = this.#element.contains(document.activeElement);
    const index = this.#rows().indexOf(this.#current) + (isHere ? places : 0);
    if (index >= this.#rowOf.size && this.#reach < this.#groups.length)
      this.#goOn();
    const rows = this.#rows();
    this.#focus(rows[Math.min(Math.max(index, 0), rows.length - 1)]);
  }

  // For whoever read down to the last row and goes on below it.
  focusAfter(number) {
    this.#focus(this.#rows()[number]);
  }

  toggleFocused() {
    const row = this.#rowOf.get(document.activeElement?.closest('.row'));
    if (!row || document.activeElement !== row.face)
      return false;
    this.#toggle(row);
    return true;
  }

  get length() {
    return this.#rowOf.size;
  }

  close() {
    this.#place(new Map());
    this.#observer.disconnect();
    this.#atEnd.disconnect();
  }

  #rows() {
    return [...this.#drawn.values()].filter(({face}) => face);
  }

  #focus(row) {
    row?.face.focus();
  }

  #rest(row) {
    if (!row || row === this.#current)
      return;
    if (this.#current)
      this.#current.face.tabIndex = -1;
    this.#current = row;
    row.face.tabIndex = 0;
  }

  #place(wanted) {
    for (const [key, row] of this.#drawn) {
      if (!wanted.has(key)) {
        this.#rowOf.delete(row.element);
        this.#observer.unobserve(row.element);
        row.element.remove();
      }
    }
    let place = this.#element.firstChild;
    for (const {element} of wanted.values()) {
      if (element === place)
        place = place.nextSibling;
      else
        this.#element.insertBefore(element, place);
    }
    this.#drawn = wanted;
    // Whoever has not been in the list yet begins at its top.
    if (!this.#rowOf.has(this.#current?.element) || !this.#current.wasFocused)
      this.#rest(this.#rows()[0]);
  }

  #row(item) {
    const {words} = this.#texts;
    const {level, label, hasText} = item;
    const element = this.#template.content.cloneNode(true).firstElementChild;
    const find = name => element.querySelector(`.${name}`);
    const row = {
      element, tag: item.tag, hasText, items: [], news: [], isAbove: false, isLong: item.full.length > LONG || /\n.*\n.*\n/.test(item.full),
      face: find('face'), new: find('new'), hidden: find('hidden-kind'), repeats: find('repeats'), time: element.querySelector('time'),
      words: find('words'), fold: find('fold'), mail: find('mail'),
    };
    element.dataset.level = level;
    element.querySelector('use').setAttribute('href', `#icon-${level}`);
    find('level').textContent = words.say(level);
    find('title').textContent = label || words.say('other');
    row.new.textContent = words.say('new');
    row.hidden.textContent = words.say('hiddenKind');
    this.#write(row, item);
    if (!hasText) {
      row.isLong = true;
      element.classList.add('without-text');
      find('text').title = words.say('noText');
    }
    row.fold.addEventListener('click', () => this.#unfold(row));
    row.face.addEventListener('focus', () => {
      row.wasFocused = true;
    });
    this.#rowOf.set(element, row);
    return row;
  }

  #write({element, isUnfolded}, {text, hasText, parameters}) {
    const longest = isUnfolded ? Infinity : FOLDED;
    const pieces = hasText ? piecesOf(text, parameters) : [{text, isValue: true}];
    element.querySelector('.text').replaceChildren(...nodesOf(pieces, longest));
    if (!hasText)
      element.querySelector('.parameters').replaceChildren(...Object.entries(parameters).map(([name, value]) => pair(name, value, longest)));
  }

  #date({time}, {moment}) {
    if (moment) {
      time.dateTime = moment.toISOString();
      time.title = this.#texts.times.full(moment);
    }
  }

  #unfold(row) {
    const {words} = this.#texts;
    row.isUnfolded = !row.isUnfolded;
    row.words.classList.toggle('folded', !row.isUnfolded);
    row.fold.setAttribute('aria-expanded', row.isUnfolded);
    row.fold.textContent = words.say(row.isUnfolded ? 'less' : 'more');
    this.#write(row, row.items[0]);
    if (!row.isUnfolded)
      row.element.scrollIntoView({block: 'nearest'});
  }

  #observe(entries) {
    for (const {target, isIntersecting, boundingClientRect, rootBounds} of entries) {
      const row = this.#rowOf.get(target);
      if (!row)
        continue;
      row.isAbove = !isIntersecting && boundingClientRect.bottom <= (rootBounds?.top ?? 0) && boundingClientRect.height > 0;
      if (!isIntersecting)
        continue;
      if (!document.hidden)
        row.news.forEach(({key}) => this.#met.add(key));
      if (row.isLong && !row.isUnfolded) {
        row.fold.hidden = row.words.scrollHeight <= row.words.clientHeight;
        row.fold.textContent = this.#texts.words.say('more');
      }
    }
    this.#moved();
  }

  // A row opens once it is known that there is a mail to show; what has no text has none.
  #offerMails(tag) {
    for (const row of this.#drawn.values()) {
      if (!row.hasText || row.face.role || (tag !== undefined && row.tag !== tag) || typeof this.#mails.of(row.tag) !== 'string')
        continue;
      row.mail.id = `mail-${++this.#rowsMade}`;
      row.element.classList.add('with-mail');
      row.face.role = 'button';
      row.face.setAttribute('aria-expanded', false);
      row.face.setAttribute('aria-controls', row.mail.id);
    }
  }

  #click({target}) {
    const row = this.#rowOf.get(target.closest('.row'));
    // A click in the mail or at the end of a selection is no wish to close.
    if (row && !target.closest('.mail, .fold') && getSelection().isCollapsed)
      this.#toggle(row);
  }

  #toggle(row) {
    if (!row.face.role)
      return;
    const mail = this.#mails.of(row.tag);
    const isOpen = row.mail.hidden;
    row.mail.hidden = !isOpen;
    row.face.setAttribute('aria-expanded', isOpen);
    row.mail.replaceChildren(...nodesOf(piecesOf(mail, row.items[0].parameters)));
  }
}

// Values are kept apart, so that one in another direction does not turn the sentence around it.
function nodesOf(pieces, longest = Infinity) {
  const nodes = [];
  for (const {text, isValue} of pieces) {
    const shown = text.slice(0, longest);
    longest -= shown.length;
    if (shown === '')
      continue;
    if (isValue) {
      const value = document.createElement('bdi');
      value.textContent = withoutEnd(shown);
      nodes.push(value);
    } else {
      nodes.push(shown);
    }
  }
  return nodes;
}

function write(element, text) {
  if (element.textContent !== text)
    element.textContent = text;
}

function dayHeading() {
  const item = document.createElement('li');
  item.className = 'day';
  item.append(document.createElement('h2'));
  return item;
}

function pair(name, value, longest) {
  const element = document.createElement('div');
  for (const [kind, text] of [['dt', name], ['dd', value]]) {
    const part = document.createElement(kind);
    part.append(...nodesOf([{text, isValue: true}], longest));
    element.append(part);
  }
  return element;
}
