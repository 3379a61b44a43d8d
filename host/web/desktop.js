// More than these at once are told of in one notification.
const MOST_AT_ONCE = 3;

// The browser's own notifications: raised only after the person has switched them on here and
// the browser has been given its permission.
export class Desktop {
  #remembered;
  #failed = false;

  // `remembered` keeps the person's switch: it has `get()` and `set(text)`.
  constructor(remembered) {
    this.#remembered = remembered;
  }

  // 'unsupported', 'denied', 'off' or 'on'
  get state() {
    if (this.#failed || !('Notification' in window))
      return 'unsupported';
    if (Notification.permission === 'denied')
      return 'denied';
    return this.#remembered.get() === 'on' && Notification.permission === 'granted' ? 'on' : 'off';
  }

  // To be called from the person's own click: browsers refuse to ask otherwise.
  async toggle() {
    const wanted = this.state === 'off';
    if (wanted)
      await Notification.requestPermission();
    this.#remembered.set(wanted ? 'on' : 'off');
  }

  // `messages` are {title, body, key}, newest first; the key keeps two tabs from raising one twice.
  raise(messages, summary) {
    if (this.state !== 'on' || messages.length === 0)
      return;
    const [newest] = messages;
    const raised = messages.length > MOST_AT_ONCE
      ? [{title: summary, body: newest.body, key: newest.key}]
      : messages.toReversed();
    try {
      for (const {title, body, key} of raised) {
        const notification = new Notification(title, {body, tag: key, icon: 'icon.svg'});
        notification.addEventListener('click', () => window.focus());
      }
    } catch {
      // Some browsers for phones have the constructor and the permission, and let no page use it.
      this.#failed = true;
    }
  }
}
