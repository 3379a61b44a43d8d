// What the page makes of what it is given, without a browser.
import assert from 'node:assert/strict';
import {it} from 'node:test';
import {filterOf, foldRepeats, NO_FILTER, Notifications, queryOf} from '../../host/web/notifications.js';
import {Seen} from '../../host/web/seen.js';
import * as text from '../../host/web/text.js';
import {momentOf, timesIn} from '../../host/web/time.js';

const DAY_S = 86_400;
const NOW = Math.floor(Date.now() / 1000);
const STRINGS = {
  Alarm: {msg: 'Alarm in {ROOM}', level: 'NOTIFICATION_ERROR', title: 'Laboratory'},
  Note: {msg: 'Note from {ROOM}', level: 'NOTIFICATION_WARN', title: 'Attic'},
  Event: {msg: 'Event', title: 'nexnotify:system_event'},
};
const CATEGORIES = [{category: 'Apparatus', category_enu: 'System', nexnotify: 'on'}, {category: 'Attic', category_enu: 'Attic', nexnotify: 'off'}];
const TEXTS = new text.Texts(STRINGS, CATEGORIES, 'System event');

const row = (title, age, parameters = {}) => ({title, time: NOW - age, msg: [JSON.stringify(parameters)]});
const rows = (count, title, age = 100) => Array.from({length: count}, (_, index) => row(title, age + index, {ROOM: `${index}`}));

// An appliance with these rows, newest first, which counts those without a time until it has passed them.
class Appliance {
  requests = [];
  constructor(stored, hidden = []) {
    Object.assign(this, {stored, hidden});
  }

  load = async parameters => {
    this.requests.push(parameters);
    const {limit, offset, all} = parameters;
    const listed = this.stored.filter(({title}) => all || !this.hidden.includes(title));
    const timed = listed.filter(({time}) => time !== undefined);
    const items = timed.slice(offset, offset + limit);
    const end = listed.indexOf(timed[offset + limit]);
    const passed = (end < 0 ? listed : listed.slice(0, end)).filter(({time}) => time === undefined).length;
    return {items, total: listed.length - passed, newestMsgTime: Math.max(0, ...timed.map(({time}) => time))};
  };
}

async function opened(appliance, filter = {}) {
  const notifications = new Notifications(appliance.load);
  notifications.texts = TEXTS;
  await notifications.reload();
  notifications.filter = {...NO_FILTER, ...filter};
  appliance.requests = [];
  return notifications;
}

const known = notifications => notifications.items.map(({notification}) => notification);

it('texts are filled, read, labelled and searched, and times given in words that fit the distance', () => {
  const noon = new Date(2026, 10, 22, 12);
  const ago = [[20, 'now'], [50, '1 minute ago'], [3590, '59 minutes ago'], [3600, '1 hour ago'], [86_000, '23 hours ago'],
    [6.9 * DAY_S, '6 days ago'], [29 * DAY_S, '4 weeks ago'], [364 * DAY_S, '11 months ago'], [800 * DAY_S, '2 years ago'],
    [-180, 'in 3 minutes']].map(([seconds, words]) => ['ago', [new Date(noon - seconds * 1000), noon], words]);
  const french = {Alarm: {title: 'Laboratoire'}, Note: {title: ''}};
  const query = {category: '', level: 'error', search: 'a&b ü'};
  const cases = [
    ['fill', ['{A} and {A}, {B}', {A: '1'}], '1 and 1, {B}'],
    ['fill', ['{A}', {A: '{B}', B: 'x'}], '{B}'],
    ['fill', ['{toString} {} { A }', {A: '1'}], '{toString} {} { A }'],
    ['fillIsolated', ['a {A}', {A: '\u2069\u202Eb'}], 'a \u2068\u202Eb\u2069'],
    ['parametersOf', [{msg: ['{"A": 1, "B": null, "C": {"D": true}, "E": "e"}']}], {A: '1', B: 'null', C: '{"D":true}', E: 'e'}],
    ['parametersOf', [{}], {}],
    ['parametersOf', [{msg: ['{']}], {}],
    ['parametersOf', [{msg: ['null']}], {}],
    ['levelOf', [{level: 'NOTIFICATION_ERROR'}], 'error'],
    ['levelOf', [{level: ''}], 'info'],
    ['levelOf', [undefined], 'info'],
    ['keysOf', [['a', 'b', 'a']], ['2 a', '1 b', '1 a']],
    ['plain', ['Menü & CAFÉ'], 'menu & cafe'],
    ['labels', [TEXTS], ['Apparatus', 'Attic', 'Laboratory']],
    ['labelsOf', [TEXTS, 'Alarm', 'Event', 'toString'], ['Laboratory', 'Apparatus', text.OTHER]],
    ['labelsOf', [new text.Texts(STRINGS, [], 'System event'), 'Event'], ['System event']],
    ['isOn', ['Apparatus', 'Attic', 'Laboratory', text.OTHER], [true, false, true, true]],
    ['counterparts', ['Laboratory', 'Attic', text.OTHER, 'Gone'], ['Laboratoire', null, text.OTHER, null]],
    ['throughQuery', [query], query],
    ['throughQuery', [NO_FILTER], NO_FILTER],
    ['momentOf', [1e300], null],
    ['day', [new Date(2026, 10, 21, 23, 59), noon], 'Yesterday'],
    ['dayInGerman', [new Date(2025, 0, 2), noon], '2. Januar 2025'],
    ['dayInFrench', [new Date(2026, 10, 20), noon], 'Vendredi 20 novembre'],
    ...ago,
  ];
  const functions = {
    ...text, momentOf, ...timesIn('en', ['en-GB']), dayInGerman: timesIn('de', ['de']).day, dayInFrench: timesIn('fr', ['fr']).day,
    labels: texts => texts.labels,
    labelsOf: (texts, ...tags) => tags.map(tag => texts.labelOf(tag)),
    isOn: (...labels) => labels.map(label => TEXTS.isOn(label)),
    counterparts: (...labels) => labels.map(label => TEXTS.counterpart(label, new text.Texts(french, [], ''))),
    throughQuery: filter => filterOf(queryOf(filter)),
  };
  for (const [name, parameters, expected] of cases)
    assert.deepEqual(functions[name](...parameters), expected, `${name}(${JSON.stringify(parameters)})`);
});

it('news are told from what was there, by requests that are small as long as nothing else has changed', async () => {
  const old = rows(6000, 'Note');
  const late = row('Alarm', 100.5);
  const two = [row('Alarm', 1), row('Alarm', 2)];
  for (const [change, then, arrived, largest] of [
    ['nothing', old, [], 1],
    ['two arrive', [...two, ...old], two, 12],
    ['one arrives late', [old[0], late, ...old.slice(1)], [late], 1001],
    ['two arrive, an old one goes', [...two, ...old.slice(0, -1)], two, 1001],
    ['one like the first arrives', [old[0], ...old], [old[0]], 11],
    ['all go, one arrives', two.slice(1), two.slice(1), 1000],
    ['all go', [], [], 1000],
  ]) {
    const appliance = new Appliance(old);
    const notifications = await opened(appliance);
    notifications.wanted = 1000;
    await notifications.fill();
    appliance.stored = then;
    appliance.requests = [];
    assert.deepEqual((await notifications.look()).map(({notification}) => notification), arrived, change);
    assert.deepEqual(known(notifications), then.slice(0, notifications.items.length), change);
    assert.equal(notifications.total, then.length, change);
    assert.ok(Math.max(...appliance.requests.map(({limit}) => limit)) <= largest, change);
    assert.deepEqual(await notifications.look(), [], change);
  }
});

it('a filter looks back until it has a page or all, in few steps, and can be changed and stopped on the way', async () => {
  const stored = [...rows(20_000, 'Note'), row('Alarm', 30_000, {ROOM: 'Café'}), ...rows(500, 'Note', 40_000)];
  const appliance = new Appliance(stored);
  const notifications = await opened(appliance, {search: 'lab CAFE'});
  const steps = [];
  await notifications.fill(() => steps.push(notifications.items.length));
  assert.equal(notifications.matching().length, 1);
  assert.ok(notifications.isComplete && steps.length < 10 && steps[0] < 1000, steps);

  const stopped = await opened(appliance, {category: 'Laboratory'});
  await stopped.fill(() => stopped.isStopped = true);
  assert.ok(stopped.items.length < 1000 && !stopped.lacks);
  stopped.isStopped = false;
  await stopped.fill(() => stopped.filter = {...NO_FILTER, level: 'warning'});
  assert.ok(stopped.items.length < 2000 && stopped.matching().length >= stopped.wanted);

  const moved = await opened(appliance, {level: 'error'});
  const first = row('Note', 1);
  await moved.fill(() => appliance.stored = [first, ...stored]);
  assert.deepEqual(known(moved), appliance.stored);
});

it('counts are of what is known beside the rest of the filter, and the total is the same everywhere', async () => {
  const timeless = {title: 'Note', msg: []};
  const appliance = new Appliance([...rows(35, 'Note'), timeless, ...rows(2000, 'Alarm', 200), timeless, row('photos:x', 9000)], ['Alarm']);
  const notifications = await opened(appliance);
  assert.deepEqual([notifications.items.length, notifications.total, await notifications.count(true)], [30, 36, 2036]);
  notifications.hiddenToo = true;
  notifications.filter = {...NO_FILTER, level: 'error'};
  notifications.wanted = 5000;
  await notifications.reload();
  await notifications.fill();
  assert.deepEqual([notifications.items.length, notifications.total], [2036, 2036]);
  const {labels, levels} = notifications.counts();
  assert.deepEqual([[...labels], [...levels]], [[['Laboratory', 2000]], [['warning', 35], ['error', 2000], ['info', 1]]]);
  assert.deepEqual(['Alarm', 'Note', 'photos:x'].map(tag => notifications.isHidden({tag})), [true, false, false]);

  const many = await opened(new Appliance([...rows(60_000, 'Note'), timeless]), {level: 'error'});
  await many.fill();
  assert.deepEqual([many.total, await many.count(false)], [60_000, 60_000]);
});

it('repeats fold into one as long as neighbours say the same on one day', async () => {
  const [a, b] = [{ROOM: 'a'}, {ROOM: 'b'}];
  const appliance = new Appliance([row('Note', 1, a), row('Note', 2, a), row('Note', 3, b), row('Note', 4, a), row('Note', 4 + 3 * DAY_S, a),
    row('photos:x', 5 * DAY_S), row('photos:x', 5 * DAY_S)]);
  const {items} = await opened(appliance);
  const sizes = foldRepeats(items.map(item => ({...item, day: Math.floor((NOW - item.time) / DAY_S)}))).map(({length}) => length);
  assert.deepEqual(sizes, [2, 1, 1, 1, 1, 1]);
});

it('what was seen stays seen, the rest is new, and two tabs agree', async () => {
  const stored = {text: null, get: () => stored.text, set: text => stored.text = text};
  const appliance = new Appliance(rows(3, 'Note'));
  const notifications = await opened(appliance);
  const seen = new Seen(stored, notifications.items);
  const news = of => notifications.items.filter(item => of.isNew(item)).length;
  assert.equal(news(seen), 0);
  appliance.stored = [row('Alarm', 1), row('Alarm', 2), row('Alarm', 3), ...appliance.stored];
  const arrived = await notifications.look();
  assert.equal(news(seen), 3);
  seen.add([arrived[1]], notifications.items);
  const other = new Seen(stored, notifications.items);
  assert.deepEqual([seen, other].map(news), [2, 2]);
  other.add([arrived[2]], notifications.items);
  assert.match(stored.text, /"later":\[\]/);
  seen.add([arrived[0]], notifications.items);
  assert.equal(news(other.recall() && other), 0);
  for (const broken of ['', '7', '{"since":1e99,"later":[]}', '{"since":1}']) {
    stored.text = broken;
    assert.equal(news(new Seen(stored, notifications.items)), 0, broken);
  }
});
