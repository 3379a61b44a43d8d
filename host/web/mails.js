// Which kinds of notifications have a mail. The appliance has no list of them, so each kind is asked for by itself, one
// after the other, the first time that it is shown.
export class Mails {
  #ask;
  #told;
  #texts = new Map();
  #queue = new Set();
  #isAsking = false;

  // `ask(tag)` gives the mail's text or null, `told(tag)` is called when it is known.
  constructor(ask, told) {
    this.#ask = ask;
    this.#told = told;
  }

  // The mail's text, null when there is none, undefined as long as that is not known.
  of(tag) {
    if (!this.#texts.has(tag)) {
      this.#queue.add(tag);
      this.#askAll();
    }
    return this.#texts.get(tag);
  }

  async #askAll() {
    if (this.#isAsking)
      return;
    this.#isAsking = true;
    try {
      for (const tag of this.#queue) {
        this.#texts.set(tag, await this.#ask(tag));
        this.#told(tag);
      }
    } catch {
      // Whoever draws the rows again asks again; that the host is away is the watch's to tell.
    }
    this.#queue.clear();
    this.#isAsking = false;
  }
}
