const STEPS = [
  ['minute', 60, 3600],
  ['hour', 3600, 86_400],
  ['day', 86_400, 7 * 86_400],
  ['week', 7 * 86_400, 30 * 86_400],
  ['month', 30.44 * 86_400, 365 * 86_400],
  ['year', 365.25 * 86_400, Infinity],
];

// Words ("yesterday") follow the page's language, so that a sentence is in one language; formats
// (the order of day and month, 12 or 24 hours) follow the reader's own settings.
export function timesIn(language, preferred = navigator.languages) {
  const words = preferred.find(own => own.split('-')[0] === language.split('-')[0]) ?? language;
  const relative = new Intl.RelativeTimeFormat(words, {numeric: 'always'});
  const named = new Intl.RelativeTimeFormat(words, {numeric: 'auto'});
  const full = new Intl.DateTimeFormat(preferred[0], {dateStyle: 'full', timeStyle: 'medium'});
  const sameYear = new Intl.DateTimeFormat(words, {weekday: 'long', day: 'numeric', month: 'long'});
  const otherYear = new Intl.DateTimeFormat(words, {dateStyle: 'long'});

  return {
    full: date => full.format(date),

    ago(date, now) {
      const seconds = (date - now) / 1000;
      const distance = Math.abs(seconds);
      if (distance < 45)
        return named.format(0, 'second');
      const [unit, size] = STEPS.find(([, , end]) => distance < end);
      return relative.format(Math.sign(seconds) * Math.max(1, Math.floor(distance / size)), unit);
    },

    day(date, now) {
      const days = Math.round((midnight(date) - midnight(now)) / 86_400_000);
      const name = days === 0 || days === -1 ? named.format(days, 'day')
        : (date.getFullYear() === now.getFullYear() ? sameYear : otherYear).format(date);
      return name[0].toLocaleUpperCase(words) + name.slice(1);
    },
  };
}

// The moment of a stored time in seconds; null for a number that no calendar holds.
export function momentOf(seconds) {
  const date = new Date(Number(seconds) * 1000);
  return Number.isNaN(date.valueOf()) ? null : date;
}

// The host's clock may be this much ahead of the browser's.
const AHEAD_S = 60;

// Whether a time in seconds can be compared with what a person has seen by now.
export const hasCome = seconds => Number.isFinite(seconds) && seconds <= Date.now() / 1000 + AHEAD_S;

// A notification's time for comparisons; 0 for one that would stay the latest for ever.
export const timeOf = ({time}) => hasCome(time) ? time : 0;

const midnight = date => new Date(date.getFullYear(), date.getMonth(), date.getDate());
