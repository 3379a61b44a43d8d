import * as enu from './words/enu.js';
import * as fre from './words/fre.js';
import * as ger from './words/ger.js';
import {fill} from './text.js';

// The page's own words, by the appliance's name of the language.
export const LANGUAGES = {enu, fre, ger};

// A language without words of its own gets English ones, and so does a word that it lacks.
export function wordsIn(language) {
  const {tag, words} = LANGUAGES[language] ?? enu;
  const plurals = new Intl.PluralRules(tag);
  const numbers = new Intl.NumberFormat(tag);

  return {
    tag,
    number: number => numbers.format(number),
    say(key, values = {}) {
      const entry = words[key] ?? enu.words[key];
      const text = entry.other ? entry[plurals.select(values.COUNT)] ?? entry.other : entry;
      return fill(text, Object.fromEntries(Object.entries(values).map(([name, value]) =>
        [name, typeof value === 'number' ? numbers.format(value) : value])));
    },
  };
}

// Puts the words in all elements that ask for one.
export function translate({tag, say}) {
  document.documentElement.lang = tag;
  for (const [attribute, put] of [
    ['word', (element, text) => element.textContent = text],
    ['word-label', (element, text) => element.ariaLabel = text],
    ['word-placeholder', (element, text) => element.placeholder = text],
  ]) {
    for (const element of document.querySelectorAll(`[data-${attribute}]`))
      put(element, say(element.getAttribute(`data-${attribute}`)));
  }
}

// The BCP 47 tag of a UI language: as its words say, else as far as its three letters tell.
export const tagOf = language => LANGUAGES[language]?.tag ?? Intl.getCanonicalLocales(language)[0];

// A language in its own words, as its speakers look for it.
export function nameOf(language) {
  const tag = tagOf(language);
  const name = new Intl.DisplayNames(tag, {type: 'language'}).of(tag);
  return name[0].toLocaleUpperCase(tag) + name.slice(1);
}

// The language to speak before anyone has signed in, of those that a reader prefers.
export function languageFor(preferred) {
  return preferred
    .map(own => Object.keys(LANGUAGES).find(language => tagOf(language) === own.split('-')[0]))
    .find(Boolean) ?? 'enu';
}
