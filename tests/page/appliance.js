// A demo appliance of one's own in a temporary folder, and the built host that serves it.
import {execFileSync, spawn} from 'node:child_process';
import {chmodSync, mkdtempSync, readFileSync, rmSync, writeFileSync} from 'node:fs';
import {tmpdir} from 'node:os';
import {join} from 'node:path';
import {createInterface} from 'node:readline';
import {fileURLToPath} from 'node:url';

const SEED = fileURLToPath(new URL('../../demo/seed.py', import.meta.url));
const {WEBAPI_HOST, NOTIFICATION_UTILS} = process.env;

// The host wants uid 0; an ordinary user is that in a user namespace of their own.
const isRoot = process.geteuid() === 0;
const asRoot = isRoot ? [] : ['unshare', '--map-root-user'];
const account = isRoot ? 'nobody' : 'root';

const STORE = `
import json, sqlite3, sys
with sqlite3.connect(sys.argv[1]) as connection:
    for content in json.load(sys.stdin):
        row = connection.execute("INSERT INTO message(message_content, timestamp) VALUES(?, ?)",
                                 (json.dumps(content), content["time"]))
        connection.execute("INSERT INTO nexnotify(uid, message_id) VALUES(?, ?)", (sys.argv[2], row.lastrowid))
`;

export class Appliance {
  #folder = mkdtempSync(join(tmpdir(), 'notification-centre-'));
  #host = null;
  root = join(this.#folder, 'root');

  constructor() {
    process.once('exit', () => {
      this.#host?.kill('SIGKILL');
      rmSync(this.#folder, {recursive: true});
    });
    chmodSync(this.#folder, 0o755);  // The host's account reads below it.
    this.#run('', SEED, '--account', account, WEBAPI_HOST, this.root);
    this.users = JSON.parse(readFileSync(join(this.root, 'etc/kivo/users.json'))).users;
  }

  #run(input, ...command) {
    const [file, ...parameters] = [...asRoot, ...command];
    return execFileSync(file, parameters,
      {input, encoding: 'utf8', env: {...process.env, KIVO_ROOT: this.root}, stdio: ['pipe', 'pipe', 'inherit']});
  }

  // Writes or (with flag "a") adds to a file that the host has not read yet.
  write(path, text, flag = 'w') {
    writeFileSync(join(this.root, path), text, {flag});
  }

  notify(user, tag, ...parameters) {
    this.#run('', NOTIFICATION_UTILS, '--notify', user, tag, ...parameters);
  }

  // Stores notifications as they are given, each at its "time".
  store(user, contents) {
    const database = join(this.root, 'var/lib/kivo/nexnotify.db');
    this.#run(JSON.stringify(contents), 'python3', '-c', STORE, database, String(this.users[user].uid));
  }

  async serve() {
    const port = this.origin ? new URL(this.origin).port : '0';
    const [file, ...parameters] = [...asRoot, WEBAPI_HOST, '--root', this.root, '--account', account, 'serve', '--port', port,
      '--workers', '2'];
    this.#host = spawn(file, parameters, {stdio: ['ignore', 'pipe', 'inherit']});
    for await (const line of createInterface({input: this.#host.stdout})) {
      const address = line.match(/http:\/\/127\.0\.0\.1:\d+/);
      if (address) {
        [this.origin] = address;
        return;
      }
    }
    throw new Error('the host ended before it listened');
  }

  signInLink(user) {
    return this.#run('', WEBAPI_HOST, '--root', this.root, 'sign-in', user, '--url', this.origin).trim();
  }

  async stop() {
    const ended = new Promise(resolve => this.#host.once('exit', resolve));
    this.#host.kill('SIGTERM');
    await ended;
    this.#host = null;
  }
}
