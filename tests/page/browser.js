import {mkdtempSync, rmSync} from 'node:fs';
import {tmpdir} from 'node:os';
import {join} from 'node:path';
import {chromium} from 'playwright-core';

// The distribution's Chromium, with nothing to ask of anyone but this machine, and with a home of
// its own that goes when it is closed.
export async function openBrowser() {
  const home = mkdtempSync(join(tmpdir(), 'notification-centre-browser-'));
  const browser = await chromium.launch({
    executablePath: '/usr/bin/chromium',
    env: {...process.env, HOME: home, XDG_CONFIG_HOME: home, XDG_CACHE_HOME: home, TMPDIR: home},
    args: [
      ...(process.geteuid() === 0 ? ['--no-sandbox'] : []),
      '--disable-gpu', '--disable-quic', '--no-first-run', '--disable-background-networking', '--disable-component-update',
      '--disable-sync', '--host-resolver-rules=MAP * ~NOTFOUND, EXCLUDE 127.0.0.1',
    ],
  });
  browser.on('disconnected', () => rmSync(home, {recursive: true, force: true}));
  return browser;
}
