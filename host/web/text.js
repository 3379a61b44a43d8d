// What a stored notification, its texts and the categories mean: no document, no requests.

// The title that a system notification has in place of a category's own.
export const SYSTEM_TITLE = 'nexnotify:system_event';

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

// One pass, so that braces inside a value are never taken for a placeholder; a placeholder
// without a value stays as it is, to show that something is missing.
export function fill(text, parameters) {
  return text.replace(/\{([^{}\s]+)\}/g,
    (placeholder, name) => Object.hasOwn(parameters, name) ? parameters[name] : placeholder);
}

export function levelOf(strings) {
  const level = strings?.level ?? '';
  if (/ERR|CRIT/i.test(level))
    return 'error';
  return /WARN/i.test(level) ? 'warning' : 'info';
}

// The category row that a notification's title stands for. Titles are in the language of the rows,
// except the system's, which is the same in every language.
export function categoryOf(title, categories) {
  return categories.find(row => title === SYSTEM_TITLE
    ? row.category_enu.toLowerCase() === 'system'
    : row.category === title);
}

// Stored notifications have no identity of their own, and two can be alike in every member:
// the n-th of its kind, counted from the oldest, keeps its key when newer ones arrive.
export function keysOf(notifications) {
  const seen = new Map();
  return notifications.toReversed().map(notification => {
    const text = JSON.stringify(notification);
    const count = (seen.get(text) ?? 0) + 1;
    seen.set(text, count);
    return `${count} ${text}`;
  }).toReversed();
}
