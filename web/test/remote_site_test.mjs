// A remote site in headless Chromium against `zthost serve --service` on a software key. The
// site is https://site.test:PORT, a name Chromium maps to 127.0.0.1, served by this script with
// a certificate made for the run; it loads zt-key.js from its own origin, as a real site would.
// After `zthost origins add` it opens the key, verifies the PIN and decrypts with no token. A
// second name on the same server (other.test) is not approved and sees close 4403. A client
// running as `nobody` is refused before any HTTP answer. Two pages at once keep their own
// sessions, and after the service restarts a page gets a new one. Saves a screenshot.

import assert from 'node:assert/strict';
import { spawn, spawnSync } from 'node:child_process';
import fs from 'node:fs';
import https from 'node:https';
import path from 'node:path';
import { fileURLToPath } from 'node:url';
import {
  freePort, giveUpAfter, kPlaintext, kUserPin, kWrongPinMessage, launchChromium, makeRun, outputDir,
  provision, startServe, step, watchProblems,
} from './bridge_run.mjs';

giveUpAfter(75_000);
const webDir = path.resolve(path.dirname(fileURLToPath(import.meta.url)), '..');
const kNoKeyMessage = '未检测到电子密钥盘';

// A certificate for site.test and other.test, for this run only.
function makeCertificate(work) {
  const key = path.join(work, 'site.key');
  const cert = path.join(work, 'site.crt');
  const made = spawnSync('openssl', ['req', '-x509', '-newkey', 'ec', '-pkeyopt', 'ec_paramgen_curve:P-256',
                                     '-nodes', '-days', '1', '-subj', '/CN=site.test',
                                     '-addext', 'subjectAltName=DNS:site.test,DNS:other.test',
                                     '-keyout', key, '-out', cert], { encoding: 'utf8' });
  assert.equal(made.status, 0, made.stderr);
  return { key: fs.readFileSync(key), cert: fs.readFileSync(cert) };
}

// The site: its page (web/test/site/), zt-key.js from web/, and the sealed bid.
function startSite(tls, bid) {
  const files = {
    '/': [path.join(webDir, 'test/site/index.html'), 'text/html; charset=utf-8'],
    '/site.js': [path.join(webDir, 'test/site/site.js'), 'text/javascript; charset=utf-8'],
    '/site.css': [path.join(webDir, 'test/site/site.css'), 'text/css; charset=utf-8'],
    '/zt-key.js': [path.join(webDir, 'zt-key.js'), 'text/javascript; charset=utf-8'],
  };
  const server = https.createServer(tls, (request, response) => {
    const pathname = new URL(request.url, 'https://site.test').pathname;
    if (pathname === '/bid.b64') {
      response.writeHead(200, { 'Content-Type': 'text/plain' });
      response.end(bid);
      return;
    }
    const file = files[pathname];
    if (!file) {
      response.writeHead(404);
      response.end();
      return;
    }
    response.writeHead(200, { 'Content-Type': file[1] });
    response.end(fs.readFileSync(file[0]));
  });
  return new Promise((resolve) => server.listen(0, '127.0.0.1', () => resolve(server)));
}

// A WebSocket upgrade from another process, as `uid`; answers the first line the bridge sent,
// or "" when it closed without a word.
function upgradeAs(uid, port, origin) {
  const script = `
    const socket = require('net').connect(${port}, '127.0.0.1', () => socket.write(
      'GET /bridge HTTP/1.1\\r\\nHost: 127.0.0.1:${port}\\r\\nUpgrade: websocket\\r\\n' +
      'Connection: Upgrade\\r\\nSec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\\r\\n' +
      'Sec-WebSocket-Version: 13\\r\\nOrigin: ${origin}\\r\\n\\r\\n'));
    let answer = '';
    socket.on('data', (chunk) => { answer += chunk; if (answer.includes('\\r\\n')) socket.destroy(); });
    socket.on('close', () => process.stdout.write(answer.split('\\r\\n')[0]));
    socket.on('error', () => {});`;
  return new Promise((resolve, reject) => {
    const child = spawn(process.execPath, ['-e', script], { uid, gid: uid, cwd: '/', stdio: ['ignore', 'pipe', 'inherit'] });
    let out = '';
    child.stdout.on('data', (chunk) => { out += chunk; });
    child.on('error', reject);
    child.on('exit', (code) => (code === 0 ? resolve(out) : reject(new Error(`client as uid ${uid} ended ${code}`))));
  });
}

// Runs `work` in the page with its ZtKey (window.siteKey); answers what it answers, or the
// code of the ZtKeyError it throws.
function withKey(page, work, ...args) {
  return page.evaluate(async ([source, values]) => {
    const fn = new Function('key', '...values', `return (${source})(key, ...values);`);
    try {
      return { value: await fn(window.siteKey, ...values) };
    } catch (error) {
      return { code: error.code, libraryMessage: error.libraryMessage, message: error.message };
    }
  }, [work.toString(), args]);
}

async function main() {
  step('provisioning a software key and a sealed bid');
  const run = makeRun('remote-site-run');
  const key = provision(run);
  const bid = fs.readFileSync(key.envelopePath, 'latin1');
  const site = await startSite(makeCertificate(run.work), bid);
  const sitePort = site.address().port;
  const siteOrigin = `https://site.test:${sitePort}`;
  const otherOrigin = `https://other.test:${sitePort}`;

  step(`approving ${siteOrigin} and starting the service`);
  run.command('origins', 'add', siteOrigin);
  const port = await freePort();
  let service = startServe(run, ['--service', '--port', String(port)]);
  assert.equal(await service.firstLine, `ws://127.0.0.1:${port}/bridge`);

  const context = await launchChromium(run, {
    args: ['--host-resolver-rules=MAP site.test 127.0.0.1, MAP other.test 127.0.0.1'],
    ignoreHTTPSErrors: true,
  });
  try {
    step('an unapproved origin is refused with 4403, and told how to approve');
    const other = await context.newPage();
    await other.goto(`${otherOrigin}/?port=${port}`);
    await other.locator('#service[data-state="refused"]').waitFor();
    assert.equal(await other.textContent('#help'), `To let this site use your key, run: zthost origins add ${otherOrigin}`);
    const closeSeen = await other.evaluate((address) => new Promise((resolve) => {
      const socket = new WebSocket(address);
      let opened = false;
      socket.onopen = () => { opened = true; };
      socket.onclose = (event) => resolve({ opened, code: event.code, reason: event.reason });
    }), `ws://127.0.0.1:${port}/bridge`);
    assert.deepEqual(closeSeen, { opened: true, code: 4403, reason: 'origin not approved' });
    await other.close();

    step('the approved site: open, PIN and decrypt with no token');
    const page = context.pages()[0] || await context.newPage();
    const problems = watchProblems(page);
    await page.goto(`${siteOrigin}/?port=${port}`);
    await page.locator('#service[data-state="connected"]').waitFor();
    assert.match(await page.textContent('#service'), /^connected \(zthost .+, service mode\)$/);
    assert.deepEqual(await withKey(page, (k) => k.bridge.mode), { value: 'service' });
    await page.fill('#pin', kUserPin);
    await page.click('#open-bid');
    await page.locator('#result[data-state="connected"]').waitFor();
    assert.equal(await page.textContent('#result'), kPlaintext);
    assert.deepEqual(problems, []);
    const screenshot = path.join(outputDir, 'web_remote_site.png');
    await page.setViewportSize({ width: 900, height: 300 });
    await page.screenshot({ path: screenshot });
    step(`screenshot: ${screenshot}`);

    step('a second page of the site has its own session');
    const second = await context.newPage();
    await second.goto(`${siteOrigin}/?port=${port}`);
    await second.locator('#service[data-state="connected"]').waitFor();
    assert.deepEqual(await withKey(second, (k) => k.lastErrorMessage()), { value: '' });
    assert.deepEqual(await withKey(second, (k) => k.openKey()), { value: true });
    assert.deepEqual(await withKey(second, (k, pin) => k.verifyPin(pin), 'second-page-WRONG-1'),
                     { code: 'call-failed', libraryMessage: kWrongPinMessage, message: `WebVerifyPin failed: ${kWrongPinMessage}` });
    // The first page's PIN session outlived the second page's WebOpenKey, and its last error
    // is not the second page's.
    assert.deepEqual(await withKey(page, (k, envelope) => k.decode(envelope).then((b) => new TextDecoder().decode(Uint8Array.from(atob(b), (c) => c.charCodeAt(0)))), bid.trim()), { value: kPlaintext });
    assert.deepEqual(await withKey(page, (k) => k.lastErrorMessage()), { value: '' });
    assert.deepEqual(await withKey(second, (k) => k.lastErrorMessage()), { value: kWrongPinMessage });

    step('another local user is refused before any HTTP answer');
    assert.equal(await upgradeAs(process.getuid(), port, siteOrigin), 'HTTP/1.1 101 Switching Protocols', 'the same client as this user gets in');
    assert.equal(await upgradeAs(65534, port, siteOrigin), '', 'as nobody it gets nothing');

    step('the service restarts: the page reconnects to a new session');
    const reconnected = page.evaluate(() => new Promise((resolve) => window.siteKey.addEventListener('reconnected', () => resolve(window.siteKey.state), { once: true })));
    await service.stop();
    service = startServe(run, ['--service', '--port', String(port)]);
    assert.equal(await reconnected, 'connected');
    assert.deepEqual(await withKey(page, (k, envelope) => k.decode(envelope), bid.trim()),
                     { code: 'call-failed', libraryMessage: kNoKeyMessage, message: `WebZtDecode failed: ${kNoKeyMessage}` });
    await second.close();
  } finally {
    await context.close();
    site.close();
  }

  step('stopping the service');
  const stderr = await service.stop();
  const logs = fs.readFileSync(run.hostLog, 'utf8') + stderr;
  assert.ok(logs.includes(`bridge: refused a page from origin "${otherOrigin}": not approved; approve it with zthost origins add ${otherOrigin}`), logs);
  assert.ok(logs.includes('bridge: refused a connection from uid 65534'), logs);
  assert.ok(!logs.includes(kUserPin), 'no PIN in the logs');
  fs.rmSync(run.work, { recursive: true, force: true });
  step('passed');
}

main().then(() => process.exit(0), (error) => {
  console.error(error);
  process.exit(1);
});
