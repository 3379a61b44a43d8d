import {fill, keysOf, levelOf, parametersOf} from './text.js';
import {momentOf} from './time.js';

// The list of notifications in the document. Rows are kept from one drawing to the next, so that
// what a person has focused, selected or opened stays so while new rows arrive above it.
export class List {
  #element;
  #template = document.getElementById('row');
  #drawn = new Map();
  #texts;
  #openMail;
  #rowsMade = 0;

  // `openMail(tag)` gives the mail's text, and what to say in its place when there is none.
  constructor(element, openMail) {
    this.#element = element;
    this.#openMail = openMail;
  }

  // What rows are made of: the strings of each tag, how a title is shown, the page's words, the times.
  setTexts(texts) {
    this.#texts = texts;
    this.#drawn.clear();
    this.#element.replaceChildren();
  }

  draw(notifications, isNew) {
    const {times, words} = this.#texts;
    const now = new Date();
    const keys = keysOf(notifications);
    const wanted = new Map();
    let day = '';

    notifications.forEach((notification, index) => {
      const moment = momentOf(notification.time);
      const itsDay = moment ? times.day(moment, now) : day;
      if (itsDay !== day) {
        day = itsDay;
        // Days can come up twice: the order is that of arrival, not of the times inside.
        const key = `day before ${keys[index]}`;
        wanted.set(key, this.#drawn.get(key) ?? dayHeading());
        wanted.get(key).firstChild.textContent = day;
      }
      const row = this.#drawn.get(keys[index]) ?? this.#row(notification, moment);
      row.querySelector('.ago').textContent = moment ? times.ago(moment, now) : '';
      const badge = row.querySelector('.new');
      badge.hidden = !isNew(notification);
      badge.textContent = words.say('new');
      wanted.set(keys[index], row);
    });

    this.#place(wanted);
  }

  // For whoever read down to that row and goes on below it.
  focusAfter(row) {
    const rows = [...this.#element.querySelectorAll('.row')];
    const next = rows[rows.indexOf(row) + 1];
    next?.setAttribute('tabindex', -1);
    next?.focus();
  }

  #place(wanted) {
    for (const [key, element] of this.#drawn) {
      if (!wanted.has(key))
        element.remove();
    }
    let place = this.#element.firstChild;
    for (const element of wanted.values()) {
      if (element === place)
        place = place.nextSibling;
      else
        this.#element.insertBefore(element, place);
    }
    this.#drawn = wanted;
  }

  #row(notification, moment) {
    const {strings, titleOf, words, times} = this.#texts;
    const tag = String(notification.title ?? '');
    const text = strings[tag];
    const parameters = parametersOf(notification);
    const level = levelOf(text);

    const row = this.#template.content.cloneNode(true).firstElementChild;
    const find = name => row.querySelector(`.${name}`);
    row.dataset.level = level;
    row.querySelector('use').setAttribute('href', `#icon-${level}`);
    find('level').textContent = words.say(level);
    find('title').textContent = titleOf(tag);
    find('text').textContent = text ? fill(text.msg, parameters) : tag;
    if (!text) {
      row.classList.add('without-text');
      find('title').textContent = words.say('noText');
      find('parameters').append(...Object.entries(parameters).map(([name, value]) => pair(name, value)));
    }

    const clock = row.querySelector('time');
    clock.textContent = moment ? times.clock(moment) : String(notification.time);
    if (moment) {
      clock.dateTime = moment.toISOString();
      clock.title = times.full(moment);
    }

    this.#prepareMail(row, tag, parameters);
    return row;
  }

  #prepareMail(row, tag, parameters) {
    const button = row.querySelector('.mail-button');
    const mail = row.querySelector('.mail');
    const text = row.querySelector('.text');
    text.id = `text-${++this.#rowsMade}`;
    mail.id = `mail-${this.#rowsMade}`;
    button.querySelector('span').textContent = this.#texts.words.say('mail');
    button.setAttribute('aria-describedby', text.id);
    button.setAttribute('aria-controls', mail.id);
    button.addEventListener('click', async () => {
      const open = button.getAttribute('aria-expanded') !== 'true';
      button.setAttribute('aria-expanded', open);
      mail.hidden = !open;
      mail.textContent = this.#texts.words.say('loadingMore');
      if (open)
        mail.textContent = fill(await this.#openMail(tag), parameters);
    });
  }
}

function dayHeading() {
  const item = document.createElement('li');
  item.className = 'day';
  item.append(document.createElement('h2'));
  return item;
}

function pair(name, value) {
  const element = document.createElement('div');
  element.append(document.createElement('dt'), document.createElement('dd'));
  element.firstChild.textContent = name;
  element.lastChild.textContent = value;
  return element;
}
