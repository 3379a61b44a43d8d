// What the page makes of what it is given, without a browser.
import assert from 'node:assert/strict';
import {it} from 'node:test';
import * as text from '../../host/web/text.js';
import {momentOf, timesIn} from '../../host/web/time.js';

const DAY_S = 86_400;

it('texts are filled, read and named, and times given in words that fit the distance', () => {
  const noon = new Date(2026, 10, 22, 12);
  const ago = [[20, 'now'], [50, '1 minute ago'], [3590, '59 minutes ago'], [3600, '1 hour ago'], [86_000, '23 hours ago'],
    [6.9 * DAY_S, '6 days ago'], [29 * DAY_S, '4 weeks ago'], [364 * DAY_S, '11 months ago'], [800 * DAY_S, '2 years ago'],
    [-180, 'in 3 minutes']].map(([seconds, words]) => ['ago', [new Date(noon - seconds * 1000), noon], words]);
  const cases = [
    ['fill', ['{A} and {A}, {B}', {A: '1'}], '1 and 1, {B}'],
    ['fill', ['{A}', {A: '{B}', B: 'x'}], '{B}'],
    ['fill', ['{toString} {} { A }', {A: '1'}], '{toString} {} { A }'],
    ['parametersOf', [{msg: ['{"A": 1, "B": null, "C": {"D": true}, "E": "e"}']}], {A: '1', B: 'null', C: '{"D":true}', E: 'e'}],
    ['parametersOf', [{}], {}],
    ['parametersOf', [{msg: ['{']}], {}],
    ['parametersOf', [{msg: ['null']}], {}],
    ['levelOf', [{level: 'NOTIFICATION_ERROR'}], 'error'],
    ['levelOf', [{level: ''}], 'info'],
    ['levelOf', [undefined], 'info'],
    ['categoryOf', ['nexnotify:system_event', [{category: 'Système', category_enu: 'System'}]], {category: 'Système', category_enu: 'System'}],
    ['keysOf', [[{a: 1}, {a: 2}, {a: 1}]], ['2 {"a":1}', '1 {"a":2}', '1 {"a":1}']],
    ['momentOf', [1e300], null],
    ['day', [new Date(2026, 10, 21, 23, 59), noon], 'Yesterday'],
    ['dayInGerman', [new Date(2025, 0, 2), noon], '2. Januar 2025'],
    ...ago,
  ];
  const times = timesIn('en', ['en-GB']);
  const functions = {...text, momentOf, ...times, dayInGerman: timesIn('de', ['de']).day};
  assert.deepEqual(cases.map(([name, parameters]) => functions[name](...parameters)), cases.map(([, , expected]) => expected));
});
