// Every language of the page and of the demo appliance says all that English says.
import assert from 'node:assert/strict';
import {readdirSync, readFileSync} from 'node:fs';
import {it} from 'node:test';
import {fileURLToPath} from 'node:url';
import {LANGUAGES, languageFor, nameOf, tagOf, wordsIn} from '../../host/web/words.js';

const folder = path => fileURLToPath(new URL(`../../${path}/`, import.meta.url));
const CATALOGUES = folder('demo/catalogues');
const FORMS = ['zero', 'one', 'two', 'few', 'many', 'other'];
const placeholders = text => [...new Set(text.match(/\{[^}]*\}/g))].sort();

// What is compared of the page's words: each word's name, and the placeholders of each of its forms.
const wordsOf = ({tag, words}) => Object.fromEntries(Object.entries(words).map(([name, word]) => {
  const forms = typeof word === 'string' ? {other: word} : word;
  const ownForms = new Intl.PluralRules(tag).resolvedOptions().pluralCategories;
  assert.ok(forms.other && Object.keys(forms).every(form => FORMS.includes(form) && ownForms.includes(form)), `${tag}: ${name}`);
  return [name, [...new Set(Object.values(forms).map(form => placeholders(form).join()))]];
}));

// What is compared of a catalogue: each tag's keys, the placeholders of its texts, which tags share a title, and the rest as it is.
const LINE = /^(?:(category|group)|(message|altMessage|mail)|(level|appid))=(.+)$/;
function catalogueOf(language) {
  const titles = [];
  const number = title => (titles.includes(title) || titles.push(title)) && titles.indexOf(title);
  return readFileSync(`${CATALOGUES}${language}/mails`, 'utf8').split(/^\[/m).slice(1).map(section => {
    assert.match(section, /^(message|altMessage)=/m);
    const [tag, ...lines] = section.trim().split('\n');
    return [tag, ...lines.map(line => {
      const [, title, text, other, value] = line.match(LINE) ?? assert.fail(`${language}: ${line}`);
      assert.doesNotMatch(value, /\{(?![A-Z]+\})|[^A-Z]\}|\\[^n]/, `${language}: ${line}`);
      return title ? [title, number(value)] : text ? [text, ...placeholders(value)] : [other, value];
    })];
  });
}

it('every language has the words, tags, keys and placeholders that English has', () => {
  const languages = readdirSync(folder('host/web/words')).map(file => file.replace('.js', ''));
  assert.deepEqual([Object.keys(LANGUAGES), readdirSync(CATALOGUES)], [languages, languages]);
  for (const language of languages) {
    assert.deepEqual(wordsOf(LANGUAGES[language]), wordsOf(LANGUAGES.enu), language);
    assert.deepEqual(catalogueOf(language), catalogueOf('enu'), language);
  }
});

it('a word that a language lacks is English, and a language without words is named by its letters', () => {
  const {tag, words} = LANGUAGES.fre;
  LANGUAGES.tst = {tag, words: {...words, retry: undefined}};
  assert.equal(wordsIn('tst').say('retry'), 'Try again');
  delete LANGUAGES.tst;
  assert.equal(wordsIn('ita').say('retry'), 'Try again');
  assert.deepEqual([tagOf('ita'), nameOf('ita'), nameOf('fre'), nameOf('xyz')], ['it', 'Italiano', 'Français', 'Xyz']);
  assert.deepEqual([languageFor(['ja', 'de-AT', 'fr']), languageFor(['ja'])], ['ger', 'enu']);
});
