// The demo page in headless Chromium against a real `zthost serve` on a software key: open the
// key, a wrong PIN then the right one, read the certificate, open envelopes; a page of another
// origin cannot connect. Saves a screenshot of the final page.
//
// Environment: ZTHOST (the zthost program), ZT_CHROMIUM (default /usr/bin/chromium),
// ZT_TEST_OUTPUT (folder for the screenshot and the run's files, default the system's temp).

import { chromium } from 'playwright-core';
import assert from 'node:assert/strict';
import { spawn, spawnSync } from 'node:child_process';
import fs from 'node:fs';
import http from 'node:http';
import os from 'node:os';
import path from 'node:path';
import readline from 'node:readline';

const kTimeLimitMs = 60_000;
const kUserPin = 'browser-PIN-3187';
const kWrongPin = 'browser-WRONG-6402';
const kWrongPinMessage = '您输入的电子钥匙盘密码错误，请重新输入!';
const kPlaintext = 'Hello from the envelope — 你好, key.';
const kChromiumFlags = [
  '--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
  '--disable-background-networking', '--disable-component-update', '--disable-sync',
];

const zthost = process.env.ZTHOST;
const chromiumPath = process.env.ZT_CHROMIUM || '/usr/bin/chromium';
const outputDir = process.env.ZT_TEST_OUTPUT || os.tmpdir();
assert.ok(zthost, 'set ZTHOST to the zthost program');

const started = Date.now();
const step = (text) => console.log(`[${((Date.now() - started) / 1000).toFixed(1)} s] ${text}`);
setTimeout(() => {
  console.error(`browser test: still running after ${kTimeLimitMs / 1000} s, giving up`);
  process.exit(1);
}, kTimeLimitMs).unref();

const work = fs.mkdtempSync(path.join(outputDir, 'browser-run-'));
const root = path.join(work, 'root');
const hostLog = path.join(work, 'host.log');
const env = { ...process.env, SOFTSKF_ROOT: root, TMPDIR: work };
delete env.ZTHOST_PIN;

function tool(...args) {
  const run = spawnSync(zthost, [...args, '--root', root], { env, encoding: 'utf8' });
  assert.equal(run.status, 0, `zthost ${args.join(' ')} failed: ${run.stderr}`);
  return run.stdout;
}

function startServe() {
  const serve = spawn(zthost, ['serve', '--root', root, '--host-log', hostLog, '-v'],
                      { env, stdio: ['ignore', 'pipe', 'pipe'] });
  let stderr = '';
  serve.stderr.on('data', (chunk) => { stderr += chunk; });
  const firstLine = new Promise((resolve, reject) => {
    readline.createInterface({ input: serve.stdout }).once('line', resolve);
    serve.once('exit', (code) => reject(new Error(`zthost serve ended (${code}): ${stderr}`)));
  });
  return { serve, firstLine, stderr: () => stderr };
}

// A page of another origin: a second server on another port, with its own page.
function startForeignServer() {
  const server = http.createServer((request, response) => {
    response.writeHead(200, { 'Content-Type': 'text/html' });
    response.end('<!DOCTYPE html><title>another site</title><p>another site</p>');
  });
  return new Promise((resolve) => server.listen(0, '127.0.0.1', () => resolve(server)));
}

// Tries a WebSocket from the page's own origin; answers "open" or "refused".
function tryWebSocket(page, url) {
  return page.evaluate((address) => new Promise((resolve) => {
    const socket = new WebSocket(address);
    socket.onopen = () => { socket.close(); resolve('open'); };
    socket.onerror = () => resolve('refused');
    socket.onclose = () => resolve('refused');
  }), url);
}

async function lastAnswer(page, method) {
  const item = page.locator(`#answers li[data-method="${method}"]`).first();
  await item.waitFor();
  return { ok: (await item.getAttribute('class')) === 'ok', text: await item.textContent() };
}

async function main() {
  step('provisioning a software key and making envelopes');
  tool('keygen', '--name', 'browser-device', '--pin', kUserPin, '--admin-pin', 'browser-admin-5510');
  const certificatePath = path.join(work, 'cert.b64');
  tool('cert', '--out', certificatePath);
  const certificate = fs.readFileSync(certificatePath, 'latin1').trim();
  fs.writeFileSync(path.join(work, 'content.txt'), kPlaintext);
  const envelopePath = path.join(work, 'envelope.b64');
  tool('encrypt', '--cert', certificatePath, '--in', path.join(work, 'content.txt'), '--out', envelopePath);
  const binary = Buffer.from([0xff, 0xfe, 0x00, 0x80, 0x81, 0xc3, 0x28]);
  fs.writeFileSync(path.join(work, 'binary.bin'), binary);
  const binaryEnvelope = tool('encrypt', '--cert', certificatePath, '--in', path.join(work, 'binary.bin')).trim();

  step('starting zthost serve');
  const { serve, firstLine, stderr } = startServe();
  const pageUrl = new URL(await firstLine);
  assert.equal(pageUrl.hostname, '127.0.0.1');
  const webSocketUrl = `ws://${pageUrl.host}/bridge${pageUrl.search}`;
  const foreign = await startForeignServer();

  const userDataDir = fs.mkdtempSync(path.join(work, 'chromium-profile-'));
  const context = await chromium.launchPersistentContext(userDataDir, {
    executablePath: chromiumPath,
    headless: true,
    args: kChromiumFlags,
    acceptDownloads: true,
    viewport: { width: 1200, height: 900 },
  });
  try {
    const page = context.pages()[0] || await context.newPage();
    const problems = [];
    page.on('pageerror', (error) => problems.push(`page error: ${error.message}`));
    page.on('console', (message) => {
      if (message.type() === 'error')
        problems.push(`console: ${message.text()}`);
    });

    step('opening the page');
    await page.goto(pageUrl.href);
    await page.locator('#connection-state[data-state="connected"]').waitFor();

    step('open key');
    await page.click('#open-key');
    assert.ok((await lastAnswer(page, 'WebOpenKey')).ok);
    await page.locator('#key-state[data-state="opened"]').waitFor();

    step('a wrong PIN');
    await page.fill('#pin', kWrongPin);
    await page.click('#verify-pin');
    let answer = await lastAnswer(page, 'WebVerifyPin');
    assert.equal(answer.ok, false);
    assert.ok(answer.text.includes(kWrongPinMessage), answer.text);
    assert.equal(await page.inputValue('#pin'), '', 'the PIN field is cleared after the call');

    step('the right PIN');
    await page.fill('#pin', kUserPin);
    await page.click('#verify-pin');
    await page.locator('#answers li[data-method="WebVerifyPin"].ok').waitFor();
    await page.locator('#key-state[data-state="verified"]').waitFor();

    step('the certificate');
    await page.click('#get-cert');
    await page.locator('#answers li[data-method="WebGetCertData"].ok').waitFor();
    assert.equal(await page.inputValue('#cert-output'), certificate);
    assert.equal(await page.isEnabled('#copy-cert'), true);

    step('the encryption check');
    await page.fill('#encode-source', Buffer.from('check').toString('base64'));
    await page.click('#encode');
    answer = await lastAnswer(page, 'WebZtEncode');
    assert.ok(answer.ok, answer.text);

    step('an envelope of binary content, pasted');
    await page.fill('#envelope', binaryEnvelope);
    await page.click('#decode');
    await page.locator('#answers li[data-method="WebZtDecode"].ok').waitFor();
    await page.locator('#plaintext-download:not([hidden])').waitFor();
    const [download] = await Promise.all([page.waitForEvent('download'), page.click('#plaintext-download')]);
    const saved = path.join(work, 'downloaded.bin');
    await download.saveAs(saved);
    assert.deepEqual(fs.readFileSync(saved), binary);

    step('an envelope of text, from a file');
    await page.setInputFiles('#envelope-file', envelopePath);
    await page.waitForFunction(() => document.getElementById('envelope').value.length > 0);
    await page.click('#decode');
    await page.waitForFunction((text) => document.getElementById('plaintext').value === text, kPlaintext);
    assert.equal(await page.isHidden('#plaintext-download'), true);

    step('last error and close key');
    await page.click('#last-error');
    await lastAnswer(page, 'WebGetLastErrorMsg');
    await page.click('#close-key');
    assert.ok((await lastAnswer(page, 'WebCloseKey')).ok);

    const pageText = await page.content();
    assert.ok(!page.url().includes(kUserPin) && !pageText.includes(kUserPin), 'the PIN shows nowhere');
    assert.deepEqual(problems, []);
    const screenshot = path.join(outputDir, 'web_bridge_page.png');
    await page.screenshot({ path: screenshot, fullPage: true });
    step(`screenshot: ${screenshot}`);

    step('pages of other origins');
    const other = await context.newPage();
    await other.goto(`http://127.0.0.1:${foreign.address().port}/`);
    assert.equal(await tryWebSocket(other, webSocketUrl), 'refused', 'another port is another origin');
    await other.goto('about:blank');
    assert.equal(await tryWebSocket(other, webSocketUrl), 'refused', 'about:blank has no origin of ours');
    // The bridge's own origin still gets in with the token, and never without.
    assert.equal(await tryWebSocket(page, webSocketUrl), 'open');
    assert.equal(await tryWebSocket(page, `ws://${pageUrl.host}/bridge`), 'refused');
  } finally {
    await context.close();
    foreign.close();
  }

  step('stopping zthost serve');
  const exited = new Promise((resolve) => serve.once('exit', (code, signal) => resolve({ code, signal })));
  serve.kill('SIGTERM');
  const { code } = await exited;
  assert.equal(code, 0, stderr());
  assert.ok(stderr().includes('zthost serve: stopped (SIGTERM)'), stderr());
  const logs = fs.readFileSync(hostLog, 'utf8') + stderr();
  assert.ok(logs.includes('refused a WebSocket from origin'), 'the refusals are logged');
  assert.ok(!logs.includes(kUserPin) && !logs.includes(kWrongPin), 'no PIN in the logs');
  fs.rmSync(work, { recursive: true, force: true });
  step('passed');
}

main().then(() => process.exit(0), (error) => {
  console.error(error);
  process.exit(1);
});
