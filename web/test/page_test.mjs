// The demo page in headless Chromium against a real `zthost serve` (token mode) on a software
// key: a wrong token told apart, the guided order (open, PIN, then the rest), the busy state, a
// wrong PIN then the right one, the certificate, envelopes pasted and from files, a file over the
// bridge's limit stopped before sending with the limit stated, Chinese text marked as such; a
// page of another origin cannot connect; after a restart the page says its token is refused.
// Saves a screenshot.

import assert from 'node:assert/strict';
import crypto from 'node:crypto';
import fs from 'node:fs';
import http from 'node:http';
import path from 'node:path';
import {
  giveUpAfter, kPlaintext, kUserPin, kWrongPin, kWrongPinMessage, launchChromium, makeRun,
  outputDir, provision, startServe, step, watchProblems,
} from './bridge_run.mjs';

giveUpAfter(75_000);
// Small enough that a test file goes over it, large enough for every envelope the test opens.
const kMaxMessage = 1024 * 1024;

// A page of another origin: a second server on another port, with its own page.
function startForeignServer() {
  const server = http.createServer((request, response) => {
    response.writeHead(200, { 'Content-Type': 'text/html' });
    response.end('<!DOCTYPE html><title>another site</title><p>another site</p>');
  });
  return new Promise((resolve) => server.listen(0, '127.0.0.1', () => resolve(server)));
}

// Tries a WebSocket from the page's own origin: "open" when the channel's handshake is
// answered, "refused" when it never opens, else "closed CODE REASON".
function tryWebSocket(page, url) {
  return page.evaluate((address) => new Promise((resolve) => {
    const socket = new WebSocket(address);
    let opened = false;
    socket.onopen = () => { opened = true; socket.send('{"type":3,"id":0}'); };
    socket.onmessage = () => { socket.close(); resolve('open'); };
    socket.onclose = (event) => resolve(opened ? `closed ${event.code} ${event.reason}` : 'refused');
  }), url);
}

async function lastAnswer(page, method) {
  const item = page.locator(`#answers li[data-method="${method}"]`).first();
  await item.waitFor();
  return { ok: (await item.getAttribute('class')) === 'ok', text: await item.textContent() };
}

// Which controls are enabled, by id.
function enabled(page, ids) {
  return page.evaluate((list) => list.filter((id) => !document.getElementById(id).disabled), ids);
}
const kStepControls = ['open-key', 'pin', 'verify-pin', 'get-cert', 'encode', 'decode'];

async function main() {
  step('provisioning a software key and making envelopes');
  const run = makeRun('browser-run');
  const key = provision(run);
  const binary = Buffer.from([0xff, 0xfe, 0x00, 0x80, 0x81, 0xc3, 0x28]);
  const binaryEnvelope = key.encrypt(binary);
  const largeFile = path.join(run.work, 'large.der');
  fs.writeFileSync(largeFile, crypto.randomBytes(2 * 1024 * 1024));

  step('starting zthost serve');
  let serve = startServe(run, ['--max-message', String(kMaxMessage)]);
  const pageUrl = new URL(await serve.firstLine);
  assert.equal(pageUrl.hostname, '127.0.0.1');
  const webSocketUrl = `ws://${pageUrl.host}/bridge${pageUrl.search}`;
  const foreign = await startForeignServer();

  const context = await launchChromium(run);
  try {
    step('a wrong token is told apart from a bridge that is not there');
    const refused = await context.newPage();
    await refused.goto(`http://${pageUrl.host}/?token=not-the-token`);
    await refused.locator('#connection-state[data-state="refused"]').waitFor();
    assert.equal(await refused.textContent('#connection-state'), 'token refused');
    assert.equal(await refused.textContent('#notice'),
                 'the bridge refused the access token of this address: open the address zthost serve printed when it last started');
    assert.deepEqual(await enabled(refused, kStepControls), []);
    await refused.close();

    const page = context.pages()[0] || await context.newPage();
    // The page fetches no favicon.ico, but Chromium asks; nothing else may go wrong.
    const problems = watchProblems(page);

    step('opening the page: only "Open key" is enabled, and the limit is stated');
    await page.goto(pageUrl.href);
    await page.locator('#connection-state[data-state="connected"]').waitFor();
    assert.equal(await page.getAttribute('html', 'lang'), 'en');
    assert.deepEqual(await enabled(page, kStepControls), ['open-key']);
    assert.equal(await page.textContent('#limit-note'),
                 'Largest envelope: 1,048,476 Base64 characters, about 0.7 MiB of envelope (the bridge takes messages of up to 1,048,576 bytes).');
    assert.equal(await page.locator('#cert-type').count(), 0, 'no certificate type field');

    step('open key, busy while it runs');
    await page.evaluate(() => {
      window.busySeen = [];
      const busy = document.getElementById('busy-state');
      new MutationObserver(() => window.busySeen.push(
        [busy.dataset.state, busy.textContent, document.getElementById('open-key').disabled]))
        .observe(busy, { attributes: true, childList: true });
    });
    await page.click('#open-key');
    assert.ok((await lastAnswer(page, 'WebOpenKey')).ok);
    await page.locator('#key-state[data-state="opened"]').waitFor();
    const busySeen = await page.evaluate(() => window.busySeen);
    assert.deepEqual(busySeen.filter(([state]) => state === 'busy')[0], ['busy', 'WebOpenKey…', true]);
    assert.deepEqual(busySeen.at(-1), ['idle', 'idle', false]);
    assert.deepEqual(await enabled(page, kStepControls), ['open-key', 'pin', 'verify-pin']);

    step('a wrong PIN: its message, marked as Chinese');
    await page.fill('#pin', kWrongPin);
    await page.click('#verify-pin');
    const answer = await lastAnswer(page, 'WebVerifyPin');
    assert.equal(answer.ok, false);
    assert.equal(answer.text, `WebVerifyPin failed: false — ${kWrongPinMessage}`);
    assert.equal(await page.getAttribute('#answers li[data-method="WebVerifyPin"] .message', 'lang'), 'zh-CN');
    assert.equal(await page.inputValue('#pin'), '', 'the PIN field is cleared after the call');
    assert.deepEqual(await enabled(page, kStepControls), ['open-key', 'pin', 'verify-pin']);

    step('the right PIN enables the rest');
    await page.fill('#pin', kUserPin);
    await page.click('#verify-pin');
    await page.locator('#answers li[data-method="WebVerifyPin"].ok').waitFor();
    await page.locator('#key-state[data-state="verified"]').waitFor();
    assert.deepEqual(await enabled(page, kStepControls), kStepControls);

    step('the certificate');
    await page.click('#get-cert');
    await page.locator('#answers li[data-method="WebGetCertData"].ok').waitFor();
    assert.equal(await page.inputValue('#cert-output'), key.certificate);
    assert.equal(await page.isEnabled('#copy-cert'), true);

    step('the encryption check');
    await page.fill('#encode-source', Buffer.from('check').toString('base64'));
    await page.click('#encode');
    assert.ok((await lastAnswer(page, 'WebZtEncode')).ok);

    step('an envelope of binary content, pasted');
    await page.fill('#envelope', binaryEnvelope);
    await page.click('#decode');
    await page.locator('#answers li[data-method="WebZtDecode"].ok').waitFor();
    await page.locator('#plaintext-download:not([hidden])').waitFor();
    const [download] = await Promise.all([page.waitForEvent('download'), page.click('#plaintext-download')]);
    const saved = path.join(run.work, 'downloaded.bin');
    await download.saveAs(saved);
    assert.deepEqual(fs.readFileSync(saved), binary);

    step('an envelope of text, from a file, never in the text box');
    await page.setInputFiles('#envelope-file', key.envelopePath);
    await page.waitForFunction(() => document.getElementById('file-summary').textContent.includes('to send'));
    assert.equal(await page.inputValue('#envelope'), '');
    const envelopeChars = fs.readFileSync(key.envelopePath, 'latin1').replace(/\s+/g, '').length;
    assert.equal(await page.textContent('#file-summary'),
                 `envelope.b64: ${fs.statSync(key.envelopePath).size.toLocaleString('en')} bytes, ${envelopeChars.toLocaleString('en')} Base64 characters to send.`);
    await page.click('#decode');
    await page.waitForFunction((text) => document.getElementById('plaintext').value === text, kPlaintext);
    assert.equal(await page.isHidden('#plaintext-download'), true);

    step('a file over the limit: said when chosen, stopped before sending');
    await page.setInputFiles('#envelope-file', largeFile);
    await page.waitForFunction(() => document.getElementById('file-summary').textContent.includes('to send'));
    assert.equal(await page.textContent('#file-summary'),
                 'large.der: 2,097,152 bytes, 2,796,204 Base64 characters to send. That is more than the 1,048,476 the bridge takes: it will not be sent.');
    assert.equal(await page.inputValue('#envelope'), '');
    await page.click('#decode');
    await page.locator('#answers li[data-method="WebZtDecode"].fail').first().waitFor();
    assert.match((await lastAnswer(page, 'WebZtDecode')).text,
                 /^WebZtDecode failed — too large: the call is 2,796,2\d\d bytes and the bridge takes at most 1,048,576 \(zthost serve --max-message raises the limit\); nothing was sent$/);
    assert.equal(await page.getAttribute('#connection-state', 'data-state'), 'connected');

    const screenshot = path.join(outputDir, 'web_bridge_page.png');
    await page.screenshot({ path: screenshot, fullPage: true });
    step(`screenshot: ${screenshot}`);

    step('last error and close key');
    await page.click('#last-error');
    await lastAnswer(page, 'WebGetLastErrorMsg');
    await page.click('#close-key');
    assert.ok((await lastAnswer(page, 'WebCloseKey')).ok);
    assert.deepEqual(await enabled(page, kStepControls), ['open-key']);

    step('every Chinese text is marked zh-CN');
    const unmarked = await page.evaluate(() => {
      const walker = document.createTreeWalker(document.body, NodeFilter.SHOW_TEXT);
      const found = [];
      for (let node = walker.nextNode(); node; node = walker.nextNode()) {
        if (/[\u3400-\u9fff]/.test(node.data) && node.parentElement.closest('[lang]').lang !== 'zh-CN')
          found.push(node.data);
      }
      return found;
    });
    assert.deepEqual(unmarked, []);

    const pageText = await page.content();
    assert.ok(!page.url().includes(kUserPin) && !pageText.includes(kUserPin), 'the PIN shows nowhere');
    assert.deepEqual(problems, []);

    step('pages of other origins');
    const other = await context.newPage();
    await other.goto(`http://127.0.0.1:${foreign.address().port}/`);
    assert.equal(await tryWebSocket(other, webSocketUrl), 'refused', 'another port is another origin');
    await other.goto('about:blank');
    assert.equal(await tryWebSocket(other, webSocketUrl), 'refused', 'about:blank has no origin of ours');
    // The bridge's own origin still gets in with the token, and never without.
    assert.equal(await tryWebSocket(page, webSocketUrl), 'open');
    assert.equal(await tryWebSocket(page, `ws://${pageUrl.host}/bridge`), 'closed 4401 token refused');

    step('zthost serve restarts on the same port with a new token: the page says so');
    await page.evaluate(() => {
      window.connectionSeen = [];
      const state = document.getElementById('connection-state');
      new MutationObserver(() => window.connectionSeen.push(state.dataset.state))
        .observe(state, { attributes: true, childList: true });
    });
    const stderr = await serve.stop();
    assert.ok(stderr.includes('zthost serve: stopped (SIGTERM)'), stderr);
    const logs = fs.readFileSync(run.hostLog, 'utf8') + stderr;
    assert.ok(logs.includes('refused a WebSocket from origin'), 'the refusals are logged');
    assert.ok(!logs.includes(kUserPin) && !logs.includes(kWrongPin), 'no PIN in the logs');
    serve = startServe(run, ['--port', pageUrl.port, '--max-message', String(kMaxMessage)]);
    assert.notEqual(new URL(await serve.firstLine).search, pageUrl.search);
    await page.locator('#connection-state[data-state="refused"]').waitFor();
    assert.ok((await page.evaluate(() => window.connectionSeen)).includes('reconnecting'));
    assert.equal(await page.textContent('#notice'),
                 'the bridge refused the access token of this address: open the address zthost serve printed when it last started');
    assert.deepEqual(await enabled(page, kStepControls), []);
  } finally {
    await context.close();
    foreign.close();
  }

  step('stopping zthost serve');
  await serve.stop();
  fs.rmSync(run.work, { recursive: true, force: true });
  step('passed');
}

main().then(() => process.exit(0), (error) => {
  console.error(error);
  process.exit(1);
});
