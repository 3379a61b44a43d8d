// What a stored notification and its texts mean: no document, no requests.

// The title that a system notification has in place of a category's own.
const SYSTEM_TITLE = 'nexnotify:system_event';

// The label of what has none, to filter by.
export const OTHER = '';

export const LEVELS = ['error', 'warning', 'info'];

// The values that fill the placeholders; none when the notification carries none that can be read.
export function parametersOf(notification) {
  try {
    const parameters = JSON.parse(notification.msg[0]);
    if (typeof parameters !== 'object' || Array.isArray(parameters))
      return {};
    return Object.fromEntries(
      Object.entries(parameters).map(([name, value]) =>
        [name, typeof value === 'string' ? value : JSON.stringify(value)]));
  } catch {
    return {};
  }
}

// The text in pieces, each {text, isValue}. One pass, so that braces inside a value are never taken for a
// placeholder; a placeholder without a value stays as it is, to show that something is missing.
export function piecesOf(text, parameters) {
  return text.split(/\{([^{}\s]+)\}/).map((piece, index) => {
    if (index % 2 === 0)
      return {text: piece, isValue: false};
    return Object.hasOwn(parameters, piece) ? {text: parameters[piece], isValue: true} : {text: `{${piece}}`, isValue: false};
  });
}

export const fill = (text, parameters) => piecesOf(text, parameters).map(piece => piece.text).join('');

// Where there is no markup around a value, characters keep it from turning the text: one that is
// left to right stays so, whatever is in the value. A mark that would end this early is left out.
export const fillIsolated = (text, parameters) => piecesOf(text, parameters)
  .map(({text, isValue}) => isValue ? `\u2068${withoutEnd(text)}\u2069` : text).join('');

export const withoutEnd = value => value.replaceAll('\u2069', '');

export function levelOf(strings) {
  const level = strings?.level ?? '';
  if (/ERR|CRIT/i.test(level))
    return 'error';
  return /WARN/i.test(level) ? 'warning' : 'info';
}

// What a person sees of notifications in one language.
export class Texts {
  #strings;
  #system;
  #choices;

  // `strings` are those of each tag, `categories` the user's rows, `system` the page's own word for
  // what no row names.
  constructor(strings, categories, system) {
    // Tags are anyone's names, and some are those of every object's own members.
    this.#strings = Object.assign(Object.create(null), strings);
    this.#choices = new Map(categories.map(row => [row.category, row.nexnotify]));
    this.#system = categories.find(row => row.category_enu.toLowerCase() === 'system')?.category ?? system;
    const labels = new Set(Object.keys(this.#strings).map(tag => this.labelOf(tag)));
    const listed = [...this.#choices.keys()].filter(label => labels.delete(label));
    // All that a row's label can be, in the user's order as far as there is one.
    this.labels = [...listed, ...[...labels].filter(label => label !== OTHER)];
  }

  get isEmpty() {
    return Object.keys(this.#strings).length === 0;
  }

  labelOf(tag) {
    const title = this.#strings[tag]?.title;
    return title === SYSTEM_TITLE ? this.#system : title ?? OTHER;
  }

  // A label's counterpart in other texts, by a tag that has it; null when there is none.
  counterpart(label, others) {
    const tag = Object.keys(this.#strings).find(tag => this.labelOf(tag) === label);
    return label === OTHER ? OTHER : tag && others.labelOf(tag) || null;
  }

  // Whether the category's desktop notifications are on; of what is none they are never switched off.
  isOn(label) {
    return (this.#choices.get(label) ?? 'on') === 'on';
  }

  // What is shown of one: its tag, label, level, text (the tag where there is none) and values.
  describe(notification) {
    const tag = String(notification.title ?? '');
    const strings = this.#strings[tag];
    const parameters = parametersOf(notification);
    const text = strings?.msg ?? tag;
    return {
      tag, parameters, text, hasText: strings !== undefined, label: this.labelOf(tag), level: levelOf(strings),
      full: strings ? fill(text, parameters) : tag,
    };
  }
}

// Letters as they are compared in a search: neither case nor accents matter.
export const plain = text => text.normalize('NFKD').replace(/\p{M}/gu, '').toLowerCase();

// Stored notifications have no identity of their own, and two can be alike in every member:
// the n-th of its kind, counted from the oldest, keeps its key when newer ones arrive.
export function keysOf(texts) {
  const seen = new Map();
  return texts.slice().reverse().map(text => {
    const count = (seen.get(text) ?? 0) + 1;
    seen.set(text, count);
    return `${count} ${text}`;
  }).reverse();
}
