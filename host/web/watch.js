const USUAL_S = 5;
const HIDDEN_S = 15;
const UNHEARD_S = 120;    // hidden, with nothing to raise: only the tab's title tells
const LONGEST_S = 300;

// Looks at the host again and again: at its usual pace while the page is seen, slower while it is
// hidden, ever slower while its looks fail, and at once when the page or the network comes back.
export class Watch {
  #look;
  #isHeard;
  #listeners = new AbortController();
  #failures = 0;
  #due = false;    // the look under way is the timer's, not a person's
  #timer = 0;
  #dueAt = 0;

  // Whoever makes the requests tells how each one went, be it a look's or a person's: see `went`.
  // `isHeard()` is whether news are told of while the page is hidden.
  constructor(look, isHeard) {
    const {signal} = this.#listeners;
    this.#look = look;
    this.#isHeard = isHeard;
    document.addEventListener('visibilitychange', () => document.hidden ? this.#schedule() : this.now(), {signal});
    addEventListener('online', () => this.now(), {signal});
    this.#schedule();
  }

  // Until the next look.
  get secondsLeft() {
    return Math.max(0, Math.ceil((this.#dueAt - Date.now()) / 1000));
  }

  now() {
    clearTimeout(this.#timer);
    this.#look();
  }

  went(well) {
    if (well)
      this.#failures = 0;
    else if (this.#due)
      ++this.#failures;
    this.#due = false;
    this.#schedule();
  }

  stop() {
    this.#listeners.abort();
    clearTimeout(this.#timer);
  }

  #schedule() {
    clearTimeout(this.#timer);
    const usual = !document.hidden ? USUAL_S : this.#isHeard() ? HIDDEN_S : UNHEARD_S;
    const seconds = Math.min(LONGEST_S, usual * 2 ** this.#failures);
    this.#dueAt = Date.now() + seconds * 1000;
    this.#timer = setTimeout(() => {
      this.#due = true;
      this.#look();
    }, seconds * 1000);
  }
}
