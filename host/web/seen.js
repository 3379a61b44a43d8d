import {hasCome} from './time.js';

// What a person has seen, kept for the user in this browser: all up to a time, and of what is later than that,
// single ones. Tabs of one browser agree, as each change is stored at once.
export class Seen {
  #memory;
  #since = 0;
  #later = new Set();

  // `memory` has `get()` and `set(text)`. Whoever comes for the first time has nothing to compare with.
  constructor(memory, items) {
    this.#memory = memory;
    if (!this.recall())
      this.#since = latestOf(items);
  }

  // Takes what is stored, by another tab perhaps; false when there is nothing, or nothing that could be.
  recall() {
    try {
      const {since, later} = JSON.parse(this.#memory.get());
      if (!hasCome(since) || !Array.isArray(later))
        return false;
      this.#since = since;
      this.#later = new Set(later);
      return true;
    } catch {
      return false;
    }
  }

  isNew({time, key}) {
    return time > this.#since && !this.#later.has(digest(key));
  }

  // `items` are all that are known: what is seen up to the first that is not needs no names.
  add(seen, items) {
    this.recall();
    for (const item of seen)
      this.#later.add(digest(item.key));
    const oldest = items.filter(item => this.isNew(item)).reduce((oldest, {time}) => Math.min(oldest, time), Infinity);
    this.#since = Math.max(this.#since, latestOf(items.filter(({time}) => time < oldest)));
    this.#later = new Set(items.filter(({time}) => time > this.#since).map(({key}) => digest(key)).filter(name => this.#later.has(name)));
    this.#memory.set(JSON.stringify({since: this.#since, later: [...this.#later]}));
  }
}

const latestOf = items => items.reduce((latest, {time}) => Math.max(latest, time), 0);

// A key is a whole notification; 53 bits of it are enough to tell a few from each other.
function digest(key) {
  let high = 0x811c9dc5;
  let low = 0x1b873593;
  for (let index = 0; index < key.length; ++index) {
    high = Math.imul(high ^ key.charCodeAt(index), 0x01000193);
    low = Math.imul(low ^ key.charCodeAt(index), 0x5bd1e995);
  }
  return ((high >>> 0) * 0x200000 + ((low >>> 0) >>> 11)).toString(36);
}
