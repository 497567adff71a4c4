// What the browser tests share: a run's folder and environment, a software key with envelopes,
// `zthost serve` as a process, headless Chromium, and a time limit with timed steps.
//
// Environment: ZTHOST (the zthost program), ZT_CHROMIUM (default /usr/bin/chromium),
// ZT_TEST_OUTPUT (folder for screenshots and the run's files, default the system's temp).

import { chromium } from 'playwright-core';
import assert from 'node:assert/strict';
import { spawn, spawnSync } from 'node:child_process';
import fs from 'node:fs';
import net from 'node:net';
import os from 'node:os';
import path from 'node:path';
import readline from 'node:readline';

export const kUserPin = 'browser-PIN-3187';
export const kWrongPin = 'browser-WRONG-6402';
export const kWrongPinMessage = '您输入的电子钥匙盘密码错误，请重新输入!';
export const kPlaintext = 'Hello from the envelope — 你好, key.';
const kChromiumFlags = [
  '--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
  '--disable-background-networking', '--disable-component-update', '--disable-sync',
];

export const zthost = process.env.ZTHOST;
const chromiumPath = process.env.ZT_CHROMIUM || '/usr/bin/chromium';
export const outputDir = process.env.ZT_TEST_OUTPUT || os.tmpdir();
assert.ok(zthost, 'set ZTHOST to the zthost program');

const started = Date.now();
export const step = (text) => console.log(`[${((Date.now() - started) / 1000).toFixed(1)} s] ${text}`);

export function giveUpAfter(ms) {
  setTimeout(() => {
    console.error(`browser test: still running after ${ms / 1000} s, giving up`);
    process.exit(1);
  }, ms).unref();
}

// A folder for the run, with the software key's root and the configuration in it.
export function makeRun(name) {
  const work = fs.mkdtempSync(path.join(outputDir, `${name}-`));
  const root = path.join(work, 'root');
  const env = { ...process.env, SOFTSKF_ROOT: root, TMPDIR: work, XDG_CONFIG_HOME: path.join(work, 'config') };
  delete env.ZTHOST_PIN;
  // `zthost ARGS`; tool() adds the software key's root, command() does not.
  const command = (...args) => {
    const run = spawnSync(zthost, args, { env, encoding: 'utf8' });
    assert.equal(run.status, 0, `zthost ${args.join(' ')} failed: ${run.stderr}`);
    return run.stdout;
  };
  const tool = (...args) => command(...args, '--root', root);
  return { work, root, env, tool, command, hostLog: path.join(work, 'host.log') };
}

// A key with the user PIN kUserPin, its certificate, and an envelope of kPlaintext.
export function provision(run) {
  run.tool('keygen', '--name', 'browser-device', '--pin', kUserPin, '--admin-pin', 'browser-admin-5510');
  const certificatePath = path.join(run.work, 'cert.b64');
  run.tool('cert', '--out', certificatePath);
  const contentPath = path.join(run.work, 'content.txt');
  fs.writeFileSync(contentPath, kPlaintext);
  const envelopePath = path.join(run.work, 'envelope.b64');
  run.tool('encrypt', '--cert', certificatePath, '--in', contentPath, '--out', envelopePath);
  return {
    certificatePath,
    certificate: fs.readFileSync(certificatePath, 'latin1').trim(),
    envelopePath,
    encrypt: (bytes) => {
      const input = path.join(run.work, 'content.bin');
      fs.writeFileSync(input, bytes);
      return run.tool('encrypt', '--cert', certificatePath, '--in', input).trim();
    },
  };
}

export function freePort() {
  return new Promise((resolve) => {
    const server = net.createServer();
    server.listen(0, '127.0.0.1', () => {
      const { port } = server.address();
      server.close(() => resolve(port));
    });
  });
}

// Servers still running when the test ends, passed or failed, are stopped with it.
const running = new Set();
process.on('exit', () => {
  for (const child of running)
    child.kill('SIGTERM');
});

// `zthost serve` with `args`; `firstLine` is its first line of output.
export function startServe(run, args = []) {
  const serve = spawn(zthost, ['serve', ...args, '--root', run.root, '--host-log', run.hostLog, '-v'],
                      { env: run.env, stdio: ['ignore', 'pipe', 'pipe'] });
  running.add(serve);
  serve.once('exit', () => running.delete(serve));
  let stderr = '';
  serve.stderr.on('data', (chunk) => { stderr += chunk; });
  const ended = new Promise((resolve) => serve.once('exit', (code, signal) => resolve({ code, signal })));
  const firstLine = new Promise((resolve, reject) => {
    readline.createInterface({ input: serve.stdout }).once('line', resolve);
    ended.then(({ code }) => reject(new Error(`zthost serve ended (${code}): ${stderr}`)));
  });
  const stop = async () => {
    serve.kill('SIGTERM');
    const { code } = await ended;
    assert.equal(code, 0, stderr);
    return stderr;
  };
  return { serve, firstLine, stderr: () => stderr, stop };
}

export async function launchChromium(run, { args = [], ignoreHTTPSErrors = false } = {}) {
  const userDataDir = fs.mkdtempSync(path.join(run.work, 'chromium-profile-'));
  return chromium.launchPersistentContext(userDataDir, {
    executablePath: chromiumPath,
    headless: true,
    args: [...kChromiumFlags, ...args],
    acceptDownloads: true,
    ignoreHTTPSErrors,
    viewport: { width: 1200, height: 900 },
  });
}

// Collects a page's script errors and console errors, which a test expects to stay empty.
export function watchProblems(page, expected = []) {
  const problems = [];
  page.on('pageerror', (error) => problems.push(`page error: ${error.message}`));
  page.on('console', (message) => {
    const text = message.text();
    if (message.type() === 'error' && !expected.some((pattern) => pattern.test(text)))
      problems.push(`console: ${text}`);
  });
  return problems;
}
