import {keysOf, plain} from './text.js';
import {momentOf, timeOf} from './time.js';

export const PAGE = 30;
export const NO_FILTER = {category: null, level: null, search: ''};

// Up to here all are read, after the first page, so that the counts are whole and a filter is quick.
const FEW = 5000;
// Beyond, a filter may have to look far back: in steps that are few, and the first of them quick.
const SMALLEST_STEP = 500;
const LARGEST_STEP = 8000;
// As many known ones below what has arrived tell that nothing else has changed.
const OVERLAP = 10;
// To count exactly, the appliance goes through all of them; beyond these its own number has to do.
const MOST_COUNTED = 50_000;

// What is known of the user's notifications: the newest ones, as far back as they were asked for. An item is what
// `Texts.describe` tells of a notification, with its `moment` (null when no calendar has it), the `day` of that, its
// `time` for comparisons and its `key`.
export class Notifications {
  items = [];             // newest first
  total = 0;
  filter = NO_FILTER;
  wanted = PAGE;          // how many a person has asked to see
  hiddenToo = false;      // with the kinds that the user has no right to see
  isStopped = false;      // a person has had enough of looking back
  #load;
  #texts;
  #visibleTags = new Set();
  #last = null;           // what the last look was told, to compare the next one's answer with

  // `load({limit, offset, all})` asks the appliance.
  constructor(load) {
    this.#load = load;
  }

  get isComplete() {
    return this.items.length >= this.total;
  }

  get texts() {
    return this.#texts;
  }

  // Another language's texts: a category that is filtered by goes on in their words.
  set texts(texts) {
    const {category} = this.filter;
    if (category !== null && this.#texts)
      this.filter = {...this.filter, category: this.#texts.counterpart(category, texts)};
    this.#texts = texts;
    for (const item of this.items)
      this.#describe(item);
  }

  // Takes the list anew, from the newest on.
  async reload() {
    this.#visibleTags.clear();
    const answer = await this.#ask({limit: this.wanted});
    this.#last = answer;
    await this.#take(answer, this.wanted);
  }

  // Looks for news with the smallest answer there is, and asks for more only when there are some. Gives what arrived.
  async look() {
    const answer = await this.#load({limit: 1, offset: 0, all: this.hiddenToo});
    if (answer.total === this.#last.total && answer.newestMsgTime === this.#last.newestMsgTime)
      return [];
    const grown = Math.max(0, answer.total - this.#last.total);
    const arrived = await this.#refresh(grown);
    this.#last = answer;
    return arrived;
  }

  // Loads until as many as wanted can be shown, or all there are; calls `progress` after each step. Gives what arrived.
  async fill(progress = () => {}) {
    const arrived = [];
    for (let step = SMALLEST_STEP; this.lacks; step = Math.min(2 * step, LARGEST_STEP)) {
      const limit = this.#areFew ? this.total - this.items.length : this.isFiltered ? step : this.wanted - this.items.length;
      // From the last one that is known: when another stands in its place, the list has moved.
      const offset = Math.max(0, this.items.length - 1);
      const answer = await this.#ask({limit: limit + 1, offset});
      const known = this.items.slice(offset);
      if (this.#startsWith(answer, known)) {
        this.#put([...this.items, ...answer.items.slice(known.length).map(each => this.#item(each))]);
        if (answer.items.length <= limit)
          this.total = this.items.length;
      } else {
        arrived.push(...await this.#refresh(limit));
      }
      progress();
    }
    return arrived;
  }

  // Whether more should be known than is.
  get lacks() {
    return !this.isComplete && (this.#areFew || (!this.isStopped && this.matching().length < this.wanted));
  }

  // Whether it may take a while to know as much as should be.
  get isSearching() {
    return this.lacks && this.isFiltered && !this.#areFew;
  }

  get isFiltered() {
    const {category, level, search} = this.filter;
    return category !== null || level !== null || search !== '';
  }

  matching() {
    return this.isFiltered ? this.items.filter(matcher(this.filter)) : this.items;
  }

  // How many known ones each label and each level would show beside the rest of the filter.
  counts() {
    const inCategory = matcher({...this.filter, level: null});
    const ofLevel = matcher({...this.filter, category: null});
    const labels = new Map();
    const levels = new Map();
    for (const item of this.items) {
      if (ofLevel(item))
        labels.set(item.label, (labels.get(item.label) ?? 0) + 1);
      if (inCategory(item))
        levels.set(item.level, (levels.get(item.level) ?? 0) + 1);
    }
    return {labels, levels};
  }

  isHidden({tag}) {
    return this.hiddenToo && !this.#visibleTags.has(tag);
  }

  // How many there are, with or without the hidden kinds; less those that the list, read to its end, was found to lack.
  async count(all) {
    const {total} = await this.#load({limit: 1, offset: 0, all});
    return total > MOST_COUNTED ? total - (this.#last.total - this.total) : this.#exactly(total, all);
  }

  async #ask({limit, offset = 0}) {
    if (!this.hiddenToo)
      return this.#load({limit, offset, all: false});
    // As many visible ones reach at least as far back, so that each visible tag among all is met.
    const [answer, visible] =
      await Promise.all([true, false].map(all => this.#load({limit, offset, all})));
    for (const {title} of visible.items)
      this.#visibleTags.add(String(title ?? ''));
    return answer;
  }

  // The appliance counts those without a time, which it does not list, until it has passed them.
  async #exactly(total, all = this.hiddenToo) {
    if (total === 0 || total > MOST_COUNTED)
      return total;
    return (await this.#load({limit: 1, offset: total - 1, all})).total;
  }

  async #take(answer, limit) {
    this.#put(answer.items.map(each => this.#item(each)));
    this.total = answer.items.length < limit ? answer.items.length : await this.#exactly(answer.total);
  }

  // When `grown` stand on top of what is known they are all that is new. Else the list is taken anew.
  async #refresh(grown) {
    const answer = await this.#ask({limit: grown + OVERLAP});
    const known = this.items.slice(0, OVERLAP);
    if (grown > 0 && this.#startsWith({items: answer.items.slice(grown)}, known)) {
      const arrived = answer.items.slice(0, grown).map(each => this.#item(each));
      this.#put([...arrived, ...this.items]);
      this.total += grown;
      return this.#keepPlace(arrived);
    }
    const limit = Math.max(PAGE, this.items.length + grown);
    const before = new Set(this.items.map(({key}) => key));
    const latest = this.items.reduce((latest, {time}) => Math.max(latest, time), 0);
    await this.#take(await this.#ask({limit}), limit);
    // Below the last known one are older ones that were not loaded before.
    const end = this.items.findLastIndex(({key}) => before.has(key));
    return this.#keepPlace(this.items.filter((item, index) =>
      !before.has(item.key) && (index < end || (end < 0 && item.time > latest))));
  }

  // The last row stays in its place, for somebody may be reading it.
  #keepPlace(arrived) {
    this.wanted += arrived.filter(matcher(this.filter)).length;
    return arrived;
  }

  #startsWith(answer, items) {
    return items.every(({json}, index) => JSON.stringify(answer.items[index]) === json);
  }

  get #areFew() {
    return this.total <= FEW;
  }

  #item(notification) {
    const moment = momentOf(notification.time);
    return this.#describe({
      notification, json: JSON.stringify(notification), moment, day: moment?.toDateString(), time: timeOf(notification),
    });
  }

  #describe(item) {
    return Object.assign(item, this.#texts?.describe(item.notification), {searched: null});
  }

  #put(items) {
    const keys = keysOf(items.map(({json}) => json));
    items.forEach((item, index) => {
      item.key = keys[index];
    });
    this.items = items;
  }
}

// Whether an item is of the category and the level and has all the words, each somewhere in what is shown of it.
function matcher({category, level, search}) {
  const words = plain(search).split(/\s+/).filter(Boolean);
  return item => (category === null || item.label === category) && (level === null || item.level === level) &&
    (words.length === 0 || words.every(word => searched(item).includes(word)));
}

function searched(item) {
  const {full, label, hasText, parameters} = item;
  item.searched ??= plain([full, label, ...(hasText ? [] : Object.entries(parameters).flat())].join('\n'));
  return item.searched;
}

// Neighbours that say the same on one day are shown as one. Gives lists of items, the newest first.
export function foldRepeats(items) {
  const groups = [];
  for (const item of items) {
    const last = groups.at(-1)?.[0];
    if (last && item.hasText && last.tag === item.tag && last.full === item.full && last.day === item.day)
      groups.at(-1).push(item);
    else
      groups.push([item]);
  }
  return groups;
}

// The filter in an address's query, and the other way round; what is not of these stays in the query.
export function filterOf(query) {
  const parameters = new URLSearchParams(query);
  return {category: parameters.get('category'), level: parameters.get('level'), search: parameters.get('search') ?? ''};
}

export function queryOf({category, level, search}) {
  const parameters = new URLSearchParams();
  if (category !== null)
    parameters.set('category', category);
  if (level !== null)
    parameters.set('level', level);
  if (search !== '')
    parameters.set('search', search);
  return String(parameters) && `?${parameters}`;
}
