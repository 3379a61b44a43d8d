const NOTIFY = 'KIVO.Core.NEXNotify/1/notify';
const STRINGS = 'KIVO.Core.NEXNotify.Strings/1/get';
const MAIL = 'KIVO.Core.NEXNotify.MailContent/1/get';

// The host answered, and the answer is no.
export class Refused extends Error {
  constructor({code}) {
    super(`refused with ${code}`);
    this.code = code;
  }
}

// No answer came: the host is down, the line is cut, or what came is not the host's.
export class Unreachable extends Error {}

const PATIENCE_MS = 30_000;

export class Api {
  language = '';
  answers = 0;    // how often the host has answered, be it with a refusal
  #token;

  constructor(token) {
    this.#token = token;
  }

  // The token that a sign-in link's code stands for.
  static async signIn(code) {
    const {token} = await new Api('').#ask('session', {method: 'POST', body: JSON.stringify({code})});
    return token;
  }

  session() {
    return this.#ask('session', {method: 'GET'});
  }

  load({offset = 0, limit, all}) {
    return this.#call(NOTIFY, {action: 'load', offset, limit, all});
  }

  deleteAll() {
    return this.#call(NOTIFY, {action: 'apply', clean: 'all'});
  }

  // Without a category file to read, the answer is an empty array in place of the object.
  async categories() {
    const answer = await this.#call(NOTIFY, {action: 'loadHaveNtAppList'});
    return answer?.items ?? [];
  }

  // Null when no tag has a text.
  async strings() {
    return await this.#call(STRINGS, {}) ?? {};
  }

  // Null when there is no mail for the tag.
  async mail(tag) {
    try {
      const {mailContent} = await this.#call(MAIL, {title: tag});
      return mailContent;
    } catch (error) {
      if (error instanceof Refused && error.code === 117)
        return null;
      throw error;
    }
  }

  #call(method, parameters) {
    return this.#ask(`webapi/${method}`, {
      method: 'POST',
      body: JSON.stringify(parameters),
    });
  }

  async #ask(path, request) {
    let envelope;
    try {
      const response = await fetch(path, {
        ...request,
        headers: {
          ...(request.body && {'Content-Type': 'application/json'}),
          ...(this.#token && {'Authorization': `Bearer ${this.#token}`}),
          ...(this.language && {'KIVO-Language': this.language}),
        },
        cache: 'no-store',
        signal: AbortSignal.timeout(PATIENCE_MS),
      });
      envelope = await response.json();
    } catch (cause) {
      throw new Unreachable(`no answer to ${path}`, {cause});
    }
    ++this.answers;
    if (!envelope.success)
      throw new Refused(envelope.error);
    return envelope.data;
  }
}
