const USUAL_S = 30;
const HIDDEN_S = 120;
const LONGEST_S = 300;

// Looks at the host again and again: at its usual pace while the page is seen, slower while it is
// hidden, ever slower while its looks fail, and at once when the page or the network comes back.
export class Watch {
  #look;
  #listeners = new AbortController();
  #failures = 0;
  #due = false;    // the look under way is the timer's, not a person's
  #timer = 0;

  // Whoever makes the requests tells how each one went, be it a look's or a person's: see `went`.
  constructor(look) {
    const {signal} = this.#listeners;
    this.#look = look;
    document.addEventListener('visibilitychange', () => document.hidden ? this.#schedule() : this.now(), {signal});
    addEventListener('online', () => this.now(), {signal});
    this.#schedule();
  }

  get seconds() {
    const usual = document.hidden ? HIDDEN_S : USUAL_S;
    return Math.min(LONGEST_S, usual * 2 ** this.#failures);
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
    this.#timer = setTimeout(() => {
      this.#due = true;
      this.#look();
    }, this.seconds * 1000);
  }
}
